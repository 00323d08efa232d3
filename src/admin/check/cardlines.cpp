// The checks of 'c', 'n', 'p', 'o' and 'd' lines: a card, a PIN or a block of cards, and what the
// holders may do.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "admin/check/cardscheck.h"
#include "support/datetime.h"
#include "support/fieldscanner.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

constexpr size_t kMostWords = 32;  // More than any line has fields.

// A field as messages name it: "the PIN", but "access level 1".
std::string named(const LineField& field) {
  const std::string_view name = field.name;
  return (isDigit(name.back()) ? "" : "the ") + std::string(name);
}

bool isZero(std::string_view word) {
  return word.find_first_not_of('0') == std::string_view::npos;
}

bool isDate(std::string_view word) {
  return std::ranges::count(word, '/') == 2 && isDigit(word[0]);
}

// A build keeps only the low bits of a number, as many as its record has.
int64_t storedValue(std::string_view word, const LineField& field) {
  FieldScanner scanner(word.data());
  if (field.most == UINT32_MAX) return scanner.nextUnsigned();
  const int32_t value = scanner.nextInt();
  const bool isMasked = field.most == UINT16_MAX || field.most == UINT8_MAX;
  return isMasked ? value & static_cast<int32_t>(field.most) : value;
}

// The words of a line as its fields, and what lines of all these types have in common. Nothing here
// outlives the line. Reports are about the word of a field.
class FieldsCheck {
 protected:
  FieldsCheck(CardsCheck& check, CheckedLine& line, const char* words)
      : _check(check), _line(line), _fields(lineFields(*line.text)) {
    for (std::string_view& word : _words) {
      while (*words == ' ' || isSpace(*words)) ++words;
      const char* const begin = words;
      while (*words > ' ' || (*words != '\0' && !isSpace(*words))) ++words;
      word = {begin, words};
    }
  }

  std::string shownWord(size_t field) const {
    return shown(_words[field], _fields[field], isHex());
  }
  bool isHex() const { return *_line.text == kNoFormatCardLine; }
  // As a build reads it; 0 for a line without one.
  int32_t csid() const { return _line.subject.csid; }

  // About a field, which is named with its word before the text.
  void error(size_t field, int32_t code, std::string_view text) const {
    _line.error(_line.at(_words[field]), code, "{} {} {}", _fields[field].name, shownWord(field),
                text);
  }
  size_t warn(size_t field, std::string_view rule, std::string_view text) const {
    return _line.warn(_line.at(_words[field]), rule, "{} {} {}", _fields[field].name,
                      shownWord(field), text);
  }
  void reportMissing(size_t field, int32_t result) const {
    _line.error(_line.whole(), result, "{} is missing", named(_fields[field]));
  }
  std::string earlyComment(size_t field) const {
    return fmt::format("'#' where {} is expected; a comment is allowed only after the last field",
                       named(_fields[field]));
  }

  // The card set is the first field and the card number the second one. Each reports an error, if
  // there is one, and returns whether there is.
  bool reportCardSet() const {
    if (csid() >= kFirstCardSetId && csid() <= kLastCardSetId) return false;
    error(0, kInvalidCardSet, "is not 1 to 253");
    return true;
  }
  bool reportCardNumber() const;
  // The same for a card of a possible card set that is not encoded; null for a wrong number.
  bool reportEncoding(const CheckedLine& line, const int64_t* number) const;

  // Numbers that a build accepts and changes, or that are right and mostly not meant.
  void checkRange(size_t field) const;
  bool checkNumberRange(int64_t number) const;
  void checkLevel(size_t field) const;
  void warnIfZero(size_t field) const {
    if (isZero(_words[field])) warn(field, "zero", "counts like any other: is it an empty cell?");
  }

  CardsCheck& _check;
  CheckedLine& _line;
  std::span<const LineField> _fields;
  std::array<std::string_view, kMostWords> _words;  // Empty ones at the end.
};

