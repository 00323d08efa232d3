// What a word of an input file is, which bytes of a line an editor does not show, and how much of a
// word a message may show.
#ifndef BADGEMINT_ADMIN_CHECK_WORD_H
#define BADGEMINT_ADMIN_CHECK_WORD_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "inputcards/cardline.h"
#include "support/textutil.h"

namespace badgemint::admin {

// The length of the decimal number at the start of a text, with its sign; 0 for none.
size_t numberLength(std::string_view text);

inline bool isNumber(std::string_view word) {
  return !word.empty() && numberLength(word) == word.size();
}
inline bool isZero(std::string_view word) {
  return word.find_first_not_of('0') == std::string_view::npos;
}

// The number that a word begins with, and 0 where there is none; it saturates at 64 bits. A NUL or
// another character that is no digit has to follow the word.
int64_t wordValue(std::string_view word);

// A byte of a line that an editor does not show, or shows as a blank.
struct HiddenByte {
  size_t offset;
  const char* effect;  // What it is, and what that does.
};

// The first NUL with something after it, carriage return before the end of the line, or no-break
// space, from `from` on; in a comment, which begins at `comment`, a no-break space does no harm.
// The newline may be there.
std::optional<HiddenByte> findHiddenByte(std::string_view line, size_t from = 0,
                                         size_t comment = std::string_view::npos);

inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
// Whether the line is one of those that a version control system leaves where versions conflict.
bool isMergeMark(std::string_view line);
// Whether a file that begins like this is in UTF-16, which is read as if each character were two.
bool isUtf16(std::string_view start);
inline constexpr char kMergeMarkText[] =
    "a mark of a merge conflict: choose one of the two versions that follow and delete the marks";
inline constexpr char kUtf16Text[] = "the file is UTF-16: save it as UTF-8";

// How a message shows a word of a wrong line, in which any word may be a PIN: never that of a PIN;
// any other in double quotes up to the first character that its field cannot have, and as "of N
// digits" when that part has more digits than the largest value of the field. Only card numbers
// without format have hexadecimal digits.
std::string shown(std::string_view word, const LineField& field, bool isHex = false);
// Whether it is not shown for its digits: they could be worked out from the number that is read.
bool hasTooManyDigits(std::string_view word, const LineField& field);
// The same of a word that ought to be letters.
std::string shownName(std::string_view word);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_WORD_H
