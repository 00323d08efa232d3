// What a build reads otherwise than an editor shows it: UTF-16, byte order marks, marks of a merge
// conflict, hidden bytes, lines that are too long. The cards file, the formats file, CDF files and
// the access levels file are searched for it in one way.
#ifndef BADGEMINT_ADMIN_CHECK_ODDTEXT_H
#define BADGEMINT_ADMIN_CHECK_ODDTEXT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "admin/check/finding.h"
#include "support/linereader.h"

namespace badgemint::admin {

inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
inline constexpr char kUtf16Text[] = "the file is UTF-16: save it as UTF-8";
inline constexpr char kMergeMarkText[] =
    "a mark of a merge conflict: choose one of the two versions that follow and delete the marks";
inline constexpr char kLongLineText[] = "the line is too long: the rest is read as another line";
inline constexpr char kNoNewlineText[] =
    "the last line has no newline: the end of the file may be missing";

// Whether this is the first line of a file in UTF-16, which is read as if each character were two.
bool isUtf16(LineReader& line);

// Where the comment of a line of words begins: at a '#' with nothing or a blank before it.
size_t commentStart(std::string_view line);

// A byte or mark that a build reads differently than an editor shows it.
struct OddText {
  size_t offset;       // In the line.
  const char* effect;  // What it is, and what that does.
};

// The first NUL with something after it, carriage return before the end of the line, or no-break
// space, from `from` on; in a comment, which begins at `comment`, a no-break space does no harm.
// The newline may be there.
std::optional<OddText> findHiddenByte(std::string_view line, size_t from = 0,
                                      size_t comment = std::string_view::npos);

// The first thing in the current line that a build reads differently than an editor shows it. A
// Tokenizer reads on after a '#' that ends a word.
std::optional<OddText> findOddText(LineReader& line, bool isForTokenizer);

// The check of a text file that is read line by line.
class TextFileCheck {
 protected:
  TextFileCheck(Findings& findings, int file) : _findings(findings), _file(file) {}

  // About a word of the line read last, into which it points.
  template <typename... Args>
  void warn(const char* word, std::string_view rule, fmt::format_string<Args...> format,
            Args&&... args) {
    _findings.warn(at(word), rule, format, std::forward<Args>(args)...);
  }
  Place at(const char* word) {
    return {_file, _reader.lineNumber(), _reader.bytesBefore() + 1 + (word - _reader.line())};
  }

  Findings& _findings;
  const int _file;
  LineReader _reader;
  size_t _mergeMark = Findings::kNotKept;
};

// Whether a line is one of those that a version control system leaves where versions conflict.
bool isMergeMark(std::string_view line);

// Reports the first such line of a file, as the error that ends a build, or as a warning
// when the result is 0, and counts the others. Returns `finding`, the number of the finding, which
// is kNotKept before the first.
size_t reportMergeMark(Findings& findings, size_t& finding, Place place, int32_t result);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_ODDTEXT_H
