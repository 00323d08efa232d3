// Checks the formats file and the format files that it lists as a build does, but goes on after an
// error, and warns of what a build accepts without a message.
#ifndef BADGEMINT_ADMIN_CHECK_FORMATSCHECK_H
#define BADGEMINT_ADMIN_CHECK_FORMATSCHECK_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "admin/check/finding.h"
#include "formats/CardFormatSet.h"

namespace badgemint::admin {

// An entry of the formats file.
struct CheckedFormat {
  uint32_t id = 0;
  std::string fileName{};              // Its base name, in the current folder.
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

// Loads a format from its file, number `file` among the findings, and checks the file line by line.
// Sets `format` or `error` of the entry.
void checkFormatFile(CardFormat& format, const std::string& path, int file, CheckedFormat& entry,
                     Findings& findings);

// The rule `mask`: the masks against each other. Mask 0 is the output mask, 1 the fixed mask, and 2
// to 9 are the parity masks, whose number counts only if `isParityCountValid`. False when a field
// does not get the positions that it seems to have.
using MaskWarning = std::function<void(size_t mask, size_t position, const std::string& text)>;
bool checkMasks(const CardFormat& format, bool isParityCountValid, const MaskWarning& warning);

// "CDF", "EFF" or "VFF".
std::string_view kindName(const CardFormat& format);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_FORMATSCHECK_H