bool FieldsCheck::reportCardNumber() const {
  std::string_view text = _words[1];
  const int32_t result = checkCardNumber(text, isHex() ? 0 : 1, isHex() ? 1 : 0);
  if (result == kSuccess) return false;
  error(1, result,
        isHex() ? "is not up to 32 hexadecimal digits" : "is not up to 32 decimal digits");
  return true;
}

bool FieldsCheck::reportEncoding(const CheckedLine& line, const int64_t* number) const {
  const cardset* const set = _check.findSet(csid());
  const CardFormat* const format =
      set == nullptr ? nullptr : _check.site.formats().findFormat(set->fmtid);
  const CheckedFormat* const unloaded = _check.unloadedFormat(csid());
  if (unloaded == nullptr && format != nullptr) {
    const SitePattern site = format->encodeSite(set->fldvalues);
    const int64_t decoded =
        number == nullptr ? 0 : format->decodeCardNumber(format->encodeNumber(site, *number));
    if (number == nullptr || decoded == *number) return false;
    line.error(line.at(_words[1]), kCardMismatch,
               "the card number does not fit format {}: it would come back as card {}", set->fmtid,
               decoded);
  } else if (line.findings == nullptr) {
    return true;
  } else if (unloaded != nullptr) {
    _check.findings.countFurther(unloaded->error, "lines of the cards file with this format");
  } else if (set == nullptr) {
    const auto [error, isFirst] = _check.undefinedSets.try_emplace(static_cast<uint32_t>(csid()));
    if (isFirst)
      error->second = line.error(line.whole(), kInvalidCardSet,
                                 "card set {} has no 'f' line before this line", csid());
    else
      _check.findings.countFurther(error->second, "further lines with this card set");
  } else if (_check.formats.complete) {
    const auto [error, isFirst] = _check.unlistedFormats.try_emplace(set->fmtid);
    if (isFirst)
      error->second =
          line.error(line.at(_words[1]), kFormatNotDefined,
                     "the formats file does not list format {} of card set {}", set->fmtid, csid());
    else
      _check.findings.countFurther(error->second, "further lines with this format");
  }
  return true;
}

void FieldsCheck::checkRange(size_t field) const {
  const LineField& description = _fields[field];
  const int64_t value = wordValue(_words[field]);
  if (value >= 0 && value <= description.most) return;
  const int64_t stored = storedValue(_words[field], description);
  if (stored != value)
    warn(field, "range",
         fmt::format("is not {} to {}{}", description.kind == FieldKind::kCardSet ? 1 : 0,
                     description.most, readAs(_words[field], description, stored)));
}

bool FieldsCheck::checkNumberRange(int64_t number) const {
  const auto& [low, high] = _check.numberRanges[static_cast<size_t>(csid())];
  if (high == 0 || (number >= low && number <= high)) return false;
  _line.warn(_line.at(_words[1]), "range",
             "card number {} is not {} to {}, as its format requires: no such card should exist",
             number, low, high);
  return true;
}

void FieldsCheck::checkLevel(size_t field) const {
  checkRange(field);
  const int64_t level = wordValue(_words[field]);
  if (_check.levels == nullptr || level <= 0 || level > UINT16_MAX) return;
  if (_check.levels->findLevel(static_cast<uint32_t>(level)) < 0)
    _line.warn(_line.at(_words[field]), "level", "access level {} is not defined and opens no door",
               level);
}

// What keeps a line from having the fields that it seems to have.
enum class Problem {
  kNone,
  kMissing,    // The line ends before this field.
  kComment,    // A comment begins where a field is expected.
  kNotNumber,  // The word does not begin with a number.
  kCut,        // The field ends within its word, whose rest is read as the next field.
};

bool isDateOrTime(const LineField& field) {
  return field.kind == FieldKind::kDate || field.kind == FieldKind::kTime;
}

// How much of a word a build reads as the field.
size_t readLength(std::string_view word, const LineField& field) {
  if (isDateOrTime(field)) return std::min(word.size(), kMaxDateTimeWord);
  if (field.kind == FieldKind::kCardNumber || field.kind == FieldKind::kPin)
    return std::min(word.size(), kMaxNumberWord);
  return numberLength(word);
}

