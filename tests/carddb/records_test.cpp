#include "carddb/testdatabases.h"

namespace badgemint {
namespace {

// Every byte differs from its neighbours.
TEST(IdentRecord, HasItsFieldsInTheirPlaces) {
  const IdentRecord record{{0xA0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xAF},
                           0x10111213,
                           0x20212223,
                           0x30313233};
  EXPECT_EQ(hexLines(encodeRecord(record)),
            "A0010203 04050607 08090A0B 0C0D0EAF 13121110 23222120 33323130");
  EXPECT_EQ(decodeRecord<IdentRecord>(encodeRecord(record)), record);
}

TEST(AccessRecord, HasItsFieldsInTheirPlaces) {
  AccessRecord record{.uniqid = 0x01020304,
                      .pincode = {0x12, 0x34, 0xF5, 0x06},
                      .starttime = 0x61626364,
                      .endtime = 0x71727374,
                      .escortid = 0x81828384,
                      .cardissuelevel = 0x91929394,
                      .bitflds = 0x2A,
                      .elevatoraccess = 0xB1,
                      .outrelaygrpid = 0xC1,
                      .outgrpmode = 0xD1};
  // Slots that there are not read as 0 and take nothing.
  for (int32_t slot = -1; slot <= 8; ++slot) {
    EXPECT_EQ(record.accessLevel(slot), 0);
    record.setAccessLevel(slot, static_cast<uint16_t>(0x8001 + slot));
    EXPECT_EQ(record.accessLevel(slot), slot < 0 || slot > 7 ? 0 : 0x8001 + slot);
  }
  EXPECT_EQ(hexLines(encodeRecord(record)),
            "04030201 1234F506 01800280 03800480 05800680 07800880 64636261 74737271 84838281 "
            "94939291 2AB1C1D1");
  EXPECT_EQ(decodeRecord<AccessRecord>(encodeRecord(record)), record);
}

TEST(AccessRecord, SetsOneFlagAtATime) {
  for (int32_t bit = 0; bit < 6; ++bit) {
    AccessRecord record{.bitflds = 0x15};
    EXPECT_EQ(record.flag(bit), bit % 2 == 0 && bit < 5 ? 1 : 0);
    record.setFlag(bit, -1);
    EXPECT_EQ(record.bitflds, 0x15 | 1 << bit);
    record.setFlag(bit, 0);
    EXPECT_EQ(record.bitflds, 0x15 & ~(1 << bit));
  }
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

TEST(AccessRecord, HasTexts) {
  char text[AccessRecord::kTextSize];
  AccessRecord record{
      7, {0x12, 0x34, 0xF0, 0}, {11, 12, 13, 14, 15, 16, 17, 18}, 0, 86400, 21, 22, 0x0D, 31, 32,
      33};  // Flags 0, 2 and 3 are set.
  record.toText(text);
  EXPECT_STREQ(text,
               "1234 0000000007 11 12 13 14 15 16 17 18 1 1 0 1 0 22 0 "
               "1970/01/02-00:00:00 21 31 32 33 0");
  record.toShortText(text);
  EXPECT_STREQ(text, "0000000007  \x12\x34\xF0 11 12 13 14 15 16 17 18 1 1 0 22 31 32 33 0");
  record.bitflds = 0x32;  // Flags 1, 4 and 5; a PIN that fills its field.
  record.pincode = {0x31, 0x32, 0x33, 0x34};
  record.toText(text);
  EXPECT_STREQ(text,
               "31323334 0000000007 11 12 13 14 15 16 17 18 0 0 1 0 1 22 0 "
               "1970/01/02-00:00:00 21 31 32 33 1");
  record.toShortText(text);
  EXPECT_STREQ(text, "0000000007 1234 11 12 13 14 15 16 17 18 0 0 1 22 31 32 33 1");
}

TEST(AccessRecord, TurnsABlankPinInto0AndTellsItOnce) {
  TestLog log;
  char text[AccessRecord::kTextSize];
  AccessRecord record{.uniqid = 7, .pincode = {0xF1, 0x23, 0, 0x67}};
  for (int i = 0; i < 2; ++i) record.toText(text);
  EXPECT_TRUE(std::string(text).starts_with("0 0000000007 0 "));
  EXPECT_EQ(record.pincode, (std::array<uint8_t, 4>{0x0F, 0, 0, 0}));
  EXPECT_EQ(log.take(), "[25 accessrecord] pincode for uniqid=7 was blank and is now 0\n");
}

TEST(Records, PrintTheirSizes) {
  testing::internal::CaptureStdout();
  IdentRecord::printSizes();
  AccessRecord::printSizes();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "cardnumber 16\ncardsetcode 4 \nuniqid 4 \ndeleted 4\n"
            "sum of ident record flds = 28 \nident record size is 28 \n"
            "uniqid 4 \npincode 4\nacclevel     16\nbitflds    1\ncardissuelevel  4\n"
            "starttime 4\nendtime 4\nescortid 4\nelevatoraccess 1\noutrelaygrpid 1 \n"
            "outgrpmode 1 \nsum of access record flds = 44 \naccess record size is 44 \n");
}

}  // namespace
}  // namespace badgemint
