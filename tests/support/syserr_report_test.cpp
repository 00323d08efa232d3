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

#include "support/script.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

using Record = std::array<uint8_t, kErrorRecordSize>;

std::string bytesOf(const ErrorFileHeader& header) {
  return {reinterpret_cast<const char*>(&header), sizeof header};
}

ErrorFileHeader headerOf(const std::string& file) {
  ErrorFileHeader header{};
  std::memcpy(&header, file.data(), std::min(file.size(), sizeof header));
  return header;
}

// The last record of a file, empty if there is none.
std::string recordOf(const std::string& file, const ErrorFileHeader& header) {
  const size_t at = sizeof header + kErrorRecordSize * header.lastslot;
  return at < file.size() ? file.substr(at, kErrorRecordSize) : "";
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

TEST(SyserrReport, FollowsTheTranscript) {
  Commands on;
  // A file of a header: magic, record size, last slot, record count and capacity.
  on["ring"] = [](Step& c) {
    std::ofstream("errors") << bytesOf({c.as<uint32_t>(0), c.as<uint32_t>(1), c.as<uint32_t>(2),
                                        c.as<uint32_t>(3), c.as<uint32_t>(4)});
  };
  // Reports a record that begins with a letter; tells the header, and the record by its slot.
  on["report"] = [](Step& c) {
    c.out << (reportOnce("errors", Record{static_cast<uint8_t>(c.word(0)[0])}) ? "" : "failed:");
    const std::string file = contentOf("errors");
    const ErrorFileHeader header = headerOf(file);
    for (const uint32_t value :
         {header.magic, header.recordsize, header.lastslot, header.recordcount, header.capacity})
      c.out << ' ' << value;
    const std::string record = recordOf(file, header);
    if (!record.empty()) c.out << ", " << record.c_str();
  };
  play("support/syserr_report.txt", on);
}

// A process that reports records of its name and their number.
pid_t startWriter(const std::string& path, uint8_t name, int reports) {
  const pid_t writer = fork();
  if (writer != 0) return writer;
  bool written = true;
  for (int i = 0; i < reports; ++i)
    written &= reportOnce(path, Record{name, static_cast<uint8_t>(i)});
  _exit(written ? 0 : 1);
}

TEST(SyserrReport, LosesNoRecordOfSeveralWriters) {
  const TestFolder folder;
  const std::string path = folder.path("errors");
  for (uint8_t name = 0; name < 5; ++name) startWriter(path, name, 50);
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
    const pid_t victim = startWriter(path, 'v', 100000);
    const pid_t survivor = startWriter(path, 's', 10);
    usleep(static_cast<useconds_t>(random() % 3000));
    kill(victim, SIGKILL);
    int status = -1;
    waitpid(victim, nullptr, 0);
    waitpid(survivor, &status, 0);
    ASSERT_EQ(status, 0) << "round " << round;
    ASSERT_TRUE(reportOnce(path, Record{'l'}));

    const std::string file = folder.read("errors");
    const ErrorFileHeader header = headerOf(file);
    ASSERT_EQ(file.substr(0, 8), bytesOf({4243, 64, 0, 0, 0}).substr(0, 8));
    ASSERT_LT(header.lastslot, header.recordcount);
    ASSERT_GE(file.size(), sizeof header + kErrorRecordSize * header.recordcount);
    ASSERT_EQ(recordOf(file, header)[0], 'l');
  }
}

}  // namespace
}  // namespace badgemint
