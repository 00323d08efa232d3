#include "carddb/accessfile.h"

#include "carddb/testdatabases.h"
#include "site/accesslevel.h"

namespace badgemint::accessfile_test {

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
    {
      const ArmedFault fault({call, 1});
      EXPECT_LT(file.loadIndex("access", 0), 0);
    }
    EXPECT_EQ(file.mergeAccess(record, true), merged) << "the index of no file";
  }
}

// Slots with 0 are not looked up; the end of the file comes as a failed read.
TEST(AccessFile, ReportsTheAccessLevelsThatAreMissing) {
  AccessLevelSet levels;
  EXPECT_TRUE(levels.add(std::make_unique<AccessLevel>(2)));
  Prepared<AccessFile> file;
  writeRecords<AccessRecord>("access", {{.uniqid = 7, .acclevel = {1, 2, 0, 0, 0, 0, 0, 9}}, {}});
  TestLog log;
  EXPECT_EQ(file.checkAccessLevels(levels), 2);
  EXPECT_EQ(log.take(),
            "[3 accessfile] access level 1 not found for usr 7\n"
            "[3 accessfile] access level 9 not found for usr 7\n"
            "[25 accessfile] Error reading access file access\n");
}

}  // namespace badgemint::accessfile_test
