// The check of 'c', 'n', 'p' and 'o' lines: a card or a PIN, and what its holder may do.
#include <array>
#include <chrono>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "admin/check/cardscheck.h"
#include "support/datetime.h"
#include "support/fieldscanner.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

constexpr size_t kMostFields = 23;
constexpr size_t kNoField = SIZE_MAX;

// What keeps a line from having the fields that it seems to have.
enum class Problem {
  kNone,
  kMissing,    // The line ends before this field.
  kComment,    // A comment begins where a field is expected.
  kNotNumber,  // The word does not begin with a number.
  kCut,        // The field ends within its word, whose rest is read as the next field.
};

Problem problemOf(std::string_view word, const LineField& field) {
  if (word.size() == 1 && isDigit(word[0])) return Problem::kNone;  // As most are.
  if (word.empty()) return Problem::kMissing;
  if (word[0] == '#') return Problem::kComment;
  switch (field.kind) {
    case FieldKind::kCardNumber:
    case FieldKind::kPin:
      return word.size() > kMaxNumberWord ? Problem::kCut : Problem::kNone;
    case FieldKind::kDate:
    case FieldKind::kTime:
      return word.size() > kMaxDateTimeWord ? Problem::kCut : Problem::kNone;
    default:
      break;
  }
  const WordKind kind = classify(word).kind;
  if (kind == WordKind::kNumber) return Problem::kNone;
  return kind == WordKind::kOther ? Problem::kNotNumber : Problem::kCut;
}

bool isZero(std::string_view word) {
  return word.find_first_not_of('0') == std::string_view::npos;
}

// A date and time of a period, as written.
struct PeriodWords {
  PeriodEnd end;
  std::string_view date, time;

  const char* name() const { return end == PeriodEnd::kStart ? "start" : "end"; }
  const char* consequence() const {
    return end == PeriodEnd::kStart ? "is valid from the beginning" : "never expires";
  }
};

// Whether a date and a time are written with all their digits and are a day that every month has,
// as nearly all are: what can be parsed then needs no second look.
bool isUsual(std::string_view date, std::string_view time) {
  return date.size() == 10 && date[4] == '/' && date[7] == '/' && isDigit(date[8]) &&
         isDigit(date[9]) && date.substr(8) <= "28" &&
         (time == "0" ||
          (time.size() == 8 && time[2] == ':' && time[5] == ':' && isDigit(time[7])));
}

// Whether the day is one that its month has; a month that does not exist is another matter.
bool hasDay(std::string_view date) {
  const std::string text(date);
  FieldScanner scanner(text.c_str());
  const int32_t year = scanner.nextInt();
  scanner.expect('/');
  const int32_t month = scanner.nextInt();
  scanner.expect('/');
  const int32_t day = scanner.nextInt();
  return month < 1 || month > 12 ||
         std::chrono::year_month_day{std::chrono::year{year},
                                     std::chrono::month{static_cast<unsigned>(month)},
                                     std::chrono::day{static_cast<unsigned>(day)}}
             .ok();
}

class HolderLine {
 public:
  HolderLine(CardsCheck& check, CheckedLine& line)
      : _check(check), _line(line), _fields(lineFields(*line.text)) {
    splitWords();
    scanIdentity();
  }

  int32_t run() {
    const int32_t result =
        _check.checkAsBuild(_line, _line.text, *_line.text == kCardLine ? _csid : 0);
    if (result < 0) {
      reportErrors(result);
      _check.unindexed.push_back({_line.subject.uniqid, _line.subject.uniqid});
    }
    if (_line.hasHidden()) return result;
    const bool isReported = result < 0 && _good < firstHolderField();
    if (!isReported && !checkProblem()) return result;
    if (result == kSuccess) checkIdentity();
    checkHolderFields();
    return result;
  }

 private:
  bool isCard() const { return _fields[0].kind == FieldKind::kCardSet; }
  bool isHex() const { return *_line.text == kNoFormatCardLine; }
  size_t firstHolderField() const { return isCard() ? 4 : 2; }
  // As a message names it before a word.
  const char* name(size_t field) const { return _fields[field].name; }

  void splitWords() {
    const char* next = _line.text + 1;
    for (std::string_view& word : _words) {
      while (*next == ' ' || isSpace(*next)) ++next;
      const char* const begin = next;
      while (*next > ' ' || (*next != '\0' && !isSpace(*next))) ++next;
      word = {begin, next};
    }
    while (_good < _fields.size() && problemOf(_words[_good], _fields[_good]) == Problem::kNone)
      ++_good;
    if (_good < _fields.size()) _problem = problemOf(_words[_good], _fields[_good]);
  }

