// Checks the formats file and the format files that it lists as a build does, but goes on behind
// what fails, and looks for what a build would take without a word.
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
  size_t error = Findings::kNotKept;   // That tells why it did not load.
};

struct CheckedFormats {
  bool complete = true;                // False when the formats file could not be read to its end.
  std::vector<CheckedFormat> formats;  // In the order of the file.

  // The first of this ID, as a build finds it; null when there is none.
  const CheckedFormat* find(uint32_t id) const;
};

// Loads every format that can be loaded into `formats`, which owns them. Adds the formats file and
// then the format files, as listed and each once, to the findings, and sets their verdict at the
// first thing for which a build would fail. Throws std::bad_alloc, and as checkFormatFile does.
CheckedFormats checkFormats(const std::string& formatsFile, CardFormatSet& formats,
                            Findings& findings);

// The same for one format file that no formats file has to name; `path` leads to it. Null, with an
// error among the findings, when it does not load.
const CardFormat* checkFormatAlone(const std::string& path, CardFormatSet& formats,
                                   Findings& findings);

// The rules of a format file that loaded as `format`; `file` is its number among the findings.
// Throws std::system_error when the file, which loaded, cannot be read again.
void checkFormatFile(const std::string& path, const CardFormat& format, int file,
                     Findings& findings);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_FORMATSCHECK_H
