// The check of 'd' lines: blocks of cards.
#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "admin/check/cardscheck.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

class BlockLine {
 public:
  BlockLine(CardsCheck& check, CheckedLine& line) : _check(check), _line(line) {}

  int32_t run() {
    const int32_t before = _check.index.count();
    std::string copy = _line.text;
    _end = _line.text + copy.size();
    std::string words = copy;
    const MultiCardsLine scanned = splitMultiCardsLine(words.data());
    _csid = scanned.csid == nullptr ? 0 : textToInt32(scanned.csid);
    const int32_t result = _check.checkAsBuild(_line, copy.data(), _csid);

    _words = splitMultiCardsLine(_line.text);
    if (_words.firstUniqid != nullptr)
      _line.subject = {Subject::Kind::kBlock, _csid, _words.firstCard,
                       static_cast<uint32_t>(textToInt32(_words.firstUniqid))};
    if (result < 0) {
      reportErrors(result, _check.index.count() - before);
      _check.addUnindexed(_words);
    }
    if (!_line.hasHidden() && _words.firstUniqid != nullptr) checkWords(result);
    return result;
  }

 private:
  struct Field {
    const char* word;
    const LineField& description;
  };
  std::array<Field, 5> fields() const {
    const auto names = lineFields(kMultiCardsLine);
    return {{{_words.csid, names[0]},
             {_words.firstCard, names[1]},
             {_words.count, names[2]},
             {_words.firstUniqid, names[3]},
             {_words.accessLevel, names[4]}}};
  }

  bool hasGluedType() const { return std::strlen(_words.type) > 1; }

  // `good` cards of the block fit their format.
  void reportErrors(int32_t result, int64_t good) const {
    if (hasGluedType()) {
      _line.error(_line.at(_words.type), result, kGluedType);
      return;
    }
    for (const Field& field : fields())
      if (field.word == nullptr && field.description.kind != FieldKind::kAccessLevel) {
        _line.error(_line.whole(), result, "{} is missing", named(field.description));
        return;
      }
    const auto [set, firstCard, count, uniqid, level] = fields();
    const bool wrongSet = _check.reportCardSet(_line, set.word, set.description, _csid);
    const bool wrongNumber =
        _check.reportCardNumber(_line, firstCard.word, firstCard.description, _csid);
    if (!wrongSet && !_check.reportEncoding(_line, firstCard.word, _csid) && !wrongNumber)
      reportMismatch(result, good);
  }

  void reportMismatch(int32_t result, int64_t good) const {
    const int64_t first = textToInt32(_words.firstCard) + good;
    const int64_t left = textToInt32(_words.count) - good;
    const cardset& set = *_check.site.cardSets().getCardSet(static_cast<uint32_t>(_csid));
    const CardEncoder encoder = _check.encoderOf(set);
    const int64_t counted = std::min(left, _check.cardsToCount);
    _check.cardsToCount -= counted;
    int64_t wrong = 0;
    for (int64_t card = first; card < first + counted; ++card)
      wrong += encoder.decode(encoder.encode(card)) != card ? 1 : 0;
    const auto uniqid = static_cast<uint32_t>(textToInt32(_words.firstUniqid) + good);
    const std::string number = fmt::to_string(first);
    CheckedLine card = _line;
    card.subject = {Subject::Kind::kCard, _csid, number, uniqid};
    const Place place = _line.at(_words.firstCard);
    if (wrong > 1)
      card.error(place, result, "{} and {}{} more of the block do not fit format {}", card.subject,
                 counted < left ? "at least " : "", wrong - 1, set.fmtid);
    else
      card.error(place, result, "{} does not fit format {}", card.subject, set.fmtid);
  }

  void checkWords(int32_t result) {
    if (hasGluedType()) {
      if (result == kSuccess)
        _line.warn(_line.at(_words.type), "fields", "{} ({})", kGluedType, _line.subject);
      return;
    }
    for (const Field& field : fields())
      if (field.description.kind != FieldKind::kCardNumber && !isWhole(field)) {
        if (result == kSuccess) reportPartialNumber(field);
        return;
      }
    if (const char* const extra = wordAfterLast(); extra != nullptr) {
      _line.warn(_line.at(extra), "fields", "what follows {} is ignored ({})",
                 named(fields().back().description), _line.subject);
      return;
    }
    const Field level = fields().back();
    if (level.word != nullptr && !isComment(level.word))
      _check.checkLevel(_line, level.word, level.description, textToInt64(level.word));
    if (result == kSuccess) checkRanges();
  }

  static bool isComment(const char* word) { return *word == '#'; }

