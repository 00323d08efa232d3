#include <gtest/gtest.h>

#include "carddb/databases.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

constexpr IdentRecord kIdent{{0xA0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xAF},
                             0x10111213,
                             0x20212223,
                             0x30313233};

AccessRecord distinctRecord() {
  AccessRecord record;
  record.uniqid = 0x01020304;
  record.pincode = {0x12, 0x34, 0xF5, 0x06};
  for (int32_t slot = -1; slot <= 8; ++slot)
    record.setAccessLevel(slot, static_cast<uint16_t>(0x4041 + 0x0202 * slot));
  record.starttime = 0x61626364;
  record.endtime = 0x71727374;
  record.escortid = 0x81828384;
  record.cardissuelevel = 0x91929394;
  record.bitflds = 0x2A;
  record.elevatoraccess = 0xB1;
  record.outrelaygrpid = 0xC1;
  record.outgrpmode = 0xD1;
  return record;
}

TEST(IdentRecord, LiesOnDiskAsDocumented) {
  EXPECT_EQ(hex(encodeRecord(kIdent)),
            "A0 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E AF 13 12 11 10 23 22 21 20 33 32 31 30 ");
  EXPECT_EQ(decodeRecord<IdentRecord>(encodeRecord(kIdent)), kIdent);
  EXPECT_EQ(encodeRecord(IdentRecord{}), RecordImage<IdentRecord>{});
}

TEST(AccessRecord, LiesOnDiskAsDocumented) {
  EXPECT_EQ(hex(encodeRecord(distinctRecord())),
            "04 03 02 01 12 34 F5 06 41 40 43 42 45 44 47 46 49 48 4B 4A 4D 4C 4F 4E "
            "64 63 62 61 74 73 72 71 84 83 82 81 94 93 92 91 2A B1 C1 D1 ");
  EXPECT_EQ(decodeRecord<AccessRecord>(encodeRecord(distinctRecord())), distinctRecord());
  EXPECT_EQ(encodeRecord(AccessRecord{}), RecordImage<AccessRecord>{});
}

TEST(IdentRecord, HasTextForms) {
  char text[64];
  const IdentRecord record{{}, 4294967295, 254, 1};
  record.toIdentifierText("0042", true, text);
  EXPECT_STREQ(text, "0042 0 1 4294967295 1");
  record.toIdentifierText("0042", false, text);
  EXPECT_STREQ(text, "0042 254 0 4294967295 1");
  record.toNumericText(5, 1, text);
  EXPECT_STREQ(text, "4294967301 254 4294967295");
  record.toNumericText(UINT32_MAX, UINT32_MAX, std::span(text).first(8));
  EXPECT_STREQ(text, "-1 254 ");
}

TEST(AccessRecord, HasTextForms) {
  TestLog log;
  char text[AccessRecord::kTextSize];
  AccessRecord record = distinctRecord();
  record.starttime = 0;
  record.endtime = 86400;
  record.toText(text);
  EXPECT_STREQ(text,
               "1234 0016909060 16449 16963 17477 17991 18505 19019 19533 20047 0 0 1 1 0 "
               "2442302356 0 1970/01/02-00:00:00 2172814212 177 193 209 1");
  record.toShortText(text);
  EXPECT_STREQ(text,
               "0016909060 \x12\x34\xF5\x06 16449 16963 17477 17991 18505 19019 19533 20047 0 0 1 "
               "2442302356 177 193 209 1");
  EXPECT_EQ(log.take(), "");

  record = access(7);
  record.setFlag(4, 9);
  record.pincode = {0x12, 0x34, 0xF0, 0};
  record.toShortText(text);
  EXPECT_STREQ(text, "0000000007  \x12\x34\xF0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0");
  record.pincode = {0xF1, 0x23, 0x45, 0x67};
  for (int i = 0; i < 2; ++i) record.toText(text);
  EXPECT_STREQ(text, "0 0000000007 0 0 0 0 0 0 0 0 0 0 0 0 1 0 0 0 0 0 0 0 0");
  EXPECT_EQ(hex(record.pincode), "0F 00 00 00 ");
  EXPECT_EQ(log.take(), "[accessrecord] pincode for uniqid=7 was blank and is now 0\n");
}

TEST(AccessRecord, GuardsSlotsAndFlags) {
  AccessRecord record = distinctRecord();
  EXPECT_EQ(record.accessLevel(-1) + record.accessLevel(8), 0);
  EXPECT_EQ(record.accessLevel(7), 0x4E4F);
  for (int32_t bit = 0; bit < 6; ++bit) {
    record.bitflds = 0;
    record.setFlag(bit, -1);
    EXPECT_EQ(record.bitflds, 1 << bit);
    EXPECT_EQ(record.flag(bit), 1);
    record.bitflds = 0x3F;
    record.setFlag(bit, 0);
    EXPECT_EQ(record.bitflds, 0x3F & ~(1 << bit));
  }
}

TEST(Records, PrintTheirSizes) {
  testing::internal::CaptureStdout();
  IdentRecord::printSizes();
  AccessRecord::printSizes();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "cardnumber 16\ncardsetcode 4 \nuniqid 4 \ndeleted 4\nsum of ident record flds = 28 \n"
            "ident record size is 28 \nuniqid 4 \npincode 4\nacclevel     16\nbitflds    1\n"
            "cardissuelevel  4\nstarttime 4\nendtime 4\nescortid 4\nelevatoraccess 1\n"
            "outrelaygrpid 1 \noutgrpmode 1 \nsum of access record flds = 44 \n"
            "access record size is 44 \n");
}

}  // namespace
}  // namespace badgemint
