// Words, numbers, lines, paths, packed digits and bits.
#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <random>
#include <vector>

#include "support/bits.h"
#include "support/faults.h"
#include "support/fieldscanner.h"
#include "support/linelist.h"
#include "support/packeddecimal.h"
#include "support/testfiles.h"
#include "support/textutil.h"
#include "support/tokenizer.h"

namespace badgemint {

using Row = std::array<std::string, 3>;

TEST(Tokenizer, SplitsIntoAtMost150WordsUpToAComment) {
  std::string blanks, bars;
  for (int i = 0; i < 150; ++i, blanks += "w ") bars += "w|";
  const std::map<std::string, std::string> cases = {
      {" \t\r\n=", ""},         {"a=b # c", "a|b|"}, {"abc#def ghi", "abc|ghi|"},
      {"abc #def ghi", "abc|"}, {"a\vb", "a\vb|"},   {blanks + "x", bars},
  };
  for (const auto& [text, expected] : cases) {
    std::string line = text, words;
    Tokenizer tokens;
    tokens.split(line.data(), kWordDelimiters);
    for (uint32_t i = 0; i < tokens.count(); ++i) words += tokens.next() + std::string("|");
    EXPECT_EQ(words, expected);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(tokens.next(), nullptr);
  }
}

TEST(Tokenizer, TakesWordsApart) {
  Tokenizer tokens;
  EXPECT_EQ(tokens.stripEqualsFirst(), tokens.unquoteSecond());  // Neither is there.
  const std::map<std::string, std::string> cases = {
      {"name= \"value\" 12x", "name"}, {"name value 12", "name"}, {"name== \"value 12", "name="}};
  for (const auto& [line, name] : cases) {
    std::string words = line;
    tokens.split(words.data(), " ");
    EXPECT_EQ(tokens.stripEqualsFirst(), name);
    EXPECT_STREQ(tokens.unquoteSecond(), "value");
    EXPECT_EQ(tokens.nextInt() + tokens.nextInt() + tokens.nextInt() + tokens.nextInt(), 12);
  }
}

TEST(FieldScanner, ReadsWhatTheCLibraryReads) {
  std::vector<std::string> pieces = {"9223372036854775807",  "9223372036854775808",
                                     "18446744073709551615", "18446744073709551616",
                                     "999999999999999999",   "9223372036854775809"};
  for (const char c : std::string(" \t\v\x1F\xA0-+//:0942x")) pieces.emplace_back(1, c);
  std::mt19937 random(1);
  for (int i = 0; i < 100000; ++i) {
    std::string text;
    for (size_t n = random() % 9; n > 0; --n) text += pieces[random() % pieces.size()];
    const char* const start = text.c_str();
    long long first = 0;
    unsigned long long second = 0;
    char word[6] = "", last[2] = "";
    const int fields = std::sscanf(start, "%lld%llu/%5s%1s", &first, &second, word, last);
    FieldScanner scanner(start);
    ASSERT_EQ(scanner.nextInt(), static_cast<int32_t>(first)) << text;
    ASSERT_EQ(scanner.nextUnsigned(), static_cast<uint32_t>(second)) << text;
    scanner.expect('/');
    ASSERT_EQ(scanner.nextWord(5), word) << text;
    ASSERT_EQ(scanner.nextWord(1), last) << text;
    ASSERT_EQ(scanner.failed(), fields != 4) << text;

    errno = 0;
    const int64_t value = std::strtoll(start, nullptr, 10);
    ASSERT_EQ(textToInt32(start), static_cast<int32_t>(value)) << text;
    ASSERT_EQ(scanInt64(start).value, value) << text;
    ASSERT_EQ(scanInt64(start).saturated, errno == ERANGE) << text;
    SaturatedInt64 digits{7, false};
    const bool isNumber = text.find_first_not_of("0123456789") == std::string::npos;
    ASSERT_EQ(digitsToInt64(text, digits), isNumber) << text;
    ASSERT_EQ(digits.value, isNumber ? value : 7) << text;
    ASSERT_EQ(digits.saturated, isNumber && errno == ERANGE) << text;
    ASSERT_EQ(isBlank(start), text.find_first_not_of(" \t\n\v\f\r") == std::string::npos) << text;
  }
}

TEST(LineList, GrowsByTenLinesAndReportsThatThereIsNoMemory) {
  for (const int nth : {0, 1, 2, 3}) {  // None, the first line's room, that line, more room.
    TestLog log;
    const ArmedFault fault({.call = "allocate", .nth = nth});
    LineList lines(0x10007, 1);
    EXPECT_EQ(lines.add("first"), nth == 2 ? -100 : 0);
    EXPECT_EQ(lines.add("second"), nth == 2 ? 0 : nth == 3 ? -100 : 1);
    EXPECT_EQ(lines.capacity(), nth == 0 ? 11 : nth == 1 ? 10 : 1);
    EXPECT_STREQ(lines.get(0), nth == 2 ? "second" : "first");
    EXPECT_EQ(lines.get(lines.count()), lines.get(-1));
    const std::string what = nth == 2 ? "line" : "_lines";
    EXPECT_EQ(log.take(), nth == 0 ? "" : "[report 7/2 \"" + what + "\"]\n");
  }
}

TEST(TextUtil, JoinsPathsByABackslash) {
  const std::string n255(255, 'n');
  const Row cases[] = {
      {"data", "cards.txt", "data\\cards.txt"},
      {"data\\", "cards.txt", "data\\cards.txt"},
      {"data/", "", "data/\\"},
      {"", n255, n255},
      {"d", n255, "d\\" + n255.substr(3)},
  };
  for (const auto& [folder, name, path] : cases)
    EXPECT_EQ(joinedPath(folder.c_str(), name.c_str()).get(), path);
  char name[] = "name\0no room";
  joinPath("data", name, 0);
  EXPECT_STREQ(name, "name");
  joinPath("data", name, 8);
  EXPECT_STREQ(name, "data\\na");
}

TEST(PackedDecimal, EndsWithOneFiller) {
  const Row cases[] = {
      {"0", "0FEEEEEE", "0"},
      {"1234", "1234F0EE", "1234"},
      {"9876543", "9876543F", "9876543"},
      {"123456789", "12345678", "12345678"},
  };
  for (const auto& [digits, packed, unpacked] : cases) {
    std::array<uint8_t, 4> bytes = {0xEE, 0xEE, 0xEE, 0xEE};
    packDigits(digits, bytes);
    EXPECT_EQ(hexLines(bytes), packed);
    EXPECT_EQ(DigitText<8>(bytes).c_str(), unpacked);
  }
  EXPECT_STREQ(DigitText<2>(std::array<uint8_t, 1>{0xAE}).c_str(), ":>");
}

TEST(Bits, ArePositionsMostSignificantFirst) {
  std::array<uint8_t, 2> bytes = {0x00, 0xFF};
  for (const int32_t position : {-7, -1, 0, 7}) setBit(bytes.data(), position);
  for (const int32_t position : {-7, -1, 8, 15}) clearBit(bytes.data(), position);
  for (const int32_t position : {-7, -1, 6, 8}) EXPECT_EQ(getBit(bytes.data(), position), 0);
  for (const int32_t position : {0, 7, 9, 14}) EXPECT_EQ(getBit(bytes.data(), position), 1);
  testing::internal::CaptureStdout();
  printHexLine(bytes);
  printBitLine(bytes);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "81 7E \n10000001  01111110  \n");
}

}  // namespace badgemint
