// The check of 'f' lines, which define card sets.
#include <algorithm>
#include <bitset>
#include <cstring>
#include <string>

#include "admin/check/cardscheck.h"
#include "cardsets/cardsets.h"
#include "support/fieldscanner.h"
#include "support/result.h"
#include "support/tokenizer.h"

namespace badgemint::admin {

namespace {

constexpr uint32_t kFirstValue = 3;  // After "f", the card set and the format.
constexpr LineField kCardSetField = {"card set", FieldKind::kCardSet, 253};
constexpr LineField kFormatField = {"format", FieldKind::kNumber, UINT32_MAX};

class CardSetLine {
 public:
  // Splits the text of the line.
  explicit CardSetLine(CheckedLine& line) : _line(line) {
    _words.split(line.text, kWordDelimiters);
  }

  uint32_t csid() const {
    return _words.count() < 2 ? 0 : static_cast<uint32_t>(textToInt32(_words.word(1)));
  }
  Tokenizer& words() { return _words; }

  // Why a build rejects the line with this result; returns the number of the error.
  size_t reportError(int32_t result) const {
    if (_words.count() < 2) return _line.error(_line.whole(), result, "the card set is missing");
    const char* const set = _words.word(1);
    if (const int64_t id = textToInt64(set); id < 1 || id > 253)
      return _line.error(_line.at(set), result, "card set {} is not 1 to 253",
                         shown(set, kCardSetField));
    if (_words.count() < kFirstValue)
      return _line.error(_line.whole(), result, "the format is missing");
    if (std::strcmp(_words.word(0), "f") != 0)
      return _line.error(_line.at(_words.word(0)), result,
                         "the line type is \"f\" alone, and a blank follows it");
    const char* const format = _words.word(2);
    if (const int64_t id = textToInt64(format); id < 1 || id > UINT32_MAX)
      return _line.error(_line.at(format), result, "format {} is not 1 to 4294967295",
                         shown(format, kFormatField));
    for (uint32_t i = kFirstValue; i < _words.count(); i += 2)
      if (const char* const letter = _words.word(i); *letter < 'A' || *letter > 'H')
        return _line.error(_line.at(letter), result, "{} where a field letter A to H is expected",
                           shownName(letter));
    return _line.error(_line.whole(), result, "the card set cannot be defined");
  }

  // A second line of a card set, of which the first counts.
  void checkRepeated(const cardset& set, int64_t firstLine) {
    cardsets sets;
    const bool isDefined = sets.addCardSetLine(_words, 0) == 1;
    const cardset* const other = isDefined ? sets.getCardSet(set.csid) : nullptr;
    if (other != nullptr && other->fmtid == set.fmtid && other->fldvalues == set.fldvalues) return;
    _line.warn(_line.whole(), "card-set",
               "card set {} has another definition in line {}, and this line is ignored", set.csid,
               firstLine);
  }

  // The format is null when it is not known or did not load.
  void checkNumbersAndValues(const CardFormat* format) {
    checkIsNumber(_words.word(1), kCardSetField);
    checkIsNumber(_words.word(2), kFormatField);
    // What is misread explains what is missing.
    if (checkValues(format) && format != nullptr) checkMissing(*format);
  }

  // The values that the line gives. Returns whether all are right.
  bool checkValues(const CardFormat* format) {
    bool isRight = true;
    for (uint32_t i = kFirstValue; i < _words.count(); i += 2) {
      const char* const letter = _words.word(i);
      const char* const value = i + 1 < _words.count() ? _words.word(i + 1) : nullptr;
      isRight = checkPair(letter, value, format) && isRight;
      _given.set(static_cast<size_t>(*letter - 'A'));
    }
    return isRight;
  }

  // The fields that the line gives no value.
  void checkMissing(const CardFormat& format) const {
    for (int32_t i = 0; i < kFieldCount; ++i)
      if (hasSiteValue(format, i) && !_given[static_cast<size_t>(i)])
        _line.warn(_line.whole(), "site-value",
                   "field {:c} has no value and is 0 on every card of the set", 'A' + i);
  }

 private:
  void checkIsNumber(const char* word, const LineField& field) const {
    if (!isNumber(word))
      _line.warn(_line.at(word), "number", "{} {} is not a number: it is read as {}", field.name,
                 shown(word, field), textToInt64(word));
  }

  // Returns whether letter and value are right; `value` is null when it is missing.
  bool checkPair(const char* letter, const char* value, const CardFormat* format) const {
    const int32_t field = *letter - 'A';
    if (value == nullptr)
      return warn(letter, "field {} has no value and is not set", shownName(letter));
    if (std::strlen(letter) > 1)
      return warn(letter, "{} sets field {:c}: the name of a field is one letter",
                  shownName(letter), *letter);
    const LineField limits = valueField(field, format);
    const ShownWord number = shown(value, limits);
    if (!isNumber(value) || textToInt64(value) != textToInt32(value))
      return warn(value, "value {} of field {:c} is not {}{}", number, *letter,
                  isNumber(value) ? "0 to 2147483647" : "a number",
                  readAs(value, limits, textToInt32(value)));
    if (textToInt32(value) < 0)
      return warn(value, "value {} of field {:c} is negative: the card sets file does not keep it",
                  number, *letter);
    if (_given[static_cast<size_t>(field)])
      return warn(letter, "field {:c} is given twice, and the last value counts", *letter);
    if (format == nullptr) return true;
    if (field == format->cardNumberField())
      return warn(letter, "field {:c} is the card number: its value is not used", *letter);
    if (!hasSiteValue(*format, field)) return warn(letter, "the format has no field {:c}", *letter);
    return checkFits(value, number, field, *format);
  }

