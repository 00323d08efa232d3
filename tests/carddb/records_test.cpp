#include "carddb/testdatabases.h"

namespace badgemint {

// That the fields follow each other without a gap is checked where they are listed.
TEST(Records, HaveTheirFieldsInTheirPlaces) {
  const IdentRecord ident{{0xA0, 0xA1}, 0x10111213, 0x20212223, 0x30313233};
  EXPECT_EQ(hexLines(encodeRecord(ident)),
            "A0A10000 00000000 00000000 00000000 13121110 23222120 33323130");
  AccessRecord record{0x01020304, {0x12, 0x34}, {},   0x61626364, 0x71727374, 0x81828384,
                      0x91929394, 0x2A,         0xB1, 0xC1,       0xD1};
  // Slots that there are not read as 0 and take nothing.
  for (int32_t slot = -1; slot <= 8; ++slot) {
    record.setAccessLevel(slot, static_cast<uint16_t>(0x8001 + slot));
    EXPECT_EQ(record.accessLevel(slot), slot < 0 || slot > 7 ? 0 : 0x8001 + slot);
  }
  EXPECT_EQ(hexLines(encodeRecord(record)),
            "04030201 12340000 01800280 03800480 05800680 07800880 64636261 74737271 84838281 "
            "94939291 2AB1C1D1");
}

TEST(IdentRecord, HasTexts) {
  char text[100];
  const IdentRecord record{{}, UINT32_MAX, 254, 1};
  record.toIdentifierText("0042", true, text);
  EXPECT_STREQ(text, "0042 0 1 4294967295 1");
  record.toIdentifierText("0042", false, text);
  EXPECT_STREQ(text, "0042 254 0 4294967295 1");
  record.toNumericText(5, 1, text);
  EXPECT_STREQ(text, "4294967301 254 4294967295");
}

// A blank PIN becomes 0 and is reported once.
TEST(AccessRecord, HasTexts) {
  TestLog log;
  char text[AccessRecord::kTextSize];
  AccessRecord record{
      7, {0x31, 0x32, 0x33, 0x34}, {11, 12, 13, 14, 15, 16, 17, 18}, 0, 86400, 21, 22, 0x0D, 31, 32,
      33};
  record.toText(text);
  EXPECT_STREQ(text,
               "31323334 0000000007 11 12 13 14 15 16 17 18 1 1 0 1 0 22 0 "
               "1970/01/02-00:00:00 21 31 32 33 0");
  record.toShortText(text);
  EXPECT_STREQ(text, "0000000007 1234 11 12 13 14 15 16 17 18 1 1 0 22 31 32 33 0");
  EXPECT_EQ(log.take(), "");
  record.pincode = {0xF1, 0x23, 0, 0x67};
  for (int i = 0; i < 2; ++i) record.toText(text);
  EXPECT_TRUE(std::string(text).starts_with("0 0000000007 11 "));
  record.toShortText(text);
  EXPECT_TRUE(std::string(text).starts_with("0000000007    \x0F 11 "));
  EXPECT_EQ(log.take(), "[25 accessrecord] pincode for uniqid=7 was blank and is now 0\n");
}

}  // namespace badgemint
