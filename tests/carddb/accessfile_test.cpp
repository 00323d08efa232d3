#include "carddb/accessfile.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "carddb/databases.h"
#include "carddb/identfile.h"
#include "site/accesslevel.h"
#include "support/masterconfiguration.h"
#include "support/result.h"

namespace badgemint {
namespace {

class AccessFileTest : public testing::Test {
 protected:
  void load(const std::vector<AccessRecord>& records, uint32_t capacity = 0) {
    path = folder.write("access", fileOf(records));
    ASSERT_EQ(file.loadIndex(path.c_str(), capacity), kSuccess);
    log.take();
  }
  void expectFile(const std::vector<AccessRecord>& records) {
    EXPECT_EQ(folder.read("access"), fileOf(records));
  }
  std::string message(const std::string& verb) {
    return "[accessfile] Error " + verb + " access file " + path + "\n";
  }
  static std::string notFound(uint32_t uniqid) {
    return "[accessfile] Access record not found for unique id=" + std::to_string(uniqid) + "\n";
  }

  TestLog log;
  TestFolder folder;
  AccessFile file;
  AccessRecord record;
  uint32_t recno = 0;
  std::string path;
};

TEST_F(AccessFileTest, ReadsAheadWhatItReadsOneByOne) {
  std::vector<AccessRecord> records;
  for (uint32_t i = 0; i < 500; ++i) records.push_back(access(i + 1, static_cast<uint8_t>(i)));
  load(records);
  ASSERT_EQ(file.openFile(O_RDONLY), kSuccess);
  file.startReadingAhead();
  for (const uint32_t uniqid : {1U, 2U, 186U, 187U, 188U, 500U, 187U, 1U}) {
    EXPECT_EQ(file.findAccess(uniqid, record), kSuccess);
    EXPECT_EQ(record, records[uniqid - 1]);
  }
  EXPECT_EQ(file.readNext(record), kSuccess);
  EXPECT_EQ(record, records[1]);
  EXPECT_EQ(file.findAccess(501, record), kAccessNotFound);
  EXPECT_EQ(log.take(), notFound(501));
  EXPECT_EQ(file.readRecordAt(record, UINT32_MAX), kAccessReadFailed);
  EXPECT_EQ(record, AccessRecord{});
  EXPECT_EQ(log.take(), message("reading"));

  record = access(7, 70);
  EXPECT_EQ(file.writeRecordAt(record, 6), kSuccess);
  EXPECT_EQ(file.findAccess(7, record), kSuccess);
  EXPECT_EQ(record, access(7, 70));
}

TEST_F(AccessFileTest, AppendsAndReportsFailures) {
  EXPECT_EQ(file.readNext(record), -2);
  EXPECT_EQ(file.writeRecordAt(record, 0), kAccessOpenFailed);
  EXPECT_EQ(log.take(), "");
  EXPECT_EQ(file.readRecordAt(record, 0), kAccessOpenFailed);
  EXPECT_EQ(log.take(), message("opening"));

  path = folder.path("access");
  ASSERT_EQ(file.setFileName(path.c_str()), kSuccess);
  ASSERT_EQ(file.openFile(O_RDWR | O_CREAT | O_TRUNC), kSuccess);
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms{0600});
  file.startBuffering();
  for (uint32_t i = 0; !file.appendBufferFull(); ++i)
    EXPECT_EQ(file.appendRecord(access(i)), kSuccess);
  EXPECT_EQ(file.readRecordAt(record, RecordFile::kBufferSize / 44 - 1), kSuccess);
  EXPECT_EQ(record, access(RecordFile::kBufferSize / 44 - 1));
  EXPECT_EQ(file.readRecordAt(record, RecordFile::kBufferSize / 44), kAccessReadFailed);
  EXPECT_EQ(record, AccessRecord{});
  EXPECT_EQ(log.take(), message("reading"));

