// Arguments that several verbs have in common: keys, numbers, times, card sets and cards.
#ifndef BADGEMINT_ADMIN_ARGUMENTS_H
#define BADGEMINT_ADMIN_ARGUMENTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "admin/records/site.h"
#include "cardsets/card_functions.h"

namespace badgemint::admin {

// A key of 1 to 32 hexadecimal digits, with or without "0x"; zeros at its end may be missing. None
// for any other word.
std::optional<CardPattern> keyOfHex(std::string_view word);

// A decimal number of 32 bits, digits alone. None for any other word.
std::optional<uint32_t> numberOf(std::string_view word);

// The encoder for the cards of a card set. Throws Failure (refused) when there is no such card set,
// or its format is missing.
CardEncoder encoderOfSet(std::string_view set, const cardsets& sets,
                         const std::vector<CheckedFormat>& formats);

// The key of a card of a site. Throws Failure (refused) when there is no such card.
CardPattern keyOfCard(std::string_view set, std::string_view number, const Site& site);

// The same for whole words of the command line. Throw Failure: not done for a word that cannot be
// one, refused as keyOfCard does.
uint32_t parseHolder(const std::string& word);
CardPattern parseKey(const std::string& word);
// "1:15890".
CardPattern parseCard(const std::string& word, const Site& site);
// The value of `option`, such as "2026/01/31 18:00:00", which is UTC, as seconds since 1970; the
// clock when it was not given.
uint32_t parseTimeOrNow(const char* option, const std::string& word);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_ARGUMENTS_H
