// The scanner against the formatted scan itself, on generated lines.
#include "support/fieldscanner.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "support/datetime.h"
#include "support/result.h"

namespace badgemint {
namespace {

using Random = std::mt19937;

size_t below(Random& random, size_t n) {
  return random() % n;
}

std::string anyField(Random& random) {
  static const std::string kFields[] = {"0",
                                        "-1",
                                        "+7",
                                        "--1",
                                        "+",
                                        "-",
                                        "2147483647",
                                        "2147483648",
                                        "-2147483649",
                                        "4294967296",
                                        "5000000000",
                                        "abc",
                                        "12ab",
                                        "0x10",
                                        "007",
                                        "2024/01/31",
                                        "1.5",
                                        "9223372036854775807",
                                        "9223372036854775808",
                                        "-9223372036854775809",
                                        "18446744073709551615",
                                        "18446744073709551616",
                                        "-18446744073709551615",
                                        "-18446744073709551616",
                                        std::string(100, '9')};
  if (below(random, 3) != 0) return kFields[below(random, std::size(kFields))];
  std::string field;
  for (size_t n = below(random, 24); n > 0; --n) field += "0123456789+-ax/:"[below(random, 16)];
  return field;
}

std::string anyLine(Random& random) {
  static const char* const kBlanks[] = {" ", "  ", "\t", "\v\f", "\r", "\n", "", "\xA0"};
  std::string line = "c";
  for (size_t n = below(random, 12); n > 0; --n)
    line += kBlanks[below(random, std::size(kBlanks))] + anyField(random);
  return line;
}

TEST(FieldScanner, ReadsAsTheFormattedScanDoes) {
  Random random(20240131);
  for (int round = 0; round < 50'000; ++round) {
    const std::string line = anyLine(random);
    char type = 0;
    char words[3][100] = {};
    int ints[3] = {};
    unsigned unsigneds[2] = {};
    std::sscanf(line.c_str(), "%c%d%99s%99s%u%d%14s%u%d", &type, &ints[0], words[0], words[1],
                &unsigneds[0], &ints[1], words[2], &unsigneds[1], &ints[2]);

    FieldScanner scanner(line.c_str() + 1);
    ASSERT_EQ(scanner.nextInt(), ints[0]) << line;
    ASSERT_EQ(scanner.nextWord(99), words[0]) << line;
    ASSERT_EQ(scanner.nextWord(99), words[1]) << line;
    ASSERT_EQ(scanner.nextUnsigned(), unsigneds[0]) << line;
    ASSERT_EQ(scanner.nextInt(), ints[1]) << line;
    ASSERT_EQ(scanner.nextWord(14), words[2]) << line;
    ASSERT_EQ(scanner.nextUnsigned(), unsigneds[1]) << line;
    ASSERT_EQ(scanner.nextInt(), ints[2]) << line;

    const std::string field = anyField(random);
    ASSERT_EQ(textToInt32(field.c_str()),
              static_cast<int32_t>(std::strtol(field.c_str(), nullptr, 10)));
    ASSERT_EQ(textToInt64(field.c_str()), std::strtoll(field.c_str(), nullptr, 10));
  }
}

TEST(FieldScanner, TellsSaturation) {
  EXPECT_FALSE(scanInt64("9223372036854775807").saturated);
  EXPECT_TRUE(scanInt64("9223372036854775808").saturated);
  EXPECT_FALSE(scanInt64("-9223372036854775808").saturated);
  EXPECT_TRUE(scanInt64("18446744073709551616").saturated);
}

TEST(DateTime, ParsesTheCalendar) {
  const struct {
    const char* text;
    int32_t result;
    uint32_t seconds;
  } rows[] = {{"0", 0, 0},
              {"1970/1/1-0:0:0", 0, 0},
              {"2037/12/31-23:59:59", 0, 2145916799},
              {"2038/1/1-0:0:0", kInvalidDate, 7},
              {"1969/12/31-0:0:0", kInvalidDate, 7},
              {"2024/2/29-12:00:00", 0, 1709208000},
              {"2023/2/29-0:0:0", 0, 1677628800},
              {"2023/3/1-0:0:0", 0, 1677628800},
              {"2000/2/31-0:0:0", 0, 951955200},
              {"2024/13/1-0:0:0", kInvalidDate, 7},
              {"2024/0/1-0:0:0", kInvalidDate, 7},
              {"2024/1/32-0:0:0", kInvalidDate, 7},
              {"2024/1/0-0:0:0", kInvalidDate, 7},
              {"2024/1/1-24:0:0", kInvalidDate, 7},
              {"2024/1/1-0:60:0", kInvalidDate, 7},
              {"2024/1/1-0:0:60", kInvalidDate, 7},
              {"2024/1/1-0:0", kInvalidDate, 7},
              {"2024/1/1-0:0:-1", kInvalidDate, 7},
              {"2024/1/1-0:0:0x", 0, 1704067200},
              {"2024 /1/1-0:0:0", kInvalidDate, 7},
              {"-", kInvalidDate, 7}};
  for (const auto& row : rows) {
    uint32_t seconds = 7;
    EXPECT_EQ(parseDateTime(row.text, seconds), row.result) << row.text;
    EXPECT_EQ(seconds, row.seconds) << row.text;
  }
}

TEST(DateTime, JoinsFormatsAndSplits) {
  const auto join = [](PeriodEnd end, const char* date, const char* time) {
    return std::string(joinDateTime(end, date, time).data());
  };
  EXPECT_EQ(join(PeriodEnd::kEnd, "0", "7:30:00"), "0");
  EXPECT_EQ(join(PeriodEnd::kEnd, "2024/01/31", "0"), "2024/01/31-23:59:59");
  EXPECT_EQ(join(PeriodEnd::kStart, "2024/01/31", "0"), "2024/01/31-00:00:00");
  EXPECT_EQ(join(PeriodEnd::kStart, "2024/01/31", "7:30:00"), "2024/01/31-7:30:00");
  EXPECT_EQ(join(PeriodEnd::kStart, "", ""), "-");
  EXPECT_STREQ(formatDateTime(0).data(), "0");
  EXPECT_STREQ(formatDateTime(86400).data(), "1970/01/02-00:00:00");
  EXPECT_STREQ(formatDateTime(UINT32_MAX).data(), "2106/02/07-06:28:15");

  const DateAndTime parts = splitDateTime(formatDateTime(1709208000).data());
  EXPECT_STREQ(parts.date.data(), "2024/02/29");
  EXPECT_STREQ(parts.time.data(), "12:00:00");
  const DateAndTime cut = splitDateTime("1234567890123456-7890-12345678901");
  EXPECT_STREQ(cut.date.data(), "123456789012345");
  EXPECT_STREQ(cut.time.data(), "7890-1234567890");
  EXPECT_STREQ(splitDateTime("0").date.data(), "0");
}

}  // namespace
}  // namespace badgemint
