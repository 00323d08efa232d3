#include "admin/check/holderrules.h"

#include <array>
#include <chrono>
#include <string>
#include <utility>

#include "inputcards/cardline.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

// The fields of a holder, by their place behind those that identify him.
constexpr size_t kFirstFlag = 8, kEscort = 11, kStartDate = 12, kStartTime = 13, kEndDate = 14,
                 kEndTime = 15, kElevator = 16, kLastFlag = 18;

bool isCardLine(char type) {
  return type == kCardLine || type == kNoFormatCardLine;
}

// What the date of a word is, as far as it can be read as one.
struct WrittenDate {
  bool isDate = false;  // Three numbers between slashes.
  bool exists = false;  // A day that its month has.
  std::string_view behind;
};

WrittenDate writtenDate(std::string_view word) {
  const std::string text(word);
  FieldScanner scanner(text.c_str());
  const int32_t year = scanner.nextInt();
  scanner.expect('/');
  const int32_t month = scanner.nextInt();
  scanner.expect('/');
  const int32_t day = scanner.nextInt();
  if (scanner.failed()) return {};
  const auto behind = static_cast<size_t>(scanner.position() - text.c_str());
  if (month < 1 || month > 12) return {true, true, word.substr(behind)};
  const std::chrono::year_month_day date{std::chrono::year{year},
                                         std::chrono::month{static_cast<unsigned>(month)},
                                         std::chrono::day{static_cast<unsigned>(day)}};
  return {true, date.ok(), word.substr(behind)};
}

// Whether a date and a time are written with all their digits and are a day that every month has,
// as nearly all are: what can be parsed then needs no second look.
bool isUsual(std::string_view date, std::string_view time) {
  return date.size() == 10 && date[4] == '/' && date[7] == '/' && isDigit(date[8]) &&
         isDigit(date[9]) && date.substr(8) <= "28" &&
         (time == "0" ||
          (time.size() == 8 && time[2] == ':' && time[5] == ':' && isDigit(time[7])));
}

}  // namespace

int64_t valueOf(std::string_view word) {
  SaturatedInt64 number{};
  return digitsToInt64(word, number) ? number.value : textToInt64(word.data());
}

const char* fieldName(char lineType, size_t field) {
  return lineFields(lineType)[field].name;
}

size_t firstHolderField(char lineType) {
  return isCardLine(lineType) ? 4 : 2;
}

size_t fieldCount(char lineType) {
  return lineFields(lineType).size();
}

// A date and time of a period, as written.
struct HolderRules::End {
  PeriodEnd end;
  std::string_view date, time;

  const char* name() const { return end == PeriodEnd::kStart ? "start" : "end"; }
  const char* consequence() const {
    return end == PeriodEnd::kStart ? "is valid from the beginning" : "never expires";
  }
};

void HolderRules::check(const CheckedLine& line, const PlacedScanner& fields, size_t first) {
  for (size_t at = first; at < fields.sound(); ++at) {
    const size_t field = at - first;
    if (field >= kStartDate && field <= kEndTime) continue;
    const std::string_view word = fields.word(at);
    if (word == "0") continue;
    const int64_t value = valueOf(word);
    if (field < kFirstFlag) {
      checkLevel(line, word, value);
    } else if (field < kEscort || field == kLastFlag) {
      if (value != 0 && value != 1)
        warnOfHolder(line, word, "flag",
                     std::string(fieldName(line.text[0], at)) + " " + printable(word) +
                         " is taken for 1: a flag is 0 or 1");
    } else if (field == kEscort) {
      checkRange(line, word, value, UINT32_MAX, "escort");
      const auto escort = static_cast<uint32_t>(value);
      if (escort == value)
        _escorts.push_back({escort, line.subject.uniqid, static_cast<int32_t>(line.number),
                            static_cast<int32_t>(line.at(word.data()).column)});
    } else {
      checkRange(line, word, value, UINT8_MAX,
                 field == kElevator ? "elevator access" : "output relay group");
    }
  }
  checkPeriod(line, fields, first);
}

