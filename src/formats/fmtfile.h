// The formats file: which format files a site uses, and the ID that each goes by. A line holds an
// ID and a file name; '=' separates like a blank and '#' begins a comment.
#ifndef BADGEMINT_FORMATS_FMTFILE_H
#define BADGEMINT_FORMATS_FMTFILE_H

#include <array>
#include <cstdint>

#include "support/linereader.h"

namespace badgemint {

class MasterConfiguration;
class Tokenizer;

// A name of a format file, cut at 255 characters.
using FormatFileName = std::array<char, 256>;

// A longer line is read in pieces of this many characters.
inline constexpr int kMaxFormatsLine = 100;

struct FormatsEntry {
  uint32_t formatID = 0;
  FormatFileName fileName{};
};

// What the words of a line of the formats file amount to; the entry is set for kEntry only.
enum class FormatsLineKind { kBlank, kTooFewWords, kIdOutOfRange, kEntry };
FormatsLineKind readFormatsLine(const Tokenizer& words, FormatsEntry& entry);

// Removes what stands before the last '/' of a name.
void cutToBaseName(FormatFileName& fileName);

// Reads the entries one by one. All messages are at level 25.
class fmtfile {
 public:
  // kFormatsOpenFailed, with a message, when the file cannot be opened.
  [[nodiscard]] int32_t open(const char* path);

  // The same for the file that the entry "fmts" of the configuration names, but reported to the
  // error report hook.
  [[nodiscard]] int32_t openFromConfiguration(MasterConfiguration& configuration);

  // The next entry. kEndOfFile when there is none; kFormatsReadFailed when no file is open and,
  // with a message, on a read error. Lines without a file name, or with an ID beyond 32 bits, are
  // reported and skipped; their numbers count from the last entry.
  [[nodiscard]] int32_t readEntry(uint32_t& formatID, FormatFileName& fileName);

  // The same, with what stands before the last '/' of the name removed.
  [[nodiscard]] int32_t readEntryBaseName(uint32_t& formatID, FormatFileName& fileName);

  void close() { _file.close(); }

 private:
  LineReader _file;
};

}  // namespace badgemint

#endif  // BADGEMINT_FORMATS_FMTFILE_H
