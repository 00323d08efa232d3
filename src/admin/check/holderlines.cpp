// The check of 'c', 'n', 'p' and 'o' lines: a card or a PIN, and what its holder may do.
#include "admin/check/cardscheck.h"
#include "support/datetime.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

bool isDateOrTime(const LineField& field) {
  return field.kind == FieldKind::kDate || field.kind == FieldKind::kTime;
}

// How much of a word a build reads as the field; nothing of a comment or of what is not a number.
size_t readLength(std::string_view word, const LineField& field) {
  if (word.starts_with('#')) return 0;
  if (isDateOrTime(field)) return std::min(word.size(), kMaxDateTimeWord);
  if (field.kind == FieldKind::kCardNumber || field.kind == FieldKind::kPin)
    return std::min(word.size(), kMaxNumberWord);
  return numberLength(word);
}

// Whether a build reads the whole word as this field.
bool isWhole(std::string_view word, const LineField& field) {
  if (word.size() == 1 && isDigit(word[0])) return true;  // As most are.
  return !word.empty() && readLength(word, field) == word.size();
}

// Whether a word is 0, as most are; faster than comparing texts.
bool isNone(std::string_view word) {
  return word.size() == 1 && word[0] == '0';
}

std::string_view lastPart(std::string_view word, char separator) {
  return word.substr(word.rfind(separator) + 1);
}

// Whether the seconds are of the day that the date names: one that its month does not have runs on
// into the next month.
bool hasDay(std::string_view date, uint32_t seconds) {
  const auto dayOf = [](std::string_view text) { return wordValue(lastPart(text, '/')); };
  const int64_t day = dayOf(date);
  return (day >= 1 && day <= 28) ||  // All months have it.
         day == dayOf(splitDateTime(formatDateTime(seconds).data()).date.data());
}

bool isUnlimited(PeriodEnd end, std::string_view date, std::string_view time) {
  uint32_t seconds = 0;
  return parsePeriodEnd(end, date, time, seconds) != kSuccess || seconds == 0;
}

// The check of one 'c', 'n', 'p' or 'o' line; does not outlive it.
class HolderLine : FieldsCheck {
 public:
  HolderLine(CardsCheck& check, CheckedLine& line) : FieldsCheck(check, line, line.text + 1) {
    const auto firstWrong = std::ranges::mismatch(_words, _fields, isWhole).in1;
    _whole = static_cast<size_t>(firstWrong - _words.begin());
  }

  int32_t run() {
    const int32_t result = _check.checkAsBuild(_line, _line.text, _listed);
    if (result < 0) {
      reportErrors(result);
      const uint32_t uniqid = _line.about().holder.value_or(0);
      _check.addUnindexed(uniqid, uniqid);
    }
    const size_t ofHolder = firstHolderField();
    const bool isReported = result < 0 && _whole < ofHolder;
    if (_line.isHidden || isReported || !checkWords()) return result;
    for (size_t i = result < 0 ? ofHolder : 0; i < _whole; ++i)
      if (i < ofHolder || !isNone(_words[i])) checkField(i);
    if (_whole >= firstDateField() + 4) checkPeriod();
    return result;
  }

 private:
  bool isCard() const { return _fields[0].kind == FieldKind::kCardSet; }
  size_t firstHolderField() const { return isCard() ? 4 : 2; }
  bool hasHolderFields() const { return _fields.size() > firstHolderField(); }
  size_t escortField() const { return firstHolderField() + 11; }
  size_t firstDateField() const { return firstHolderField() + 12; }

  // Reports each error of the line. If none of the fields read so far explains it, the first
  // unreadable field does.
  void reportErrors(int32_t result) {
    const bool isComplete = _whole == _fields.size();
    // A number or a PIN that is too long to be read at once is explained as a whole.
    const bool isCut = !isComplete && readLength(_words[_whole], _fields[_whole]) > 0;
    const size_t known = _whole + (isCut && _whole > 0 ? 1 : 0);
    std::array<bool, 3> isWrong{};
    for (size_t i = 0; i < std::min(known, firstHolderField() - 1); ++i)
      isWrong[i] = reportWrong(i);
    if (known > 1 && hasCardSet()) {
      const auto number = isWrong[1] ? std::nullopt : std::optional(wordValue(_words[1]));
      if (reportEncoding(_line, number)) return;
    }
    if (!isComplete && std::ranges::find(isWrong, true) == isWrong.end())
      reportUnread(_whole, result);
  }

