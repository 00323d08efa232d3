#include <gtest/gtest.h>

#include "carddb/databases.h"

namespace badgemint {
namespace {

constexpr IdentRecord kIdent{{0xA0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xAF},
                             0x10111213,
                             0x20212223,
                             0x30313233};
constexpr AccessRecord kAccess{0x01020304,
                               {0x12, 0x34, 0xF5, 0x06},
                               {1, 2, 3, 4, 5, 6, 7, 0x8081},
                               0x61626364,
                               0x71727374,
                               0x81828384,
                               0x91929394,
                               0x2A,
                               0xB1,
                               0xC1,
                               0xD1};

TEST(Records, LieOnDiskAsDocumented) {
  EXPECT_EQ(hexLines(encodeRecord(kIdent)),
            "A0010203 04050607 08090A0B 0C0D0EAF 13121110 23222120 33323130");
  EXPECT_EQ(decodeRecord<IdentRecord>(encodeRecord(kIdent)), kIdent);
  EXPECT_EQ(hexLines(encodeRecord(kAccess)),
            "04030201 1234F506 01000200 03000400 05000600 07008180 64636261 74737271 84838281 "
            "94939291 2AB1C1D1");
  EXPECT_EQ(decodeRecord<AccessRecord>(encodeRecord(kAccess)), kAccess);
}

TEST(Records, HaveTextForms) {
  TestLog log;
  char text[AccessRecord::kTextSize];
  const IdentRecord record{{}, 4294967295, 254, 1};
  record.toIdentifierText("0042", true, text);
  EXPECT_STREQ(text, "0042 0 1 4294967295 1");
  record.toIdentifierText("0042", false, text);
  EXPECT_STREQ(text, "0042 254 0 4294967295 1");
  record.toNumericText(5, 1, text);
  EXPECT_STREQ(text, "4294967301 254 4294967295");

  AccessRecord holder = kAccess;
  holder.starttime = 0;
  holder.endtime = 86400;
  holder.toText(text);
  EXPECT_STREQ(text,
               "1234 0016909060 1 2 3 4 5 6 7 32897 0 0 1 1 0 2442302356 0 1970/01/02-00:00:00 "
               "2172814212 177 193 209 1");
  holder.toShortText(text);
  EXPECT_STREQ(text,
               "0016909060 \x12\x34\xF5\x06 1 2 3 4 5 6 7 32897 0 0 1 2442302356 177 193 209 1");
  EXPECT_EQ(log.take(), "");

  holder = {.uniqid = 7, .pincode = {0xF1, 0x23, 0, 0x67}};
  holder.setFlag(4, 9);
  holder.toShortText(text);
  EXPECT_STREQ(text, "0000000007   \xF1# 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0");
  for (int i = 0; i < 2; ++i) holder.toText(text);
  EXPECT_STREQ(text, "0 0000000007 0 0 0 0 0 0 0 0 0 0 0 0 1 0 0 0 0 0 0 0 0");
  EXPECT_EQ(hexLines(holder.pincode), "0F000000");
  EXPECT_EQ(log.take(), "[accessrecord] pincode for uniqid=7 was blank and is now 0\n");
}

TEST(Records, GuardSlotsAndFlags) {
  AccessRecord record;
  for (int32_t slot = -1; slot <= 8; ++slot) record.setAccessLevel(slot, 9);
  EXPECT_EQ(record.accessLevel(-1) + record.accessLevel(0) + record.accessLevel(8), 9);
  for (int32_t bit = 0; bit < 6; ++bit) {
    record.bitflds = 0x15;
    record.setFlag(bit, -1);
    EXPECT_EQ(record.bitflds, 0x15 | 1 << bit);
    record.setFlag(bit, 0);
    EXPECT_EQ(record.bitflds, 0x15 & ~(1 << bit));
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
