#include "cardsets/cardsets.h"

#include <gtest/gtest.h>

#include "cardsets/card_functions.h"
#include "formats/CardFormat.h"
#include "support/result.h"
#include "support/testsite.h"
#include "support/tokenizer.h"

namespace badgemint {
namespace {

int32_t add(cardsets& sets, std::string line, int32_t number = 1) {
  Tokenizer tokens;
  tokens.split(line.data(), kWordDelimiters);
  return sets.addCardSetLine(tokens, number);
}

TEST(CardSets, AddsLinesByTheirGrammar) {
  const struct {
    const char* line;
    int32_t added;
    const char *log, *written;
  } rows[] = {
      {"f 5 2 A 100 B 7", 1, "", "f 5 2 A 100 B 7 \n"},
      {"5 2 A=100 B=7 # seven", 1, "", "f 5 2 A 100 B 7 \n"},
      {"f 5 2", 1, "", "f 5 2 \n"},
      {"5 2", 0, "[cardsets] add line 1, too few parameters.\n", ""},
      {"  # nothing", 0, "", ""},
      {"f 0 2", 0, "[cardsets] id out of range in card sets file, line 1\n", ""},
      {"f 4294967296 2", 0, "[cardsets] id out of range in card sets file, line 1\n", ""},
      {"f 4294967295 4294967295 H 1", 1, "", "f 4294967295 4294967295 H 1 \n"},
      {"f 5 -1", 0, "[cardsets] id out of range in card sets file, line 1\n", "f 5 0 \n"},
      {"f 5 2 a 100", 0, "[cardsets] Error in card set file, field must be A-H\n", "f 5 2 \n"},
      {"f 5 2 C 9 I 1", 0, "[cardsets] Error in card set file, field must be A-H\n",
       "f 5 2 C 9 \n"},
      {"f 5 2 A", 1, "", "f 5 2 \n"},
      {"f 5 2 Apple -3 B 4294967297", 1, "", "f 5 2 B 1 \n"},
  };
  const TestFolder folder;
  TestLog log(25);
  for (const auto& row : rows) {
    cardsets sets;
    ASSERT_EQ(sets.create(1), 0);
    EXPECT_EQ(add(sets, row.line), row.added) << row.line;
    EXPECT_EQ(log.take(), row.log) << row.line;
    EXPECT_EQ(sets.writeCardSetsFile(folder.path("sets").c_str()), kSuccess);
    EXPECT_EQ(folder.read("sets"), row.written) << row.line;
  }
}

TEST(CardSets, KeepTheSlotOfARejectedLine) {
  const TestFolder folder;
  TestLog log(100);
  cardsets sets;
  ASSERT_EQ(sets.create(1), 0);
  CardFormatSet formats;
  EXPECT_EQ(add(sets, "f 5 2 A 1 B 2 x 3"), 0);
  EXPECT_EQ(sets.getCardSet(5), nullptr);
  EXPECT_EQ(sets.verifyFormats(formats), -1);
  EXPECT_EQ(add(sets, "f 6 3 A 7"), 1);
  EXPECT_EQ(sets.getCardSet(6)->value(1), 2);
  EXPECT_EQ(add(sets, "f 6 4"), 1);
  EXPECT_EQ(sets.getCardSet(6)->fmtid, 3u);
  EXPECT_EQ(sets.capacity(), 11);
  EXPECT_EQ(log.take(),
            "[cardsets] Error in card set file, field must be A-H\n"
            "[cardsets] cardsets:getcardset 5, count = 0\n[cardsets] format 2 not found\n"
            "[cardsets] cardsets:getcardset 6, count = 1\n"
            "[cardsets] cardsets:getcardset 6, count = 2\n");
}

TEST(CardSets, LoadsAndReportsFiles) {
  const TestFolder folder;
  TestLog log(75);
  cardsets sets;
  EXPECT_EQ(sets.load(folder.write("sets", "f 1 1 A 5 \n\n9\nf 2 1 \n").c_str()), kSuccess);
  EXPECT_EQ(sets.count(), 2);
  EXPECT_EQ(log.take(),
            "[cardsets] add line 3, too few parameters.\n[cardsets] cardsets.load complete\n");
  EXPECT_EQ(sets.load(folder.path("none").c_str()), kCardSetsOpenFailed);
  EXPECT_EQ(sets.load(folder.path("").c_str()), kCardSetsTransferFailed);
  EXPECT_EQ(sets.writeCardSetsFile("/dev/full"), kCardSetsTransferFailed);
  EXPECT_EQ(log.take(), "[cardsets] Error opening card sets file " + folder.path("none") +
                            "\n[cardsets] Error reading card sets file " + folder.path("") +
                            "\n[cardsets] Error reading card sets file /dev/full\n");
}

TEST(CardSet, ParsesATextLeniently) {
  TestLog log(100);
  cardset set;
  EXPECT_EQ(parseCardSetText(set, "x -1 99999999999 A 5000000000 a 7 J 1 H 2 B"), kSuccess);
  EXPECT_EQ(set.csid, UINT32_MAX);
  EXPECT_EQ(set.fmtid, 1215752191u);
  EXPECT_EQ(set.valueOf('a'), 5000000000);
  EXPECT_EQ(set.valueOf('H') + set.valueOf('I') + set.value(8) + set.value(-1), 2);
  EXPECT_EQ(log.take(), "");
  EXPECT_EQ(parseCardSetText(set, " \n"), kBadCardSetText);
  EXPECT_EQ(parseCardSetText(set, "f"), kBadCardSetText);
  EXPECT_EQ(parseCardSetText(set, "f 1"), kBadCardSetText);
  EXPECT_EQ(log.take(),
            "[cardset] Unable to parse f in card set line  \n\n"
            "[cardset] Unable to parse csid in card set line f\n"
            "[cardset] Unable to parse fmtid in card set line f 1\n");
  set.csid = UINT32_MAX;
  set.printInfo();
  EXPECT_EQ(log.take().substr(0, 153),
            "[cardset] Card Set Info:\n[cardset] csid=4294967295\n[cardset] fmtid=1215752191\n"
            "[cardset] fldvalues  n=8\n[cardset]    ii=0, fldvalues=5000000000\n\n[cardset]");
}

TEST(CardFunctions, CheckNumbersAndPins) {
  const std::string digits(33, '1');
  const struct {
    std::string_view text;
    int32_t csid, hex, result;
    std::string_view after;
  } numbers[] = {{digits, 1, 0, kInvalidCardNumber, digits},
                 {"12345678901234567890123456789012", 1, 0, 0, "12345678901234567890123456789012"},
                 {"", 1, 1, kEmptyCardNumber, ""},
                 {"", 0, 1, kEmptyCardNumber, ""},
                 {"1a2B", 0, 1, 0, "1a2B"},
                 {"12G", 0, 1, kInvalidCardNumber, "12G"},
                 {"1a2B", 3, 1, kInvalidCardNumber, "1a2B"},
                 {"any!", 0, 0, 0, "any!"},
                 {"", 0, 0, 0, "0"}};
  TestLog log(25);
  for (const auto& row : numbers) {
    std::string_view text = row.text;
    EXPECT_EQ(checkCardNumber(text, row.csid, row.hex), row.result) << row.text;
    EXPECT_EQ(text, row.after);
  }
  EXPECT_EQ(log.take(), "[card_functions] Invalid card number " + digits +
                            ", too many digits\n"
                            "[card_functions] Invalid card number 12G, must be hexidecimal\n"
                            "[card_functions] Invalid card number 1a2B, must be numeric\n");
  std::string_view pin = "";
  EXPECT_EQ(checkPinCode(pin, 8), 0);
  EXPECT_EQ(pin, "0");
}

TEST(CardFunctions, ConvertPatternsToTextAndBack) {
  const struct {
    const char* digits;
    std::vector<uint8_t> bytes;
    const char* text;
  } rows[] = {
      {"ABC", {0xAB, 0xC0, 0, 0}, "ABC0"},  {"02020002", {2, 2, 0, 2}, "02020002"},
      {"1230", {0x12, 0x30, 0, 0}, "1230"}, {"1", {0x10, 0, 0, 0}, "10000000"},
      {"", {0, 0, 0, 0}, "00000000"},       {"0aFf00112", {0x0A, 0xFF, 0, 0x11}, "0AFF0011"},
      {"g1-2", {0, 0, 0, 0}, "00000000"}};
  TestLog log(75);
  for (const auto& row : rows) {
    std::vector<uint8_t> bytes(4);
    hexToBits(row.digits, bytes);
    EXPECT_EQ(bytes, row.bytes) << row.digits;
    char text[9];
    bitsToHex(bytes, text);
    EXPECT_STREQ(text, row.text);
  }
  EXPECT_EQ(log.take().substr(0, 49), "[card_functions] no format card bits\nAB C0 00 00 ");
  char tight[4];
  bitsToHex(std::vector<uint8_t>{0x12, 0x34}, tight);
  EXPECT_STREQ(tight, "12");
}

TEST(CardFunctions, ComputeWithAndWithoutALine) {
  TestSite site;
  TestLog log(25);
  CardFormatSet formats;
  cardsets sets;
  ASSERT_EQ(sets.create(1), 0);
  ASSERT_EQ(add(sets, "f 1 1 A 21"), 1);
  ASSERT_EQ(add(sets, "f 2 2"), 1);
  int64_t number = 0;
  CardPattern pattern;
  EXPECT_EQ(computeCardBits(1, "7", 3, nullptr, nullptr, number, pattern), kInvalidCardSet);
  EXPECT_EQ(computeCardBits(9, "7", 0, &sets, &formats, number, pattern), kInvalidCardSet);
  EXPECT_EQ(computeCardBits(1, "7", 0, &sets, &formats, number, pattern), kFormatNotDefined);
  EXPECT_EQ(computeCardBits(1, "7", 3, &sets, nullptr, number, pattern), kFormatNotDefined);
  CardFormat* const format = formats.addFormat(1, "26.cdf");
  ASSERT_EQ(format->loadFormatFile("26.cdf"), 0);
  EXPECT_EQ(computeCardBits(1, "70000", 0, &sets, &formats, number, pattern), kCardMismatch);
  EXPECT_EQ(computeCardBits(1, "15890", 0, &sets, &formats, number, pattern), kSuccess);
  EXPECT_EQ(number, 15890);
  char text[33];
  bitsToHex(pattern, text);
  EXPECT_STREQ(text, "022A7C24");
  EXPECT_EQ(log.take(),
            "[card_functions] Card set 1 not defined (no f line), line#=3 \n"
            "[card_functions] Card set 9 not defined\n"
            "[card_functions] Format 1 not defined \n"
            "[card_functions] Format 1 not defined, line#=3 \n"
            "[card_functions] Card mismatch cardno=70000,chkcardno=4464\n");
}

}  // namespace
}  // namespace badgemint