  // What fails no build: one finding for the line. Returns whether the fields before it can be
  // checked.
  bool checkWords() {
    const size_t expected = _fields.size();
    const std::string_view wrong = _words[_whole];
    if (_whole == expected && isEnd(wrong)) return true;
    const size_t count = countWords();
    if (hasShiftedDates(count))
      reportUnreliable(
          _line.whole(), "fields", 0,
          fmt::format("{} words instead of {}, {} {}", count, expected,
                      count + 1 == expected || count == expected + 1 ? "one before the dates is"
                                                                     : "some before the dates are",
                      count < expected ? "missing" : "too many"));
    else if (_whole == expected)
      reportUnreliable(_line.at(wrong), "fields", expected,
                       fmt::format("what follows {} is ignored", named(_fields.back())));
    else if (wrong.empty())
      reportUnreliable(
          _line.whole(), "fields", firstHolderField(),
          fmt::format("{} word{} instead of {}: {} is missing, and it and all later fields are 0",
                      count, count == 1 ? "" : "s", expected, named(_fields[_whole])));
    else if (wrong[0] == '#')
      reportUnreliable(_line.at(wrong), "text", _whole, earlyComment(_whole));
    else
      return reportWrongWord(_fields[_whole]);
    return false;
  }

  bool reportWrongWord(const LineField& field) {
    const std::string_view word = _words[_whole];
    const bool isLast = _whole + 1 == _fields.size();
    const size_t length = readLength(word, field);
    if (isLast && word[length] == '#') return true;
    const char* effect = "is not a number: only its first digits are read";
    if (length == 0)
      effect = "is not a number: it and all later fields are 0";
    else if (isDateOrTime(field))
      effect = "has more than 14 characters: the rest is read as the next field";
    else if (!isLast)
      effect = "is not a number: its first digits are read, and the rest is read as the next field";
    reportUnreliable(_line.at(word), isDateOrTime(field) ? "date" : "number", _whole,
                     fmt::format("{} {} {}", field.name, shownWord(_whole), effect));
    if (field.kind == FieldKind::kDate) _check.addOtherDate(word);
    return true;
  }

  // The words before a comment.
  size_t countWords() const {
    size_t count = 0;
    FieldScanner scanner(_line.text + 1);
    while (!isEnd(scanner.nextWord(SIZE_MAX))) ++count;
    return count;
  }

  // Whether words are missing, or too many, before the dates, which shows in the place of a date.
  bool hasShiftedDates(size_t count) const {
    count = std::min(count, _words.size());
    const auto isDateAt = [this, count](size_t field) {
      const size_t at = field + count - _fields.size();
      return at < count && std::ranges::count(_words[at], '/') == 2;
    };
    return count != _fields.size() && hasHolderFields() &&
           (isDateAt(firstDateField()) || isDateAt(firstDateField() + 2));
  }

  // Reports a line in which the fields from `firstWrong` on are read from wrong words, or from
  // none.
  void reportUnreliable(Place place, std::string_view rule, size_t firstWrong,
                        const std::string& text) {
    // As a build reads the fields, whatever the words are.
    FieldScanner scanner(_line.text + 1);
    isCard() ? static_cast<void>(scanCardLine(scanner)) : static_cast<void>(scanPinLine(scanner));
    HolderFields holder = scanHolderFields(scanner);
    if (firstWrong > escortField() || !hasHolderFields()) holder.escortId = 0;  // Not a wrong one.
    const size_t finding = _line.warn(place, rule, "{}{}", text, effects(holder, firstWrong));
    if (holder.escortId != 0)
      _check.escorts.push_back({holder.escortId, 0, _line.number(), 0, finding});
    _check.unreliableLines.push_back(_line.number());
  }

  // What a build makes of the fields from `firstWrong` on: ": escort 2024, no start date".
  std::string effects(const HolderFields& holder, size_t firstWrong) const {
    if (!hasHolderFields()) return "";
    const size_t levels = firstHolderField(), start = firstDateField(), end = start + 2;
    std::vector<std::string> effects;
    const auto isLost = [this, firstWrong](size_t field, size_t last) {
      return firstWrong == 0 || (firstWrong <= last && _words[field] != "0");
    };
    if (isLost(levels, levels) && std::ranges::count(holder.accessLevels, 0) == 8)
      effects.emplace_back("no access level");
    if (holder.escortId != 0) effects.push_back(fmt::format("escort {}", holder.escortId));
    if (isLost(start, start + 1) &&
        isUnlimited(PeriodEnd::kStart, holder.startDate, holder.startTime))
      effects.emplace_back("no start date");
    if (isLost(end, end + 1) && isUnlimited(PeriodEnd::kEnd, holder.endDate, holder.endTime))
      effects.emplace_back("no end date");
    return effects.empty() ? "" : fmt::format(": {}", fmt::join(effects, ", "));
  }

