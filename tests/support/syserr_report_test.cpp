#include "support/syserr_report.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <random>
#include <set>
#include <string>

#include "support/faults.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

using Record = std::array<uint8_t, kErrorRecordSize>;

std::string bytesOf(const ErrorFileHeader& header) {
  return {reinterpret_cast<const char*>(&header), sizeof header};
}

// One report as a caller makes it: lock, header, record, unlock.
bool reportOnce(const std::string& path, const Record& record) {
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT, 0600);
  struct flock lock;
  ErrorFileHeader header;
  const bool written = lockErrorFile(file, lock) && readErrorFileHeader(file, header) &&
                       syserr_report(file, header, record);
  return unlockAndCloseErrorFile(file, lock) == 0 && written;
}

TEST(SyserrReport, GoesOnBehindTheLastRecord) {
  const ErrorFileHeader first{4243, 64, 0, 1, 250};
  const std::pair<std::string, ErrorFileHeader> rows[] = {
      {"", first},
      {bytesOf({4243, 64, 0x0107, 0, 0}).substr(0, 9), {4243, 64, 8, 1, 0}},
      {bytesOf({4243, 64, 248, 249, 250}), {4243, 64, 249, 250, 250}},
      {bytesOf({4243, 1, 249, 250, 9}), {4243, 1, 0, 250, 9}},
      {bytesOf({4243, 64, UINT32_MAX, UINT32_MAX, 250}), {4243, 64, 0, 250, 250}}};
  for (const auto& [file, header] : rows) {
    const TestFolder folder;
    EXPECT_TRUE(reportOnce(folder.write("errors", file), Record{'r'}));
    const std::string written = folder.read("errors");
    EXPECT_EQ(written.substr(0, 20), bytesOf(header));
    EXPECT_EQ(written.substr(20 + 64 * header.lastslot), "r" + std::string(63, '\0'));
  }
}

TEST(SyserrReport, WritesAFreshHeaderBehindAnotherMagic) {
  const TestFolder folder;
  const std::string other(20, 'x');
  const int file = ::open(folder.write("errors", other).c_str(), O_RDWR);
  ErrorFileHeader header;
  EXPECT_TRUE(readErrorFileHeader(file, header));
  EXPECT_EQ(folder.read("errors"), other + bytesOf({4243, 64, 250, 0, 250}));
  ::close(file);
}

TEST(SyserrReport, PrintsWhatFailed) {
  const TestFolder folder;
  const int reading = ::open(folder.write("errors", "").c_str(), O_RDONLY);
  struct flock lock;
  ErrorFileHeader header{4243, 64, 7, 8, 250};
  testing::internal::CaptureStdout();
  EXPECT_FALSE(lockErrorFile(-1, lock));
  EXPECT_FALSE(syserr_report(reading, header, Record{}));
  EXPECT_EQ(bytesOf(header), bytesOf({4243, 64, 7, 8, 250}));
  EXPECT_FALSE(readErrorFileHeader(reading, header));
  EXPECT_FALSE(readErrorFileHeader(-1, header));
  EXPECT_EQ(unlockAndCloseErrorFile(-1, lock), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "syserr_report: ERROR setting lock (Bad file descriptor)\n"
            "syserr_report: ERROR writing record (Bad file descriptor)"
            "syserr_report: ERROR writing initial header (Bad file descriptor)"
            "syserr_report: ERROR reading header (Bad file descriptor)"
            "syserr_report: ERROR freeing lock (Bad file descriptor)");
  ::close(reading);
}

TEST(SyserrReport, LosesNoRecordOfSeveralWriters) {
  const TestFolder folder;
  const std::string path = folder.path("errors");
  for (uint8_t w = 0; w < 5; ++w) {
    if (fork() != 0) continue;
    bool written = true;
    for (uint8_t r = 0; r < 50; ++r) written &= reportOnce(path, Record{w, r});
    _exit(written ? 0 : 1);
  }
  int status = -1;
  while (wait(&status) > 0) EXPECT_EQ(status, 0);
  const std::string file = folder.read("errors");
  EXPECT_EQ(file.substr(0, 20), bytesOf({4243, 64, 249, 250, 250}));
  std::set<std::string> records;
  for (size_t at = 20; at < file.size(); at += 64) records.insert(file.substr(at, 2));
  EXPECT_EQ(records.size(), 250U);
}

// A ring stays readable when its writers die at any point: header and file size agree, and a
// writer goes on behind the last record.
TEST(SyserrReport, StaysReadableWhenWritersAreKilled) {
  const TestFolder folder;
  const std::string path = folder.path("errors");
  std::mt19937 random(1);
  for (int round = 0; round < 40; ++round) {
    const auto startWriter = [&path](uint8_t name, int reports) {
      const pid_t writer = fork();
      if (writer != 0) return writer;
      bool written = true;
      for (int i = 0; i < reports; ++i) written &= reportOnce(path, Record{name});
      _exit(written ? 0 : 1);
    };
    const pid_t victim = startWriter('v', 100000);
    const pid_t survivor = startWriter('s', 10);
    usleep(static_cast<useconds_t>(random() % 3000));
    kill(victim, SIGKILL);
    int status = -1;
    waitpid(victim, nullptr, 0);
    waitpid(survivor, &status, 0);
    ASSERT_EQ(status, 0) << "round " << round;
    ASSERT_TRUE(reportOnce(path, Record{'l'}));

    const std::string file = folder.read("errors");
    ErrorFileHeader header;
    ASSERT_GE(file.size(), sizeof header);
    std::memcpy(&header, file.data(), sizeof header);
    ASSERT_EQ(bytesOf(header).substr(0, 8), bytesOf({4243, 64, 0, 0, 0}).substr(0, 8));
    ASSERT_LT(header.lastslot, header.recordcount);
    ASSERT_GE(file.size(), sizeof header + kErrorRecordSize * header.recordcount);
    ASSERT_EQ(file[sizeof header + kErrorRecordSize * header.lastslot], 'l');
  }
}

// Every call of a report fails once: the report says so, or is in the ring.
TEST(SyserrReport, TellsWhichCallFailed) {
  for (const Call call : {Call::kFcntl, Call::kRead, Call::kWrite, Call::kSeek, Call::kClose}) {
    const TestFolder folder;
    testing::internal::CaptureStdout();
    int struck = 0;
    for (int nth = 1; nth <= 10; ++nth) {
      const ArmedFault fault({.call = call, .nth = nth});
      const bool written = reportOnce(folder.path("errors"), Record{'r'});
      struck += fault.struck();
      // A lock that is not freed goes with the descriptor.
      EXPECT_EQ(written, !fault.struck() || (call == Call::kFcntl && nth == 2));
    }
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_GT(struck, 0);
    EXPECT_EQ(printed.find("syserr_report: ERROR ") == printed.npos, call == Call::kClose);
  }
}

}  // namespace
}  // namespace badgemint
