#include "carddb/identfile.h"

#include "carddb/testdatabases.h"
#include "cardsets/cardsets.h"

namespace badgemint {
namespace {

// The database and its index as plain lists: entry n of the index is that of record n.
struct Model {
  struct Entry {
    CardPattern key;
    CardPattern paired{};
  };
  std::vector<IdentRecord> file;
  std::vector<Entry> entries;
  size_t capacity = 0;

  bool loadIndex(const char*, uint32_t requested) {
    capacity = file.size() < requested ? requested : file.size() + 100;
    entries.clear();
    for (const IdentRecord& loaded : file) entries.push_back({loaded.cardnumber});
    std::vector<IdentRecord> byHolder = file;
    std::ranges::stable_sort(byHolder, {}, &IdentRecord::uniqid);
    for (size_t i = 1; i < byHolder.size(); ++i) {
      const IdentRecord &a = byHolder[i - 1], &b = byHolder[i];
      if (a.uniqid != b.uniqid) continue;
      entryOf(a.cardnumber)->paired = b.cardnumber;
      entryOf(b.cardnumber)->paired = a.cardnumber;
    }
    return true;
  }

  Entry* entryOf(const CardPattern& key) {
    const auto found = std::ranges::find(entries, key, &Entry::key);
    return found == entries.end() ? nullptr : &*found;
  }
  int32_t findCard(const CardPattern& key, IdentRecord& found, uint32_t& recno) {
    const Entry* const entry = entryOf(key);
    if (entry == nullptr) return -1016;
    const auto at = static_cast<uint32_t>(entry - entries.data());
    if (at >= file.size()) return -383;
    found = file[recno = at];
    return 0;
  }
  int32_t appendRecord(const IdentRecord& added) {
    file.push_back(added);
    return 0;
  }
  int32_t addIndexKey(const CardPattern& key) {
    if (entries.size() == capacity) return -1;
    entries.push_back({key});
    return 0;
  }
  int32_t addOrReplace(const IdentRecord& added) {
    IdentRecord found;
    uint32_t recno = 0;
    if (findCard(added.cardnumber, found, recno) != 0) {
      file.push_back(added);
      return capacity == 0 ? 0 : addIndexKey(added.cardnumber);
    }
    if (found.cardnumber != added.cardnumber) return -1;
    file[recno] = added;
    return 0;
  }

  int32_t getPairedCard(const CardPattern& key, CardPattern& paired) {
    const Entry* const entry = entryOf(key);
    if (entry != nullptr) paired = entry->paired;
    return entry != nullptr ? 0 : -1016;
  }
  int32_t setPairedCard(const CardPattern& key, const CardPattern& paired) {
    Entry* const entry = entryOf(key);
    if (entry != nullptr) entry->paired = paired;
    return entry != nullptr ? 0 : -1;
  }