  // As a build reads it, whatever the words are.
  void scanIdentity() {
    FieldScanner scanner(_line.text + 1);
    if (!isCard()) {
      _line.subject = {Subject::Kind::kPin, 0, {}, scanPinLine(scanner).uniqid};
      _line.subject.hasHolder = !scanner.failed();
      return;
    }
    const CardLine card = scanCardLine(scanner);
    _csid = card.csid;
    _line.subject = {Subject::Kind::kCard, isHex() ? 0 : _csid, card.cardNumber, card.uniqid};
    _line.subject.hasHolder = !scanner.failed();
  }

  // What fails the build: an error each. The first field with a problem explains what the fields
  // before it do not.
  void reportErrors(int32_t result) const {
    const bool isReported = isCard() ? reportCard() : _good > 0 && reportPin(0);
    if (isReported) return;
    const Place place = _line.at(_words[_good]);
    if (_problem == Problem::kMissing)
      _line.error(_line.whole(), result, "{} is missing", named(_fields[_good]));
    else if (_problem == Problem::kComment)
      _line.error(place, result, kEarlyComment, named(_fields[_good]));
    else
      _line.error(place, result, "{} {} is not a number", name(_good),
                  shown(_words[_good], _fields[_good]));
  }

  bool reportCard() const {
    // A number or a PIN that is too long to be read at once is explained as a whole.
    const size_t known = _good + (_problem == Problem::kCut && _good > 0 ? 1 : 0);
    const bool wrongSet =
        !isHex() && known > 0 && _check.reportCardSet(_line, _words[0], _fields[0], _csid);
    const bool wrongNumber =
        known > 1 && _check.reportCardNumber(_line, _words[1], _fields[1], _csid);
    const bool wrongPin = known > 2 && reportPin(2);
    if (isHex() || known < 2 || wrongSet) return wrongSet || wrongNumber || wrongPin;
    if (!_check.reportEncoding(_line, _words[1], _csid) && !wrongNumber) reportMismatch();
    return true;
  }

  bool reportPin(size_t field) const {
    const std::string_view pin = _words[field];
    const size_t most = isCard() ? kMaxPinDigits : kMaxPinIdentDigits;
    std::string_view text = pin;
    if (checkPinCode(text, most) == kSuccess) return false;
    const std::string shownPin = _check.options.withPins ? ": " + inQuotes(pin) : "";
    if (pin[0] == '#')
      _line.error(_line.at(pin), kInvalidPin, kEarlyComment, named(_fields[field]));
    else if (pin.find_first_not_of("0123456789") == std::string_view::npos)
      _line.error(_line.at(pin), kInvalidPin, "PIN of {} digits; at most {} are allowed{} ({})",
                  pin.size(), most, shownPin, _line.subject);
    else
      _line.error(_line.at(pin), kInvalidPin,
                  "PIN has a character that is not a decimal digit{} ({})", shownPin,
                  _line.subject);
    return true;
  }

  // Whether the number, all digits, comes back.
  void reportMismatch() const {
    const SaturatedInt64 number = scanInt64(_words[1].data());
    const cardset& set = *_check.site.cardSets().getCardSet(static_cast<uint32_t>(_csid));
    const CardEncoder encoder = _check.encoderOf(set);
    const int64_t decoded = encoder.decode(encoder.encode(number.value));
    if (decoded == number.value && !number.saturated) return;
    _line.error(_line.at(_words[1]), kCardMismatch,
                "{} does not fit format {}: it would come back as card {}", _line.subject,
                set.fmtid, decoded);
  }

  // A problem that fails no build. Returns whether the fields before it can be looked at.
  bool checkProblem() {
    if (reportSlip()) return false;
    if (_problem == Problem::kNone) return checkExtraWords();
    const LineField& field = _fields[_good];
    const std::string_view word = _words[_good];
    const bool isLast = _good + 1 == _fields.size();
    if (_problem == Problem::kCut && isLast && classify(word).rest.starts_with('#')) return true;
    markMisread();
    switch (_problem) {
      case Problem::kMissing:
        _line.warn(
            _line.whole(), "fields",
            "{} words instead of {}: {} is missing, and it and all later fields are 0{} ({})",
            countWords(), _fields.size(), named(field), lossFrom(_good), _line.subject);
        return false;
      case Problem::kComment:
        _line.warn(_line.at(word), "text", kEarlyComment, named(field));
        return false;
      case Problem::kNotNumber:
        _line.warn(_line.at(word), "number",
                   "{} {} is not a number: it and all later fields are 0{} ({})", name(_good),
                   shown(word, field), lossFrom(_good), _line.subject);
        return true;
      default:
        isDateOrTime(field) ? reportLongDate() : reportPartialNumber();
        return true;
    }
  }

