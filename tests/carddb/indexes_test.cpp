#include <gtest/gtest.h>

#include <map>
#include <random>

#include "carddb/accessindx.h"
#include "carddb/databases.h"
#include "carddb/identindx.h"
#include "support/result.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

class IndexTest : public testing::Test {
 protected:
  void load(IdentIndex& index, const std::vector<IdentRecord>& records, uint32_t capacity) {
    ASSERT_TRUE(index.create(capacity));
    ASSERT_EQ(index.buildFromFile(folder.write("ident", fileOf(records)).c_str()), 1);
  }
  void load(AccessIndex& index, const std::vector<AccessRecord>& records, uint32_t capacity) {
    ASSERT_TRUE(index.create(capacity));
    ASSERT_EQ(index.loadFromFile(folder.write("access", fileOf(records)).c_str()), kSuccess);
  }

  TestLog log{25};
  TestFolder folder;
};

using IdentIndexTest = IndexTest;
using AccessIndexTest = IndexTest;

TEST_F(IdentIndexTest, PairsNeighboursOfOneHolder) {
  // Key 5 stands twice: its pair goes to the first entry, that of record 1.
  IdentIndex index;
  load(index,
       {ident(9, 30), ident(5, 77), ident(8, 20), ident(7, 30), ident(6, 30), ident(5, 20),
        ident(4, 10)},
       7);
  const std::string both = " has both card and pin ident records\n";
  EXPECT_EQ(log.take(),
            "[identindx] creating idrecs\n[identindx] idrecs created\n[identindx] indexs loaded\n"
            "[identindx] idrecs sorted\n[identindx] uniqid=20" +
                both + "[identindx] uniqid=30" + both + "[identindx] uniqid=30" + both +
                "[identindx] deleting idrecs\n");
  const std::map<int, std::pair<int, int>> expected = {{9, {0, 7}}, {5, {1, 8}}, {8, {2, 5}},
                                                       {7, {3, 6}}, {6, {4, 7}}, {4, {6, 0}}};
  for (int pass = 0; pass < 2; ++pass) {  // Found by scan, then by halves.
    for (const auto& [key, found] : expected) {
      const IdentIndexEntry* const entry = index.find(cardKey(key));
      ASSERT_NE(entry, nullptr) << key;
      EXPECT_EQ(entry->recno, static_cast<uint32_t>(found.first)) << key;
      EXPECT_EQ(entry->pairedcard, cardKey(found.second)) << key;
    }
    EXPECT_EQ(index.findRecno(cardKey(3)), -1);
    EXPECT_EQ(index.countDuplicates(), static_cast<uint32_t>(pass));
    index.sort();
  }
}

TEST_F(IdentIndexTest, PairsLikeAPlainScan) {
  std::mt19937 random(1);
  const auto number = [&](int max) { return std::uniform_int_distribution(0, max)(random); };
  std::vector<IdentRecord> records;
  for (int i = 0; i < 3000; ++i)
    records.push_back({cardKey(number(39), number(39)), uint32_t(number(2000)), 1, 0});
  std::map<CardPattern, CardPattern> pairs;  // By key, as only its first entry is ever found.
  std::vector<IdentRecord> holders = records;
  std::stable_sort(holders.begin(), holders.end(),
                   [](const auto& a, const auto& b) { return a.uniqid < b.uniqid; });
  for (size_t i = 1; i < holders.size(); ++i) {
    if (holders[i - 1].uniqid != holders[i].uniqid) continue;
    pairs[holders[i - 1].cardnumber] = holders[i].cardnumber;
    pairs[holders[i].cardnumber] = holders[i - 1].cardnumber;
  }
  IdentIndex index;
  load(index, records, 3000);
  index.sort();
  for (const IdentRecord& record : records)
    EXPECT_EQ(index.find(record.cardnumber)->pairedcard, pairs[record.cardnumber]);
}

