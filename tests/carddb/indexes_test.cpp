#include <gtest/gtest.h>

#include <map>
#include <random>

#include "carddb/accessindx.h"
#include "carddb/databases.h"
#include "carddb/identindx.h"
#include "support/result.h"

namespace badgemint {
namespace {

class IndexTest : public testing::Test {
 protected:
  void load(const std::vector<IdentRecord>& records, uint32_t capacity) {
    ASSERT_TRUE(idents.create(capacity));
    ASSERT_EQ(idents.buildFromFile(folder.write("ident", fileOf(records)).c_str()), 1);
  }
  void load(const std::vector<AccessRecord>& records, uint32_t capacity) {
    ASSERT_TRUE(accesses.create(capacity));
    ASSERT_EQ(accesses.loadFromFile(folder.write("access", fileOf(records)).c_str()), kSuccess);
  }

  TestLog log{25};
  TestFolder folder;
  IdentIndex idents;
  AccessIndex accesses;
};

TEST_F(IndexTest, PairsNeighboursOfOneHolder) {
  // Key 5 stands twice: its pair goes to the first entry, that of record 1.
  load({ident(9, 30), ident(5, 77), ident(8, 20), ident(7, 30), ident(6, 30), ident(5, 20)}, 7);
  const auto pair = [](const std::string& uniqid) {
    return "[identindx] uniqid=" + uniqid + " has both card and pin ident records\n";
  };
  EXPECT_EQ(log.take(),
            "[identindx] creating idrecs\n[identindx] idrecs created\n[identindx] indexs loaded\n"
            "[identindx] idrecs sorted\n" +
                pair("20") + pair("30") + pair("30") + "[identindx] deleting idrecs\n");
  const int expected[][3] = {{9, 0, 7}, {5, 1, 8}, {8, 2, 5}, {7, 3, 6}, {6, 4, 7}};
  for (uint32_t pass = 0; pass < 2; ++pass) {  // Found by scan, then by halves.
    for (const auto& [key, recno, paired] : expected) {
      EXPECT_EQ(idents.findRecno(cardKey(key)), recno);
      EXPECT_EQ(idents.find(cardKey(key))->pairedcard, cardKey(paired)) << key;
    }
    EXPECT_EQ(idents.findRecno(cardKey(3)), -1);
    EXPECT_EQ(idents.countDuplicates(), pass);
    idents.sort();
  }
  EXPECT_EQ(log.take(), "[identindx] duplicate records for :");
  log.logger().setThreshold(100);
  idents.countDuplicates();
  IdentIndex::printEntrySize();
  AccessIndex::printEntrySize();
  EXPECT_EQ(log.take(), "[identindx] duplicate records for :" + hex(cardKey(5)) +
                            "\n[identindx] ident index record size = 36 \n"
                            "[accessindx] size of access index rec is 40\n");
}

TEST_F(IndexTest, PairsLikeAPlainScan) {
  std::mt19937 random(1);
  const auto number = [&](int max) { return std::uniform_int_distribution(0, max)(random); };
  std::vector<IdentRecord> records;
  for (int i = 0; i < 3000; ++i)
    records.push_back({cardKey(number(39), number(39)), static_cast<uint32_t>(number(2000)), 1, 0});
  load(records, 3000);
  idents.sort();
  std::stable_sort(records.begin(), records.end(),
                   [](const auto& a, const auto& b) { return a.uniqid < b.uniqid; });
  std::map<CardPattern, CardPattern> pairs;  // By key, as only its first entry is ever found.
  for (size_t i = 1; i < records.size(); ++i) {
    if (records[i - 1].uniqid != records[i].uniqid) continue;
    pairs[records[i - 1].cardnumber] = records[i].cardnumber;
    pairs[records[i].cardnumber] = records[i - 1].cardnumber;
  }
  for (const IdentRecord& record : records)
    EXPECT_EQ(idents.find(record.cardnumber)->pairedcard, pairs[record.cardnumber]);
}

TEST_F(IndexTest, InsertsInTheOrderOfUnsignedBytes) {
  for (const bool sorted : {true, false}) {
    load({ident(0x80, 1), ident(0x7F, 2)}, 6);
    if (sorted) idents.sort();
    const CardPattern keys[] = {cardKey(0x80), cardKey(0x7F), cardKey(0x7F, 0x80),
                                cardKey(0x7F, 0x7F), cardKey(0x81)};
    for (const CardPattern& key : std::span(keys).subspan(2))
      EXPECT_EQ(idents.insert(key), kSuccess);
    EXPECT_EQ(idents.insert(keys[2]), kSuccess);
    EXPECT_EQ(idents.insert(cardKey(1)), -1);
    for (int32_t i = 0; i < 5; ++i) EXPECT_EQ(idents.findRecno(keys[i]), i);
    EXPECT_EQ(idents.findRecno(cardKey(1)), -1);
    EXPECT_EQ(idents.countDuplicates(), 1u);
  }
}

TEST_F(IndexTest, LogsEveryThousandth) {
  log.logger().setThreshold(100);
  std::vector<IdentRecord> records;
  for (uint32_t i = 0; i < 2000; ++i) records.push_back(ident(1, i));
  load(records, 2001);
  load(std::vector(2000, access(1)), 2000);
  const std::string text = log.take();
  std::string thousands;
  for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
    if (const std::string line = text.substr(at, end + 1 - at); line.find('0') != std::string::npos)
      thousands += line;
  EXPECT_EQ(thousands,
            "[identindx] initialize ident indx record 0\n"
            "[identindx] initialize ident indx record 1000\n"
            "[identindx] initialize ident indx record 2000\n"
            "[identindx] record 1000 written \n[identindx] record 2000 written \n"
            "[identindx] processed idrecs record 1000\n"
            "[accessindx] initialized record 0\n[accessindx] initialized record 1000\n"
            "[accessindx] loaded record 1000\n[accessindx] loaded record 2000\n");
}

TEST_F(IndexTest, LoadsWholeRecordsUpToItsCapacity) {
  ASSERT_TRUE(idents.create(2));
  const std::string bytes = fileOf<IdentRecord>({ident(1, 1), ident(2, 2), ident(3, 3)});
  for (size_t size = 0; size <= bytes.size(); ++size) {
    EXPECT_EQ(idents.buildFromFile(folder.write("cut", bytes.substr(0, size)).c_str()), 1);
    EXPECT_EQ(idents.count(), std::min<size_t>(2, size / IdentRecord::kSize));
  }
  load({access(1), access(2), access(3)}, 2);
  EXPECT_EQ(accesses.count(), 2u);
  log.take();
  const std::string directory = folder.path("");
  EXPECT_EQ(idents.buildFromFile(directory.c_str()), 0);
  EXPECT_EQ(accesses.loadFromFile(directory.c_str()), kAccessReadFailed);
  EXPECT_EQ(log.take(),
            "[identindx] creating idrecs\n[identindx] idrecs created\n"
            "[identindx] unable to load indexes\n"
            "[accessindx] Error reading access file " +
                directory + "\n");
  EXPECT_EQ(idents.count() + accesses.count(), 0u);
  testing::internal::CaptureStdout();
  EXPECT_EQ(idents.buildFromFile("none"), 0);
  EXPECT_EQ(accesses.loadFromFile("none"), kAccessOpenFailed);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "error loading none\n");
  EXPECT_EQ(log.take(), "[accessindx] Error opening access file none\n");
}

TEST_F(IndexTest, KeepsHoldersWithTheirState) {
  load({access(0x80000000), access(5), access(1), access(5)}, 6);
  EXPECT_EQ(accesses.findRecno(5), 1);
  EXPECT_EQ(accesses.countDuplicates(), 0u);
  accesses.sort();
  EXPECT_EQ(accesses.countDuplicates(), 1u);
  EXPECT_EQ(log.take(), "[accessindx] duplicate records for 5 \n");
  EXPECT_EQ(AccessIndex::setState(*accesses.find(5), 4), 0);
  EXPECT_EQ(AccessIndex::setState(*accesses.find(1), 0), 0);
  for (const uint32_t uniqid : {3u, 5u}) EXPECT_EQ(accesses.insert(uniqid), kSuccess);
  EXPECT_EQ(accesses.insert(6), -1);
  const uint32_t expected[][3] = {{1, 2, 1}, {3, 4, 0}, {5, 1, 2}, {0x80000000, 0, 0}};
  for (const auto& [uniqid, recno, state] : expected) {
    EXPECT_EQ(accesses.find(uniqid)->recno, recno);
    EXPECT_EQ(accesses.find(uniqid)->state.value, state) << uniqid;
  }
  EXPECT_EQ(accesses.findRecno(6), -1);
}

TEST_F(IndexTest, WalksUntilAnEmptyEntry) {
  const struct {
    std::vector<AccessRecord> records;
    std::string walk;
  } rows[] = {{{access(3), access(2), access(1)}, "3 2 1 "},
              {{access(7), access(0), access(0x80000000)}, "7 0 2147483648 "},
              {{access(0), access(7)}, ""},  // Without uniqid and recno.
              {{access(0x80000000), access(7)}, ""},
              {{}, ""}};
  for (const auto& row : rows) {
    load(row.records, 3);
    std::string seen;
    for (const AccessIndexEntry* at = accesses.first(); at != nullptr; at = accesses.next())
      seen += std::to_string(at->uniqid) + " ";
    EXPECT_EQ(seen, row.walk);
    for (int i = 0; i < 3; ++i) accesses.next();
    EXPECT_EQ(accesses.next(), nullptr);
  }
  load(rows[0].records, 3);
  accesses.sort();
  EXPECT_EQ(accesses.first()->uniqid, 1u);
  accesses.destroy();
  EXPECT_EQ(accesses.first(), nullptr);
}

}  // namespace
}  // namespace badgemint
