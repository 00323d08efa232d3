// What no file of the databases shows of its index.
#include "carddb/testdatabases.h"

namespace badgemint {

// Files of every length, with room for three holders; one more is inserted after them.
TEST(AccessIndex, TakesWholeRecordsUpToItsRoom) {
  const WorkFolder here;
  const std::vector<AccessRecord> records = {{2}, {1}, {3}, {4}};
  for (size_t size = 0; size <= 4 * AccessRecord::kSize; ++size) {
    SCOPED_TRACE(size);
    here.write("access", bytesOf(records).substr(0, size));
    AccessIndex index;
    EXPECT_TRUE(index.create(3));
    EXPECT_EQ(index.loadFromFile("access"), 0);
    const auto count = static_cast<int32_t>(std::min<size_t>(3, size / AccessRecord::kSize));
    EXPECT_EQ(index.count(), count);
    for (int32_t i = 0; i < 4; ++i)
      EXPECT_EQ(index.findRecno(records[static_cast<size_t>(i)].uniqid), i < count ? i : -1);
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

}  // namespace badgemint