TEST_F(IdentIndexTest, InsertsInOrder) {
  for (const bool sorted : {true, false}) {
    IdentIndex index;
    load(index, {ident(5, 1), ident(3, 2), ident(9, 3)}, 7);
    if (sorted) index.sort();
    for (const int key : {4, 10, 1, 5}) EXPECT_EQ(index.insert(cardKey(key)), kSuccess);
    EXPECT_EQ(index.insert(cardKey(2)), -1);
    EXPECT_EQ(index.count(), 7u);
    const std::map<int, int> recnos = {{1, 5}, {2, -1}, {3, 1}, {4, 3}, {5, 0}, {9, 2}, {10, 4}};
    for (const auto& [key, recno] : recnos) EXPECT_EQ(index.findRecno(cardKey(key)), recno) << key;
    EXPECT_EQ(index.find(cardKey(4))->pairedcard, CardPattern{});
    log.take();
    EXPECT_EQ(index.countDuplicates(), 1u);
    EXPECT_EQ(log.take(), "[identindx] duplicate records for :");
  }
}

TEST_F(IdentIndexTest, OrdersKeysAsUnsignedBytes) {
  IdentIndex index;
  ASSERT_TRUE(index.create(4));
  const CardPattern keys[] = {cardKey(0x80), cardKey(0x7F, 0xFF), cardKey(0, 0x80),
                              cardKey(0, 0x7F)};
  for (const CardPattern& key : keys) EXPECT_EQ(index.insert(key), kSuccess);
  for (int32_t i = 0; i < 4; ++i) EXPECT_EQ(index.findRecno(keys[i]), i);
}

TEST_F(IndexTest, LogEveryThousandth) {
  log.logger().setThreshold(100);
  std::vector<IdentRecord> idents;
  std::vector<AccessRecord> accesses;
  for (uint32_t i = 0; i < 2000; ++i) {
    idents.push_back(ident(1, i + 1));
    accesses.push_back(access(i));
  }
  IdentIndex identIndex;
  load(identIndex, idents, 2001);
  EXPECT_EQ(log.take(),
            "[identindx] initialize ident indx record 0\n"
            "[identindx] initialize ident indx record 1000\n"
            "[identindx] initialize ident indx record 2000\n"
            "[identindx] creating idrecs\n[identindx] idrecs created\n"
            "[identindx] record 1000 written \n[identindx] record 2000 written \n"
            "[identindx] indexs loaded\n[identindx] idrecs sorted\n"
            "[identindx] processed idrecs record 1000\n[identindx] deleting idrecs\n");
  AccessIndex accessIndex;
  load(accessIndex, accesses, 2000);
  EXPECT_EQ(log.take(),
            "[accessindx] creating access index\n[accessindx] initializing access index\n"
            "[accessindx] initialized record 0\n[accessindx] initialized record 1000\n"
            "[accessindx] access index initialized\n"
            "[accessindx] loaded record 1000\n[accessindx] loaded record 2000\n");
  IdentIndex duplicates;
  load(duplicates, {ident(1, 1), ident(1, 2)}, 2);
  duplicates.sort();
  log.take();
  EXPECT_EQ(duplicates.countDuplicates(), 1u);
  EXPECT_EQ(log.take(), "[identindx] duplicate records for :" + hex(cardKey(1)) + "\n");
  IdentIndex::printEntrySize();
  AccessIndex::printEntrySize();
  EXPECT_EQ(log.take(),
            "[identindx] ident index record size = 36 \n"
            "[accessindx] size of access index rec is 40\n");
}

TEST_F(IndexTest, LoadWholeRecordsUpToTheirCapacity) {
  IdentIndex idents;
  load(idents, {ident(1, 1), ident(2, 2), ident(3, 3)}, 2);
  EXPECT_EQ(idents.count(), 2u);
  AccessIndex accesses;
  load(accesses, {access(1), access(2), access(3)}, 2);
  EXPECT_EQ(accesses.count(), 2u);

  // Every length of a file of three records, behind an index that was filled before.
  for (size_t size = 0; size <= 3 * IdentRecord::kSize; ++size) {
    const std::string bytes = fileOf<IdentRecord>({ident(1, 1), ident(2, 2), ident(3, 3)});
    EXPECT_EQ(idents.buildFromFile(folder.write("cut", bytes.substr(0, size)).c_str()), 1);
    EXPECT_EQ(idents.count(), std::min<size_t>(2, size / IdentRecord::kSize));
  }
}

