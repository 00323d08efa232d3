#include "support/syserr_report.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <set>
#include <string>

#include "support/testfiles.h"

namespace badgemint {
namespace {

using Record = std::array<uint8_t, kErrorRecordSize>;

std::string bytesOf(const ErrorFileHeader& header) {
  return {reinterpret_cast<const char*>(&header), sizeof header};
}

int openFile(const std::string& path, int flags = O_RDWR | O_CREAT) {
  return ::open(path.c_str(), flags, 0600);
}

// One report as a caller makes it: lock, header, record, unlock.
bool reportOnce(const std::string& path, const Record& record) {
  const int file = openFile(path);
  struct flock lock;
  ErrorFileHeader header;
  const bool written = lockErrorFile(file, lock) && readErrorFileHeader(file, header) &&
                       syserr_report(file, header, record);
  return unlockAndCloseErrorFile(file, lock) == 0 && written;
}

TEST(SyserrReport, FillsTheRingAndOverwritesTheOldest) {
  const TestFolder folder;
  const std::string path = folder.path("errors");
  for (uint32_t i = 1; i <= 251; ++i) {
    Record record;
    record.fill(static_cast<uint8_t>(i));
    ASSERT_TRUE(reportOnce(path, record));
    if (i != 1 && i < 249) continue;
    const std::string file = folder.read("errors");
    const uint32_t slot = (i - 1) % 250;
    const uint32_t count = std::min(i, 250U);
    EXPECT_EQ(file.size(), 20 + 64 * count);
    EXPECT_EQ(file.substr(0, 20), bytesOf({4243, 64, slot, count, 250})) << i;
    EXPECT_EQ(file.substr(20 + 64 * slot, 64), std::string(64, static_cast<char>(i))) << i;
  }
}

TEST(SyserrReport, StartsAndRepairsHeaders) {
  const std::string fresh = bytesOf({4243, 64, 250, 0, 250});
  const std::string other(20, 'x');
  const struct {
    std::string file;
    std::string afterRead;
    ErrorFileHeader afterReport;
  } rows[] = {{"", fresh, {4243, 64, 0, 1, 250}},
              {other, other + fresh, {4243, 64, 0, 1, 250}},
              {"short", "short" + fresh, {4243, 64, 0, 1, 250}},
              {bytesOf({4243, 0, 0, 0, 0}).substr(0, 4), "", {4243, 0, 1, 1, 0}},
              {bytesOf({4243, 64, 0x0107, 0, 0}).substr(0, 9), "", {4243, 64, 8, 1, 0}},
              {bytesOf({4243, 64, 248, 249, 250}), "", {4243, 64, 249, 250, 250}},
              {bytesOf({4243, 1, 249, 250, 9}), "", {4243, 1, 0, 250, 9}},
              {bytesOf({4243, 64, 251, 251, 250}), "", {4243, 64, 0, 250, 250}},
              {bytesOf({4243, 64, UINT32_MAX, UINT32_MAX, 250}), "", {4243, 64, 0, 250, 250}}};
  for (const auto& row : rows) {
    const TestFolder folder;
    const int file = openFile(folder.write("errors", row.file));
    ErrorFileHeader header;
    std::memset(&header, 0xEE, sizeof header);
    EXPECT_TRUE(readErrorFileHeader(file, header));
    EXPECT_EQ(folder.read("errors"), row.afterRead.empty() ? row.file : row.afterRead);
    EXPECT_TRUE(syserr_report(file, header, Record{}));
    EXPECT_EQ(bytesOf(header), bytesOf(row.afterReport));
    const std::string written = folder.read("errors");
    EXPECT_EQ(written.substr(0, 20), bytesOf(row.afterReport));
    EXPECT_EQ(written.substr(20 + 64 * row.afterReport.lastslot, 64), std::string(64, '\0'));
    ::close(file);
  }
}

TEST(SyserrReport, PrintsWhatFailed) {
  const TestFolder folder;
  const std::string path = folder.write("errors", "");
  struct flock lock;
  ErrorFileHeader header{4243, 64, 7, 8, 250};
  const int reading = openFile(path, O_RDONLY);
  const int writing = openFile(path, O_WRONLY);

  testing::internal::CaptureStdout();
  EXPECT_FALSE(lockErrorFile(-1, lock));
  EXPECT_EQ(lock.l_type, F_WRLCK);
  EXPECT_EQ(lock.l_start, 0);
  EXPECT_EQ(lock.l_len, 2);
  EXPECT_FALSE(syserr_report(reading, header, Record{}));
  EXPECT_EQ(bytesOf(header), bytesOf({4243, 64, 7, 8, 250}));
  EXPECT_FALSE(syserr_report(-1, header, Record{}));
  EXPECT_FALSE(readErrorFileHeader(reading, header));
  EXPECT_FALSE(readErrorFileHeader(writing, header));
  EXPECT_EQ(unlockAndCloseErrorFile(-1, lock), -1);
  const std::string bad = "(Bad file descriptor)";
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "syserr_report: ERROR setting lock " + bad + "\nsyserr_report: ERROR writing record " +
                bad + "syserr_report: ERROR writing record " + bad +
                "syserr_report: ERROR writing initial header " + bad +
                "syserr_report: ERROR reading header " + bad +
                "syserr_report: ERROR freeing lock " + bad);
  ::close(reading);
  ::close(writing);
}

TEST(SyserrReport, LosesNoRecordOfSeveralWriters) {
  constexpr uint8_t kWriters = 5;
  constexpr uint8_t kRecords = 50;
  const TestFolder folder;
  const std::string path = folder.path("errors");
  std::array<pid_t, kWriters> writers;
  for (uint8_t w = 0; w < kWriters; ++w) {
    writers[w] = fork();
    ASSERT_GE(writers[w], 0);
    if (writers[w] > 0) continue;
    bool written = true;
    for (uint8_t r = 0; r < kRecords; ++r) written &= reportOnce(path, Record{w, r});
    _exit(written ? 0 : 1);
  }
  for (const pid_t writer : writers) {
    int status = -1;
    EXPECT_EQ(waitpid(writer, &status, 0), writer);
    EXPECT_EQ(status, 0);
  }
  const std::string file = folder.read("errors");
  EXPECT_EQ(file.substr(0, 20), bytesOf({4243, 64, 249, 250, 250}));
  std::set<std::string> records;
  for (size_t slot = 0; slot < 250; ++slot) records.insert(file.substr(20 + 64 * slot, 2));
  EXPECT_EQ(records.size(), 250U);
}

}  // namespace
}  // namespace badgemint
