#include "admin/check/siterules.h"

#include <cstring>
#include <string>

#include "cardsets/cardsets.h"
#include "support/fieldscanner.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

constexpr uint32_t kFirstValue = 3;  // Behind "f", the card set and the format.

bool isNumber(const char* word) {
  const char* const digits = word + (*word == '-' || *word == '+' ? 1 : 0);
  const size_t count = std::strspn(digits, "0123456789");
  return count > 0 && digits[count] == '\0';
}

std::string field(char letter) {
  return std::string("field ") + letter;
}

}  // namespace

// The width alone does not tell: that of every field of a VFF file is the card number's.
bool hasSiteValue(const CardFormat& format, int32_t field) {
  const bool isOwn = format.masks().letters[static_cast<size_t>(field)] == 'A' + field;
  return isOwn && field != format.cardNumberField() && format.fieldBitCount(field) > 0;
}

size_t SiteRules::explain(const Tokenizer& words, int32_t result) const {
  const auto error = [&](const char* word, const std::string& text) {
    return _findings.error(word == nullptr ? _line.whole() : at(word), result, text);
  };
  if (words.count() < 2) return error(nullptr, "the card set is missing");
  const int64_t csid = textToInt64(words.word(1));
  if (csid < 1 || csid > 253)
    return error(words.word(1), "card set " + printable(words.word(1)) + " is not 1 to 253");
  if (words.count() < kFirstValue) return error(nullptr, "the format is missing");
  if (std::strcmp(words.word(0), "f") != 0)
    return error(words.word(0), quoted(words.word(0)) + " is no line type");
  const int64_t fmtid = textToInt64(words.word(2));
  if (fmtid < 1 || fmtid > UINT32_MAX)
    return error(words.word(2), "format " + printable(words.word(2)) + " is not 1 to 4294967295");
  for (uint32_t i = kFirstValue; i < words.count(); i += 2) {
    const char* const word = words.word(i);
    if (*word < 'A' || *word > 'H')
      return error(word, quoted(word) + " stands where a field's letter A to H is due");
  }
  return error(nullptr, "cannot be taken");
}

void SiteRules::checkRepeated(Tokenizer& words, const cardset& set, int64_t firstLine) const {
  cardsets sets;
  const bool isTaken = sets.addCardSetLine(words, 0) == 1;
  const cardset* const other = isTaken ? sets.getCardSet(set.csid) : nullptr;
  if (other != nullptr && other->fmtid == set.fmtid && other->fldvalues == set.fldvalues) return;
  _findings.warning(_line.whole(), "card-set",
                    "card set " + std::to_string(set.csid) + " is defined otherwise in line " +
                        std::to_string(firstLine) + ": this line is ignored");
}

void SiteRules::checkValues(const Tokenizer& words, const CardFormat* format) const {
  for (uint32_t i = 1; i < kFirstValue; ++i)
    if (!isNumber(words.word(i)))
      _findings.warning(at(words.word(i)), "number",
                        quoted(words.word(i)) + " is not wholly a number: the " +
                            (i == 1 ? "card set" : "format") + " is read as " +
                            std::to_string(textToInt64(words.word(i))));
  const size_t warnings = _findings.warnings();
  const Fields given = checkGiven(words, format);
  // What is misread explains what is missing.
  if (format != nullptr && _findings.warnings() == warnings) checkMissing(given, *format);
}

SiteRules::Fields SiteRules::checkGiven(const Tokenizer& words, const CardFormat* format) const {
  Fields given;
  for (uint32_t i = kFirstValue; i < words.count(); i += 2) {
    const auto field = static_cast<size_t>(*words.word(i) - 'A');
    checkPair(words.word(i), i + 1 < words.count() ? words.word(i + 1) : nullptr, format,
              given[field]);
    given.set(field);
  }
  return given;
}

void SiteRules::checkMissing(Fields given, const CardFormat& format) const {
  for (int32_t i = 0; i < kFieldCount; ++i)
    if (hasSiteValue(format, i) && !given[static_cast<size_t>(i)])
      _findings.warning(
          _line.whole(), "site-value",
          field(static_cast<char>('A' + i)) + " gets no value: it is 0 on every card of the set");
}

void SiteRules::checkPair(const char* letter, const char* value, const CardFormat* format,
                          bool isRepeated) const {
  const int32_t index = *letter - 'A';
  if (value == nullptr) {
    warn(letter, quoted(letter) + " has no value: " + field(*letter) + " is not set");
  } else if (std::strlen(letter) > 1) {
    warn(letter, quoted(letter) + " is taken for " + field(*letter) + ": a field is one letter");
  } else if (!isNumber(value)) {
    warn(value, "value " + quoted(value) + " of " + field(*letter) + " is read as " +
                    std::to_string(textToInt32(value)));
  } else if (textToInt64(value) != textToInt32(value)) {
    warn(value, "value " + printable(value) + " of " + field(*letter) + " is read as " +
                    std::to_string(textToInt32(value)));
  } else if (textToInt32(value) < 0) {
    warn(value, "value " + printable(value) + " of " + field(*letter) +
                    " is negative: the card sets file does not keep it");
  } else if (isRepeated) {
    warn(letter, field(*letter) + " is given twice: the last value counts");
  } else if (format != nullptr && index == format->cardNumberField()) {
    warn(letter, field(*letter) + " is the card number's: its value is not used");
  } else if (format != nullptr) {
    checkFits(letter, value, index, *format);
  }
}

void SiteRules::checkFits(const char* letter, const char* value, int32_t index,
                          const CardFormat& format) const {
  if (!hasSiteValue(format, index)) {
    warn(letter, "the format has no " + field(*letter));
    return;
  }
  const auto at = static_cast<size_t>(index);
  const FieldDefinition& definition = format.fieldDefinitions()[at];
  if (definition.ftyp == kNotGiven) return;  // On every card of the format 0, which is its fault.
  const int64_t number = textToInt32(value);
  const bool isBounded = definition.maxval > 0;
  if (isBounded && (number < definition.minval || number > definition.maxval)) {
    warn(value, "value " + printable(value) + " of " + field(*letter) + " is not " +
                    std::to_string(definition.minval) + " to " + std::to_string(definition.maxval) +
                    ", as its format says");
    return;
  }
  CardFormat::FieldValues values{};
  values[at] = number;
  int64_t decoded = 0;
  static_cast<void>(
      format.decodeField(format.encodeNumber(format.encodeSite(values), 0), index, decoded));
  if (decoded != number)
    warn(value, "value " + printable(value) + " does not fit the " +
                    std::to_string(format.fieldBitCount(index)) + " bits of " + field(*letter) +
                    ": cards have " + std::to_string(decoded));
}

}  // namespace badgemint::admin