  // A value with more digits than the largest one may be a PIN.
  static LineField valueField(int32_t field, const CardFormat* format) {
    LineField limits = {"value", FieldKind::kNumber, INT32_MAX};
    if (format == nullptr || !hasSiteValue(*format, field)) return limits;
    const int32_t bits = format->fieldBitCount(field);
    if (bits < 31) limits.most = (1U << bits) - 1;
    const int32_t most = format->fieldDefinitions()[static_cast<size_t>(field)].maxval;
    if (most > 0) limits.most = std::min(limits.most, static_cast<uint32_t>(most));
    return limits;
  }

  bool checkFits(const char* value, const ShownWord& shownValue, int32_t field,
                 const CardFormat& format) const {
    const auto at = static_cast<size_t>(field);
    const FieldDefinition& definition = format.fieldDefinitions()[at];
    if (definition.ftyp == kNotGiven) return true;  // 0 on every card: a finding of the format.
    const int64_t number = textToInt32(value);
    CardFormat::FieldValues values{};
    values[at] = number;
    int64_t decoded = 0;
    static_cast<void>(
        format.decodeField(format.encodeNumber(format.encodeSite(values), 0), field, decoded));
    const std::string carried =
        shownValue.hasTooManyDigits() ? "another value" : fmt::to_string(decoded);
    const bool isBounded = definition.maxval > 0;
    if (isBounded && (number < definition.minval || number > definition.maxval))
      return warn(value,
                  "value {} of field {:c} is not {} to {}, as its format requires: the cards carry "
                  "{}",
                  shownValue, 'A' + field, definition.minval, definition.maxval, carried);
    if (decoded == number) return true;
    return warn(value, "value {} does not fit the {} bits of field {:c}: the cards carry {}",
                shownValue, format.fieldBitCount(field), 'A' + field, carried);
  }

  template <typename... Args>
  bool warn(const char* word, fmt::format_string<Args...> format, Args&&... args) const {
    _line.warn(_line.at(word), "site-value", format, std::forward<Args>(args)...);
    return false;
  }

  CheckedLine& _line;
  Tokenizer _words;
  std::bitset<kCardSetFields> _given;
};

}  // namespace

// The width alone does not say: that of every field of a VFF file is the card number's.
bool hasSiteValue(const CardFormat& format, int32_t field) {
  const bool isOwn = format.masks().letters[static_cast<size_t>(field)] == 'A' + field;
  return isOwn && field != format.cardNumberField() && format.fieldBitCount(field) > 0;
}

std::optional<CardFormat::FieldValues> readSiteValues(const std::string& text,
                                                      const CardFormat& format,
                                                      Findings& findings) {
  std::string copy = "f 1 1 " + text;
  CheckedLine checked{findings, {findings.addFile("")}, copy.data()};
  CardSetLine line(checked);
  cardsets sets;
  if (sets.addCardSetLine(line.words(), 0) != 1) {
    line.reportError(kInvalidCardSet);
    return {};
  }
  if (!line.checkValues(&format)) return {};
  line.checkMissing(format);
  return sets.getCardSet(1)->fldvalues;
}

namespace {

// Whether another card set has the same cards.
void checkSameValues(CardsCheck& check, const CheckedLine& line, const cardset& set,
                     const CardFormat& format) {
  const PatternWords bits = format.encodeSite(set.fldvalues).words;
  const auto [other, isNew] = check.setsByValues.try_emplace({set.fmtid, bits}, set.csid);
  if (!isNew)
    line.warn(line.whole(), "card-set",
              "card set {} has the format and the site values of card set {} in line {}: a card "
              "number is the same card in both",
              set.csid, other->second, check.lineOfSet[other->second]);
}

}  // namespace

int32_t checkCardSetLine(CardsCheck& check, CheckedLine& line) {
  std::string copy = line.text;
  CardSetLine words(line);
  const uint32_t csid = words.csid();
  line.subject.csid = static_cast<int32_t>(csid);
  const bool isRepeated = check.site.cardSets().getCardSet(csid) != nullptr;
  const int32_t result = check.checkAsBuild(line, copy.data(), 0);
  if (result < 0) {
    check.undefinedSets[csid] = words.reportError(result);
  } else if (const cardset& set = *check.site.cardSets().getCardSet(csid); line.hasHidden()) {
    return result;
  } else if (isRepeated) {
    words.checkRepeated(set, check.lineOfSet[csid]);
  } else {
    check.lineOfSet[csid] = line.start.line;
    const CheckedFormat* const listed = check.formats.find(set.fmtid);
    const CardFormat* const format = listed == nullptr ? nullptr : listed->format;
    words.checkNumbersAndValues(format);
    if (format != nullptr) checkSameValues(check, line, set, *format);
  }
  return result;
}

}  // namespace badgemint::admin
