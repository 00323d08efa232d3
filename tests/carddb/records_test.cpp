// The records of the card databases and their indexes.
#include "carddb/accessindx.h"
#include "carddb/accessrecord.h"
#include "carddb/identindx.h"
#include "carddb/identrecord.h"
#include "support/testfiles.h"

namespace badgemint::records_test {

// What no file of the databases shows of its index: with room for three holders, one more is
// inserted after those of a file of any length.
TEST(AccessIndex, AcceptsWholeRecordsUpToItsRoom) {
  for (size_t size = 0; size <= 4 * AccessRecord::kSize; ++size) {
    SCOPED_TRACE(size);
    writeFile("access", bytesOf<AccessRecord>({{2}, {1}, {3}, {4}}).substr(0, size));
    AccessIndex index;
    EXPECT_TRUE(index.create(3));
    EXPECT_EQ(index.loadFromFile("access"), 0);
    const auto count = static_cast<int32_t>(std::min<size_t>(3, size / AccessRecord::kSize));
    EXPECT_EQ(index.count(), count);
    EXPECT_EQ(index.findRecno(2), count > 0 ? 0 : -1);
    EXPECT_EQ(index.findRecno(4), -1);
    EXPECT_EQ(index.countDuplicates(), 0);  // Not sorted.
    EXPECT_EQ(index.insert(1), count < 3 ? 0 : -1);
    EXPECT_EQ(index.findRecno(1), std::min(count, 1));
    EXPECT_EQ(index.countDuplicates(), count == 2 ? 1 : 0);
  }
}

TEST(Indexes, CountDuplicatesAndSizes) {
  IdentIndex idents;
  AccessIndex accesses;
  EXPECT_TRUE(idents.create(2) && accesses.create(2));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(idents.insert({5}) + accesses.insert(5), 0);
  EXPECT_EQ(idents.insert({6}), -1);
  EXPECT_EQ(idents.findRecno({5}), 0);
  EXPECT_EQ(idents.findRecno({6}), -1);
  TestLog log;
  EXPECT_EQ(idents.countDuplicates() + accesses.countDuplicates(), 2);
  AccessIndex::printEntrySize();
  EXPECT_EQ(log.take(),
            "[3 identindx] duplicate records for :05 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "\n[3 accessindx] duplicate records for 5 \n"
            "[10 accessindx] size of access index rec is 40\n");
  testing::internal::CaptureStdout();
  EXPECT_EQ(idents.buildFromFile("none"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "error loading none\n");
}

// The walk goes in the order of the keys. An entry whose unique ID is not positive as a signed
// number counts as empty when its record number is 0, and so does what is after the entries.
TEST(AccessIndex, WalksToAnEmptyEntry) {
  const std::vector<std::pair<std::vector<uint32_t>, std::vector<uint32_t>>> rows = {
      {{8, 7}, {7, 8}}, {{8, 0}, {0, 8}}, {{0, 8}, {}}, {{1u << 31, 8}, {8}}, {{}, {}}};
  for (const auto& [uniqids, expected] : rows) {
    AccessIndex index;
    EXPECT_EQ(index.first(), nullptr);
    EXPECT_TRUE(index.create(2));
    for (const uint32_t uniqid : uniqids) EXPECT_EQ(index.insert(uniqid), 0);
    std::vector<uint32_t> walk;
    for (AccessIndexEntry* at = index.first(); at != nullptr; at = index.next())
      walk.push_back(at->uniqid);
    EXPECT_EQ(walk, expected);
    for (int i = 0; i < 3; ++i) index.next();
    EXPECT_EQ(index.next(), nullptr);
  }
}

// That the fields follow each other without a gap is checked where they are listed; ident records
// are in badgemint-db(5) and badgemint-maintain(3).
TEST(AccessRecord, HasItsFieldsInTheirPlaces) {
  TestLog log;
  AccessRecord record{0x01020304, {0x12, 0x34}, {},   0x61626364, 0x71727374, 0x81828384,
                      0x91929394, 0x2A,         0xB1, 0xC1,       0xD1};
  // Slots that do not exist read as 0 and ignore what is set.
  for (int32_t slot = -1; slot <= 8; ++slot) {
    record.setAccessLevel(slot, static_cast<uint16_t>(0x8001 + slot));
    EXPECT_EQ(record.accessLevel(slot), slot < 0 || slot > 7 ? 0 : 0x8001 + slot);
  }
  log.logger().dumpHex(25, encodeRecord(record));
  EXPECT_EQ(log.take(),
            "04 03 02 01 12 34 00 00 01 80 02 80 03 80 04 80 05 80 06 80 07 80 08 80 "
            "64 63 62 61 74 73 72 71 84 83 82 81 94 93 92 91 2A B1 C1 D1 ");
}

// A blank PIN becomes 0 and is reported once.
TEST(Records, HaveTexts) {
  char text[AccessRecord::kTextSize];
  const IdentRecord ident{{}, UINT32_MAX, 254, 1};
  ident.toIdentifierText("0042", true, text);
  EXPECT_STREQ(text, "0042 0 1 4294967295 1");
  ident.toIdentifierText("0042", false, text);
  EXPECT_STREQ(text, "0042 254 0 4294967295 1");
  ident.toNumericText(5, 1, text);
  EXPECT_STREQ(text, "4294967301 254 4294967295");
  TestLog log;
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

}  // namespace badgemint::records_test