void HolderRules::checkRange(const CheckedLine& line, std::string_view word, int64_t value,
                             int64_t high, const char* what) {
  if (value >= 0 && value <= high) return;
  // As a build reads it, which for numbers beyond 64 bits is another than `value`.
  FieldScanner scanner(word.data());
  const uint32_t stored =
      high == UINT32_MAX ? scanner.nextUnsigned()
                         : static_cast<uint32_t>(scanner.nextInt()) & static_cast<uint32_t>(high);
  warnOfHolder(line, word, "range",
               std::string(what) + " " + printable(word) + " is not 0 to " + std::to_string(high) +
                   ": it is read as " + std::to_string(stored));
}

void HolderRules::checkLevel(const CheckedLine& line, std::string_view word, int64_t level) {
  checkRange(line, word, level, UINT16_MAX, "access level");
  if (_levels == nullptr || level <= 0 || level > UINT16_MAX) return;
  if (_levels->findLevel(static_cast<uint32_t>(level)) >= 0) return;
  warnOfHolder(line, word, "level",
               "access level " + std::to_string(level) + " is not defined: it opens no door");
}

void HolderRules::checkPeriod(const CheckedLine& line, const PlacedScanner& fields, size_t first) {
  if (fields.count() <= first + kStartDate) return;
  // A word of which the rest runs into the next field: nothing behind it is what it looks like.
  const size_t last = fields.count() - 1;
  if (fields.flaw() == PlacedScanner::Flaw::kCut && last <= first + kEndTime) {
    warn(line, fields.word(last), "date",
         quoted(fields.word(last)) +
             " has more than 14 characters: the rest is read as the next "
             "field of " +
             line.subject.text());
    return;
  }
  const auto word = [&](size_t field) { return fields.word(first + field); };
  const End start = {PeriodEnd::kStart, word(kStartDate), word(kStartTime)};
  const End end = {PeriodEnd::kEnd, word(kEndDate), word(kEndTime)};
  const uint32_t from = checkPeriodEnd(line, start);
  const uint32_t to = checkPeriodEnd(line, end);
  if (from != 0 && to != 0 && to < from)
    warn(line, end.date, "period",
         "end " + printable(end.date) + " lies before the start: " + line.subject.text() +
             " is never valid");
}

// The seconds of the record; what is wrong is told once.
uint32_t HolderRules::checkPeriodEnd(const CheckedLine& line, const End& end) {
  uint32_t seconds = 0;
  if (isUsual(end.date, end.time) &&
      parsePeriodEnd(end.end, end.date, end.time, seconds) == kSuccess)
    return seconds;
  const bool isNone = end.date == "0";
  if (isNone && end.time == "0") return 0;
  const std::string name = end.name();
  if (isNone) {
    warn(line, end.time, "date",
         name + " time " + quoted(end.time) + " is ignored: the " + name + " date of " +
             line.subject.text() + " is 0");
    return 0;
  }
  const std::string consequence = ": " + line.subject.text() + ' ' + end.consequence();
  const WrittenDate date = writtenDate(end.date);
  if (!date.isDate || (!date.behind.empty() && date.behind[0] != '-')) {
    warn(line, end.date, "date",
         name + " date " + quoted(end.date) + " is not year/month/day" + consequence);
    return 0;
  }
  const char* rest = "";
  const DateTimeText joined = joinDateTime(end.end, end.date, end.time);
  if (parseDateTime(joined.data(), seconds, &rest) == kSuccess) {
    if (*rest != '\0') {
      const std::string_view word = date.behind.empty() ? end.time : end.date;
      warnOfHolder(line, word, "date",
                   name + (date.behind.empty() ? " time " : " date ") + quoted(word) + ": " +
                       quoted(rest) + " behind the seconds is ignored");
    } else if (!date.exists) {
      warnOfHolder(line, end.date, "day",
                   name + " date " + printable(end.date) +
                       " is no day of its month and runs on into the next");
    }
    return seconds;
  }
  uint32_t midnight = 0;
  if (parseDateTime(joinDateTime(end.end, end.date, "0").data(), midnight) == kSuccess) {
    warn(line, end.time, "date",
         name + " time " + quoted(end.time) + " is not hours:minutes:seconds" + consequence);
  } else {
    warn(line, end.date, "date",
         name + " date " + quoted(end.date) + " is no day from 1970 to 2037" + consequence);
  }
  return 0;
}

}  // namespace badgemint::admin
