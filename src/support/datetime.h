// Dates and times of validity: text in the input cards file and in dumps, seconds since 1970-01-01
// 00:00:00 UTC in the records. 0 seconds, "0" as text, means none. Always UTC; no time zone is ever
// asked for.
#ifndef BADGEMINT_SUPPORT_DATETIME_H
#define BADGEMINT_SUPPORT_DATETIME_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// The longest date-time text that an input line can give, and its NUL.
inline constexpr size_t kDateTimeSize = 31;
using DateTimeText = std::array<char, kDateTimeSize>;

enum class PeriodEnd { kStart, kEnd };

// Joins a date ("2024/01/31") and a time ("07:30:00") with '-'. The date "0" gives "0"; the time
// "0" means the first second of the day at the start of a period and its last second at the end.
// What does not fit is cut; words of at most 14 characters always fit.
DateTimeText joinDateTime(PeriodEnd end, std::string_view date, std::string_view time);

// Reads "0" or year/month/day-hour:minute:second, decimal numbers each; what follows the sixth is
// ignored. Years 1970 to 2037; day 31 is accepted in every month and runs on into the next one.
// kSuccess with the seconds, or kInvalidDate with `seconds` unchanged.
// `rest`, where it is wanted, is what follows the sixth number, or an empty text.
[[nodiscard]] int32_t parseDateTime(const char* text, uint32_t& seconds,
                                    const char** rest = nullptr);

// Both in one. A date and a time written with all their digits, as nearly all are, are read where
// they stand: each digit has its place then, and a scan of the joined text would find the same.
[[nodiscard]] int32_t parsePeriodEnd(PeriodEnd end, std::string_view date, std::string_view time,
                                     uint32_t& seconds);

// "%d/%02d/%02d-%02d:%02d:%02d", or "0".
DateTimeText formatDateTime(uint32_t seconds);

// Splits a date-time text at its first '-'; each part is cut after 15 characters. Both are "0" when
// there is none.
struct DateAndTime {
  static constexpr size_t kMaxLength = 15;
  std::array<char, kMaxLength + 1> date{};
  std::array<char, kMaxLength + 1> time{};
};
DateAndTime splitDateTime(std::string_view text);

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_DATETIME_H
