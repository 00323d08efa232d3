#include <gtest/gtest.h>

#include <map>
#include <random>

#include "carddb/databases.h"

namespace badgemint {
namespace {

// What both indexes do.
template <typename Index, typename Key>
void addIndexCommands(Commands& on, const std::string& kind, Index& index,
                      Key (*keyOfWord)(std::string)) {
  on[kind + "-create"] = [&](Step& c) { c.out << index.create(c.as<uint32_t>(0)); };
  on[kind + "-sort"] = [&](Step&) { index.sort(); };
  on[kind + "-count"] = [&](Step& c) { c.out << index.count(); };
  on[kind + "-recno"] = [&index, keyOfWord](Step& c) {
    for (const std::string& word : c.words) c.out << index.findRecno(keyOfWord(word)) << ' ';
  };
  on[kind + "-insert"] = [&index, keyOfWord](Step& c) {
    for (const std::string& word : c.words) c.out << index.insert(keyOfWord(word)) << ' ';
  };
  on[kind + "-duplicates"] = [&](Step& c) { c.out << index.countDuplicates(); };
  on[kind + "-size"] = [](Step&) { Index::printEntrySize(); };
}

TEST(Indexes, FollowTheTranscript) {
  IdentIndex idents;
  AccessIndex accesses;
  Commands on;
  on["idents"] = [](Step& c) { writeRecords(c, identOf); };
  on["accesses"] = [](Step& c) { writeRecords(c, accessOf); };
  on["ident-build"] = [&](Step& c) { c.out << idents.buildFromFile(c.name(0)); };
  on["ident-pair"] = [&](Step& c) { c.out << hexLines(idents.find(keyOf(c.word(0)))->pairedcard); };
  on["access-build"] = [&](Step& c) { c.out << accesses.loadFromFile(c.name(0)); };
  on["access-mark"] = [&](Step& c) {
    c.out << AccessIndex::setState(*accesses.find(c.as<uint32_t>(0)), c.as<int32_t>(1));
  };
  on["access-state"] = [&](Step& c) { c.out << accesses.find(c.as<uint32_t>(0))->state.value; };
  on["access-destroy"] = [&](Step&) { accesses.destroy(); };
  on["access-walk"] = [&](Step& c) {
    const AccessIndexEntry* at = accesses.first();
    for (; at != nullptr; at = accesses.next()) c.out << at->uniqid << ' ';
    for (int i = 0; i < 4; ++i) at = accesses.next();
    c.out << (at == nullptr ? "end" : "went on");
  };

  addIndexCommands(on, "ident", idents, keyOf);
  addIndexCommands<AccessIndex, uint32_t>(on, "access", accesses, [](std::string word) {
    return static_cast<uint32_t>(std::stoul(word));
  });
  play("carddb/indexes.txt", on);
}

TEST(IdentIndex, PairsLikeAPlainScan) {
  std::mt19937 random(1);
  const TestFolder folder;
  std::vector<IdentRecord> records(3000);
  std::string file;
  for (IdentRecord& record : records) {
    record.cardnumber[0] = static_cast<uint8_t>(random() % 40);
    record.cardnumber[15] = static_cast<uint8_t>(random() % 40);
    record.uniqid = static_cast<uint32_t>(random() % 2000);
    file += bytesOf(record);
  }
  IdentIndex idents;
  ASSERT_TRUE(idents.create(3000));
  ASSERT_EQ(idents.buildFromFile(folder.write("ident", file).c_str()), 1);
  idents.sort();
  std::ranges::stable_sort(records, {}, &IdentRecord::uniqid);
  std::map<CardPattern, CardPattern> pairs;  // By key, as only its first entry is ever found.
  for (size_t i = 1; i < records.size(); ++i) {
    if (records[i - 1].uniqid != records[i].uniqid) continue;
    pairs[records[i - 1].cardnumber] = records[i].cardnumber;
    pairs[records[i].cardnumber] = records[i - 1].cardnumber;
  }
  for (const IdentRecord& record : records)
    EXPECT_EQ(idents.find(record.cardnumber)->pairedcard, pairs[record.cardnumber]);
}

}  // namespace
}  // namespace badgemint
