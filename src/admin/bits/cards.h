// Card numbers to bits and back, with the reasons why a word is not a card number or a pattern not
// a card of a format.
#ifndef BADGEMINT_ADMIN_BITS_CARDS_H
#define BADGEMINT_ADMIN_BITS_CARDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cardsets/card_functions.h"
#include "formats/CardFormat.h"

namespace badgemint::admin {

struct NumberedCard {
  int64_t number;
  CardPattern pattern;
};

// The card of this number. Throws Failure (refused) with the reason when there is none: the word is
// not a card number, or does not fit its field.
NumberedCard encodeWord(const CardEncoder& encoder, std::string_view word);

// A pattern as one format decodes it.
struct DecodedCard {
  int64_t number = 0;
  CardFormat::FieldValues values{};  // Of the other fields.
  CardPattern encoded{};             // What the format makes of these.
  std::vector<std::string> faults;   // In plain words; none for a card of the format.
};

// None when bits are set outside the cards of the format.
std::optional<DecodedCard> decodeCard(const CardFormat& format, const CardPattern& card);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_BITS_CARDS_H
