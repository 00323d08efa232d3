#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "support/bits.h"
#include "support/fieldscanner.h"
#include "support/linelist.h"
#include "support/linereader.h"
#include "support/packeddecimal.h"
#include "support/result.h"
#include "support/testfiles.h"
#include "support/textutil.h"
#include "support/tokenizer.h"

namespace badgemint {
namespace {

std::string words(std::string line, const char* delimiters = kWordDelimiters) {
  Tokenizer tokens;
  tokens.split(line.data(), delimiters);
  std::string joined;
  while (const char* word = tokens.next()) joined += std::string(word) + "|";
  EXPECT_EQ(tokens.next(), nullptr);
  return joined;
}

TEST(Tokenizer, SplitsAndCutsComments) {
  const struct {
    const char *line, *words;
  } rows[] = {{" \t\r\n=", ""},         {"a=b # c", "a|b|"}, {"abc#def ghi", "abc|ghi|"},
              {"abc #def ghi", "abc|"}, {"#a b", ""},        {"5 = CARD.CDF\r\n", "5|CARD.CDF|"},
              {"a\vb", "a\vb|"}};
  for (const auto& row : rows) EXPECT_EQ(words(row.line), row.words) << row.line;
  EXPECT_EQ(words("a\tb c", " "), "a\tb|c|");

  std::string many;
  for (int i = 0; i < 151; ++i) many += "w ";
  EXPECT_EQ(words(many).size(), 2 * 150u);
}

TEST(Tokenizer, TakesWordsApart) {
  std::string line = "name= \"value\" 12x";
  Tokenizer tokens;
  tokens.split(line.data(), " ");
  EXPECT_STREQ(tokens.stripEqualsFirst(), "name");
  EXPECT_STREQ(tokens.unquoteSecond(), "value");
  tokens.next();
  tokens.next();
  EXPECT_EQ(tokens.nextInt(), 12);
  EXPECT_EQ(tokens.nextInt(), 0);
}

TEST(LineList, GrowsByTenAndKeepsCopies) {
  LineList lines(1, 0);
  for (int i = 0; i < 11; ++i) EXPECT_EQ(lines.add(std::to_string(i).c_str()), i);
  EXPECT_EQ(lines.capacity(), 20);
  EXPECT_STREQ(lines.get(10), "10");
  EXPECT_EQ(lines.get(11), nullptr);
}

TEST(Text, JoinsPathsWithABackslash) {
  const std::string longName(300, 'n');
  const struct {
    std::string directory, name, joined;
  } rows[] = {{"", "cards.txt", "cards.txt"},
              {"data", "cards.txt", "data\\cards.txt"},
              {"data\\", "cards.txt", "data\\cards.txt"},
              {"data/", "", "data/\\"},
              {"", longName, longName},
              {"data", longName, "data\\" + longName.substr(0, 249)}};
  for (const auto& row : rows)
    EXPECT_EQ(std::string(joinedPath(row.directory.c_str(), row.name.c_str()).get()), row.joined);
  char tight[8] = "name";
  joinPath("data", tight, sizeof tight);
  EXPECT_STREQ(tight, "data\\na");

  EXPECT_TRUE(isBlank(" \t\n\v\f\r"));
  EXPECT_FALSE(isBlank(" \x01"));
}

TEST(PackedDecimal, WritesOneFillerNibble) {
  const struct {
    const char* digits;
    std::vector<uint8_t> bytes;
  } rows[] = {{"1234", {0x12, 0x34, 0xF0, 0xEE}},
              {"0", {0x0F, 0xEE, 0xEE, 0xEE}},
              {"123", {0x12, 0x3F, 0xEE, 0xEE}},
              {"12345678", {0x12, 0x34, 0x56, 0x78}},
              {"123456789", {0x12, 0x34, 0x56, 0x78}}};
  for (const auto& row : rows) {
    std::vector<uint8_t> bytes(4, 0xEE);
    packDigits(row.digits, bytes);
    EXPECT_EQ(bytes, row.bytes) << row.digits;
    EXPECT_STREQ(DigitText<8>(bytes).c_str(), std::string(row.digits).substr(0, 8).c_str());
  }
  EXPECT_STREQ(DigitText<2>(std::vector<uint8_t>{0xAE}).c_str(), ":>");
}

TEST(Bits, ArePositionsMostSignificantFirst) {
  uint8_t bytes[2] = {0, 0xFF};
  setBit(bytes, 0);
  setBit(bytes, -1);
  clearBit(bytes, 9);
  clearBit(bytes, -7);
  EXPECT_EQ(bytes[0], 0x80);
  EXPECT_EQ(bytes[1], 0xBF);
  EXPECT_EQ(getBit(bytes, 0) + 2 * getBit(bytes, 9) + 4 * getBit(bytes, -1), 1);
  testing::internal::CaptureStdout();
  printHexLine(bytes);
  printBitLine(bytes);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "80 BF \n10000000  10111111  \n");
}

TEST(LineReader, ReadsAsFgetsDoes) {
  const TestFolder folder;
  std::string content = "short\n" + std::string(29, 'a') + "\n" + std::string(31, 'b') + "\n\n";
  content += std::string("nul\0 hidden\n", 12) + std::string(200'000, 'c') + "\r\nlast";
  const std::string path = folder.write("lines", content);

  LineReader reader;
  ASSERT_TRUE(reader.open(path.c_str()));
  std::FILE* const file = std::fopen(path.c_str(), "r");
  char expected[31];
  while (std::fgets(expected, sizeof expected, file) != nullptr) {
    ASSERT_EQ(reader.readLine(30), LineReader::Status::kLine);
    ASSERT_STREQ(reader.line(), expected);
  }
  std::fclose(file);
  EXPECT_EQ(reader.readLine(30), LineReader::Status::kEnd);
  EXPECT_EQ(reader.readLine(30), LineReader::Status::kEnd);

  ASSERT_TRUE(reader.open(path.c_str()));
  for (size_t i = 0; i < content.size(); ++i) {
    if (i == 6) {  // Bytes and lines may take turns.
      ASSERT_EQ(reader.readLine(30), LineReader::Status::kLine);
      i += 30;
    }
    ASSERT_EQ(reader.readByte(), static_cast<unsigned char>(content[i]));
  }
  EXPECT_EQ(reader.readByte(), -1);
  EXPECT_FALSE(reader.failed());

  ASSERT_TRUE(reader.open(folder.path("").c_str()));  // A folder opens but does not read.
  EXPECT_EQ(reader.readLine(30), LineReader::Status::kError);
  EXPECT_TRUE(reader.failed());
  EXPECT_FALSE(reader.open(folder.path("none").c_str()));
}

}  // namespace
}  // namespace badgemint