Problem problemOf(std::string_view word, const LineField& field) {
  if (word.size() == 1 && isDigit(word[0])) return Problem::kNone;  // As most are.
  if (word.empty()) return Problem::kMissing;
  if (word[0] == '#') return Problem::kComment;
  const size_t length = readLength(word, field);
  if (length == 0) return Problem::kNotNumber;
  return length < word.size() ? Problem::kCut : Problem::kNone;
}

// Whether a date and a time are written with all their digits and are a day that every month has,
// as nearly all are: what can be parsed then needs no second look.
bool isUsual(std::string_view date, std::string_view time) {
  return date.size() == 10 && isDigit(date[8]) && isDigit(date[9]) && date.substr(8) <= "28" &&
         (time == "0" ||
          (time.size() == 8 && time[2] == ':' && time[5] == ':' && isDigit(time[7])));
}

// Whether the seconds are of the day that the date names: one that its month does not have runs on
// into the next month.
bool hasDay(std::string_view date, uint32_t seconds) {
  const std::chrono::sys_seconds time{std::chrono::seconds{seconds}};
  const std::chrono::year_month_day day{std::chrono::floor<std::chrono::days>(time)};
  return wordValue(date.substr(date.rfind('/') + 1)) == static_cast<unsigned>(day.day());
}

class HolderLine : FieldsCheck {
 public:
  HolderLine(CardsCheck& check, CheckedLine& line) : FieldsCheck(check, line, line.text + 1) {
    while (_good < _fields.size() && problemOf(_words[_good], _fields[_good]) == Problem::kNone)
      ++_good;
    if (_good < _fields.size()) _problem = problemOf(_words[_good], _fields[_good]);
    scanIdentity();
  }

  int32_t run() {
    const int32_t result = _check.checkAsBuild(_line, _line.text, csid());
    if (result < 0) {
      reportErrors(result);
      const uint32_t uniqid = _line.subject.uniqid.value_or(0);
      _check.unindexed.push_back({uniqid, uniqid});
    }
    const bool isReported = result < 0 && _good < firstHolderField();
    if (_line.isHidden || isReported || !checkProblem()) return result;
    if (result == kSuccess && _good >= firstHolderField()) checkIdentity();
    for (size_t i = firstHolderField(); i < _good; ++i)
      if (_words[i] != "0") checkField(i);
    if (_good >= firstDateField() + 4) checkPeriod();
    return result;
  }

 private:
  bool isCard() const { return _fields[0].kind == FieldKind::kCardSet; }
  size_t firstHolderField() const { return isCard() ? 4 : 2; }
  size_t escortField() const { return firstHolderField() + 11; }
  size_t firstDateField() const { return firstHolderField() + 12; }

  // As a build reads it, whatever the words are.
  void scanIdentity() {
    FieldScanner scanner(_line.text + 1);
    const CardLine card =
        isCard() ? scanCardLine(scanner) : CardLine{0, {}, {}, scanPinLine(scanner).uniqid};
    const Subject::Kind cardKind = isHex() ? Subject::Kind::kHexCard : Subject::Kind::kCard;
    _line.subject = {isCard() ? cardKind : Subject::Kind::kPin, isHex() ? 0 : card.csid,
                     card.cardNumber, card.uniqid};
    if (scanner.failed()) _line.subject.uniqid.reset();
  }

  // What fails the build: an error each. The first field with a problem explains what the fields
  // before it do not.
  void reportErrors(int32_t result) {
    if (isCard() ? reportCard() : _good > 0 && reportPin(0)) return;
    if (_problem == Problem::kMissing)
      reportMissing(_good, result);
    else if (_problem == Problem::kComment)
      _line.error(_line.at(_words[_good]), result, "{}", earlyComment(_good));
    else if (_problem != Problem::kNone)
      error(_good, result, "is not a number");
  }

