// A card as one format reads it, and what keeps it from being one of that format's cards.
#ifndef BADGEMINT_ADMIN_BITS_CARDREADING_H
#define BADGEMINT_ADMIN_BITS_CARDREADING_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "formats/CardFormat.h"

namespace badgemint::admin {

struct CardReading {
  int64_t number = 0;
  CardFormat::FieldValues values{};  // Of the other fields.
  CardPattern encoded{};             // What the format makes of these.
  std::vector<std::string> faults;   // In plain words; none for a card of the format.
};

// None when the format has nothing like it: bits are set outside its cards.
std::optional<CardReading> readCard(const CardFormat& format, const CardPattern& card);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_BITS_CARDREADING_H
