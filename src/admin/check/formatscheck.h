// Checks the formats file and the format files that it lists as a build does, but goes on after an
// error, and warns of what a build accepts without a message.
#ifndef BADGEMINT_ADMIN_CHECK_FORMATSCHECK_H
#define BADGEMINT_ADMIN_CHECK_FORMATSCHECK_H

#include <cstdint>
#include <string>
#include <vector>

#include "admin/check/finding.h"
#include "formats/CardFormatSet.h"

namespace badgemint::admin {

// An entry of the formats file.
struct CheckedFormat {
  uint32_t id = 0;
  std::string fileName;                // Its base name, in the current folder.
  const CardFormat* format = nullptr;  // Null when it did not load.
  int64_t line = 0;                    // Of the formats file.
  size_t error = Findings::kNotKept;   // The finding that reports why it did not load.
};

struct CheckedFormats {
  bool complete = true;                // False when the formats file could not be read to its end.
  std::vector<CheckedFormat> formats;  // In the order of the file.

  // The first of this ID, as a build finds it; null when there is none.
  const CheckedFormat* find(uint32_t id) const;
};

// Loads every format that can be loaded into `formats`, which owns them. Adds the formats file and
// then the format files, as listed and each once, to the findings, and sets their verdict at the
// first thing for which a build would fail. Throws std::bad_alloc, and std::system_error when a
// file that loaded cannot be read again.
CheckedFormats checkFormats(const std::string& formatsFile, CardFormatSet& formats,
                            Findings& findings);

// The same for a single format file, which `path` leads to. Null, with an error among the findings,
// when it does not load.
const CardFormat* checkFormatAlone(const std::string& path, CardFormatSet& formats,
                                   Findings& findings);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_FORMATSCHECK_H