  bool reportCard() const {
    // A number or a PIN that is too long to be read at once is explained as a whole.
    const size_t known = _good + (_problem == Problem::kCut && _good > 0 ? 1 : 0);
    const bool wrongSet = !isHex() && known > 0 && reportCardSet();
    const bool wrongNumber = known > 1 && reportCardNumber();
    const bool wrongPin = known > 2 && reportPin(2);
    const bool isEncoded = !isHex() && known > 1 && !wrongSet;
    const int64_t number = isEncoded ? wordValue(_words[1]) : 0;
    const bool wrongCard = isEncoded && reportEncoding(_line, wrongNumber ? nullptr : &number);
    return wrongSet || wrongNumber || wrongPin || wrongCard;
  }

  bool reportPin(size_t field) const {
    const std::string_view pin = _words[field];
    const size_t most = isCard() ? kMaxPinDigits : kMaxPinIdentDigits;
    std::string_view text = pin;
    if (checkPinCode(text, most) == kSuccess) return false;
    const std::string shownPin = _check.options.withPins ? ": " + inQuotes(pin) : "";
    const bool isLong = pin.find_first_not_of("0123456789") == std::string_view::npos;
    _line.error(_line.at(pin), kInvalidPin, "PIN {}{}",
                isLong ? fmt::format("of {} digits; at most {} are allowed", pin.size(), most)
                       : "has a character that is not a decimal digit",
                shownPin);
    return true;
  }

  // A problem that fails no build: one finding for the line. Returns whether the fields before it
  // can be checked.
  bool checkProblem() {
    const size_t expected = _fields.size(), count = countWords();
    if (_problem == Problem::kNone && count == expected) return true;
    if (hasSlipped(count))
      reportSlip(count);
    else if (_problem == Problem::kNone)
      reportMisread(_line.at(_words[expected]), "fields", expected,
                    fmt::format("what follows {} is ignored", named(_fields.back())));
    else
      return reportProblem(count);
    return false;
  }

  bool reportProblem(size_t count) {
    const LineField& field = _fields[_good];
    const Place place = _line.at(_words[_good]);
    if (_problem == Problem::kMissing)
      reportMisread(
          _line.whole(), "fields", firstHolderField(),
          fmt::format("{} word{} instead of {}: {} is missing, and it and all later fields are 0",
                      count, count == 1 ? "" : "s", _fields.size(), named(field)));
    else if (_problem == Problem::kComment)
      reportMisread(place, "text", _good, earlyComment(_good));
    else
      reportWrongWord(field, place);
    return _problem != Problem::kMissing && _problem != Problem::kComment;
  }

  void reportWrongWord(const LineField& field, Place place) {
    const bool isLast = _good + 1 == _fields.size();
    const std::string_view rest = _words[_good].substr(readLength(_words[_good], field));
    if (isLast && rest[0] == '#') return;
    const char* effect = "is not a number: only its first digits are read";
    if (_problem == Problem::kNotNumber)
      effect = "is not a number: it and all later fields are 0";
    else if (isDateOrTime(field))
      effect = "has more than 14 characters: the rest is read as the next field";
    else if (!isLast)
      effect = "is not a number: only its first digits are read, and the rest as the next field";
    const size_t finding =
        reportMisread(place, isDateOrTime(field) ? "date" : "number", _good,
                      fmt::format("{} {} {}", field.name, shownWord(_good), effect));
    if (field.kind == FieldKind::kDate) _check.otherDates.add(_words[_good], finding);
  }

  // The words before a comment.
  size_t countWords() const {
    const auto isEnd = [](std::string_view word) { return word.empty() || word[0] == '#'; };
    return static_cast<size_t>(std::ranges::find_if(_words, isEnd) - _words.begin());
  }

  // Whether words are missing, or too many, before the dates, which shows in the place of a date.
  bool hasSlipped(size_t count) const {
    const auto isDateAt = [this, count](size_t field) {
      const size_t at = field + count - _fields.size();
      return at < count && isDate(_words[at]);
    };
    return count != _fields.size() && _fields.size() > firstDateField() &&
           (isDateAt(firstDateField()) || isDateAt(firstDateField() + 2));
  }

