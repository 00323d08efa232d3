// The step that every entry function starts with: loading the card formats of a site.
#ifndef BADGEMINT_FORMATS_LOADFORMATS_H
#define BADGEMINT_FORMATS_LOADFORMATS_H

#include <cstdint>

#include "formats/CardFormatSet.h"
#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// Loads every format that the formats file lists into `formats`. `formatsFile` is the whole path;
// the format files are looked up in `baseDirectory` by their names without directories. Stops at
// the first failure with its code, logged where it happened: that of the formats file or of the
// format, kFormatNotAdded, or kOutOfMemory. What was loaded before stays in the set. Messages of
// this step itself are logged as `module`.
[[nodiscard]] int32_t loadFormats(const char* module, const char* baseDirectory,
                                  const char* formatsFile, CardFormatSet& formats);

}  // namespace badgemint

#endif  // BADGEMINT_FORMATS_LOADFORMATS_H
