#include "carddb/identfile.h"

#include <map>

#include "carddb/testdatabases.h"
#include "cardsets/cardsets.h"

namespace badgemint {

// Random files against plain lists. Of several records of a card the first counts.
TEST(IdentFile, DoesWhatPlainListsDo) {
  const WorkFolder here;
  std::mt19937 random(1);
  for (int round = 0; round < 300 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    const auto anyIdent = [&random] {
      IdentRecord any{{}, static_cast<uint32_t>(random() % 20), 1, 0};
      any.cardnumber[random() % 16] = static_cast<uint8_t>(random() % 3 * 0x7F);
      return any;
    };
    std::vector<IdentRecord> list(random() % 40);
    std::ranges::generate(list, anyIdent);
    const auto firstOf = [&list](const CardPattern& card) {
      return std::ranges::find(list, card, &IdentRecord::cardnumber);
    };
    writeRecords("ident", list);
    IdentFile file;
    EXPECT_TRUE(file.loadIndex("ident", 0));
    std::map<CardPattern, CardPattern> pairs;
    std::vector<IdentRecord> byHolder = list;
    std::ranges::stable_sort(byHolder, {}, &IdentRecord::uniqid);
    for (size_t i = 1; i < byHolder.size(); ++i) {
      if (byHolder[i - 1].uniqid != byHolder[i].uniqid) continue;
      pairs[byHolder[i - 1].cardnumber] = byHolder[i].cardnumber;
      pairs[byHolder[i].cardnumber] = byHolder[i - 1].cardnumber;
    }
    for (int i = 0; i < 10; ++i) {
      const IdentRecord any = anyIdent();
      if (firstOf(any.cardnumber) == list.end()) list.push_back({any.cardnumber});
      *firstOf(any.cardnumber) = any;
      EXPECT_EQ(file.addOrReplace(any), 0);
    }
    EXPECT_EQ(contentOf("ident"), bytesOf(list));
    IdentRecord found;
    CardPattern paired;
    uint32_t number = 0;
    for (const IdentRecord& any : list) {
      EXPECT_EQ(file.findCard(any.cardnumber, found, number), 0);
      EXPECT_EQ(number, firstOf(any.cardnumber) - list.begin());
      EXPECT_EQ(found, list[number]);
      EXPECT_EQ(file.getPairedCard(any.cardnumber, paired), 0);
      EXPECT_EQ(paired, pairs[any.cardnumber]);
    }
    const CardPattern card = list.back().cardnumber, other = pairs[card];
    const bool isPaired = other != CardPattern{};
    const bool differs = isPaired && firstOf(other)->uniqid != firstOf(card)->uniqid;
    EXPECT_EQ(file.setCardDeleted(card, number), differs ? -1019 : 0);
    EXPECT_EQ(number, firstOf(card)->uniqid);
    firstOf(card)->deleted = 1;
    if (isPaired && !differs) firstOf(other)->deleted = 1;
    EXPECT_EQ(contentOf("ident"), bytesOf(list));
  }
}

// Without an index; beside it, in a file that was changed meanwhile.
TEST(IdentFile, LeavesRecordsOfOthersAlone) {
  const WorkFolder here;
  IdentFile file;
  IdentRecord found;
  CardPattern paired;
  uint32_t number = 7;
  EXPECT_EQ(file.findCard({1}, found), -1016);
  EXPECT_EQ(file.addIndexKey({1}), -1);
  TestLog log;
  prepare(file);
  const std::string pair = "[20 identindx] uniqid=10 has both card and pin ident records\n";
  EXPECT_NE(log.take().find(pair), std::string::npos);
  EXPECT_EQ(file.setCardDeleted({3}, number), 0);
  EXPECT_EQ(file.setCardUndeleted({1}, number), 0);
  EXPECT_EQ(contentOf("ident"), bytesOf(kIdents));
  EXPECT_EQ(file.setPairedCard({1}, {9}), 0);
  EXPECT_EQ(file.setCardDeleted({1}, number), -1016);
  EXPECT_EQ(file.setPairedCard({9}, {1}), -1);
  EXPECT_EQ(file.getPairedCard({9}, paired), -1016);
  writeRecords<IdentRecord>("ident", {{{2}}, {{2}}});
  EXPECT_EQ(file.addOrReplace({{1}}), -1);
  EXPECT_EQ(file.findCard({3}, found, number), -383);
  std::filesystem::resize_file("ident", 29);
  EXPECT_EQ(file.addOrReplace({{4}}), -383) << "no place for a record";
  EXPECT_TRUE(log.take().ends_with("[25 identfile] Error reading ident file ident\n"));
  EXPECT_EQ(std::filesystem::file_size("ident"), 29);
}

// The failing call, the last messages, and the room of the index then: one of nothing, never the
// one of the file before.
TEST(IdentFile, ReportsWhyALoadFailed) {
  const std::tuple<Fault, std::string, uint32_t> rows[] = {
      {{"allocate", 1}, "[25 identfile] Not enough memory to create ident filename\n", 0},
      {{"stat", 1}, "[report 1/16 \"\"]\n[20 identfile] unable to stat ident\n", 0},
      {{"allocate", 2}, "[20 identfile] ident index allocation failure\n[report 1/1024 \"\"]\n", 0},
      {{"allocate", 3}, "[20 identindx] unable to create idrecs\n[report 1/1025 \"\"]\n", 103},
      {{"read", 2}, "[20 identindx] unable to load indexes\n", 103},
  };
  for (const auto& [fault, messages, room] : rows) {
    SCOPED_TRACE(messages);
    Prepared<IdentFile> file;
    TestLog log;
    {
      const ArmedFault armed(fault);
      EXPECT_FALSE(file.loadIndex("ident", 0));
    }
    EXPECT_TRUE(log.take().ends_with(messages));
    uint32_t count = 7, capacity = 7;
    file.indexStats(count, capacity);
    EXPECT_EQ(std::pair(count, capacity), std::pair(0U, room));
    EXPECT_EQ(file.index() != nullptr, room > 0);
    EXPECT_EQ(file.addIndexKey({1}), -1);
    EXPECT_EQ(file.setCardDeleted({1}, count), -1016);
    EXPECT_TRUE(file.loadIndex("ident", 0));
    EXPECT_EQ(file.addIndexKey({1}), 0);
  }
}

TEST(IdentFile, ReportsTheCardSetsThatAreNotLoaded) {
  Prepared<IdentFile> file;
  file.write("sets", "f 7 1\n");
  cardsets sets;
  EXPECT_EQ(sets.load("sets"), 0);
  writeRecords<IdentRecord>(
      "ident", {{{}, 1, 0}, {{}, 1, 7}, {{}, 1, 253}, {{}, 1, 254}, {{}, 1, 255}, {{}, 1, 1}});
  TestLog log;
  EXPECT_EQ(file.countUnloadedCardSets(sets), 2);
  EXPECT_TRUE(log.take().ends_with("[100 identfile] cardset 1 not loaded \n"));
}

TEST(IdentFile, ComparesACardWithItsRecord) {
  Prepared<IdentFile> file;
  writeRecords<IdentRecord>("ident", {{{1}, 10, 5, 1}, {{1}, 20}});
  uint32_t uniqid = 0, deleted = 0;
  EXPECT_EQ(file.verifyCard({2}, uniqid, deleted), -2);
  EXPECT_EQ(file.verifyCard({3}, uniqid, deleted), -1);
  EXPECT_EQ(uniqid + deleted, 0);
  TestLog log;
  EXPECT_EQ(file.verifyCard({1}, uniqid, deleted), 0);
  EXPECT_EQ(std::pair(uniqid, deleted), std::pair(10U, 1U));
  EXPECT_EQ(log.take(),
            "[100 identfile]    cardno 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
            "[100 identfile] chkcardno 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
            "[100 identfile] uniqid = 10\n");
}

}  // namespace badgemint
