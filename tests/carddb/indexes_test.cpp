// What no file of the databases shows of its index.
#include "carddb/testdatabases.h"

namespace badgemint {
namespace {

// Files of every length, with room for one to four records; one more is inserted behind them.
template <typename Index, typename Record, typename Key>
void expectScan(int32_t (Index::*load)(const char*), const std::vector<Record>& records,
                const std::vector<Key>& keys) {
  for (size_t size = 0; size <= bytesOf(records).size(); ++size) {
    std::ofstream("file") << bytesOf(records).substr(0, size);
    for (uint32_t capacity = 1; capacity <= 4; ++capacity) {
      SCOPED_TRACE(testing::Message() << size << " bytes, room for " << capacity);
      Index index;
      ASSERT_TRUE(index.create(capacity));
      ASSERT_GE((index.*load)("file"), 0);
      const auto count = static_cast<int32_t>(std::min<size_t>(capacity, size / Record::kSize));
      const bool isFull = index.count() == capacity;
      EXPECT_EQ(index.count(), count);
      for (int32_t i = 0; i < 3; ++i)
        EXPECT_EQ(index.findRecno(keys[static_cast<size_t>(i)]), i < count ? i : -1);
      EXPECT_EQ(index.countDuplicates(), 0);  // Not sorted.
      EXPECT_EQ(index.insert(keys[1]), isFull ? -1 : 0);
      EXPECT_EQ(index.findRecno(keys[1]), count > 1 ? 1 : isFull ? -1 : count);
      EXPECT_EQ(index.countDuplicates(), count > 1 && !isFull ? 1 : 0);
    }
  }
}

TEST(Indexes, TakeWholeRecordsUpToTheirRoom) {
  const WorkFolder here;
  expectScan<IdentIndex, IdentRecord, CardPattern>(&IdentIndex::buildFromFile,
                                                   {{{2}}, {{1}}, {{3}}}, {{2}, {1}, {3}});
  expectScan<AccessIndex, AccessRecord, uint32_t>(
      &AccessIndex::loadFromFile, {{.uniqid = 2}, {.uniqid = 1}, {.uniqid = 3}}, {2, 1, 3});
}

TEST(Indexes, TellDuplicatesAndSizes) {
  const WorkFolder here;
  TestLog log;
  IdentIndex idents;
  AccessIndex accesses;
  EXPECT_TRUE(idents.create(2) && accesses.create(3));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(idents.insert({5}) + accesses.insert(5), 0);
  log.take();
  EXPECT_EQ(idents.countDuplicates() + accesses.countDuplicates(), 2);
  IdentIndex::printEntrySize();
  AccessIndex::printEntrySize();
  EXPECT_EQ(log.take(),
            "[3 identindx] duplicate records for :05 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "\n[3 accessindx] duplicate records for 5 \n"
            "[4 identindx] ident index record size = 36 \n"
            "[10 accessindx] size of access index rec is 40\n");
  testing::internal::CaptureStdout();
  EXPECT_EQ(idents.buildFromFile("none"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "error loading none\n");
}

// The walk goes in the order of the keys. An entry whose unique ID is not positive as a signed
// number counts as empty when its record number is 0, and so does what is behind the entries.
TEST(AccessIndex, WalksToAnEmptyEntry) {
  const struct {
    std::vector<uint32_t> uniqids, walk;
  } rows[] = {{{8, 7}, {7, 8}}, {{8, 0}, {0, 8}}, {{0, 8}, {}}, {{1u << 31, 8}, {8}}, {{}, {}}};
  for (const auto& row : rows) {
    AccessIndex index;
    EXPECT_EQ(index.first(), nullptr);
    EXPECT_TRUE(index.create(2));
    for (const uint32_t uniqid : row.uniqids) EXPECT_EQ(index.insert(uniqid), 0);
    std::vector<uint32_t> walk;
    for (const auto* at = index.first(); at != nullptr; at = index.next())
      walk.push_back(at->uniqid);
    EXPECT_EQ(walk, row.walk);
    for (int i = 0; i < 3; ++i) index.next();
    EXPECT_EQ(index.next(), nullptr);
  }
}

}  // namespace
}  // namespace badgemint