TEST_F(IndexTest, ReportFilesThatCannotBeRead) {
  IdentIndex idents;
  load(idents, {ident(1, 1)}, 1);
  AccessIndex accesses;
  load(accesses, {access(1)}, 1);
  const std::string none = folder.path("none"), directory = folder.path("");
  log.take();
  testing::internal::CaptureStdout();
  EXPECT_EQ(idents.buildFromFile(none.c_str()), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "error loading " + none + "\n");
  EXPECT_EQ(accesses.loadFromFile(none.c_str()), kAccessOpenFailed);
  EXPECT_EQ(log.take(), "[accessindx] Error opening access file " + none + "\n");
  EXPECT_EQ(idents.buildFromFile(directory.c_str()), 0);
  EXPECT_EQ(accesses.loadFromFile(directory.c_str()), kAccessReadFailed);
  EXPECT_EQ(log.take(),
            "[identindx] creating idrecs\n[identindx] idrecs created\n"
            "[identindx] unable to load indexes\n[accessindx] Error reading access file " +
                directory + "\n");
  EXPECT_EQ(idents.count() + accesses.count(), 0u);
}

TEST_F(AccessIndexTest, FindsSortsAndInserts) {
  AccessIndex index;
  load(index, {access(0x80000000), access(5), access(1), access(5)}, 6);
  EXPECT_EQ(index.findRecno(5), 1);
  EXPECT_EQ(index.countDuplicates(), 0u);
  index.sort();
  EXPECT_EQ(index.countDuplicates(), 1u);
  EXPECT_EQ(log.take(), "[accessindx] duplicate records for 5 \n");
  EXPECT_EQ(AccessIndex::setState(*index.find(5), 4), 0);
  EXPECT_EQ(AccessIndex::setState(*index.find(1), 0), 0);
  EXPECT_EQ(index.insert(3), kSuccess);
  EXPECT_EQ(index.insert(5), kSuccess);
  EXPECT_EQ(index.insert(6), -1);
  EXPECT_EQ(index.find(5)->state.value, 2u);
  EXPECT_EQ(index.find(1)->state.value, 1u);
  EXPECT_EQ(index.find(3)->state.value, 0u);
  const std::map<uint32_t, int> recnos = {{1, 2}, {3, 4}, {5, 1}, {6, -1}, {0x80000000, 0}};
  for (const auto& [uniqid, recno] : recnos) EXPECT_EQ(index.findRecno(uniqid), recno) << uniqid;
  EXPECT_EQ(AccessIndex().countDuplicates(), 0u);
}

TEST_F(AccessIndexTest, WalksInTableOrder) {
  const auto walk = [](AccessIndex& index) {
    std::string seen;
    const AccessIndexEntry* entry = index.first();
    for (; entry != nullptr && seen.size() < 100; entry = index.next())
      seen += std::to_string(entry->uniqid) + " ";
    return seen;
  };
  AccessIndex index;
  load(index, {access(3), access(2), access(1)}, 3);
  EXPECT_EQ(walk(index), "3 2 1 ");
  index.sort();
  EXPECT_EQ(walk(index), "1 2 3 ");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(index.next(), nullptr);
  index.destroy();
  EXPECT_EQ(index.first(), nullptr);

  // Holder 0 ends the walk only as the first record, a holder that is negative as signed likewise.
  load(index, {access(7), access(0), access(0x80000000)}, 4);
  EXPECT_EQ(walk(index), "7 0 2147483648 ");
  load(index, {access(0), access(7)}, 4);
  EXPECT_EQ(walk(index), "");
  EXPECT_EQ(index.next()->uniqid, 7u);
  load(index, {access(0x80000000), access(7)}, 4);
  EXPECT_EQ(walk(index), "");
}

}  // namespace
}  // namespace badgemint
