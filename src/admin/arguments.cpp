#include "admin/arguments.h"

#include <ctime>

#include "admin/bits/cardnumber.h"
#include "admin/records/wording.h"
#include "support/datetime.h"
#include "support/fieldscanner.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint::admin {

namespace {

// A text without the zeros in front of its numbers: the cards file may leave them out, too.
std::string withoutLeadingZeros(std::string_view text) {
  std::string shortened;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool isFirst = shortened.empty() || !isDigit(shortened.back());
    const bool isLeading = text[i] == '0' && isFirst && i + 1 < text.size() && isDigit(text[i + 1]);
    if (!isLeading) shortened += text[i];
  }
  return shortened;
}

}  // namespace

std::optional<CardPattern> keyOf(std::string_view word) {
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

std::optional<uint32_t> timeOf(const std::string& word) {
  std::string joined = word;
  if (const size_t blank = joined.find(' '); blank != std::string::npos) joined[blank] = '-';
  uint32_t seconds = 0;
  if (parseDateTime(joined.c_str(), seconds) != kSuccess) return std::nullopt;
  if (seconds == 0 || withoutLeadingZeros(timeText(seconds)) != withoutLeadingZeros(word))
    return std::nullopt;
  return seconds;
}

CardEncoder encoderOfSet(std::string_view set, const Site& site) {
  const auto csid = numberOf(set);
  const bool isSet = csid && *csid <= kLastCardSetId;
  const cardset* const record = isSet ? site.sets().getCardSet(*csid) : nullptr;
  if (record == nullptr) throw Failure(ExitStatus::kRefused, "there is no card set " + quoted(set));
  const CardFormat* const format = site.formatOfSet(record->csid);
  if (format == nullptr)
    throw Failure(ExitStatus::kRefused, "format " + std::to_string(record->fmtid) +
                                            " of card set " + std::to_string(record->csid) +
                                            " is not there");
  return {format, format->encodeSite(record->fldvalues)};
}

CardPattern keyOfCard(std::string_view set, std::string_view number, const Site& site) {
  return encodeWord(encoderOfSet(set, site), number).pattern;
}

uint32_t parseHolder(const std::string& word) {
  const auto uniqid = numberOf(word);
  if (!uniqid)
    throw Failure(ExitStatus::kNotDone, "{} is not a unique ID, a number from 0 to 4294967295",
                  quoted(word));
  return *uniqid;
}

CardPattern parseKey(const std::string& word) {
  const auto key = keyOf(word);
  if (!key)
    throw Failure(ExitStatus::kNotDone, "{} is not a key of 1 to 32 hexadecimal digits",
                  quoted(word));
  return *key;
}

CardPattern parseCard(const std::string& word, const Site& site) {
  const size_t colon = word.find(':');
  if (colon == std::string::npos)
    throw Failure(ExitStatus::kNotDone, "{} is not a card; write card set and number as in 1:15890",
                  quoted(word));
  return keyOfCard(word.substr(0, colon), word.substr(colon + 1), site);
}

uint32_t parseTimeOrNow(const char* option, const std::string& word) {
  if (word.empty()) return static_cast<uint32_t>(std::time(nullptr));
  const auto time = timeOf(word);
  if (!time)
    throw Failure(ExitStatus::kNotDone, "{} {} is not a time; write it as \"2026/01/31 18:00:00\"",
                  option, quoted(word));
  return *time;
}

}  // namespace badgemint::admin
