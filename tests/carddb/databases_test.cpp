// The files of the card databases: what both kinds share, then one by one. What the ident file does
// is compared with a plain list in fuzz/databases.cpp, whose seeds all tests run.
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
struct Prepared : File {
  explicit Prepared(State state = kClosed) {
    writeRecords(kName<File>, kThree<File>);
    static_cast<void>(this->loadIndex(kName<File>, 0));
    EXPECT_EQ(state == kClosed ? 0 : this->openFile(O_RDWR), 0);
    if (state == kReadingAhead) this->startReadingAhead();
  }
};

// What comes of an operation when its first call of a kind fails, then its second, and so on until
// there are no more: "read -383 reported, 0" is a failed first read, which is reported, and a
// second one that does not matter. Whatever failed, the file stays whole records, and nothing is
// left to write or to report afterwards.
template <typename File>
std::string failures(State state, int32_t (*run)(File&)) {
  const std::string kind = kName<File>;
  const size_t size = kThree<File>[0].kSize;
  const std::pair<std::string, std::string> calls[] = {
      {"allocate", ""},    {"stat", "opening"},     {"open", "opening"},    {"lseek", "reading"},
      {"read", "reading"}, {"write", "writing to"}, {"close", "writing to"}};
  TestLog log(25);
  std::string all;
  for (const auto& [call, message] : calls) {
    std::string outcomes;
    for (int nth = 1;; ++nth) {
      Prepared<File> file(state);
      log.take();
      const ArmedFault fault({call, nth});
      const int32_t result = run(file);
      if (!fault.hasOccurred()) break;
      std::string text = log.take();
      if (text == "[25 " + kind + "file] Error " + message + " " + kind + " file " + kind + "\n")
        text = " reported";
      outcomes += (nth == 1 ? " " : ", ") + std::to_string(result) + text;
      EXPECT_EQ(file.closeFile(), 0) << call;
      EXPECT_EQ(log.take(), "") << call;
      EXPECT_EQ(fs::file_size(kind) % size, 0) << call;
      if (fs::file_size(kind) > 3 * size) outcomes += " and a new record";
    }
    if (!outcomes.empty()) all += (all.empty() ? "" : "; ") + call + outcomes;
  }
  return all;
}

TEST(Databases, ReportWhichCallFailed) {
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
  static uint32_t uniqid;
  static AccessRecord holder;
  const std::tuple<State, int32_t (*)(IdentFile&), std::string> idents[] = {
      {kClosed, append,
       "open -382 reported; lseek -383 reported; write -385 reported; close -385 reported"},
      {kReadingAhead, next, "read -383 reported"},
      {kOpen, read, "open -1; lseek -2; read -2; close -385 reported, 0"},
      {kOpen, write, "open -1; lseek -2; write -2; close -385 reported, -2"},
      // What cannot be read counts as not found: it is appended.
      {kClosed, [](IdentFile& f) { return f.addOrReplace({{3}}); },
       "open 0 and a new record, -1; lseek 0 and a new record, -2; read 0 and a new record; "
       "write -2; close 0, -2"},
      {kClosed, [](IdentFile& f) { return f.setCardDeleted({3}, uniqid); },
       "open -383, -385, -383, -385; lseek -383, -385, -383, -385; read -383, -383; "
       "write -385, -385; close 0, -385, 0, -385"},
      {kClosed, [](IdentFile& f) { return f.countUnloadedCardSets({}); },
       "open -382 reported; read 0 reported, 1 reported, 2 reported, 3 reported; close 3"},
  };
  for (const auto& [state, run, expected] : idents) EXPECT_EQ(failures(state, run), expected);
  const std::string changed =
      "open -340 reported, -340; lseek -341 reported, -342; read -341 reported; write -342; "
      "close 0, -342";
  const std::tuple<State, int32_t (*)(AccessFile&), std::string> accesses[] = {
      {kClosed, append,
       "open -340 reported; lseek -341 reported; write -342 reported; close -342 reported"},
      {kReadingAhead, next, "read -2"},
      {kOpen, read,
       "open -340 reported; lseek -341 reported; read -341 reported; close -342 reported, 0"},
      {kOpen, write, "open -340; lseek -342; write -342; close -342 reported, -342"},
      {kClosed, [](AccessFile& f) { return f.setFlag3(30); }, changed},
      {kClosed, [](AccessFile& f) { return f.mergeAccess(holder = {30}, true); }, changed},
      {kClosed, [](AccessFile& f) { return f.updateAccessTimes({30}); },
       "open -1105 reported, -340; lseek -1105 reported, -342; read -1105 reported; write -342; "
       "close 0, -342"},
      {kClosed, [](AccessFile& f) { return f.loadIndex("access", 0); },
       "allocate -100[25 accessfile] Not enough memory to create access filename\n"
       ", -100[25 accessfile] Not enough memory to create access index\n"
       "; stat -340 reported; open -340[25 accessindx] Error opening access file access\n"
       "; read -341[25 accessindx] Error reading access file access\n"
       ", -341[25 accessindx] Error reading access file access\n; close 0"},
  };
  for (const auto& [state, run, expected] : accesses) EXPECT_EQ(failures(state, run), expected);
}

