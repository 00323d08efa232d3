#include "support/datetime.h"

#include <ctime>
#include "support/testfiles.h"

namespace badgemint {
namespace {

using Outcome = std::pair<int32_t, uint32_t>;  // The result, and the seconds: 7 when untouched.

Outcome parsed(PeriodEnd end, const std::string& date, const std::string& time) {
  uint32_t seconds = 7;
  const int32_t result = parsePeriodEnd(end, date, time, seconds);
  return {result, seconds};
}

// The plain way: a formatted scan, and the calendar of the C library.
Outcome judged(const std::string& text) {
  int n[6];
  constexpr int kLow[] = {1970, 1, 1, 0, 0, 0}, kHigh[] = {2037, 12, 31, 23, 59, 59};
  if (std::sscanf(text.c_str(), "%d/%d/%d-%d:%d:%d", n, n + 1, n + 2, n + 3, n + 4, n + 5) != 6)
    return {-106, 7};
  for (int i = 0; i < 6; ++i)
    if (n[i] < kLow[i] || n[i] > kHigh[i]) return {-106, 7};
  std::tm t{n[5], n[4], n[3], n[2], n[1] - 1, n[0] - 1900, 0, 0, 0, 0, nullptr};
  return {0, static_cast<uint32_t>(timegm(&t))};
}

TEST(DateTime, ReadsWhatAScanAndTheCalendarRead) {
  std::mt19937 random(1);
  const auto any = [&](int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(random);
  };
  for (int i = 0; i < 30000; ++i) {
    char date[40], time[40];
    std::snprintf(date, sizeof date, i % 4 != 0 ? "%d/%02d/%02d" : "%d/%d/%d", any(1968, 2039),
                  any(0, 13), any(0, 32));
    std::snprintf(time, sizeof time, i % 4 != 0 ? "%02d:%02d:%02d" : "%d:%d:%d", any(-1, 24),
                  any(-1, 60), any(-1, 60));
    if (i % 3 == 0) (i % 2 == 0 ? date[any(0, 7)] : time[any(0, 4)]) = " +-/:09;x"[any(0, 8)];
    const std::string day = date;
    ASSERT_EQ(parsed(PeriodEnd::kStart, day, time), judged(day + "-" + time)) << day << time;
    ASSERT_EQ(parsed(PeriodEnd::kStart, day, "0"), judged(day + "-00:00:00")) << day;
    ASSERT_EQ(parsed(PeriodEnd::kEnd, day, "0"), judged(day + "-23:59:59")) << day;
  }
  EXPECT_EQ(parsed(PeriodEnd::kEnd, "0", "7:30:00"), Outcome(0, 0));
}

TEST(DateTime, WritesEachDayAsTheCalendarDoes) {
  for (uint32_t seconds = 1; seconds < UINT32_MAX - 90000U; seconds += 86400 + 1) {
    const std::time_t time = seconds;
    char expected[kDateTimeSize];
    std::strftime(expected, sizeof expected, "%Y/%m/%d-%H:%M:%S", std::gmtime(&time));
    ASSERT_STREQ(formatDateTime(seconds).data(), expected);
  }
  EXPECT_STREQ(formatDateTime(0).data(), "0");
  const std::string d15(15, '2'), d16 = d15 + "3";
  EXPECT_EQ(joinDateTime(PeriodEnd::kEnd, d15, d16).data(), d15 + "-" + d15.substr(1));
  EXPECT_EQ(splitDateTime(d16 + "-" + d16).date.data(), d15);
  EXPECT_EQ(splitDateTime("1-2-3").time.data(), std::string("2-3"));
}

}  // namespace
}  // namespace badgemint
