// The check of 'f' lines, which define card sets.
#include <bitset>
#include <cstring>

#include "admin/check/cardscheck.h"
#include "cardsets/cardsets.h"
#include "support/fieldscanner.h"
#include "support/result.h"
#include "support/tokenizer.h"

namespace badgemint::admin {

namespace {

constexpr uint32_t kFirstValue = 3;  // After "f", the card set and the format.
constexpr LineField kFields[] = {{"line type"},
                                 {"card set", FieldKind::kCardSet, kLastCardSetId},
                                 {"format", FieldKind::kNumber, UINT32_MAX}};

// The check of one 'f' line; does not outlive it.
class FieldsLine {
 public:
  // Splits the text of the line.
  explicit FieldsLine(CheckedLine& line) : _line(line) { _words.split(line.text, kWordDelimiters); }

  uint32_t csid() const {
    return _words.count() < 2 ? 0 : static_cast<uint32_t>(textToInt32(_words.word(1)));
  }
  Tokenizer& words() { return _words; }

  // Why a build rejects the line with this result; returns the number of the error.
  size_t reportError(int32_t result) const {
    for (uint32_t i = 1; i < kFirstValue; ++i) {
      const auto& [name, kind, most] = kFields[i];
      const char* const word = _words.word(i);
      if (word == nullptr) return _line.error(_line.whole(), result, "the {} is missing", name);
      if (const int64_t id = textToInt64(word); id < 1 || id > most)
        return _line.error(_line.at(word), result, "{} {} is not a number from 1 to {}", name,
                           shown(word, kFields[i]), most);
    }
    if (std::strcmp(_words.word(0), "f") != 0)
      return _line.error(_line.at(_words.word(0)), result,
                         "the line type is \"f\" alone, and a blank follows it");
    for (uint32_t i = kFirstValue; i < _words.count(); i += 2)
      if (const char* const letter = _words.word(i); *letter < 'A' || *letter > 'H')
        return _line.error(_line.at(letter), result, "{} where a field letter A to H is expected",
                           shownName(letter));
    return Findings::kNotKept;
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

  void checkNumbers() const {
    for (uint32_t i = 1; i < kFirstValue; ++i)
      if (const char* const word = _words.word(i); !isNumber(word))
        _line.warn(_line.at(word), "number", "{} {} is not a number: it is read as {}",
                   kFields[i].name, shown(word, kFields[i]), textToInt64(word));
  }

  // The values that the line gives, and those that it lacks. Returns whether the given ones are
  // right. The format is null when it is not known or did not load.
  bool checkValues(const CardFormat* format) {
    const size_t before = _line.findings->warnings();
    for (uint32_t i = kFirstValue; i < _words.count(); i += 2) {
      checkPair(_words.word(i), _words.word(i + 1), format);
      _given.set(static_cast<size_t>(*_words.word(i) - 'A'));
    }
    if (_line.findings->warnings() != before) return false;
    for (int32_t i = 0; format != nullptr && i < kFieldCount; ++i)
      if (hasSiteValue(*format, i) && !_given[static_cast<size_t>(i)])
        _line.warn(_line.whole(), "site-value",
                   "field {:c} has no value and is 0 on every card of the set", 'A' + i);
    return true;
  }

 private:
  // `value` is null when it is missing.
  void checkPair(const char* letter, const char* value, const CardFormat* format) const {
    const int32_t field = *letter - 'A';
    const std::string word = value == nullptr ? "" : shown(value, valueField(field, format));
    if (value == nullptr)
      warn(letter, "field {} has no value: it is 0 on every card of the set", shownName(letter));
    else if (std::strlen(letter) > 1)
      warn(letter, "{} sets field {:c}: the name of a field is one letter", shownName(letter),
           *letter);
    else if (!isNumber(value))
      warn(value, "value {} of field {:c} is not a number{}", word, *letter,
           effectOf(word, "it is read as", textToInt32(value)));
    else if (_given[static_cast<size_t>(field)])
      warn(letter, "field {:c} is given twice, and the last value counts", *letter);
    else if (format != nullptr && field == format->cardNumberField())
      warn(letter, "field {:c} is the card number: its value is not used", *letter);
    else if (format != nullptr && !hasSiteValue(*format, field))
      warn(letter, "the format has no field {:c}", *letter);
    else if (format != nullptr)
      checkFits(value, word, field, *format);
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

  // A value that the cards carry otherwise than it is written. `word` is how messages show it.
  void checkFits(const char* value, const std::string& word, int32_t field,
                 const CardFormat& format) const {
    const auto at = static_cast<size_t>(field);
    const auto& [label, least, most, order, type] = format.fieldDefinitions()[at];
    if (type == kNotGiven) return;  // 0 on every card: a finding of the format.
    const int64_t number = textToInt64(value);
    CardFormat::FieldValues values{};
    values[at] = textToInt32(value);
    int64_t carried = 0;
    static_cast<void>(
        format.decodeField(format.encodeNumber(format.encodeSite(values), 0), field, carried));
    const bool isOutside = most > 0 && (number < least || number > most);
    if (!isOutside && carried == number) return;
    warn(value, "value {} of field {:c} {}{}", word, 'A' + field,
         isOutside ? fmt::format("is outside the range {} to {} of its format", least, most)
                   : fmt::format("does not fit its {} bits", format.fieldBitCount(field)),
         effectOf(word, "the cards carry", carried));
  }

  template <typename... Args>
  void warn(const char* word, fmt::format_string<Args...> format, Args&&... args) const {
    _line.warn(_line.at(word), "site-value", format, std::forward<Args>(args)...);
  }

  CheckedLine& _line;
  Tokenizer _words;
  std::bitset<kCardSetFields> _given;
};

// Another card set that has the same cards.
void checkSameCards(CardsCheck& check, const CheckedLine& line, const cardset& set,
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

// A width is not enough: in a VFF file every field has that of the card number.
bool hasSiteValue(const CardFormat& format, int32_t field) {
  const bool isOwn = format.masks().letters[static_cast<size_t>(field)] == 'A' + field;
  return isOwn && field != format.cardNumberField() && format.fieldBitCount(field) > 0;
}

std::optional<CardFormat::FieldValues> readSiteValues(const std::string& text,
                                                      const CardFormat& format,
                                                      Findings& findings) {
  std::string copy = "f 1 1 " + text;
  CheckedLine checked{&findings, {findings.addFile("")}, copy.data()};
  FieldsLine line(checked);
  cardsets sets;
  if (sets.addCardSetLine(line.words(), 0) != 1) {
    line.reportError(kInvalidCardSet);
    return {};
  }
  if (!line.checkValues(&format)) return {};
  return sets.getCardSet(1)->fldvalues;
}

int32_t checkCardSetLine(CardsCheck& check, CheckedLine& line) {
  std::string copy = line.text;
  FieldsLine words(line);
  const uint32_t csid = words.csid();
  const auto id = static_cast<int32_t>(csid);
  line.card = About{.set = id};
  const bool isRepeated = check.findSet(id) != nullptr;
  const int32_t result = check.checkAsBuild(line, copy.data(), nullptr);
  if (result < 0)
    check.causes[{kInvalidCardSet, csid}] = words.reportError(result);
  else if (!isRepeated)
    check.lineOfSet[csid] = line.start.line;
  if (result < 0 || line.isHidden) return result;
  const cardset& set = *check.findSet(id);
  if (isRepeated) {
    words.checkRepeated(set, check.lineOfSet[csid]);
    return result;
  }
  const CheckedFormat* const listed = check.formatOf(id);
  const CardFormat* const format = listed == nullptr ? nullptr : listed->format;
  words.checkNumbers();
  words.checkValues(format);
  if (format != nullptr) checkSameCards(check, line, set, *format);
  return result;
}

}  // namespace badgemint::admin