  void reportSlip(size_t count) {
    const size_t expected = _fields.size();
    const size_t wrong = count < expected ? expected - count : count - expected;
    reportMisread(_line.whole(), "fields", 0,
                  fmt::format("{} words instead of {}, {} before the dates {} {}", count, expected,
                              wrong == 1 ? "one" : fmt::to_string(wrong), wrong == 1 ? "is" : "are",
                              count < expected ? "missing" : "too many"));
  }

  // Reports a line in which the fields from `firstWrong` on are read from wrong words, or from
  // none. Returns the number of the finding.
  size_t reportMisread(Place place, std::string_view rule, size_t firstWrong,
                       const std::string& text) {
    const HolderFields holder = scanHolder();
    const size_t finding = _line.warn(place, rule, "{}{}", text, effects(holder, firstWrong));
    if (firstWrong <= escortField() && holder.escortId != 0)
      _check.misreadEscorts.push_back({holder.escortId, finding});
    _check.misread.push_back(_line.number());
    return finding;
  }

  // What a build makes of the fields from `firstWrong` on: ": escort 2024, no start date".
  std::string effects(const HolderFields& holder, size_t firstWrong) const {
    const size_t levels = firstHolderField(), start = firstDateField(), end = start + 2;
    if (_fields.size() <= levels) return "";
    std::vector<std::string> effects;
    const auto isLost = [this, firstWrong](size_t field, size_t last) {
      return firstWrong == 0 || (firstWrong <= last && _words[field] != "0");
    };
    if (isLost(levels, levels) && std::ranges::count(holder.accessLevels, 0) == 8)
      effects.emplace_back("no access level");
    if (firstWrong <= escortField() && holder.escortId != 0)
      effects.push_back(fmt::format("escort {}", holder.escortId));
    if (isLost(start, start + 1) &&
        isUnlimited(PeriodEnd::kStart, holder.startDate, holder.startTime))
      effects.emplace_back("no start date");
    if (isLost(end, end + 1) && isUnlimited(PeriodEnd::kEnd, holder.endDate, holder.endTime))
      effects.emplace_back("no end date");
    return effects.empty() ? "" : fmt::format(": {}", fmt::join(effects, ", "));
  }

  static bool isUnlimited(PeriodEnd end, std::string_view date, std::string_view time) {
    uint32_t seconds = 0;
    return parsePeriodEnd(end, date, time, seconds) != kSuccess || seconds == 0;
  }

  // As a build reads the fields, whatever the words are.
  HolderFields scanHolder() const {
    FieldScanner scanner(_line.text + 1);
    isCard() ? static_cast<void>(scanCardLine(scanner)) : static_cast<void>(scanPinLine(scanner));
    return scanHolderFields(scanner);
  }

  // Card set, card number, PIN and unique ID of a line without an error.
  void checkIdentity() const {
    if (*_line.text == kCardLine) {
      checkRange(0);
      checkNumberRange(wordValue(_words[1]));
    }
    if (isHex() && _words[1].size() % 2 == 1)
      warn(1, "hex", "has an odd number of digits, and a 0 is added at its end");
    if (isCard()) warnIfZero(1);
    if (isCard() && _words[2].size() > 1 && isZero(_words[2]))
      _line.warn(_line.at(_words[2]), "zero",
                 "a PIN of several zeros is a PIN: only 0 means that there is none");
    if (!isCard() && isZero(_words[0]))
      _line.warn(_line.at(_words[0]), "zero",
                 "PIN 0 is a key like any other: whoever types 0 is this holder");
    checkRange(firstHolderField() - 1);
    warnIfZero(firstHolderField() - 1);
  }

