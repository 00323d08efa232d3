// What the two kinds of database files share, through both of them.
#include "carddb/testdatabases.h"
#include "cardsets/cardsets.h"
#include "support/masterconfiguration.h"

namespace badgemint {
namespace {

TEST(Databases, ReportWhichCallFailed) {
  const WorkFolder here;
  static uint32_t uniqid;
  const auto append = [](auto& f) { return f.appendRecord({}); };
  const auto next = []<typename F>(F& f) {
    typename Kind<F>::Record found;
    return f.readNext(found);
  };
  const auto read = []<typename F>(F& f) {
    typename Kind<F>::Record found;
    return f.readRecordAt(found, 2);
  };
  const auto write = [](auto& f) { return f.writeRecordAt({}, 2); };
  const std::tuple<State, int32_t (*)(IdentFile&), std::string> idents[] = {
      {kClosed, append,
       "open -382 and a message; lseek -383 and a message; write -385 and a message; short "
       "write -385 and a message; close -385 and a message"},
      {kReadingAhead, next, "read -383 and a message; short read 0"},
      {kOpen, read, "open -1; lseek -2; read -2; short read -2; close -385 and a message, 0"},
      {kOpen, write, "open -1; lseek -2; write -2; short write -2; close -385 and a message, -2"},
      // What cannot be read counts as not found: it is appended.
      {kClosed, [](IdentFile& f) { return f.addOrReplace({{3}}); },
       "open 0 and a new record, -1; lseek 0 and a new record, -2; read 0 and a new record; "
       "short read 0 and a new record; write -2; short write -2; close 0, -2"},
      {kClosed, [](IdentFile& f) { return f.setCardDeleted({3}, uniqid); },
       "open -383, -385, -383, -385; lseek -383, -385, -383, -385; read -383, -383; short "
       "read -383, -383; write -385, -385; short write -385, -385; close 0, -385, 0, -385"},
      {kClosed, [](IdentFile& f) { return f.countUnloadedCardSets({}); },
       "open -382 and a message; read 0 and a message, 1 and a message, 2 and a message, 3 "
       "and a message; short read 0, 1, 2, 3; close 3"},
  };
  for (const auto& [state, run, expected] : idents) EXPECT_EQ(failures(state, run), expected);
  const std::string changed =
      "open -340 and a message, -340; lseek -341 and a message, -342; read -341 and a "
      "message; short read -341 and a message; write -342; short write -342; close 0, -342";
  const std::tuple<State, int32_t (*)(AccessFile&), std::string> accesses[] = {
      {kClosed, append,
       "open -340 and a message; lseek -341 and a message; write -342 and a message; short "
       "write -342 and a message; close -342 and a message"},
      {kReadingAhead, next, "read -2; short read 0"},
      {kOpen, read,
       "open -340 and a message; lseek -341 and a message; read -341 and a message; short "
       "read -341 and a message; close -342 and a message, 0"},
      {kOpen, write,
       "open -340; lseek -342; write -342; short write -342; close -342 and a message, -342"},
      {kClosed, [](AccessFile& f) { return f.setFlag3(30); }, changed},
      {kClosed,
       [](AccessFile& f) {
         AccessRecord a{30};
         return f.mergeAccess(a, true);
       },
       changed},
      {kClosed, [](AccessFile& f) { return f.updateAccessTimes({30}); },
       "open -1105 and a message, -340; lseek -1105 and a message, -342; read -1105 and a "
       "message; short read -1105 and a message; write -342; short write -342; close 0, "
       "-342"},
      {kClosed, [](AccessFile& f) { return f.loadIndex("access", 0); },
       "allocate -100[25 accessfile] Not enough memory to create access filename\n"
       ", -100[25 accessfile] Not enough memory to create access index\n"
       "; stat -340 and a message; open -340[25 accessindx] Error opening access file access\n"
       "; read -341[25 accessindx] Error reading access file access\n"
       ", -341[25 accessindx] Error reading access file access\n"
       "; short read 0, 0; close 0"},
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
