// What a word of an input file is, and how much of it a message may show.
#ifndef BADGEMINT_ADMIN_CHECK_WORD_H
#define BADGEMINT_ADMIN_CHECK_WORD_H

#include <cstddef>
#include <cstdint>
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
