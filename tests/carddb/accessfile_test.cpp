#include "carddb/accessfile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "carddb/databases.h"
#include "support/masterconfiguration.h"
#include "support/result.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

class AccessFileTest : public testing::Test {
 protected:
  void use(const std::string& filePath) {
    path = filePath;
    ASSERT_EQ(file.setFileName(path.c_str()), kSuccess);
  }
  void load(const std::vector<AccessRecord>& records, uint32_t capacity = 0) {
    path = folder.write("access", fileOf(records));
    ASSERT_EQ(file.loadIndex(path.c_str(), capacity), kSuccess);
    log.take();
  }
  std::string message(const std::string& verb) const {
    return "[accessfile] Error " + verb + " access file " + path + "\n";
  }
  static std::string notFound(uint32_t uniqid) {
    return "[accessfile] Access record not found for unique id=" + std::to_string(uniqid) + "\n";
  }

  TestLog log;
  TestFolder folder;
  AccessFile file;
  std::string path;
};

// A record whose every field counts up from `value`.
AccessRecord filled(uint32_t uniqid, uint8_t value) {
  RecordImage<AccessRecord> image;
  for (uint8_t& byte : image) byte = value++;
  AccessRecord record = decodeRecord<AccessRecord>(image);
  record.uniqid = uniqid;
  record.bitflds = 0;
  return record;
}

TEST_F(AccessFileTest, AppendsWithAndWithoutBuffer) {
  use(folder.path("access"));
  const mode_t mask = umask(0);
  EXPECT_EQ(file.openFile(O_WRONLY | O_CREAT | O_TRUNC), kSuccess);
  umask(mask);
  struct stat status;
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  file.startBuffering();
  std::vector<AccessRecord> records;
  const auto append = [&] {
    records.push_back(filled(static_cast<uint32_t>(records.size()), 1));
    return file.appendRecord(records.back());
  };
  while (!file.appendBufferFull()) EXPECT_EQ(append(), kSuccess);
  EXPECT_EQ(records.size(), RecordFile::kBufferSize / 44);
  EXPECT_EQ(file.flushAppends(), kSuccess);
  EXPECT_EQ(append(), kSuccess);
  EXPECT_EQ(file.closeFile(), kSuccess);
  EXPECT_EQ(append(), kSuccess);
  EXPECT_EQ(folder.read("access"), fileOf(records));

  AccessRecord record;
  EXPECT_EQ(file.readNext(record), -2);
  ASSERT_EQ(file.openFile(O_RDONLY), kSuccess);
  for (const AccessRecord& expected : records) {
    ASSERT_EQ(file.readNext(record), kSuccess);
    ASSERT_EQ(record, expected);
  }
  EXPECT_EQ(file.readNext(record), -2);
  EXPECT_EQ(log.take(), "");
}

TEST_F(AccessFileTest, ReportsFailures) {
  use(folder.path("none"));
  AccessRecord record = filled(7, 1);
  EXPECT_EQ(file.appendRecord(record), kAccessOpenFailed);
  EXPECT_EQ(file.readRecordAt(record, 0), kAccessOpenFailed);
  EXPECT_EQ(log.take(), message("opening") + message("opening"));
  EXPECT_EQ(file.writeRecordAt(record, 0), kAccessOpenFailed);
  EXPECT_EQ(log.take(), "");

  use(folder.path("pipe"));
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  ASSERT_EQ(file.openFile(O_RDWR), kSuccess);
  EXPECT_EQ(file.appendRecord(record), kAccessReadFailed);  // Cannot be sought in.
  EXPECT_EQ(log.take(), message("reading"));

  use("/dev/full");
  ASSERT_EQ(file.openFile(O_RDWR), kSuccess);
  EXPECT_EQ(file.appendRecord(record), kAccessWriteFailed);
  file.startBuffering();
  ASSERT_EQ(file.appendRecord(record), kSuccess);
  EXPECT_EQ(file.readRecordAt(record, 0), kAccessWriteFailed);  // What is buffered comes first.
  EXPECT_EQ(log.take(), message("writing to") + message("writing to"));

  const size_t size = kFarRecord * AccessRecord::kSize + 20;
  use(folder.write("short", std::string(size, 'x')));
  EXPECT_EQ(file.readRecordAt(record, kFarRecord), kAccessReadFailed);
  EXPECT_EQ(record, AccessRecord{});
  EXPECT_EQ(log.take(), message("reading"));
  const FileSizeLimit limit(size + 2);
  EXPECT_EQ(file.writeRecordAt(record, kFarRecord), kAccessWriteFailed);
  EXPECT_EQ(file.readNext(record), -2);  // Closed again.
  EXPECT_EQ(log.take(), "");
}

