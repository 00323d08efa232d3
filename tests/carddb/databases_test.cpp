// What the two kinds of database files share, through both of them.
#include "carddb/testdatabases.h"
#include "cardsets/cardsets.h"
#include "support/masterconfiguration.h"

namespace badgemint {
namespace {

template <typename File>
typename Kind<File>::Record record;

// How to read the answers is said at failures().
TEST(Databases, TellsWhichCallFailed) {
  const WorkFolder here;
  const auto append = [](auto& f) { return f.appendRecord({}); };
  const auto next = []<typename F>(F& f) { return f.readNext(record<F>); };
  const auto read = []<typename F>(F& f) { return f.readRecordAt(record<F>, 2); };
  const auto write = [](auto& f) { return f.writeRecordAt({}, 2); };
  const std::string appended = "open O!, lseek R!, write W!, short write W!, close W!";
  const std::tuple<State, int32_t (*)(IdentFile&), std::string> idents[] = {
      {kClosed, append, appended},
      {kReadingAhead, next, "read R!, short read 0"},
      {kOpen, read, "open -1, lseek -2, read -2, short read -2, close W! 0"},
      {kOpen, write, "open -1, lseek -2, write -2, short write -2, close W! -2"},
      // What cannot be read counts as not found: it is appended.
      {kClosed, [](IdentFile& f) { return f.addOrReplace({{3}}); },
       "open 0+ -1, lseek 0+ -2, read 0+, short read 0+, write -2, short write -2, close 0 -2"},
      {kClosed, [](IdentFile& f) { return f.setCardDeleted({3}, record<IdentFile>.uniqid); },
       "open R W R W, lseek R W R W, read R R, short read R R, write W W, short write W W, "
       "close 0 W 0 W"},
      {kClosed, [](IdentFile& f) { return f.countUnloadedCardSets({}); },
       "open O!, read 0! 1! 2! 3!, short read 0 1 2 3, close 3"},
  };
  for (const auto& [state, run, expected] : idents) EXPECT_EQ(failures(state, run), expected);
  const std::string changed =
      "open O! O, lseek R! W, read R!, short read R!, write W, short write W, close 0 W";
  const std::tuple<State, int32_t (*)(AccessFile&), std::string> accesses[] = {
      {kClosed, append, appended},
      {kReadingAhead, next, "read -2, short read 0"},
      {kOpen, read, "open O!, lseek R!, read R!, short read R!, close W! 0"},
      {kOpen, write, "open O, lseek W, write W, short write W, close W! W"},
      {kClosed, [](AccessFile& f) { return f.setFlag3(30); }, changed},
      {kClosed, [](AccessFile& f) { return f.mergeAccess(record<AccessFile> = {30}, true); },
       changed},
      {kClosed, [](AccessFile& f) { return f.updateAccessTimes({30}); },
       "open -1105! O, lseek -1105! W, read -1105!, short read -1105!, write W, short write W, "
       "close 0 W"},
      {kClosed, [](AccessFile& f) { return f.loadIndex("access", 0); },
       "allocate -100[25 accessfile] Not enough memory to create access filename\n"
       " -100[25 accessfile] Not enough memory to create access index\n"
       ", stat O!, open O[25 accessindx] Error opening access file access\n"
       ", read R[25 accessindx] Error reading access file access\n"
       " R[25 accessindx] Error reading access file access\n"
       ", short read 0 0, close 0"},
  };
  for (const auto& [state, run, expected] : accesses) EXPECT_EQ(failures(state, run), expected);
}

TEST(Databases, CreatesAccessFilesForTheOwnerAlone) {
  const WorkFolder here;
  umask(0);
  IdentFile ident;
  AccessFile access;
  EXPECT_EQ(ident.setFileName("ident") + access.setFileName("access"), 0);
  EXPECT_EQ(ident.openFile(O_RDWR | O_CREAT) + access.openFile(O_RDWR | O_CREAT), 0);
  EXPECT_EQ(std::filesystem::status("ident").permissions(), std::filesystem::perms(0666));
  EXPECT_EQ(std::filesystem::status("access").permissions(), std::filesystem::perms(0600));
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

TEST(Databases, LoadsTheIndexThatTheConfigurationNames) {
  const WorkFolder here;
  here.write("empty", "");
  here.write("named", "ident ident -1\naccess access -1\n");
  MasterConfiguration named(0, "named"), empty(0, "empty");
  IdentFile idents;
  AccessFile accesses;
  prepare(idents, kOpen);
  prepare(accesses, kOpen);
  EXPECT_TRUE(idents.loadIndexFromConfig(named) && accesses.loadIndexFromConfig(named));
  EXPECT_EQ(idents.index()->count(), 3);
  EXPECT_EQ(idents.index()->capacity() + accesses.index()->capacity(), 206);
  TestLog log;
  errno = EINVAL;
  EXPECT_FALSE(idents.loadIndexFromConfig(empty) || accesses.loadIndexFromConfig(empty));
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(log.take(), "[report 1/15 \"\"]\n[report 2/15 \"\"]\n");
}

}  // namespace
}  // namespace badgemint
