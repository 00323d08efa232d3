// Card numbers that stand on the command line.
#ifndef BADGEMINT_ADMIN_BITS_CARDNUMBER_H
#define BADGEMINT_ADMIN_BITS_CARDNUMBER_H

#include <cstdint>
#include <string>
#include <string_view>

#include "cardsets/card_functions.h"

namespace badgemint::admin {

// "field B"; "the number" for the '*' of a VFF.
std::string fieldName(char letter);

struct NumberedCard {
  int64_t number;
  CardPattern pattern;
};

// The card of this number. Throws Failure (refused) that says why there is none: the word is no
// card number, or does not fit its field.
NumberedCard encodeWord(const CardEncoder& encoder, std::string_view word);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_BITS_CARDNUMBER_H