  // Whether the word is a number; a comment may stand in place of the last field, or follow it.
  static bool isWhole(const Field& field) {
    if (field.word == nullptr) return true;
    const Word word = classify(field.word);
    if (word.kind == WordKind::kNumber) return true;
    if (field.description.kind != FieldKind::kAccessLevel) return false;
    // Other white space than blanks is part of a word, but does no harm at the end.
    const std::string_view rest =
        word.rest.substr(std::min(word.rest.find_first_not_of("\t\v\f"), word.rest.size()));
    return word.kind == WordKind::kComment ||
           (word.kind == WordKind::kNumberWithRest && (rest.empty() || rest[0] == '#'));
  }

  void reportPartialNumber(const Field& field) const {
    const Place place = _line.at(field.word);
    if (isComment(field.word))
      _line.warn(place, "text", kEarlyComment, named(field.description));
    else
      _line.warn(place, "number", "{} {} is not a number: it is read as {} ({})",
                 field.description.name, shown(field.word, field.description),
                 textToInt32(field.word), _line.subject);
  }

  // What follows the last field, unless a comment begins in it or follows it.
  const char* wordAfterLast() const {
    if (_words.accessLevel == nullptr || std::strchr(_words.accessLevel, '#') != nullptr)
      return nullptr;
    const char* next = _words.accessLevel + std::strlen(_words.accessLevel);
    while (next < _end && (*next == '\0' || isSpace(*next))) ++next;
    return next == _end || isComment(next) ? nullptr : next;
  }

  void checkRanges() const {
    const auto [set, firstCard, count, uniqid, level] = fields();
    if (textToInt64(set.word) != _csid) warnReadAs(set);
    const int64_t first = textToInt64(firstCard.word);
    const int64_t cards = textToInt64(count.word);
    checkBlock(first, cards);
    if (first > INT32_MAX)
      _line.warn(_line.at(firstCard.word), "range",
                 "first card {} is read as card {}: blocks are for numbers up to 2147483647 ({})",
                 shown(firstCard.word, firstCard.description), textToInt32(firstCard.word),
                 _line.subject);
    if (cards > INT32_MAX || cards < INT32_MIN)
      warnReadAs(count);
    else if (cards < 1)
      _line.warn(_line.at(count.word), "range", "a block without cards ({})", _line.subject);
    const int64_t holder = textToInt64(uniqid.word);
    if (holder < 0 || holder > UINT32_MAX)
      _check.checkRange(_line, uniqid.word, uniqid.description, holder);
    else if (cards <= INT32_MAX && holder + cards - 1 > UINT32_MAX)
      _line.warn(_line.at(uniqid.word), "range",
                 "the unique IDs of the block go past 4294967295 and continue with 0 ({})",
                 _line.subject);
    else if (holder == 0 && cards > 0)
      _line.warn(_line.at(uniqid.word), "zero", "unique ID 0 ({})", _line.subject);
    if (first == 0 && cards > 0)
      _line.warn(_line.at(firstCard.word), "zero", "card number 0 ({})", _line.subject);
    const bool hasCards = cards > 0 && cards <= INT32_MAX && first <= INT32_MAX;
    const auto isReported = [this, field = firstCard](int64_t card) {
      return _check.checkNumberRange(_line, field.word, field.description, _csid, card);
    };
    if (hasCards && !isReported(first)) isReported(first + cards - 1);
  }

  // What is right, and mostly not meant.
  void checkBlock(int64_t first, int64_t cards) const {
    if (first >= 1000 && cards >= 1000 && cards >= first)
      _line.warn(_line.at(_words.count), "block",
                 "the number of cards is not below the first card: is it the last card? ({})",
                 _line.subject);
    if (_words.accessLevel == nullptr || isComment(_words.accessLevel))
      _line.warn(_line.whole(), "block",
                 "no access level: the cards of the block open no door; write 0 if that is meant "
                 "({})",
                 _line.subject);
  }

  void warnReadAs(const Field& field) const {
    _line.warn(_line.at(field.word), "range", "{} {} is not 0 to {}{} ({})", field.description.name,
               shown(field.word, field.description), field.description.most,
               readAs(field.word, field.description, textToInt32(field.word)), _line.subject);
  }

  static constexpr char kGluedType[] =
      "the line type is \"d\" alone: what follows it up to the next blank is ignored";

  CardsCheck& _check;
  CheckedLine& _line;
  const char* _end = nullptr;
  int32_t _csid = 0;
  MultiCardsLine _words{};
};

}  // namespace

void CardsCheck::addUnindexed(const MultiCardsLine& words) {
  if (words.firstUniqid == nullptr) return;
  const auto first = static_cast<uint32_t>(textToInt32(words.firstUniqid));
  const int64_t count = std::max(textToInt32(words.count), 1);
  unindexed.push_back(
      {first, static_cast<uint32_t>(std::min<int64_t>(first + count - 1, UINT32_MAX))});
}

int32_t checkBlockLine(CardsCheck& check, CheckedLine& line) {
  return BlockLine(check, line).run();
}

}  // namespace badgemint::admin
