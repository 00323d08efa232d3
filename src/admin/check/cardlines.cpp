// What the checks of 'c', 'n', 'p', 'o' and 'd' lines have in common, and the check of 'd' lines,
// each of which is a block of cards.
#include <cstring>

#include "admin/check/cardscheck.h"
#include "support/fieldscanner.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

// A build keeps the low bits of a number, as many as its record has.
int64_t storedValue(int64_t value, int64_t most) {
  const auto low = static_cast<uint32_t>(value);
  if (most == UINT32_MAX || most == UINT16_MAX || most == UINT8_MAX) return low & most;
  return static_cast<int32_t>(low);
}

// What a block is about: its first card.
About aboutBlock(std::string line) {
  const MultiCardsLine words = splitMultiCardsLine(line.data());
  About about;
  if (words.csid != nullptr) about.set = textToInt32(words.csid);
  if (words.firstCard != nullptr) about.card = words.firstCard;
  if (words.firstUniqid != nullptr)
    about.holder = static_cast<uint32_t>(textToInt32(words.firstUniqid));
  return about;
}

// The check of one 'd' line; does not outlive it.
class BlockLine : FieldsCheck {
 public:
  BlockLine(CardsCheck& check, CheckedLine& line)
      : FieldsCheck(check, line, line.text + std::strcspn(line.text, kBlockDelimiters)) {}

  int32_t run() {
    const int32_t before = _check.index.count();
    std::string copy = _line.text;
    const int32_t result = _check.checkAsBuild(_line, copy.data(), _listed);
    if (result < 0) {
      reportErrors(result, _check.index.count() - before);
      if (!_words[kUniqid].empty())
        _check.addUnindexed(firstUniqid(),
                            int64_t{firstUniqid()} + std::max(numberIn(kCount), 1) - 1);
    } else if (!_line.isHidden) {
      checkWords();
    }
    return result;
  }

 private:
  enum Field : size_t { kSet, kFirstCard, kCount, kUniqid, kLevel, kAfterLast };

  uint32_t firstUniqid() const { return static_cast<uint32_t>(numberIn(kUniqid)); }

  // `good` cards of the block fit their format.
  void reportErrors(int32_t result, int32_t good) {
    for (const Field field : {kSet, kFirstCard, kCount, kUniqid})
      if (_words[field].empty()) return reportUnread(field, result);
    const bool isSetWrong = reportWrong(kSet), isNumberWrong = reportWrong(kFirstCard);
    if (isSetWrong) return;
    const int64_t number = int64_t{numberIn(kFirstCard)} + good;
    CheckedLine card = _line;
    card.card = About{.holder = firstUniqid() + static_cast<uint32_t>(good),
                      .set = _csid,
                      .card = fmt::to_string(number)};
    reportEncoding(card, isNumberWrong ? std::nullopt : std::optional(number));
  }

  void checkWords() const {
    for (const Field field : {kSet, kCount, kUniqid, kLevel}) {
      const std::string_view word = _words[field], rest = word.substr(numberLength(word));
      // A comment may stand in place of the last field, or touch it.
      if (rest.empty() || (field == kLevel && rest[0] == '#')) continue;
      if (word[0] == '#')
        _line.warn(_line.at(word), "text", "{}", earlyComment(field));
      else
        warn(field, "number",
             "is not a number" + effectOf(shownWord(field), "it is read as", numberIn(field)));
      return;
    }
    const bool hasComment = _words[kLevel].find('#') != std::string_view::npos;
    if (hasComment || isEnd(_words[kAfterLast])) return checkBlock();
    _line.warn(_line.at(_words[kAfterLast]), "fields", "what follows the access level is ignored");
  }

  // Numbers that leave a range only together, and blocks that are valid but probably a mistake.
  void checkBlock() const {
    for (const Field field : {kSet, kFirstCard, kCount, kUniqid}) checkRange(field);
    const bool hasLevel = !isEnd(_words[kLevel]);
    if (hasLevel) checkLevel(kLevel);
    warnIfZero(kUniqid);
    const int64_t first = numberIn(kFirstCard), count = numberIn(kCount);
    if (count < 1) return warn(kCount, "range", "is less than 1: the block has no cards");
    warnIfZero(kFirstCard);
    if (!checkNumberRange(first)) checkNumberRange(first + count - 1);
    if (firstUniqid() + count - 1 > UINT32_MAX)
      warn(kUniqid, "range",
           "is too large for the block: its IDs continue with 0 after 4294967295");
    if (first >= 1000 && count >= 1000 && count >= first)
      warn(kCount, "block",
           "is not less than the first card number: is it the last one? write how many there are");
    if (!hasLevel)
      _line.warn(_line.whole(), "block",
                 "no access level: the cards of the block open no door; write 0 if that is meant");
  }
};

}  // namespace

About CheckedLine::about() const {
  if (card) return *card;
  if (*text == kMultiCardsLine) return aboutBlock(text);
  if (lineFields(*text).empty()) return {};
  const bool isHex = *text == kNoFormatCardLine;
  FieldScanner scanner(text + 1);
  const CardLine read = isHex || *text == kCardLine
                            ? scanCardLine(scanner)
                            : CardLine{0, {}, {}, scanPinLine(scanner).uniqid};
  About about{.set = isHex ? 0 : read.csid, .card = std::string(read.cardNumber), .isHex = isHex};
  if (!scanner.failed()) about.holder = read.uniqid;
  return about;
}

size_t CheckedLine::add(const Finding& finding, fmt::string_view format,
                        fmt::format_args args) const {
  if (findings == nullptr) return Findings::kNotKept;
  const size_t number = findings->add(finding, format, args);
  if (Finding* const kept = findings->find(number)) {
    kept->about = about();
    if (const std::string name = kept->about.name(); !name.empty())
      kept->text += fmt::format(" ({})", name);
  }
  return number;
}