  // What a build accepts silently in the fields of a holder, and a site would not want.
  void checkField(size_t i) {
    const LineField& field = _fields[i];
    if (isDateOrTime(field)) return;
    if (field.kind == FieldKind::kAccessLevel) return checkLevel(i);
    const int64_t value = wordValue(_words[i]);
    if (field.kind != FieldKind::kFlag)
      checkRange(i);
    else if (value != 0 && value != 1)
      warn(i, "flag", "is not 0 or 1 and counts as 1");
    if (field.kind == FieldKind::kEscort && value > 0 && value <= UINT32_MAX)
      _check.escorts.push_back({static_cast<uint32_t>(value), _line.subject.uniqid.value_or(0),
                                _line.number(), static_cast<int32_t>(_line.at(_words[i]).column)});
  }

  void checkPeriod() const {
    const size_t start = firstDateField(), end = start + 2;
    const uint32_t from = checkPeriodEnd(PeriodEnd::kStart, start).value_or(0);
    const std::optional<uint32_t> to = checkPeriodEnd(PeriodEnd::kEnd, end);
    if (!to) return;
    constexpr uint32_t kSecondsPerDay = 86400;
    if (*to == 0)
      warn(end, "date", "is stored as 0, which means no limit: it never expires");
    else if (*to % kSecondsPerDay == 0)
      warn(
          end + 1, "day",
          fmt::format("is the beginning of the day: it expires when {} begins; write 0 for the end "
                      "of the day",
                      _words[end]));
    if (from != 0 && *to != 0 && *to < from)
      warn(end, "period", "is before the start: it is never valid");
  }

  // The seconds of the record; none for 0 and for what is wrong, which is reported once.
  std::optional<uint32_t> checkPeriodEnd(PeriodEnd end, size_t field) const {
    const std::string_view date = _words[field], time = _words[field + 1];
    if (date == "0") {
      if (time != "0") warn(field + 1, "date", "is ignored: its date is 0");
      return {};
    }
    const bool usual = isUsual(date, time);
    DateTimeText joined{};
    if (!usual) joined = joinDateTime(end, date, time);
    uint32_t seconds = 0;
    const char* rest = "";
    const bool isParsed = usual ? parsePeriodEnd(end, date, time, seconds) == kSuccess
                                : parseDateTime(joined.data(), seconds, &rest) == kSuccess;
    if (!isParsed) {
      reportUnreadable(end, field);
      return {};
    }
    _check.otherDates.isMixed = true;
    if (*rest == '\0' && (usual || hasDay(date, seconds))) return seconds;
    if (*rest != '\0')
      warn(field + 1, "date", "is read only up to its seconds");
    else
      warn(field, "day", "is not a day of its month and counts as one of the next month");
    return {};
  }

  void reportUnreadable(PeriodEnd end, size_t field) const {
    const bool isStart = end == PeriodEnd::kStart;
    const char* const effect = isStart ? "it is valid from the beginning" : "it never expires";
    uint32_t midnight = 0;
    if (parsePeriodEnd(end, _words[field], "0", midnight) == kSuccess) {
      _check.otherDates.isMixed = true;
      warn(field + 1, "date", fmt::format("is not hours:minutes:seconds: {}", effect));
    } else {
      const size_t finding =
          warn(field, "date", fmt::format("is not year/month/day from 1970 to 2037: {}", effect));
      _check.otherDates.add(_words[field], finding);
    }
  }

  size_t _good = 0;                   // Fields before the first problem.
  Problem _problem = Problem::kNone;  // Of the field after them.
};

class BlockLine : FieldsCheck {
 public:
  BlockLine(CardsCheck& check, CheckedLine& line)
      : FieldsCheck(check, line, line.text + std::strcspn(line.text, kBlockDelimiters)) {
    line.subject = {Subject::Kind::kBlock, numberIn(kSet), _words[kFirstCard], {}};
    if (!_words[kUniqid].empty()) line.subject.uniqid = static_cast<uint32_t>(numberIn(kUniqid));
  }