  int32_t mark(const CardPattern& key, uint32_t& uniqid, uint32_t deleted) {
    IdentRecord found;
    uint32_t recno = 0;
    if (const int32_t result = findCard(key, found, recno); result != 0) return result;
    uniqid = found.uniqid;
    file[recno].deleted = deleted;
    const CardPattern paired = entries[recno].paired;
    if (paired == CardPattern{}) return 0;
    if (const int32_t result = findCard(paired, found, recno); result != 0) return result;
    if (found.uniqid != uniqid) return -1019;
    file[recno].deleted = deleted;
    return 0;
  }
  int32_t setCardDeleted(const CardPattern& key, uint32_t& uniqid) { return mark(key, uniqid, 1); }
  int32_t setCardUndeleted(const CardPattern& key, uint32_t& uniqid) {
    return mark(key, uniqid, 0);
  }
};

// Keys that differ in one byte.
CardPattern anyKey(std::mt19937& random) {
  CardPattern key{};
  key[random() % 16] = static_cast<uint8_t>(random() % 3 * 0x7F);
  return key;
}

// The result and the outputs of an operation.
template <typename Database>
auto walk(Database& database, size_t step, const IdentRecord& any, const CardPattern& other) {
  uint32_t a = 7;
  IdentRecord found;
  CardPattern paired{};
  const auto answer = [&](int32_t result) { return std::tuple(result, a, found, paired); };
  if (step == 0) return answer(database.loadIndex("ident", any.deleted));
  if (step == 1) return answer(database.appendRecord(any));  // Behind the index's back.
  if (step == 2) return answer(database.addIndexKey(any.cardnumber));
  if (step == 3) return answer(database.setPairedCard(any.cardnumber, other));
  if (step == 4) return answer(database.getPairedCard(any.cardnumber, paired));
  if (step == 5) return answer(database.findCard(any.cardnumber, found, a));
  if (step == 7) return answer(database.setCardDeleted(any.cardnumber, a));
  if (step == 8) return answer(database.setCardUndeleted(any.cardnumber, a));
  return answer(database.addOrReplace(any));
}

TEST(IdentFile, DoesWhatPlainListsDo) {
  const WorkFolder here;
  std::mt19937 random(1);
  IdentFile file;
  Model model;
  writeRecords("ident", model.file);
  ASSERT_EQ(file.setFileName("ident"), 0);
  for (int i = 0; i < 10000 && !HasFailure(); ++i) {
    SCOPED_TRACE(i);
    if (random() % 50 == 0) model.file.resize(random() % (model.file.size() + 1));
    std::filesystem::resize_file("ident", 28 * model.file.size());
    const IdentRecord any{anyKey(random), static_cast<uint32_t>(random() % 20), 1,
                          static_cast<uint32_t>(model.file.size() + random() % 8)};
    const CardPattern other = anyKey(random);
    if (random() % 4 == 0) {  // A record that waits in the buffer.
      ASSERT_EQ(file.openFile(O_RDWR), 0);
      file.startBuffering();
      ASSERT_EQ(file.appendRecord(any), model.appendRecord(any));
    }
    const size_t step = random() % 10;
    EXPECT_EQ(walk(file, step, any, other), walk(model, step, any, other));
    uint32_t count = 7, capacity = 7;
    file.indexStats(count, capacity);
    EXPECT_EQ(count, model.entries.size());
    EXPECT_EQ(capacity, model.capacity);
    EXPECT_EQ(file.closeFile(), 0);
    EXPECT_EQ(contentOf("ident"), bytesOf(model.file));
  }
}

TEST(IdentFile, TellsWhichCallFailed) {
  const WorkFolder here;
  static IdentRecord record;
  static uint32_t number = 0;
  const auto of = [](int32_t (*run)(IdentFile&)) { return failures(kClosed, run); };
  EXPECT_EQ(of([](IdentFile& f) { return f.findCard({3}, record); }),
            "open R, seek R, read R, short read R, close 0");
  EXPECT_EQ(of([](IdentFile& f) { return f.verifyCard({3}, number, number); }),
            "open -1, seek -1, read -1, short read -1, close 0");
  EXPECT_EQ(of([](IdentFile& f) { return f.addOrReplace({{4}}); }),
            "open O!, seek R!, write W!, short write W!, close W!");
  // What cannot be read counts as not found: it is appended.
  EXPECT_EQ(of([](IdentFile& f) { return f.addOrReplace({{3}}); }),
            "open 0 -1, seek 0 -2, read 0, short read 0, write -2, short write -2, close 0 -2");
  EXPECT_EQ(of([](IdentFile& f) { return f.setCardDeleted({3}, number); }),
            "open R W R W, seek R W R W, read R R, short read R R, write W W, short write W W, "
            "close 0 W 0 W");
  EXPECT_EQ(of([](IdentFile& f) { return f.countUnloadedCardSets({}); }),
            "open O!, read 0! 1! 2! 3!, short read 0 1 2 3, close 3");
}

// A load of 2000 records, two of them of one holder.
TEST(IdentFile, TellsTheStepsOfALoad) {
  const WorkFolder here;
  TestLog log;
  IdentFile file;
  std::vector<IdentRecord> records(2000);
  for (uint32_t i = 0; i < 2000; ++i) records[i].uniqid = i < 1999 ? i : 7;
  writeRecords("ident", records);
  EXPECT_TRUE(file.loadIndex("ident", 2001));
  EXPECT_EQ(log.take(),
            "[20 identfile] nrecs = 2001\n"
            "[100 identindx] initialize ident indx record 0\n"
            "[100 identindx] initialize ident indx record 1000\n"
            "[100 identindx] initialize ident indx record 2000\n"
            "[20 identfile] ident index created\n"
            "[20 identindx] creating idrecs\n"
            "[20 identindx] idrecs created\n"
            "[100 identindx] record 1000 written \n"
            "[100 identindx] record 2000 written \n"
            "[20 identindx] indexs loaded\n"
            "[20 identindx] idrecs sorted\n"
            "[20 identindx] uniqid=7 has both card and pin ident records\n"
            "[100 identindx] processed idrecs record 1000\n"
            "[20 identindx] deleting idrecs\n"
            "[20 identfile] indxs created and loaded\n"
            "[20 identfile] indxs sorted\n"
            "[4 identindx] ident index record size = 36 \n");
}

// The failing call, the last messages, and the capacity of the index then; a new index is empty.
TEST(IdentFile, TellsWhyALoadFailed) {
  const WorkFolder here;
  const std::tuple<Fault, const char*, uint32_t> rows[] = {
      {{"allocate", 1}, "[25 identfile] Not enough memory to create ident filename\n", 103},
      {{"stat", 1}, "[report 1/16 \"\"]\n[20 identfile] unable to stat ident\n", 103},
      {{"allocate", 2}, "[20 identfile] ident index allocation failure\n[report 1/1024 \"\"]\n", 0},
      {{"allocate", 3}, "[20 identindx] unable to create idrecs\n[report 1/1025 \"\"]\n", 200},
      {{"read", 1}, "[20 identindx] unable to load indexes\n", 200},
      {{"read", 2}, "[20 identindx] unable to load indexes\n", 200},
  };
  for (const auto& [fault, messages, expected] : rows) {
    IdentFile file;
    prepare(file);
    TestLog log;
    const ArmedFault armed(fault);
    EXPECT_FALSE(file.loadIndex("ident", 200));
    const std::string text = log.take();
    EXPECT_TRUE(text.ends_with(messages)) << text;
    uint32_t count = 0, capacity = 0;
    file.indexStats(count, capacity);
    EXPECT_EQ(capacity, expected) << messages;
    EXPECT_EQ(count, expected == 103 ? 3 : 0) << messages;
  }
}

TEST(IdentFile, TellsTheCardSetsThatAreNotLoaded) {
  const WorkFolder here;
  cardsets sets;
  EXPECT_EQ(sets.load(here.write("sets", "f 7 1\n").c_str()), 0);
  std::vector<IdentRecord> records;
  for (const uint32_t code : {0u, 1u, 7u, 253u, 254u, 255u}) records.push_back({{}, 1, code});
  IdentFile file;
  EXPECT_EQ(file.setFileName("ident"), 0);
  writeRecords("ident", records);
  TestLog log;
  EXPECT_EQ(file.countUnloadedCardSets(sets), 2);
  const std::string text = log.take();
  EXPECT_NE(text.find("[100 identfile] cardset 1 not loaded \n"), std::string::npos) << text;
  EXPECT_NE(text.find("[100 identfile] cardset 253 not loaded \n"), std::string::npos) << text;
}

TEST(IdentFile, ComparesACardWithItsRecord) {
  const WorkFolder here;
  IdentFile file;
  prepare(file);
  writeRecords<IdentRecord>("ident", {{{1}, 10, 5, 1}, {{1}, 20}});
  TestLog log;
  uint32_t uniqid = 0, deleted = 0;
  EXPECT_EQ(file.verifyCard({2}, uniqid, deleted), -2);
  EXPECT_EQ(file.verifyCard({3}, uniqid, deleted), -1);
  EXPECT_EQ(uniqid + deleted, 0);
  log.take();
  EXPECT_EQ(file.verifyCard({1}, uniqid, deleted), 0);
  EXPECT_EQ(uniqid, 10);
  EXPECT_EQ(deleted, 1);
  EXPECT_EQ(log.take(),
            "[100 identfile]    cardno 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
            "[100 identfile] chkcardno 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
            "[100 identfile] uniqid = 10\n");
}

}  // namespace
}  // namespace badgemint