  path = "/dev/full";
  ASSERT_EQ(file.setFileName(path.c_str()), kSuccess);
  EXPECT_EQ(file.appendRecord(record), kAccessWriteFailed);
  EXPECT_EQ(log.take(), message("writing to"));
  EXPECT_EQ(file.writeRecordAt(record, 0), kAccessWriteFailed);
  EXPECT_EQ(file.readNext(record), -2);  // Closed again.
  EXPECT_EQ(log.take(), "");
}

TEST_F(AccessFileTest, LoadsItsIndex) {
  path = folder.write("access", fileOf<AccessRecord>({access(2), access(1)}) + "tail");
  EXPECT_EQ(file.loadIndex(path.c_str(), 2), kSuccess);
  EXPECT_EQ(log.take(),
            "[accessfile] get status info for " + path +
                "\n[accessfile] access index nrecs = 102\n[accessindx] creating access index\n"
                "[accessindx] initializing access index\n[accessindx] initialized record 0\n"
                "[accessindx] access index initialized\n"
                "[accessfile] access index created and loaded\n[accessfile] access index sorted\n");
  EXPECT_EQ(file.loadIndex(folder.path("").c_str(), 3), kAccessReadFailed);
  EXPECT_EQ(file.index()->count(), 0u);
  log.logger().setThreshold(75);
  path = folder.path("none");
  EXPECT_EQ(file.loadIndex(path.c_str(), 3), kAccessOpenFailed);
  const std::string text = "access " + folder.path("access") + " 5\n";
  MasterConfiguration configuration(0, folder.write("config", text).c_str());
  log.take();
  EXPECT_TRUE(file.loadIndexFromConfig(configuration));
  EXPECT_EQ(log.take(), "[accessfile] access index created and loaded\n");
  EXPECT_EQ(file.index()->capacity(), 5u);
  errno = EINVAL;
  EXPECT_FALSE(IdentFile().loadIndexFromConfig(configuration));
  EXPECT_EQ(errno, 0);
}

TEST_F(AccessFileTest, FindsAndPutsHolders) {
  EXPECT_EQ(file.findAccess(0, record), kAccessNotFound);
  EXPECT_EQ(file.putAccess(record), kAccessNotFound);
  EXPECT_EQ(file.mergeAccess(record, false), kAccessNotFound);
  load({access(20), access(10)});
  EXPECT_EQ(file.findAccess(10, record, recno), kSuccess);
  EXPECT_EQ(record, access(10));
  EXPECT_EQ(recno, 1u);
  EXPECT_EQ(file.putAccess(access(10, 5)), kSuccess);
  EXPECT_EQ(file.putAccess(access(30)), kSuccess);
  EXPECT_EQ(log.take(), "");
  EXPECT_EQ(file.findAccess(30, record), kAccessNotFound);  // Appended, not indexed.
  EXPECT_EQ(log.take(), notFound(30));
  expectFile({access(20), access(10, 5), access(30)});
}

TEST_F(AccessFileTest, UpdatesValidityAndFlag) {
  const AccessRecord old = access(10, 1), given = access(10, 100);
  load({access(20), old});
  EXPECT_EQ(file.updateAccessTimes(given), kSuccess);
  EXPECT_EQ(file.setFlag3(10), kSuccess);
  AccessRecord expected = old;
  expected.starttime = given.starttime;
  expected.endtime = given.endtime;
  expected.escortid = given.escortid;
  expected.elevatoraccess = given.elevatoraccess;
  expected.outrelaygrpid = given.outrelaygrpid;
  expected.bitflds = 8;
  expectFile({access(20), expected});
  EXPECT_EQ(file.clearFlag3(10), kSuccess);
  expected.bitflds = 0;
  expectFile({access(20), expected});
  EXPECT_EQ(file.setFlag3(11), kAccessNotFound);
  EXPECT_EQ(file.updateAccessTimes(access(11)), kAccessNotFound);
  EXPECT_EQ(log.take(), notFound(11) + notFound(11));

  folder.write("access", fileOf<AccessRecord>({access(10)}));  // Behind the index's back.
  record = access(20);
  EXPECT_EQ(file.updateAccessTimes(record), kAccessRecordDiffers);
  EXPECT_EQ(file.mergeAccess(record, true), kAccessRecordDiffers);
  EXPECT_EQ(log.take(), "");
  record.uniqid = 10;
  EXPECT_EQ(file.updateAccessTimes(record), kAccessNotFound);  // Whatever the failure was.
  EXPECT_EQ(file.setFlag3(10), kAccessReadFailed);
  EXPECT_EQ(file.mergeAccess(record, true), kAccessReadFailed);
  EXPECT_EQ(log.take(), message("reading") + message("reading") + message("reading"));
}

TEST_F(AccessFileTest, MergesHolders) {
  const AccessRecord old = access(10, 1);
  for (const bool keep : {false, true}) {
    load({old}, 2);
    AccessRecord given = access(10, 100);
    given.setFlag(2, keep ? 0 : 1);
    AccessRecord expected = given;
    if (keep) expected.copyValidityFrom(old);
    EXPECT_EQ(file.mergeAccess(given, keep), kSuccess);
    EXPECT_EQ(given, expected);
    expectFile({expected});
    EXPECT_EQ(file.index()->find(10)->state.value, keep ? 1u : 2u);
  }
  load({old}, 2);
  AccessRecord added = access(5);
  EXPECT_EQ(file.mergeAccess(added, true), kSuccess);
  EXPECT_EQ(file.index()->findRecno(5), 1);
  added.uniqid = 6;
  EXPECT_EQ(file.mergeAccess(added, true), -1);  // Appended, but the index is full.
  EXPECT_EQ(log.take(), notFound(5) + notFound(6));
  expectFile({old, access(5), added});
}

TEST_F(AccessFileTest, ChecksAccessLevels) {
  AccessLevelSet levels;
  EXPECT_EQ(file.checkAccessLevels(levels), kAccessOpenFailed);
  ASSERT_TRUE(levels.add(std::make_unique<AccessLevel>(3)));
  record.acclevel = {3, 0, 65535, 0, 0, 0, 0, 4};
  load({record, AccessRecord{}, record});
  const std::string missing =
      "[accessfile] access level 65535 not found for usr 0\n"
      "[accessfile] access level 4 not found for usr 0\n";
  EXPECT_EQ(file.checkAccessLevels(levels), 4);
  EXPECT_EQ(log.take(), missing + missing + message("reading"));
}

}  // namespace
}  // namespace badgemint