  int32_t run() {
    const int32_t before = _check.index.count();
    std::string copy = _line.text;
    const int32_t result = _check.checkAsBuild(_line, copy.data(), csid());
    if (result < 0) {
      reportErrors(result, _check.index.count() - before);
      addUnindexed();
    } else if (!_line.isHidden) {
      checkWords();
    }
    return result;
  }

 private:
  enum Field : size_t { kSet, kFirstCard, kCount, kUniqid, kLevel, kAfterLast };

  int32_t numberIn(Field field) const { return textToInt32(_words[field].data()); }

  void addUnindexed() const {
    if (!_line.subject.uniqid) return;
    const uint32_t first = *_line.subject.uniqid;
    const int64_t last = int64_t{first} + std::max(numberIn(kCount), 1) - 1;
    _check.unindexed.push_back({first, static_cast<uint32_t>(std::min<int64_t>(last, UINT32_MAX))});
  }

  // `good` cards of the block fit their format.
  void reportErrors(int32_t result, int32_t good) {
    for (const Field field : {kSet, kFirstCard, kCount, kUniqid})
      if (_words[field].empty()) return reportMissing(field, result);
    const bool wrongSet = reportCardSet(), wrongNumber = reportCardNumber();
    const int64_t number = int64_t{numberIn(kFirstCard)} + good;
    const std::string text = fmt::to_string(number);
    CheckedLine card = _line;
    card.subject = {Subject::Kind::kCard, csid(), text,
                    *_line.subject.uniqid + static_cast<uint32_t>(good)};
    if (!wrongSet) reportEncoding(card, wrongNumber ? nullptr : &number);
  }

  void checkWords() const {
    for (const Field field : {kSet, kCount, kUniqid, kLevel}) {
      const std::string_view word = _words[field], rest = word.substr(numberLength(word));
      // A comment may stand in place of the last field, or touch it.
      if (rest.empty() || (field == kLevel && rest[0] == '#')) continue;
      if (word[0] == '#')
        _line.warn(_line.at(word), "text", "{}", earlyComment(field));
      else
        warn(field, "number", fmt::format("is not a number: it is read as {}", numberIn(field)));
      return;
    }
    const bool hasComment = _words[kLevel].find('#') != std::string_view::npos;
    if (!_words[kAfterLast].empty() && _words[kAfterLast][0] != '#' && !hasComment) {
      _line.warn(_line.at(_words[kAfterLast]), "fields",
                 "what follows the access level is ignored");
      return;
    }
    checkRanges();
    checkBlock();
  }

  void checkRanges() const {
    for (const Field field : {kSet, kFirstCard, kCount, kUniqid}) checkRange(field);
    if (numberLength(_words[kLevel]) > 0) checkLevel(kLevel);
    const int64_t first = numberIn(kFirstCard), count = numberIn(kCount);
    const int64_t uniqid = *_line.subject.uniqid;
    if (count < 1) {
      warn(kCount, "range", "makes no card");
      return;
    }
    if (uniqid + count - 1 > UINT32_MAX)
      warn(kUniqid, "range",
           "is too large for the block: its IDs continue with 0 after 4294967295");
    warnIfZero(kUniqid);
    warnIfZero(kFirstCard);
    if (!checkNumberRange(first)) checkNumberRange(first + count - 1);
  }

  // What is right, and mostly not meant.
  void checkBlock() const {
    const int32_t first = numberIn(kFirstCard), count = numberIn(kCount);
    if (first >= 1000 && count >= 1000 && count >= first)
      warn(kCount, "block", "is not below the first card: is it the last card?");
    if (_words[kLevel].empty() || _words[kLevel][0] == '#')
      _line.warn(_line.whole(), "block",
                 "no access level: the cards of the block open no door; write 0 if that is meant");
  }
};

}  // namespace

int32_t checkHolderLine(CardsCheck& check, CheckedLine& line) {
  return HolderLine(check, line).run();
}

int32_t checkBlockLine(CardsCheck& check, CheckedLine& line) {
  return BlockLine(check, line).run();
}

}  // namespace badgemint::admin