  // What a build accepts silently in a field, and a site would not want; those of a period aside.
  void checkField(size_t field) const {
    const std::string_view word = _words[field];
    switch (_fields[field].kind) {
      case FieldKind::kCardSet:
      case FieldKind::kNumber:
        if (field > 0 || !isHex()) checkRange(field);
        return;
      case FieldKind::kCardNumber:
        if (isHex() && word.size() % 2 == 1)
          warn(field, "hex", "has an odd number of digits, and a 0 is added at its end");
        checkNumberRange(wordValue(word));
        return warnIfZero(field);
      case FieldKind::kPin:
        return checkPin(word);
      case FieldKind::kUniqueId:
        checkRange(field);
        return warnIfZero(field);
      case FieldKind::kAccessLevel:
        return checkLevel(field);
      case FieldKind::kFlag:
        if (const int64_t flag = wordValue(word); flag < 0 || flag > 1)
          warn(field, "flag", "is not 0 or 1 and counts as 1");
        return;
      case FieldKind::kEscort:
        return checkEscort(field);
      default:
        return;
    }
  }

  void checkPin(std::string_view pin) const {
    if (isZero(pin) && (!isCard() || pin.size() > 1))
      _line.warn(_line.at(pin), "zero", "{}",
                 isCard() ? "a PIN of several zeros is a PIN: only 0 means that there is none"
                          : "PIN 0 is a key like any other: whoever types 0 is this holder");
  }

  void checkEscort(size_t field) const {
    const int64_t escort = checkRange(field);
    const auto column = static_cast<int32_t>(_line.at(_words[field]).column);
    const auto holder = static_cast<uint32_t>(wordValue(_words[firstHolderField() - 1]));
    if (escort > 0 && escort <= UINT32_MAX)
      _check.escorts.push_back({static_cast<uint32_t>(escort), holder, _line.number(), column});
  }

  void checkPeriod() const {
    const size_t start = firstDateField(), end = start + 2;
    const uint32_t from = checkPeriodEnd(PeriodEnd::kStart, start).value_or(0);
    const std::optional<uint32_t> to = checkPeriodEnd(PeriodEnd::kEnd, end);
    if (!to) return;
    constexpr uint32_t kSecondsPerDay = 86400;
    if (*to == 0)
      warn(end, "date", "is stored as 0, which means no limit: access never expires");
    else if (*to % kSecondsPerDay == 0)
      warn(end + 1, "day",
           "is the start of the day: access expires when that day starts; write 0 for its end");
    if (from != 0 && *to != 0 && *to < from)
      warn(end, "period", "is before the start: access is never valid");
  }

  // The seconds of the record; none for 0 and for what is wrong, which is reported once.
  std::optional<uint32_t> checkPeriodEnd(PeriodEnd end, size_t field) const {
    const std::string_view date = _words[field], time = _words[field + 1];
    uint32_t seconds = 0;
    if (isNone(date)) {
      if (!isNone(time)) warn(field + 1, "date", "is ignored: its date is 0");
    } else if (parsePeriodEnd(end, date, time, seconds) != kSuccess) {
      reportUnreadable(end, field);
    } else {
      _check.hasDate = true;
      if (!isNone(time) && (std::ranges::count(time, ':') > 2 || !isNumber(lastPart(time, ':'))))
        warn(field + 1, "date", "is read only up to its seconds");
      else if (!hasDay(date, seconds))
        warn(field, "day", "is not a day of its month and counts as one of the next month");
      else
        return seconds;
    }
    return {};
  }

  void reportUnreadable(PeriodEnd end, size_t field) const {
    const bool isStart = end == PeriodEnd::kStart;
    const char* const effect = isStart ? "access has no start limit" : "access never expires";
    uint32_t midnight = 0;
    if (parsePeriodEnd(end, _words[field], "0", midnight) == kSuccess)
      return warn(field + 1, "date", fmt::format("is not hours:minutes:seconds: {}", effect));
    warn(field, "date", fmt::format("is not year/month/day from 1970 to 2037: {}", effect));
    _check.addOtherDate(_words[field]);
  }

  size_t _whole = 0;  // Fields before the first that the line lacks or that is not a whole word.
};

}  // namespace

int32_t checkHolderLine(CardsCheck& check, CheckedLine& line) {
  return HolderLine(check, line).run();
}

}  // namespace badgemint::admin
