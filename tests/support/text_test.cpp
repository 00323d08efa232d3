// Words, lines, dates, paths and bits. Numbers, fields and how dates are read: fuzz/texts.cpp,
// whose lines all tests run.

#include <array>
#include <ctime>

#include "support/bits.h"
#include "support/datetime.h"
#include "support/linelist.h"
#include "support/testfiles.h"
#include "support/textutil.h"
#include "support/tokenizer.h"

namespace badgemint {

TEST(Tokenizer, SplitsIntoAtMost150WordsUpToAComment) {
  std::string blanks, bars;
  for (int i = 0; i < 150; ++i, blanks += "w ") bars += "w|";
  const std::pair<std::string, std::string> cases[] = {
      {" \t\r\n=", ""},
      {"a=b\vc # d", "a|b\vc|"},
      {"abc#def ghi #", "abc|ghi|"},
      {blanks + "x", bars},
  };
  for (auto [line, expected] : cases) {
    std::string words;
    Tokenizer tokens;
    tokens.split(line.data(), kWordDelimiters);
    while (const char* const word = tokens.next()) words += word + std::string("|");
    EXPECT_EQ(words, expected);
    EXPECT_EQ(tokens.next(), nullptr);
  }
}

TEST(Tokenizer, TakesWordsApart) {
  Tokenizer tokens;
  for (std::string line : {"name= \"value\" 12x", "name value 12", ""}) {
    tokens.split(line.data(), " ");
    EXPECT_STREQ(tokens.stripEqualsFirst(), line.empty() ? nullptr : "name");
    EXPECT_STREQ(tokens.unquoteSecond(), line.empty() ? nullptr : "value");
    EXPECT_EQ(tokens.nextInt() + tokens.nextInt() + tokens.nextInt() + tokens.nextInt(),
              line.empty() ? 0 : 12);
  }
}

// Of ten lines at first; then a line, its place or both find no memory.
TEST(LineList, KeepsItsLinesWhenMemoryRunsOut) {
  TestLog log;
  LineList lines(0x10007, 0);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(lines.add("line"), i);
  for (const int nth : {1, 2}) {
    const ArmedFault fault({.call = "allocate", .nth = nth});
    EXPECT_EQ(lines.add("ten"), -100);
  }
  EXPECT_EQ(lines.add("ten"), 10);
  EXPECT_STREQ(lines.get(10), "ten");
  EXPECT_TRUE(lines.get(-1) == nullptr && lines.get(11) == nullptr);
  EXPECT_EQ(log.take(), "[report 7/2 \"_lines\"]\n[report 7/2 \"line\"]\n");
}

TEST(TextUtil, JoinsPathsAndPrintsBytes) {
  const std::string n256(256, 'n');
  EXPECT_EQ(joinedPath("", "name").get(), std::string("name"));
  EXPECT_EQ(joinedPath("d\\", "name").get(), std::string("d\\name"));
  EXPECT_EQ(joinedPath("d/", n256.c_str()).get(), "d/\\" + n256.substr(5));
  char kept[] = "kept";
  joinPath("d", kept, 0);
  EXPECT_STREQ(kept, "kept");
  testing::internal::CaptureStdout();
  std::array<uint8_t, 2> bytes = {0x00, 0xFF};
  for (const int32_t position : {-7, 0, 7}) setBit(bytes.data(), position);
  for (const int32_t position : {-7, 8, 15}) clearBit(bytes.data(), position);
  printHexLine(bytes);
  printBitLine(bytes);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "81 7E \n10000001  01111110  \n");
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
  EXPECT_STREQ(joinDateTime(PeriodEnd::kStart, "1/1/1", "0").data(), "1/1/1-00:00:00");
  EXPECT_STREQ(joinDateTime(PeriodEnd::kEnd, "1/1/1", "0").data(), "1/1/1-23:59:59");
  EXPECT_EQ(joinDateTime(PeriodEnd::kEnd, d15, d16).data(), d15 + "-" + d15.substr(1));
  EXPECT_EQ(splitDateTime(d16 + "-" + d16).date.data(), d15);
  EXPECT_STREQ(splitDateTime("1-2-3").time.data(), "2-3");
}

}  // namespace badgemint
