// The card databases: what their two kinds of files share, the files one by one, their indexes and
// their records.
#include <fcntl.h>

#include <functional>

#include "carddb/accessfile.h"
#include "carddb/identfile.h"
#include "cardsets/cardsets.h"
#include "formats/fmtfile.h"
#include "site/accesslevel.h"
#include "support/masterconfiguration.h"
#include "support/testfiles.h"

namespace badgemint::databases_test {

// What differs between the two kinds of files: their name, and the records of a file of three.
template <typename File>
constexpr bool kIsIdent = std::is_same_v<File, IdentFile>;
template <typename File>
constexpr const char* kName = kIsIdent<File> ? "ident" : "access";
const std::vector<IdentRecord> kIdents = {{{1}, 10, 5}, {{2}, 20, 5}, {{3}, 10, 5}};
const std::vector<AccessRecord> kAccesses = {{.uniqid = 10}, {.uniqid = 20}, {.uniqid = 30}};
template <typename File>
const auto& kThree = std::get<!kIsIdent<File>>(std::tie(kIdents, kAccesses));

enum State { kClosed, kOpen, kReadingAhead };

// A file of three records, its index loaded, brought into this state.
template <typename File>
void prepare(File& file, State state = kClosed) {
  writeRecords(kName<File>, kThree<File>);
  static_cast<void>(file.loadIndex(kName<File>, 0));
  EXPECT_EQ(state == kClosed ? 0 : file.openFile(O_RDWR), 0);
  if (state == kReadingAhead) file.startReadingAhead();
}

// Such a file in a folder of its own, which is the current one.
template <typename File>
struct Prepared : WorkFolder, File {
  explicit Prepared(State state = kClosed) { prepare<File>(*this, state); }
};

// What comes of an operation when each of its calls fails in turn: "-382 opening" is a result with
// the message about what failed. Whatever it was, the file stays whole records, and nothing is left
// to write or to report afterwards.
template <typename File>
std::set<std::string> failures(State state, int32_t (*run)(File&)) {
  const std::string kind = kName<File>;
  const size_t size = kThree<File>[0].kSize;
  std::vector<Fault> faults = {{.call = "read", .isShort = true},
                               {.call = "write", .isShort = true}};
  for (const char* const call : {"allocate", "stat", "open", "lseek", "read", "write", "close"})
    faults.push_back({.call = call});
  TestLog log(25);
  std::set<std::string> outcomes;
  for (Fault& fault : faults) {
    for (;; ++fault.nth) {
      File file;
      prepare(file, state);
      log.take();
      const ArmedFault armed(fault);
      const int32_t result = run(file);
      if (!armed.struck()) break;
      std::string text = log.take();
      for (const char* const failed : {"opening", "reading", "writing to"})
        if (text == "[25 " + kind + "file] Error " + failed + " " + kind + " file " + kind + "\n")
          text = failed;
      if (std::filesystem::file_size(kind) > 3 * size) text += "appended";
      outcomes.insert(std::to_string(result) + (text.empty() ? "" : " ") + text);
      EXPECT_EQ(file.closeFile(), 0) << fault.call;
      EXPECT_EQ(log.take(), "") << fault.call;
      EXPECT_EQ(std::filesystem::file_size(kind) % size, 0) << fault.call;
    }
  }
  return outcomes;
}

TEST(Databases, ReportWhichCallFailed) {
  const WorkFolder here;
  static uint32_t uniqid;
  static AccessRecord holder;
  const auto append = [](auto& f) { return f.appendRecord({}); };
  const auto next = []<typename F>(F& f) {
    auto found = kThree<F>[0];
    return f.readNext(found);
  };
  const auto read = []<typename F>(F& f) {
    auto found = kThree<F>[0];
    return f.readRecordAt(found, 2);
  };
  const auto write = [](auto& f) { return f.writeRecordAt({}, 2); };
  const std::tuple<State, int32_t (*)(IdentFile&), std::set<std::string>> idents[] = {
      {kClosed, append, {"-382 opening", "-383 reading", "-385 writing to"}},
      {kReadingAhead, next, {"-383 reading", "0"}},
      {kOpen, read, {"-1", "-2", "-385 writing to", "0"}},
      {kOpen, write, {"-1", "-2", "-385 writing to"}},
      // What cannot be read counts as not found: it is appended.
      {kClosed,
       [](IdentFile& f) { return f.addOrReplace({{3}}); },
       {"0 appended", "-1", "-2", "0"}},
      {kClosed, [](IdentFile& f) { return f.setCardDeleted({3}, uniqid); }, {"-383", "-385", "0"}},
      {kClosed,
       [](IdentFile& f) { return f.countUnloadedCardSets({}); },
       {"-382 opening", "0 reading", "1 reading", "2 reading", "3 reading", "0", "1", "2", "3"}},
  };
  for (const auto& [state, run, expected] : idents) EXPECT_EQ(failures(state, run), expected);
  const std::set<std::string> changed = {"-340 opening", "-340", "-341 reading", "-342", "0"};
  const std::tuple<State, int32_t (*)(AccessFile&), std::set<std::string>> accesses[] = {
      {kClosed, append, {"-340 opening", "-341 reading", "-342 writing to"}},
      {kReadingAhead, next, {"-2", "0"}},
      {kOpen, read, {"-340 opening", "-341 reading", "-342 writing to", "0"}},
      {kOpen, write, {"-340", "-342", "-342 writing to"}},
      {kClosed, [](AccessFile& f) { return f.setFlag3(30); }, changed},
      {kClosed, [](AccessFile& f) { return f.mergeAccess(holder = {30}, true); }, changed},
      {kClosed,
       [](AccessFile& f) { return f.updateAccessTimes({30}); },
       {"-1105 opening", "-1105 reading", "-340", "-342", "0"}},
      {kClosed,
       [](AccessFile& f) { return f.loadIndex("access", 0); },
       {"-100 [25 accessfile] Not enough memory to create access filename\n",
        "-100 [25 accessfile] Not enough memory to create access index\n", "-340 opening",
        "-340 [25 accessindx] Error opening access file access\n",
        "-341 [25 accessindx] Error reading access file access\n", "0"}},
  };
  for (const auto& [state, run, expected] : accesses) EXPECT_EQ(failures(state, run), expected);
}

// Two blocks and a part of a record; a read that is cut short is read on.
TEST(Databases, ReadsAheadWhatIsThere) {
  std::mt19937 random(1);
  std::vector<AccessRecord> list(400);
  for (uint32_t i = 0; i < 400; ++i) list[i].uniqid = i;
  Prepared<AccessFile> file(kReadingAhead);
  file.write("access", bytesOf(list) + "tail");
  AccessRecord found;
  for (uint32_t step = 0; step < 1000; ++step) {
    const ArmedFault fault({"read", static_cast<int>(random() % 3), false, EIO, true});
    const auto recno = static_cast<uint32_t>(random() % 402);
    EXPECT_EQ(file.readRecordAt(found, recno), recno < 400 ? 0 : -341);
    EXPECT_EQ(found.uniqid, recno < 400 ? recno : 0);
    EXPECT_EQ(file.readNext(found), recno < 399 ? 0 : -2);
    EXPECT_EQ(found.uniqid, recno < 399 ? recno + 1 : recno < 400 ? recno : 0);
  }
}

TEST(Databases, AreNamedByTheConfigurationAsTheOtherFiles) {
  const WorkFolder here;
  here.write("f", "f 1 1");
  here.write("empty", "");
  here.write("named", "ident ident -1\naccess access -1\nfmts f\ncardsets f\naccesslvls f\n");
  MasterConfiguration named(1, "named"), empty(1, "empty");
  IdentFile idents;
  AccessFile accesses;
  fmtfile formats;
  cardsets sets;
  AccessLevelSet levels;
  prepare(idents, kOpen);
  prepare(accesses, kOpen);
  const std::function<bool(MasterConfiguration&)> loads[] = {
      [&](MasterConfiguration& table) { return idents.loadIndexFromConfig(table); },
      [&](MasterConfiguration& table) { return accesses.loadIndexFromConfig(table); },
      [&](MasterConfiguration& table) { return formats.openFromConfiguration(table) == 0; },
      [&](MasterConfiguration& table) { return sets.loadFromConfiguration(table); },
      [&](MasterConfiguration& table) { return levels.loadAccessLevels(table); }};
  for (const auto& load : loads) EXPECT_TRUE(load(named));
  EXPECT_EQ(idents.index()->count(), 3);
  EXPECT_EQ(idents.index()->capacity() + accesses.index()->capacity(), 206);
  TestLog log(5);
  std::string reported;
  for (const auto& load : loads) {
    errno = EINVAL;
    EXPECT_FALSE(load(empty));
    reported += std::to_string(errno) + ' ' + log.take();
  }
  EXPECT_EQ(reported,
            "0 [report 1/15 \"\"]\n0 [report 2/15 \"\"]\n"
            "0 [report 1/15 \"fmts\"]\n[report 1/21 \"\"]\n"
            "0 [5 cardsets] cardsets.load cardsets\n[report 1/15 \"\"]\n22 [report 2/15 \"\"]\n");
}

// Random files against plain lists. Of several records of a card the first counts.
TEST(IdentFile, DoesWhatPlainListsDo) {
  const WorkFolder here;
  std::mt19937 random(1);
  for (int round = 0; round < 300 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    const auto anyIdent = [&random] {
      IdentRecord any{
          {}, static_cast<uint32_t>(random() % 20), 1, static_cast<uint32_t>(random() % 2)};
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
    uint32_t number = 0, deleted = 7;
    for (const IdentRecord& any : list) {
      EXPECT_EQ(file.findCard(any.cardnumber, found, number), 0);
      EXPECT_EQ(number, firstOf(any.cardnumber) - list.begin());
      EXPECT_EQ(found, list[number]);
      EXPECT_EQ(file.getPairedCard(any.cardnumber, paired), 0);
      EXPECT_EQ(paired, pairs[any.cardnumber]);
      EXPECT_EQ(file.verifyCard(any.cardnumber, number, deleted), 0);
      EXPECT_EQ(std::pair(number, deleted), std::pair(found.uniqid, found.deleted));
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
  uint32_t number = 7, deleted = 7;
  EXPECT_EQ(file.findCard({1}, found), -1016);
  EXPECT_EQ(file.addIndexKey({1}), -1);
  TestLog log;
  prepare(file);
  const std::string pair = "[20 identindx] uniqid=10 has both card and pin ident records\n";
  EXPECT_TRUE(contains(log.take(), pair));
  EXPECT_EQ(file.setCardDeleted({3}, number), 0);
  EXPECT_EQ(file.setCardUndeleted({1}, number), 0);
  EXPECT_EQ(contentOf("ident"), bytesOf(kIdents));
  log.take();
  EXPECT_EQ(file.verifyCard({1}, number, deleted), 0);
  EXPECT_EQ(log.take(),
            "[100 identfile]    cardno 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
            "[100 identfile] chkcardno 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
            "[100 identfile] uniqid = 10\n");
  EXPECT_EQ(file.setPairedCard({1}, {9}), 0);
  EXPECT_EQ(file.setCardDeleted({1}, number), -1016);
  EXPECT_EQ(file.setPairedCard({9}, {1}), -1);
  EXPECT_EQ(file.getPairedCard({9}, paired), -1016);
  writeRecords<IdentRecord>("ident", {{{2}}, {{2}}});
  EXPECT_EQ(file.addOrReplace({{1}}), -1);
  EXPECT_EQ(file.findCard({3}, found, number), -383);
  EXPECT_EQ(file.verifyCard({3}, number, deleted), -1);
  EXPECT_EQ(file.verifyCard({1}, number, deleted), -2);
  EXPECT_EQ(std::pair(number, deleted), std::pair(10U, 0U));
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
    const ArmedFault armed(fault);
    EXPECT_FALSE(file.loadIndex("ident", 0));
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

AccessRecord anyAccess(uint32_t uniqid, std::mt19937& random) {
  RecordImage<AccessRecord> image;
  std::ranges::generate(image, std::ref(random));
  AccessRecord any = decodeRecord<AccessRecord>(image);
  any.uniqid = uniqid;
  return any;
}

AccessRecord withValidity(AccessRecord to, const AccessRecord& from) {
  to.starttime = from.starttime;
  to.endtime = from.endtime;
  to.escortid = from.escortid;
  to.elevatoraccess = from.elevatoraccess;
  to.outrelaygrpid = from.outrelaygrpid;
  return to;
}

// Each change in turn, of any record: what stands in the file, what is given back and found.
TEST(AccessFile, ChangesItsFieldsAndNothingElse) {
  std::mt19937 random(1);
  Prepared<AccessFile> file;
  auto stored = kAccesses;
  for (int round = 0; round < 200; ++round) {
    const size_t at = random() % 3;
    AccessRecord& old = stored[at];
    AccessRecord given = anyAccess(old.uniqid, random);
    const auto expectChange = [&](int32_t result, const AccessRecord& expected) {
      old = expected;
      EXPECT_EQ(result, 0);
      EXPECT_EQ(contentOf("access"), bytesOf(stored));
    };
    expectChange(file.updateAccessTimes(given), withValidity(old, given));
    old.bitflds |= 8;
    expectChange(file.setFlag3(old.uniqid), old);
    old.bitflds &= 0xF7;
    expectChange(file.clearFlag3(old.uniqid), old);
    expectChange(file.putAccess(given), given);
    given = anyAccess(old.uniqid, random);
    const AccessRecord merged = round % 2 == 0 ? given : withValidity(given, old);
    expectChange(file.mergeAccess(given, round % 2 != 0), merged);
    EXPECT_EQ(given, merged);
    EXPECT_EQ(file.index()->find(old.uniqid)->state.value, given.flag(2) != 0 ? 2 : 1);
    AccessRecord found;
    uint32_t recno = 7;
    EXPECT_EQ(file.findAccess(old.uniqid, found, recno), 0);
    EXPECT_EQ(found, old);
    EXPECT_EQ(recno, at);
  }
}

// What putAccess appends is not in the index; what mergeAccess appends is, when there is room.
TEST(AccessFile, AppendsNewHolders) {
  Prepared<AccessFile> file;
  EXPECT_EQ(file.loadIndex("access", 4), 0);
  auto stored = kAccesses;
  stored.insert(stored.end(), {{.uniqid = 40, .bitflds = 4}, {.uniqid = 50}, {.uniqid = 50}});
  EXPECT_EQ(file.mergeAccess(stored[3], true), 0);
  EXPECT_EQ(file.index()->find(40)->state.value, 0);
  EXPECT_EQ(file.putAccess(stored[4]), 0);
  AccessRecord found;
  TestLog log(25);
  EXPECT_EQ(file.findAccess(50, found), -1105);
  EXPECT_EQ(log.take(), "[25 accessfile] Access record not found for unique id=50\n");
  EXPECT_EQ(file.mergeAccess(stored[5], true), -1);
  EXPECT_EQ(contentOf("access"), bytesOf(stored));
  std::filesystem::resize_file("access", 45);
  EXPECT_EQ(file.appendRecord({}), -341) << "no place for a record";
  EXPECT_TRUE(log.take().ends_with("[25 accessfile] Error reading access file access\n"));
  EXPECT_EQ(std::filesystem::file_size("access"), 45);
}

// The file is changed without the index; or there is no index.
TEST(AccessFile, LeavesRecordsOfOthersAlone) {
  const WorkFolder here;
  AccessFile file;
  AccessRecord record = {.uniqid = 20};
  EXPECT_EQ(file.updateAccessTimes(record), -1105);
  EXPECT_EQ(file.mergeAccess(record, true), -1105);
  EXPECT_EQ(file.putAccess(record), -1105);
  prepare(file);
  writeRecords<AccessRecord>("access", {{.uniqid = 20}, {.uniqid = 10}});
  EXPECT_EQ(file.updateAccessTimes(record), -1109);
  EXPECT_EQ(file.mergeAccess(record, true), -1109);
  for (const auto& [call, merged] : {std::pair("stat", -1105), {"open", -1}, {"read", -1}}) {
    const ArmedFault fault({call, 1});
    EXPECT_LT(file.loadIndex("access", 0), 0);
    EXPECT_EQ(file.mergeAccess(record, true), merged) << "the index of no file";
  }
}

// Slots with 0 are not looked up; the end of the access file comes as a failed read.
TEST(Databases, ReportTheCardSetsAndAccessLevelsThatAreMissing) {
  Prepared<IdentFile> idents;
  idents.write("sets", "f 7 1\n");
  cardsets sets;
  EXPECT_EQ(sets.load("sets"), 0);
  writeRecords<IdentRecord>(
      "ident", {{{}, 1, 0}, {{}, 1, 7}, {{}, 1, 253}, {{}, 1, 254}, {{}, 1, 255}, {{}, 1, 1}});
  TestLog log;
  EXPECT_EQ(idents.countUnloadedCardSets(sets), 2);
  EXPECT_TRUE(log.take().ends_with("[100 identfile] cardset 1 not loaded \n"));
  AccessLevelSet levels;
  EXPECT_TRUE(levels.add(std::make_unique<AccessLevel>(2)));
  AccessFile accesses;
  prepare(accesses);
  log.take();
  writeRecords<AccessRecord>("access", {{.uniqid = 7, .acclevel = {1, 2, 0, 0, 0, 0, 0, 9}}, {}});
  EXPECT_EQ(accesses.checkAccessLevels(levels), 2);
  EXPECT_EQ(log.take(),
            "[3 accessfile] access level 1 not found for usr 7\n"
            "[3 accessfile] access level 9 not found for usr 7\n"
            "[25 accessfile] Error reading access file access\n");
}

// What no file of the databases shows of its index: with room for three holders, one more is
// inserted after those of a file of any length.
TEST(AccessIndex, TakesWholeRecordsUpToItsRoom) {
  const WorkFolder here;
  for (size_t size = 0; size <= 4 * AccessRecord::kSize; ++size) {
    SCOPED_TRACE(size);
    here.write("access", bytesOf<AccessRecord>({{2}, {1}, {3}, {4}}).substr(0, size));
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
  // Slots that there are not read as 0 and take nothing.
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

}  // namespace badgemint::databases_test