TEST(Databases, AreNamedByTheConfigurationAsTheOtherFiles) {
  writeFile("f", "f 1 1");
  writeFile("empty", "");
  writeFile("named", "ident ident -1\naccess access -1\nfmts f\ncardsets f\naccesslvls f\n");
  MasterConfiguration named(1, "named"), empty(1, "empty");
  Prepared<IdentFile> idents(kOpen);
  Prepared<AccessFile> accesses(kOpen);
  fmtfile formats;
  cardsets sets;
  AccessLevelSet levels;
  const std::function<bool(MasterConfiguration&)> loads[] = {
      [&](auto& table) { return idents.loadIndexFromConfig(table); },
      [&](auto& table) { return accesses.loadIndexFromConfig(table); },
      [&](auto& table) { return formats.openFromConfiguration(table) == 0; },
      [&](auto& table) { return sets.loadFromConfiguration(table); },
      [&](auto& table) { return levels.loadAccessLevels(table); }};
  std::string reported;
  for (const auto& load : loads) {
    EXPECT_TRUE(load(named));
    TestLog log(5);
    errno = EINVAL;
    EXPECT_FALSE(load(empty));
    reported += std::to_string(errno) + ' ' + log.take();
  }
  EXPECT_EQ(reported,
            "0 [report 1/15 \"\"]\n0 [report 2/15 \"\"]\n"
            "0 [report 1/15 \"fmts\"]\n[report 1/21 \"\"]\n"
            "0 [5 cardsets] cardsets.load cardsets\n[report 1/15 \"\"]\n22 [report 2/15 \"\"]\n");
  EXPECT_EQ(idents.index()->count(), 3);
  EXPECT_EQ(idents.index()->capacity() + accesses.index()->capacity(), 206);
}

// Without an index; beside it, in a file that was changed meanwhile.
TEST(IdentFile, LeavesRecordsOfOthersAlone) {
  IdentRecord found;
  CardPattern paired;
  uint32_t number = 7, deleted = 7;
  EXPECT_EQ(IdentFile().findCard({1}, found), -1016);
  EXPECT_EQ(IdentFile().addIndexKey({1}), -1);
  TestLog log;
  Prepared<IdentFile> file;
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
  fs::resize_file("access", 45);
  EXPECT_EQ(file.appendRecord({}), -341) << "no place for a record";
  EXPECT_TRUE(log.take().ends_with("[25 accessfile] Error reading access file access\n"));
  EXPECT_EQ(fs::file_size("access"), 45);
}

// The file is changed without the index; or there is no index.
TEST(AccessFile, LeavesRecordsOfOthersAlone) {
  AccessRecord record = {.uniqid = 20};
  EXPECT_EQ(AccessFile().updateAccessTimes(record), -1105);
  EXPECT_EQ(AccessFile().mergeAccess(record, true), -1105);
  EXPECT_EQ(AccessFile().putAccess(record), -1105);
  Prepared<AccessFile> file;
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
  writeFile("sets", "f 7 1\n");
  cardsets sets;
  EXPECT_EQ(sets.load("sets"), 0);
  writeRecords<IdentRecord>(
      "ident", {{{}, 1, 0}, {{}, 1, 7}, {{}, 1, 253}, {{}, 1, 254}, {{}, 1, 255}, {{}, 1, 1}});
  TestLog log;
  EXPECT_EQ(idents.countUnloadedCardSets(sets), 2);
  EXPECT_TRUE(log.take().ends_with("[100 identfile] cardset 1 not loaded \n"));
  AccessLevelSet levels;
  EXPECT_TRUE(levels.add(std::make_unique<AccessLevel>(2)));
  Prepared<AccessFile> accesses;
  log.take();
  writeRecords<AccessRecord>("access", {{.uniqid = 7, .acclevel = {1, 2, 0, 0, 0, 0, 0, 9}}, {}});
  EXPECT_EQ(accesses.checkAccessLevels(levels), 2);
  EXPECT_EQ(log.take(),
            "[3 accessfile] access level 1 not found for usr 7\n"
            "[3 accessfile] access level 9 not found for usr 7\n"
            "[25 accessfile] Error reading access file access\n");
}

}  // namespace badgemint::databases_test
