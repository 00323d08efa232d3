// Reads words that several verbs accept: keys, numbers, times, card sets and cards.
#include "admin/verbs/verb.h"

#include <ctime>

#include "admin/bits/cards.h"
#include "support/fieldscanner.h"
#include "support/result.h"

namespace badgemint::admin {

std::optional<CardPattern> keyOfHex(std::string_view word) {
  if (word.starts_with("0x") || word.starts_with("0X")) word.remove_prefix(2);
  if (checkCardNumber(word, 0, 1) != kSuccess) return std::nullopt;
  CardPattern key{};
  hexToBits(word, key);
  return key;
}

std::optional<uint32_t> numberOf(std::string_view word) {
  SaturatedInt64 number{};
  if (word.empty() || !digitsToInt64(word, number) || number.value > UINT32_MAX)
    return std::nullopt;
  return static_cast<uint32_t>(number.value);
}

CardEncoder encoderOfSet(std::string_view set, const cardsets& sets,
                         const CheckedFormats& formats) {
  const uint32_t csid = numberOf(set).value_or(UINT32_MAX);
  const cardset* const record = csid <= kLastCardSetId ? sets.getCardSet(csid) : nullptr;
  if (record == nullptr) throw Refused("there is no card set {}", inQuotes(set));
  const CheckedFormat* const listed = formats.find(record->fmtid);
  if (listed == nullptr || listed->format == nullptr)
    throw Refused("format {} of card set {} is not available", record->fmtid, record->csid);
  return {listed->format, listed->format->encodeSite(record->fldvalues)};
}

uint32_t parseHolder(const std::string& word) {
  if (const auto number = numberOf(word)) return *number;
  throw NotDone("{} is not a unique ID, a number from 0 to 4294967295", inQuotes(word));
}

CardPattern parseKey(const std::string& word) {
  if (const auto key = keyOfHex(word)) return *key;
  throw NotDone("{} is not a key of 1 to 32 hexadecimal digits", inQuotes(word));
}

CardPattern parseCard(const std::string& word, const Site& site) {
  const size_t colon = word.find(':');
  if (colon == std::string::npos)
    throw NotDone("{} is not a card; write card set and number as in 1:15890", inQuotes(word));
  const CardEncoder encoder = encoderOfSet(word.substr(0, colon), site.sets(), site.formats());
  return encodeWord(encoder, word.substr(colon + 1));
}

uint32_t parseNumber(const char* option, const std::string& word, uint32_t most) {
  const auto number = word.empty() ? 0 : numberOf(word);
  if (number && *number <= most) return *number;
  throw NotDone("{} {} is not a number from 0 to {}", option, inQuotes(word), most);
}

uint32_t parseTimeOrNow(const char* option, const std::string& word) {
  if (word.empty()) return static_cast<uint32_t>(std::time(nullptr));
  tm given{};
  const char* const end = strptime(word.c_str(), "%Y/%m/%d %H:%M:%S", &given);
  tm valid = given;  // With February 30 turned into March 2, and second 60 into the next minute.
  const time_t seconds = timegm(&valid);
  constexpr int kLastYear = 2037 - 1900;
  if (end == nullptr || *end != '\0' || valid.tm_mday != given.tm_mday ||
      valid.tm_sec != given.tm_sec || given.tm_year > kLastYear || seconds <= 0)
    throw NotDone("{} {} is not a time; write it as \"2026/01/31 18:00:00\"", option,
                  inQuotes(word));
  return static_cast<uint32_t>(seconds);
}

}  // namespace badgemint::admin