  static bool isDateOrTime(const LineField& field) {
    return field.kind == FieldKind::kDate || field.kind == FieldKind::kTime;
  }

  void reportLongDate() const {
    const HolderFields holder = scanHolder();
    const char* loss = "";
    if (_good < firstDateField() + 2) {
      if (secondsOf(PeriodEnd::kStart, holder.startDate, holder.startTime) == 0)
        loss = ", and it is valid from the beginning";
    } else if (secondsOf(PeriodEnd::kEnd, holder.endDate, holder.endTime) == 0) {
      loss = ", and it never expires";
    }
    _line.warn(_line.at(_words[_good]), "date",
               "{} {} has more than 14 characters: the rest is read as the next field{} ({})",
               name(_good), shown(_words[_good], _fields[_good]), loss, _line.subject);
  }

  // A word that begins with a number.
  void reportPartialNumber() const {
    const std::string_view word = _words[_good], rest = classify(word).rest;
    const size_t next = _good + 1;
    const Place place = _line.at(word);
    const ShownWord shownWord = shown(word, _fields[_good]);
    if (next == _fields.size())
      _line.warn(place, "number", "{} {} is not a number: only its first digits are read ({})",
                 name(_good), shownWord, _line.subject);
    else if (problemOf(rest, _fields[next]) == Problem::kNotNumber)
      _line.warn(place, "number",
                 "{} {} is not a number: only its first digits are read, and all later fields are "
                 "0{} ({})",
                 name(_good), shownWord, lossFrom(next), _line.subject);
    else
      _line.warn(place, "number",
                 "{} {} is not a number: only its first digits are read, and the rest is read as "
                 "{} ({})",
                 name(_good), shownWord, named(_fields[next]), _line.subject);
  }

  size_t firstDateField() const { return firstHolderField() + 12; }

  // What it means for the holder that this field and all later ones are 0.
  const char* lossFrom(size_t field) const {
    if (field <= firstHolderField())
      return isCard() ? ", so the card opens no door" : ", so the PIN opens no door";
    if (field <= firstDateField() + 2)
      return isCard() ? ", so the card never expires" : ", so the PIN never expires";
    return "";
  }

  // The words before a comment, however many they are.
  size_t countWords() const {
    size_t count = 0;
    for (const char* next = _line.text + 1;; ++count) {
      while (isSpace(*next)) ++next;
      if (*next == '\0' || *next == '#') return count;
      while (*next != '\0' && !isSpace(*next)) ++next;
    }
  }

  // Words are missing, or too many, before the dates, which shows in the place of the dates: one
  // finding for all fields that are read from the wrong words.
  bool reportSlip() {
    const bool hasCount = _problem == Problem::kNone && _words[_fields.size()].empty();
    if (hasCount || _fields.size() <= firstDateField()) return false;
    const size_t count = countWords(), expected = _fields.size();
    const auto isDateAt = [&](size_t field) {
      const size_t at = field + count - expected;
      return at < _words.size() && classify(_words[at]).kind == WordKind::kDate;
    };
    const size_t start = firstDateField();
    if (count == expected || !(isDateAt(start) || isDateAt(start + 2))) return false;
    const size_t wrong = count < expected ? expected - count : count - expected;
    const HolderFields holder = scanHolder();
    const size_t finding = _line.warn(
        _line.whole(), "fields", "{} words instead of {}, {} before the dates {} {}: {} ({})",
        count, expected, wrong == 1 ? "one" : fmt::to_string(wrong), wrong == 1 ? "is" : "are",
        count < expected ? "missing" : "too many", slipEffect(holder), _line.subject);
    if (holder.escortId != 0) _check.slippedEscorts.push_back({holder.escortId, finding});
    markMisread();
    return true;
  }

  // What a build reads from the wrong words of a line that has slipped.
  static std::string slipEffect(const HolderFields& holder) {
    std::vector<std::string> effects;
    if (holder.escortId != 0) effects.push_back(fmt::format("escort {}", holder.escortId));
    if (secondsOf(PeriodEnd::kStart, holder.startDate, holder.startTime) == 0)
      effects.push_back("no start date");
    if (secondsOf(PeriodEnd::kEnd, holder.endDate, holder.endTime) == 0)
      effects.push_back("no end date");
    if (effects.empty()) return "each field after that has the word of another one";
    return fmt::format("{}", fmt::join(effects, ", "));
  }