TEST_F(AccessFileTest, LoadsItsIndex) {
  path = folder.write("access", fileOf<AccessRecord>({access(2), access(1)}) + "tail");
  log.logger().setThreshold(75);
  EXPECT_EQ(file.loadIndex(path.c_str(), 2), kSuccess);
  EXPECT_EQ(log.take(), "[accessfile] access index created and loaded\n");
  EXPECT_EQ(file.index()->capacity(), 102u);
  EXPECT_EQ(file.index()->count(), 2u);
  log.logger().setThreshold(100);
  EXPECT_EQ(file.loadIndex(path.c_str(), 3), kSuccess);
  EXPECT_EQ(log.take(),
            "[accessfile] get status info for " + path +
                "\n[accessfile] access index nrecs = 3\n[accessindx] creating access index\n"
                "[accessindx] initializing access index\n[accessindx] initialized record 0\n"
                "[accessindx] access index initialized\n"
                "[accessfile] access index created and loaded\n[accessfile] access index sorted\n");
  log.logger().setThreshold(25);
  EXPECT_EQ(file.loadIndex(folder.path("").c_str(), 3), kAccessReadFailed);
  EXPECT_EQ(file.index()->count(), 0u);
  EXPECT_EQ(log.take(), "[accessindx] Error reading access file " + folder.path("") + "\n");
  path = folder.path("none");
  EXPECT_EQ(file.loadIndex(path.c_str(), 3), kAccessOpenFailed);
  EXPECT_EQ(log.take(), message("opening"));

  const std::string text = "access " + folder.path("access") + " 5\n";
  MasterConfiguration configuration(0, folder.write("config", text).c_str());
  EXPECT_TRUE(file.loadIndexFromConfig(configuration));
  EXPECT_EQ(file.index()->capacity(), 5u);
  MasterConfiguration none(0, folder.write("config", "ident x 5\n").c_str());
  errno = EINVAL;
  EXPECT_FALSE(file.loadIndexFromConfig(none));
  EXPECT_EQ(errno, 0);
}

TEST_F(AccessFileTest, FindsAndPutsHolders) {
  AccessRecord record;
  uint32_t recno = 9;
  EXPECT_EQ(file.findAccess(1, record), kAccessNotFound);
  EXPECT_EQ(file.putAccess(record), kAccessNotFound);
  EXPECT_EQ(file.mergeAccess(record, false), kAccessNotFound);
  log.take();

  load({access(20), access(10)});
  EXPECT_EQ(file.findAccess(10, record, recno), kSuccess);
  EXPECT_EQ(record, access(10));
  EXPECT_EQ(recno, 1u);
  EXPECT_EQ(file.putAccess(access(10, 5)), kSuccess);
  EXPECT_EQ(file.putAccess(access(30)), kSuccess);
  EXPECT_EQ(log.take(), "");
  EXPECT_EQ(file.findAccess(30, record), kAccessNotFound);  // Appended, not indexed.
  EXPECT_EQ(log.take(), notFound(30));
  EXPECT_EQ(folder.read("access"), fileOf<AccessRecord>({access(20), access(10, 5), access(30)}));
}

TEST_F(AccessFileTest, UpdatesValidityAndFlag) {
  const AccessRecord old = filled(10, 1), given = filled(10, 100);
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
  EXPECT_EQ(folder.read("access"), fileOf<AccessRecord>({access(20), expected}));
  EXPECT_EQ(file.clearFlag3(10), kSuccess);
  expected.bitflds = 0;
  EXPECT_EQ(folder.read("access"), fileOf<AccessRecord>({access(20), expected}));
  EXPECT_EQ(log.take(), "");

  EXPECT_EQ(file.setFlag3(11), kAccessNotFound);
  EXPECT_EQ(file.updateAccessTimes(access(11)), kAccessNotFound);
  EXPECT_EQ(log.take(), notFound(11) + notFound(11));
  folder.write("access", fileOf<AccessRecord>({access(10)}));
  EXPECT_EQ(file.updateAccessTimes(access(20)), kAccessRecordDiffers);
  AccessRecord other = access(20);
  EXPECT_EQ(file.mergeAccess(other, true), kAccessRecordDiffers);
  EXPECT_EQ(log.take(), "");
  EXPECT_EQ(file.updateAccessTimes(access(10)), kAccessNotFound);  // Whatever the failure was.
  EXPECT_EQ(file.setFlag3(10), kAccessReadFailed);
  other.uniqid = 10;
  EXPECT_EQ(file.mergeAccess(other, true), kAccessReadFailed);
  EXPECT_EQ(log.take(), message("reading") + message("reading") + message("reading"));
}

TEST_F(AccessFileTest, MergesHolders) {
  const AccessRecord old = filled(10, 1);
  load({old}, 2);
  AccessRecord given = filled(10, 100);
  given.setFlag(2, 1);
  AccessRecord expected = given;
  EXPECT_EQ(file.mergeAccess(given, false), kSuccess);
  EXPECT_EQ(folder.read("access"), fileOf<AccessRecord>({expected}));
  EXPECT_EQ(file.index()->find(10)->state.value, 2u);

  load({old}, 2);
  given.setFlag(2, 0);
  expected = given;
  expected.copyValidityFrom(old);
  EXPECT_EQ(file.mergeAccess(given, true), kSuccess);
  EXPECT_EQ(given, expected);
  EXPECT_EQ(folder.read("access"), fileOf<AccessRecord>({expected}));
  EXPECT_EQ(file.index()->find(10)->state.value, 1u);
  EXPECT_EQ(log.take(), "");

  AccessRecord added = access(5, 6);
  EXPECT_EQ(file.mergeAccess(added, true), kSuccess);
  EXPECT_EQ(file.index()->findRecno(5), 1);
  EXPECT_EQ(file.index()->find(5)->state.value, 0u);
  added.uniqid = 6;
  EXPECT_EQ(file.mergeAccess(added, true), -1);  // Appended, but the index is full.
  EXPECT_EQ(log.take(), notFound(5) + notFound(6));
  EXPECT_EQ(folder.read("access"), fileOf<AccessRecord>({expected, access(5, 6), added}));
}

}  // namespace
}  // namespace badgemint
