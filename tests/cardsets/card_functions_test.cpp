#include "cardsets/card_functions.h"

#include <gtest/gtest.h>

#include "cardsets/cardsets.h"
#include "formats/formatfile.h"

namespace badgemint {
namespace {

TEST(CardFunctions, CheckNumbersAndPins) {
  constexpr int32_t kPin = -1;
  const std::string d32 = "12345678901234567890123456789012",
                    number = "[25 card_functions] Invalid card number ",
                    pin = "[25 card_functions] Invalid pin code ";
  const struct {
    std::string text;
    int32_t cardSet, hex, result;
    std::string left, log;
  } rows[] = {
      {d32, 1, 0, 0, d32, ""},
      {d32 + "3", 1, 0, -1003, d32 + "3", number + d32 + "3, too many digits\n"},
      {d32 + "3", 0, 0, -1003, d32 + "3", number + d32 + "3, too many digits\n"},
      {"1a2B", 1, 1, -1003, "1a2B", number + "1a2B, must be numeric\n"},
      {"", 1, 1, -1010, "", ""},
      {"", 0, 1, -1010, "", ""},
      {"09afAF", 0, 1, 0, "09afAF", ""},
      {"1G", 0, 1, -1003, "1G", number + "1G, must be hexidecimal\n"},
      {"g", 0, 1, -1003, "g", number + "g, must be hexidecimal\n"},
      {d32, 0, 0, 0, d32, ""},
      {"any!", 0, 0, 0, "any!", ""},
      {"", 0, 0, 0, "0", ""},
      {"", kPin, 8, 0, "0", ""},
      {"12345678", kPin, 8, 0, "12345678", ""},
      {"123456789", kPin, 8, -1004, "123456789", pin + "123456789, too many digits\n"},
      {"12:", kPin, 8, -1004, "12:", pin + "12:, must be numeric\n"},
  };
  TestLog log;
  for (const auto& row : rows) {
    std::string_view text = row.text;
    EXPECT_EQ(row.cardSet == kPin ? checkPinCode(text, static_cast<size_t>(row.hex))
                                  : checkCardNumber(text, row.cardSet, row.hex),
              row.result)
        << row.text;
    EXPECT_EQ(text, row.left);
    EXPECT_EQ(log.take(), row.log);
  }
}

TEST(CardFunctions, ConvertHexadecimalDigits) {
  const struct {
    const char *text, *bytes;
    size_t size;  // Of the buffer that the bytes come back into.
    const char* back;
  } rows[] = {
      {"02020002", "02020002", 9, "02020002"},  {"1230", "12300000", 9, "1230"},
      {"1", "10000000", 9, "10000000"},         {"", "00000000", 9, "00000000"},
      {"0aFf00112", "0AFF0011", 9, "0AFF0011"}, {"ABC", "ABC00000", 9, "ABC0"},
      {"1g@9G9-2", "01000000", 9, "01"},        {"123456", "12345600", 5, "1234"},
      {"123456", "12345600", 4, "12"},          {"123456", "12345600", 0, ""},
  };
  TestLog log;
  for (const auto& row : rows) {
    std::array<uint8_t, 4> bytes{};
    hexToBits(row.text, bytes);
    EXPECT_EQ(hexLines(bytes), row.bytes);
    EXPECT_TRUE(log.take().starts_with("[75 card_functions] no format card bits\n"));
    std::string text(row.size, '!');
    bitsToHex(bytes, text);
    EXPECT_STREQ(text.c_str(), row.back) << row.text;
  }
}

TEST(CardFunctions, ComputeTheBitsOfACard) {
  TestFormat test("CDF", 25);
  FormatLines wide = cdfLines(std::string(48, 'B'));
  wide.push_back(std::string(16, 'B'));
  wide.resize(40);
  ASSERT_EQ(test.load(fileOf("CDF", wide)), 0);
  test.format->setFormatID(8);
  const std::string layout = "PAAAAAAAABBBBBBBBBBBBBBBBP", odd = ".............XXXXXXXXXXXXO";
  test.folder.write("26", fileOf("CDF", cdfLines(layout, "EXXXXXXXXXXXX", odd)));
  ASSERT_EQ(test.set.addFormat(7, ".cdf")->loadFormatFile("26"), 0);
  cardsets sets;
  ASSERT_EQ(sets.load(test.folder.write("sets", "f 1 7 A 21\nf 2 8\nf 3 9").c_str()), 0);
  const std::string zero = "00000000 00000000", mismatch = "Card mismatch cardno=";
  const struct {
    uint32_t cardSet;
    const char* number;
    int32_t line, result;
    std::string key, log;
  } rows[] = {
      {1, "15890x", 0, 0, "022A7C24 00000000", ""},
      {1, "70000", 0, -506, "002A22E1 00000000", mismatch + "70000,chkcardno=4464\n"},
      {1, "65536", 1, -506, "022A0001 00000000", mismatch + "65536,chkcardno=0, line#=1\n"},
      {2, "9223372036854775807", 0, 0, "7FFFFFFF FFFFFFFF", ""},
      // A number that is cut decodes to itself, but is not the card's.
      {2, "9223372036854775808", 0, -506, "7FFFFFFF FFFFFFFF",
       mismatch + "9223372036854775807,chkcardno=9223372036854775807\n"},
      {3, "7", 0, -1007, zero, "Format 9 not defined \n"},
      {3, "7", 1, -1007, zero, "Format 9 not defined, line#=1 \n"},
      {4, "7", 0, -1006, zero, "Card set 4 not defined\n"},
      {4, "7", 1, -1006, zero, "Card set 4 not defined (no f line), line#=1 \n"},
  };
  test.log.take();
  int64_t number = 0;
  CardPattern pattern;
  for (const auto& row : rows) {
    EXPECT_EQ(computeCardBits(row.cardSet, row.number, row.line, &sets, &test.set, number, pattern),
              row.result);
    EXPECT_EQ(number, scanInt64(row.number).value);
    EXPECT_EQ(hexLines(pattern), row.key + ' ' + zero) << row.number;
    EXPECT_EQ(test.log.take(), row.log.empty() ? "" : "[25 card_functions] " + row.log);
  }
  EXPECT_EQ(computeCardBits(1, "7", 0, nullptr, &test.set, number, pattern), -1006);
  EXPECT_EQ(computeCardBits(1, "7", 0, &sets, nullptr, number, pattern), -1007);
  // One card after the other is as each for itself.
  CardEncoder encoder;
  ASSERT_EQ(findCardEncoder(1, 0, &sets, &test.set, encoder), 0);
  CardSequence sequence(encoder);
  for (const int64_t next : {1, 2, 9, 10, 65535, 0, 70000, -1, 1})
    EXPECT_EQ(sequence.encode(next), encoder.encode(next)) << next;
}

}  // namespace
}  // namespace badgemint