  // As a build reads the fields, whatever the words are.
  HolderFields scanHolder() const {
    FieldScanner scanner(_line.text + 1);
    isCard() ? static_cast<void>(scanCardLine(scanner)) : static_cast<void>(scanPinLine(scanner));
    return scanHolderFields(scanner);
  }

  static uint32_t secondsOf(PeriodEnd end, std::string_view date, std::string_view time) {
    uint32_t seconds = 0;
    return parsePeriodEnd(end, date, time, seconds) == kSuccess ? seconds : 0;
  }

  void markMisread() { _check.misread.push_back(static_cast<int32_t>(_line.start.line)); }

  bool checkExtraWords() {
    const std::string_view extra = _words[_fields.size()];
    if (extra.empty() || extra[0] == '#') return true;
    _line.warn(_line.at(extra), "fields", "what follows {} is ignored ({})", named(_fields.back()),
               _line.subject);
    markMisread();
    return false;
  }

  // Card set, card number, PIN and unique ID of a line without an error.
  void checkIdentity() const {
    const size_t uniqid = firstHolderField() - 1;
    if (_good <= uniqid) return;
    const Subject& subject = _line.subject;
    if (*_line.text == kCardLine) {
      if (wordValue(_words[0]) != _csid)
        _line.warn(_line.at(_words[0]), "range", "card set {} is not 1 to 253{} ({})",
                   shown(_words[0], _fields[0]), readAs(_words[0], _fields[0], _csid), subject);
      if (_check.hasNumberRange(_csid))
        _check.checkNumberRange(_line, _words[1], _fields[1], _csid, wordValue(_words[1]));
    }
    if (isCard() && _words[2].size() > 1 && isZero(_words[2]))
      _line.warn(_line.at(_words[2]), "zero",
                 "a PIN of several zeros is a PIN: only 0 means that there is none ({})", subject);
    if (isCard() && isZero(_words[1]))
      _line.warn(_line.at(_words[1]), "zero", "card number 0 ({})", subject);
    if (isHex() && _words[1].size() % 2 == 1)
      _line.warn(_line.at(_words[1]), "hex",
                 "card number {0} has an odd number of digits and is read as {0}0 ({1})", _words[1],
                 subject);
    if (!isCard() && isZero(_words[0]))
      _line.warn(_line.at(_words[0]), "zero",
                 "PIN 0 is a key like any other: whoever types 0 is holder {}", subject.uniqid);
    // A short number is what a build has read.
    const bool isShort = _words[uniqid].size() < 10 && isDigit(_words[uniqid][0]);
    const int64_t id = isShort ? subject.uniqid : wordValue(_words[uniqid]);
    _check.checkRange(_line, _words[uniqid], _fields[uniqid], id);
    if (id == 0) _line.warn(_line.at(_words[uniqid]), "zero", "unique ID 0 ({})", subject);
  }

  // What a build accepts silently in the fields of a holder, and a site would not want.
  void checkHolderFields() {
    size_t firstDate = kNoField;
    for (size_t i = firstHolderField(); i < _good; ++i) {
      const LineField& field = _fields[i];
      if (field.kind == FieldKind::kDate && firstDate == kNoField) firstDate = i;
      if (_words[i] != "0") checkField(_words[i], field);
    }
    const bool isCutDate = _problem == Problem::kCut && (_fields[_good].kind == FieldKind::kDate ||
                                                         _fields[_good].kind == FieldKind::kTime);
    if (firstDate != kNoField && !isCutDate) checkPeriod(firstDate);
  }

  void checkField(std::string_view word, const LineField& field) {
    const auto value = [word] { return wordValue(word); };
    switch (field.kind) {
      case FieldKind::kAccessLevel:
        return _check.checkLevel(_line, word, field, value());
      case FieldKind::kFlag:
        if (value() != 0 && value() != 1)
          _line.warn(_line.at(word), "flag", "{} {} is not 0 or 1 and counts as 1 ({})", field.name,
                     shown(word, field), _line.subject);
        return;
      case FieldKind::kEscort:
        _check.checkRange(_line, word, field, value());
        if (value() > 0 && value() <= UINT32_MAX)
          _check.escorts.push_back({static_cast<uint32_t>(value()), _line.subject.uniqid,
                                    static_cast<int32_t>(_line.start.line),
                                    static_cast<int32_t>(_line.at(word).column)});
        return;
      case FieldKind::kNumber:
        return _check.checkRange(_line, word, field, value());
      default:
        return;
    }
  }

