#include "carddb/accessfile.h"

#include "carddb/testdatabases.h"
#include "site/accesslevel.h"

namespace badgemint {
namespace {

AccessRecord record;

AccessRecord withValidity(AccessRecord to, const AccessRecord& from) {
  to.starttime = from.starttime;
  to.endtime = from.endtime;
  to.escortid = from.escortid;
  to.elevatoraccess = from.elevatoraccess;
  to.outrelaygrpid = from.outrelaygrpid;
  return to;
}

// Random changes: what is given, what stands in the file and what the index says of the holder.
TEST(AccessFile, ChangesWhatItSaysAndNothingElse) {
  const WorkFolder here;
  std::mt19937 random(1);
  AccessFile file;
  prepare(file);
  std::vector<AccessRecord> stored = Kind<AccessFile>::three();
  std::array<uint32_t, 3> states{};
  for (int step = 0; step < 2000; ++step) {
    const size_t recno = random() % 3;
    AccessRecord &old = stored[recno], given = anyRecord<AccessRecord>(random), expected = given;
    given.uniqid = expected.uniqid = old.uniqid;
    switch (random() % 6) {
      case 0:
        old = withValidity(old, given);
        EXPECT_EQ(file.updateAccessTimes(given), 0);
        break;
      case 1:
        old.bitflds |= 8;
        EXPECT_EQ(file.setFlag3(old.uniqid), 0);
        break;
      case 2:
        old.bitflds &= 0xF7;
        EXPECT_EQ(file.clearFlag3(old.uniqid), 0);
        break;
      case 3:
        old = given;
        EXPECT_EQ(file.putAccess(given), 0);
        break;
      default:
        const bool keeps = random() % 2 == 0;
        old = expected = keeps ? withValidity(given, old) : given;
        states[recno] = (given.bitflds & 4) != 0 ? 2 : 1;
        EXPECT_EQ(file.mergeAccess(given, keeps), 0);
    }
    EXPECT_EQ(given, expected);
    EXPECT_EQ(contentOf("access"), bytesOf(stored));
    EXPECT_EQ(file.index()->find(old.uniqid)->state.value, states[recno]);
    uint32_t found = 7;
    EXPECT_EQ(file.findAccess(old.uniqid, record, found), 0);
    EXPECT_EQ(record, old);
    EXPECT_EQ(found, recno);
  }
}

// What putAccess appends is not in the index; what mergeAccess appends is, when there is room.
TEST(AccessFile, AppendsNewHolders) {
  const WorkFolder here;
  TestLog log(25);
  AccessFile file;
  prepare(file);
  EXPECT_EQ(file.loadIndex("access", 4), 0);
  auto stored = Kind<AccessFile>::three();
  stored.push_back({.uniqid = 40, .bitflds = 4});
  EXPECT_EQ(file.mergeAccess(stored[3], true), 0);
  EXPECT_EQ(file.index()->find(40)->state.value, 0);
  stored.push_back({.uniqid = 50});
  EXPECT_EQ(file.putAccess(stored[4]), 0);
  EXPECT_EQ(file.findAccess(50, record), -1105);
  EXPECT_EQ(file.mergeAccess(stored[4], true), -1);
  stored.push_back(stored[4]);
  EXPECT_EQ(contentOf("access"), bytesOf(stored));
  EXPECT_EQ(log.take(),
            "[25 accessfile] Access record not found for unique id=40\n"
            "[25 accessfile] Access record not found for unique id=50\n"
            "[25 accessfile] Access record not found for unique id=50\n");
}

// The file is changed behind the index's back; or there is no index.
TEST(AccessFile, LeavesRecordsOfOthersAlone) {
  const WorkFolder here;
  AccessFile file;
  for (const int32_t missing : {0, 1}) {
    record = {.uniqid = 20};
    EXPECT_EQ(file.updateAccessTimes(record), missing == 0 ? -1105 : -1109);
    EXPECT_EQ(file.mergeAccess(record, true), missing == 0 ? -1105 : -1109);
    EXPECT_EQ(file.putAccess({}), missing == 0 ? -1105 : 0);
    prepare(file);
    writeRecords<AccessRecord>("access", {{.uniqid = 20}, {.uniqid = 10}});
  }
}

TEST(AccessFile, TellsWhichCallFailed) {
  const WorkFolder here;
  const auto of = [](int32_t (*run)(AccessFile&)) { return failures(kClosed, run); };
  EXPECT_EQ(of([](AccessFile& f) { return f.findAccess(30, record); }),
            "open O!, seek R!, read R!, short read R!, close 0");
  EXPECT_EQ(of([](AccessFile& f) { return f.putAccess({.uniqid = 30}); }),
            "open O, seek W, write W, short write W, close W");
  EXPECT_EQ(of([](AccessFile& f) { return f.putAccess({.uniqid = 40}); }),
            "open O!, seek R!, write W!, short write W!, close W!");
  EXPECT_EQ(of([](AccessFile& f) { return f.updateAccessTimes({.uniqid = 30}); }),
            "open -1105! O, seek -1105! W, read -1105!, short read -1105!, write W, "
            "short write W, close 0 W");
  EXPECT_EQ(of([](AccessFile& f) { return f.mergeAccess(record = {.uniqid = 30}, true); }),
            "open O! O, seek R! W, read R!, short read R!, write W, short write W, close 0 W");
  EXPECT_EQ(of([](AccessFile& f) { return f.setFlag3(30); }),
            "open O! O, seek R! W, read R!, short read R!, write W, short write W, close 0 W");
  EXPECT_EQ(of([](AccessFile& f) { return f.loadIndex("access", 0); }),
            "allocate -100[25 accessfile] Not enough memory to create access filename\n"
            " -100[25 accessfile] Not enough memory to create access index\n"
            ", stat O!, open O[25 accessindx] Error opening access file access\n"
            ", read R[25 accessindx] Error reading access file access\n"
            " R[25 accessindx] Error reading access file access\n"
            ", short read 0 0, close 0");
}

TEST(AccessFile, TellsTheStepsOfALoad) {
  const WorkFolder here;
  TestLog log;
  AccessFile file;
  writeRecords("access", std::vector<AccessRecord>(2000));
  EXPECT_EQ(file.loadIndex("access", 2001), 0);
  EXPECT_EQ(log.take(),
            "[100 accessfile] get status info for access\n"
            "[100 accessfile] access index nrecs = 2001\n"
            "[100 accessindx] creating access index\n"
            "[100 accessindx] initializing access index\n"
            "[100 accessindx] initialized record 0\n"
            "[100 accessindx] initialized record 1000\n"
            "[100 accessindx] initialized record 2000\n"
            "[100 accessindx] access index initialized\n"
            "[100 accessindx] loaded record 1000\n"
            "[100 accessindx] loaded record 2000\n"
            "[75 accessfile] access index created and loaded\n"
            "[100 accessfile] access index sorted\n");
}

// Slots with 0 are not looked up; the end of the file comes as a failed read.
TEST(AccessFile, TellsTheAccessLevelsThatAreMissing) {
  const WorkFolder here;
  AccessLevelSet levels;
  EXPECT_TRUE(levels.add(std::make_unique<AccessLevel>(2)));
  AccessFile file;
  EXPECT_EQ(file.setFileName("access"), 0);
  writeRecords<AccessRecord>("access", {{.uniqid = 7, .acclevel = {1, 2, 0, 0, 0, 0, 0, 9}}, {}});
  TestLog log;
  EXPECT_EQ(file.checkAccessLevels(levels), 2);
  EXPECT_EQ(log.take(),
            "[3 accessfile] access level 1 not found for usr 7\n"
            "[3 accessfile] access level 9 not found for usr 7\n"
            "[25 accessfile] Error reading access file access\n");
}

}  // namespace
}  // namespace badgemint
