#include "support/datetime.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>

#include "support/fieldscanner.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

namespace {

constexpr int32_t kFirstYear = 1970;
constexpr int32_t kLastYear = 2037;
constexpr uint32_t kSecondsPerDay = 86400;

struct CalendarTime {
  int32_t year, month, day, hour, minute, second;
};

bool isValid(const CalendarTime& t) {
  const auto within = [](int32_t value, int32_t low, int32_t high) {
    return value >= low && value <= high;
  };
  return within(t.year, kFirstYear, kLastYear) && within(t.month, 1, 12) && within(t.day, 1, 31) &&
         within(t.hour, 0, 23) && within(t.minute, 0, 59) && within(t.second, 0, 59);
}

// From 1970 to 2037 every fourth year is a leap year.
uint32_t toSeconds(const CalendarTime& t) {
  constexpr std::array<int32_t, 12> kDaysBefore = {0,   31,  59,  90,  120, 151,
                                                   181, 212, 243, 273, 304, 334};
  const int32_t leapDaysBefore = (t.year - 1969) / 4;
  const int32_t leapDay = t.year % 4 == 0 && t.month > 2 ? 1 : 0;
  const int32_t days = (t.year - kFirstYear) * 365 + leapDaysBefore +
                       kDaysBefore[static_cast<size_t>(t.month - 1)] + leapDay + t.day - 1;
  return static_cast<uint32_t>(days) * kSecondsPerDay +
         static_cast<uint32_t>(t.hour * 3600 + t.minute * 60 + t.second);
}

constexpr size_t kUsualDate = 10;  // "2024/01/31"
constexpr size_t kUsualTime = 8;   // "07:30:00"

// Reads a date and a time of the usual lengths if all their digits stand in the usual places.
// False, with anything in `t`, when they do not.
bool readUsualForm(std::string_view date, std::string_view time, CalendarTime& t) {
  static constexpr char kForm[] = "0000/00/0000:00:00";
  static constexpr char kHighest[] = "9999/99/9999:99:99";
  constexpr size_t kLength = kUsualDate + kUsualTime;
  uint8_t digits[kLength];
  std::memcpy(digits, date.data(), kUsualDate);
  std::memcpy(digits + kUsualDate, time.data(), kUsualTime);
  uint8_t deviations = 0;
  for (size_t i = 0; i < kLength; ++i) {
    digits[i] = static_cast<uint8_t>(digits[i] - kForm[i]);
    deviations |= digits[i] > static_cast<uint8_t>(kHighest[i] - kForm[i]) ? 1 : 0;
  }
  const auto two = [&digits](size_t i) { return digits[i] * 10 + digits[i + 1]; };
  t = {two(0) * 100 + two(2), two(5), two(8), two(10), two(13), two(16)};
  return deviations == 0;
}

int32_t checkedSeconds(const CalendarTime& t, uint32_t& seconds) {
  if (!isValid(t)) return kInvalidDate;
  seconds = toSeconds(t);
  return kSuccess;
}

std::string_view timeOrDefault(PeriodEnd end, std::string_view time) {
  if (time != "0") return time;
  return end == PeriodEnd::kStart ? "00:00:00" : "23:59:59";
}

char* appendTwoDigits(char* text, char separator, uint32_t number) {
  *text++ = separator;
  *text++ = static_cast<char>('0' + number / 10);
  *text++ = static_cast<char>('0' + number % 10);
  return text;
}

}  // namespace

DateTimeText joinDateTime(PeriodEnd end, std::string_view date, std::string_view time) {
  DateTimeText joined{};
  if (date == "0") {
    joined[0] = '0';
    return joined;
  }
  time = timeOrDefault(end, time);
  size_t length = 0;
  const auto append = [&](std::string_view part) {
    const size_t room = std::min(part.size(), joined.size() - 1 - length);
    std::copy_n(part.begin(), room, joined.begin() + length);
    length += room;
  };
  append(date);
  append("-");
  append(time);
  return joined;
}

int32_t parseDateTime(const char* text, uint32_t& seconds, const char** rest) {
  if (rest != nullptr) *rest = "";
  if (std::strcmp(text, "0") == 0) {
    seconds = 0;
    return kSuccess;
  }
  FieldScanner scanner(text);
  CalendarTime t{};
  t.year = scanner.nextInt();
  scanner.expect('/');
  t.month = scanner.nextInt();
  scanner.expect('/');
  t.day = scanner.nextInt();
  scanner.expect('-');
  t.hour = scanner.nextInt();
  scanner.expect(':');
  t.minute = scanner.nextInt();
  scanner.expect(':');
  t.second = scanner.nextInt();
  if (scanner.failed()) return kInvalidDate;
  if (rest != nullptr) *rest = scanner.position();
  return checkedSeconds(t, seconds);
}

int32_t parsePeriodEnd(PeriodEnd end, std::string_view date, std::string_view time,
                       uint32_t& seconds) {
  time = timeOrDefault(end, time);
  CalendarTime t;
  if (date.size() == kUsualDate && time.size() == kUsualTime && readUsualForm(date, time, t))
    return checkedSeconds(t, seconds);
  return parseDateTime(joinDateTime(end, date, time).data(), seconds);
}

DateTimeText formatDateTime(uint32_t seconds) {
  DateTimeText text{};
  if (seconds == 0) {
    text[0] = '0';
    return text;
  }
  const std::chrono::sys_days day{std::chrono::days{seconds / kSecondsPerDay}};
  const std::chrono::year_month_day date(day);
  const uint32_t second = seconds % kSecondsPerDay;
  char* next = std::to_chars(text.data(), text.data() + text.size(), int{date.year()}).ptr;
  next = appendTwoDigits(next, '/', unsigned{date.month()});
  next = appendTwoDigits(next, '/', unsigned{date.day()});
  next = appendTwoDigits(next, '-', second / 3600);
  next = appendTwoDigits(next, ':', second / 60 % 60);
  appendTwoDigits(next, ':', second % 60);
  return text;
}

DateAndTime splitDateTime(std::string_view text) {
  DateAndTime parts;
  const size_t dash = text.find('-');
  if (dash == std::string_view::npos) {
    parts.date[0] = parts.time[0] = '0';
    return parts;
  }
  copyCut(text.substr(0, dash), parts.date);
  copyCut(text.substr(dash + 1), parts.time);
  return parts;
}

}  // namespace badgemint