  void checkPeriod(size_t first) const {
    const PeriodWords start = {PeriodEnd::kStart, _words[first], _words[first + 1]};
    const PeriodWords end = {PeriodEnd::kEnd, _words[first + 2], _words[first + 3]};
    const uint32_t from = checkPeriodEnd(start, first).value_or(0);
    const std::optional<uint32_t> to = checkPeriodEnd(end, first + 2);
    if (to) checkEnd(end, first + 2, *to);
    if (from != 0 && to && *to != 0 && *to < from)
      _line.warn(_line.at(end.date), "period", "end date {} is before the start: {} is never valid",
                 shown(end.date, _fields[first + 2]), _line.subject);
  }

  // An end that is read as it is written, and does not do what it seems to.
  void checkEnd(const PeriodWords& end, size_t field, uint32_t seconds) const {
    constexpr uint32_t kSecondsPerDay = 86400;
    if (seconds == 0)
      _line.warn(_line.at(end.date), "date",
                 "end date {} {} is stored as 0, which means no limit: {} never expires",
                 shown(end.date, _fields[field]), shown(end.time, _fields[field + 1]),
                 _line.subject);
    else if (seconds % kSecondsPerDay == 0)
      _line.warn(_line.at(end.time), "day",
                 "end time {} is the beginning of the day: {} expires when {} begins; write 0 for "
                 "the end of the day",
                 shown(end.time, _fields[field + 1]), _line.subject, end.date);
  }

  // The seconds of the record; none for 0 and for what is wrong, which is reported once.
  std::optional<uint32_t> checkPeriodEnd(const PeriodWords& end, size_t field) const {
    uint32_t seconds = 0;
    if (isUsual(end.date, end.time) &&
        parsePeriodEnd(end.end, end.date, end.time, seconds) == kSuccess) {
      _check.otherDates.addOtherwise();
      return seconds;
    }
    const ShownWord date = shown(end.date, _fields[field]);
    const ShownWord time = shown(end.time, _fields[field + 1]);
    if (end.date == "0") {
      if (end.time != "0")
        _line.warn(_line.at(end.time), "date", "{0} time {1} is ignored: the {0} date of {2} is 0",
                   end.name(), time, _line.subject);
      return {};
    }
    const Word word = classify(end.date);
    if (word.kind != WordKind::kDate || (!word.rest.empty() && word.rest[0] != '-')) {
      reportOtherDate(end, date, "year/month/day");
      return {};
    }
    const DateTimeText joined = joinDateTime(end.end, end.date, end.time);
    const char* rest = "";
    if (parseDateTime(joined.data(), seconds, &rest) != kSuccess) {
      reportUnreadable(end, date, time);
      return {};
    }
    _check.otherDates.addOtherwise();
    if (*rest != '\0')
      _line.warn(_line.at(word.rest.empty() ? end.time : end.date), "date",
                 "what follows the seconds of the {} time is ignored ({})", end.name(),
                 _line.subject);
    else if (!hasDay(end.date))
      _line.warn(_line.at(end.date), "day",
                 "{} date {} is not a day of its month and counts as one of the next month ({})",
                 end.name(), date, _line.subject);
    else
      return seconds;
    return {};
  }

  // A date or a time that is none, although it looks like one.
  void reportUnreadable(const PeriodWords& end, const ShownWord& date,
                        const ShownWord& time) const {
    uint32_t midnight = 0;
    if (parseDateTime(joinDateTime(end.end, end.date, "0").data(), midnight) != kSuccess)
      return reportOtherDate(end, date, "a day from 1970 to 2037");
    _check.otherDates.addOtherwise();
    _line.warn(_line.at(end.time), "date", "{} time {} is not hours:minutes:seconds: {} {}",
               end.name(), time, _line.subject, end.consequence());
  }

  void reportOtherDate(const PeriodWords& end, const ShownWord& date, const char* expected) const {
    Finding finding{_line.at(end.date), {}, 0, "date"};
    finding.text = fmt::format("{} date {} is not {}: {} {}", end.name(), date, expected,
                               _line.subject, end.consequence());
    finding.about = _line.subject.about();
    _check.otherDates.add(end.date, std::move(finding));
  }

  CardsCheck& _check;
  CheckedLine& _line;
  std::span<const LineField> _fields;
  std::array<std::string_view, kMostFields + 1> _words;  // And the one after the last field.
  size_t _good = 0;                                      // Fields before the first problem.
  Problem _problem = Problem::kNone;                     // Of the field after them.
  int32_t _csid = 0;
};

}  // namespace

int32_t checkHolderLine(CardsCheck& check, CheckedLine& line) {
  return HolderLine(check, line).run();
}

}  // namespace badgemint::admin