FieldsCheck::FieldsCheck(CardsCheck& check, CheckedLine& line, const char* words)
    : _check(check), _line(line), _fields(lineFields(*line.text)) {
  FieldScanner scanner(words);
  auto end = _words.begin();
  while (end != _words.end() && !(*end = scanner.nextWord(SIZE_MAX)).empty()) ++end;
  if (_fields[0].kind == FieldKind::kCardSet && !isHex()) _csid = numberIn(0);
  _listed = check.formatOf(_csid);
}

void FieldsCheck::reportUnread(size_t field, int32_t result) const {
  const std::string_view word = _words[field];
  if (word.empty())
    _line.error(_line.whole(), result, "{} is missing", named(_fields[field]));
  else if (word[0] == '#')
    _line.error(_line.at(word), result, "{}", earlyComment(field));
  else
    error(field, result, "is not a number");
}

bool FieldsCheck::reportWrong(size_t field) const {
  const std::string_view word = _words[field];
  std::string_view text = word;
  if (_fields[field].kind == FieldKind::kCardSet) {
    if (isHex() || hasCardSet()) return false;
    error(field, kInvalidCardSet, "is not a number from 1 to 253");
  } else if (_fields[field].kind == FieldKind::kCardNumber) {
    const int32_t result = checkCardNumber(text, isHex() ? 0 : 1, isHex() ? 1 : 0);
    if (result == kSuccess) return false;
    error(field, result,
          fmt::format("must be 1 to 32 {} digits", isHex() ? "hexadecimal" : "decimal"));
  } else {
    const size_t most = field > 0 ? kMaxPinDigits : kMaxPinIdentDigits;  // Of a card, or alone.
    if (checkPinCode(text, most) == kSuccess) return false;
    const bool isLong = std::ranges::all_of(word, isDigit);
    _line.error(_line.at(word), kInvalidPin, "PIN {}{}",
                isLong ? fmt::format("of {} digits; at most {} are allowed", word.size(), most)
                       : "has a character that is not a decimal digit",
                _check.options.withPins ? ": " + inQuotes(word) : "");
  }
  return true;
}

bool FieldsCheck::reportEncoding(const CheckedLine& line, std::optional<int64_t> number) const {
  const cardset* const set = _check.findSet(_csid);
  if (_listed != nullptr && _listed->format != nullptr) {
    if (!number) return false;
    const CardEncoder encoder{_listed->format, _listed->format->encodeSite(set->fldvalues)};
    const int64_t decoded = encoder.decode(encoder.encode(*number));
    if (decoded == *number) return false;
    line.error(line.at(_words[1]), kCardMismatch,
               "the card number does not fit format {}: it would be read as card {}", set->fmtid,
               decoded);
  } else if (line.findings != nullptr && _listed != nullptr) {
    _check.findings.countFurther(_listed->error);
  } else if (line.findings != nullptr && (set == nullptr || _check.formats.complete)) {
    reportNoFormat(line, set);
  }
  return true;
}

void FieldsCheck::reportNoFormat(const CheckedLine& line, const cardset* set) const {
  const int32_t code = set == nullptr ? kInvalidCardSet : kFormatNotDefined;
  const uint32_t id = set == nullptr ? static_cast<uint32_t>(_csid) : set->fmtid;
  const auto [error, isFirst] = _check.causes.try_emplace({code, id});
  if (!isFirst)
    _check.findings.countFurther(error->second);
  else if (set == nullptr)
    error->second =
        line.error(line.whole(), code, "card set {} has no 'f' line before this line", _csid);
  else
    error->second =
        line.error(line.at(_words[1]), code,
                   "the formats file does not list format {} of card set {}", id, _csid);
}

void FieldsCheck::checkLevel(size_t field) const {
  const std::string_view word = _words[field];
  if (word.size() < 5 && isDigit(word[0]) && _check.options.levels.empty()) return;  // As most are.
  const int64_t level = checkRange(field);
  if (!_check.options.levels.empty() && level > 0 && level <= UINT16_MAX &&
      _check.levels.findLevel(static_cast<uint32_t>(level)) < 0)
    _line.warn(_line.at(word), "level", "access level {} is not defined and opens no door", level);
}

int64_t FieldsCheck::checkRange(size_t field) const {
  const auto& [name, kind, most] = _fields[field];
  const int64_t value = wordValue(_words[field]);
  const int64_t least = most == INT32_MAX ? INT32_MIN : 0;  // A block has numbers with a sign.
  if (value < least || value > most)
    warn(field, "range",
         fmt::format("is outside the range {} to {}{}", kind == FieldKind::kCardSet ? 1 : 0, most,
                     effectOf(shownWord(field), "it is read as", storedValue(value, most))));
  return value;
}

bool FieldsCheck::checkNumberRange(int64_t number) const {
  if (_listed == nullptr || _listed->format == nullptr) return false;
  const CardFormat& format = *_listed->format;
  const auto& range = format.fieldDefinitions()[static_cast<size_t>(format.cardNumberField())];
  const bool isLimited = range.maxval != 0 && range.maxval != INT32_MAX;
  if (!isLimited || (number >= range.minval && number <= range.maxval)) return false;
  _line.warn(_line.at(_words[1]), "range",
             "card {} is outside the range {} to {} of its format: no such card should exist",
             number, range.minval, range.maxval);
  return true;
}

int32_t checkBlockLine(CardsCheck& check, CheckedLine& line) {
  return BlockLine(check, line).run();
}

}  // namespace badgemint::admin
