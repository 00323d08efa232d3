#include "support/syserr_report.h"

#include <sys/wait.h>

#include <array>
#include <set>

#include "support/testfiles.h"

namespace badgemint {
namespace {

// As it stands in a file, in the byte order of this machine.
std::string bytesOf(const ErrorFileHeader& header) {
  return {reinterpret_cast<const char*>(&header), sizeof header};
}

// One report as a caller makes it: lock, header, record, unlock.
bool report(const std::string& path, uint8_t name, uint8_t number) {
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT, 0600);
  struct flock lock;
  ErrorFileHeader header;
  std::array<uint8_t, kErrorRecordSize> record;
  record.fill(name);
  record[1] = number;
  const bool written = lockErrorFile(file, lock) && readErrorFileHeader(file, header) &&
                       syserr_report(file, header, record);
  EXPECT_EQ(lock.l_len, 2);
  return unlockAndCloseErrorFile(file, lock) == 0 && written;
}

TEST(SyserrReport, KeepsTheLast250Records) {
  const TestFolder folder;
  const ArmedFault half({.call = "write", .nth = 700, .isShort = true});
  std::string records;
  for (uint32_t i = 0; i < 600; ++i) {
    const auto byte = static_cast<uint8_t>(i);
    ASSERT_TRUE(report(folder.path("errors"), byte, byte));
    records.replace(i % 250 * 64, 64, 64, static_cast<char>(i));
    ASSERT_EQ(folder.read("errors"),
              bytesOf({4243, 64, i % 250, std::min(i + 1, 250U), 250}) + records);
  }
}

TEST(SyserrReport, GoesOnBehindAnyHeader) {
  const std::pair<std::string, ErrorFileHeader> cases[] = {
      {bytesOf({4243, 64, UINT32_MAX, UINT32_MAX, 250}), {4243, 64, 0, 250, 250}},
      {bytesOf({4243, 64, 5, 6, 250}).substr(0, 8), {4243, 64, 1, 1, 0}},
      {bytesOf({4242, 64, 5, 6, 250}), {4243, 64, 0, 1, 250}},
  };
  const TestFolder folder;
  for (const auto& [before, after] : cases) {
    EXPECT_TRUE(report(folder.write("errors", before), 'a', 'a'));
    EXPECT_EQ(folder.read("errors").substr(0, 20), bytesOf(after));
    EXPECT_EQ(folder.read("errors").substr(20 + 64 * after.lastslot), std::string(64, 'a'));
  }
}

TEST(SyserrReport, TellsEachFailure) {
  const std::string fresh = bytesOf({4243, 64, 250, 0, 250}), one = bytesOf({4243, 64, 0, 1, 250});
  const std::tuple<const char*, int, std::string, std::string> cases[] = {
      {"fcntl", 1, "setting lock", ""},           {"read", 1, "reading header", ""},
      {"write", 1, "writing initial header", ""}, {"lseek", 1, "writing record", fresh},
      {"write", 2, "writing record", fresh},      {"lseek", 2, "writing header", fresh},
      {"write", 3, "writing header", fresh},      {"fcntl", 2, "freeing lock", one},
  };
  for (const auto& [call, nth, what, header] : cases) {
    const TestFolder folder;
    testing::internal::CaptureStdout();
    const ArmedFault armed({.call = call, .nth = nth});
    EXPECT_EQ(report(folder.path("errors"), 'a', 'a'), header == one);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "syserr_report: ERROR " + what +
                                                          " (Input/output error)" +
                                                          (what == "setting lock" ? "\n" : ""));
    EXPECT_EQ(folder.read("errors").substr(0, 20), header);
  }
}

TEST(SyserrReport, LosesNoRecordOfSeveralWriters) {
  const TestFolder folder;
  for (uint8_t name = 0; name < 5; ++name) {
    if (fork() != 0) continue;
    bool written = true;
    for (uint8_t i = 0; i < 50; ++i) written &= report(folder.path("errors"), name, i);
    _exit(written ? 0 : 1);
  }
  int status = -1;
  while (wait(&status) > 0) EXPECT_EQ(status, 0);
  std::set<std::string> records;
  for (uint32_t slot = 0; slot < 250; ++slot)
    records.insert(folder.read("errors").substr(20 + 64 * slot, 2));
  EXPECT_EQ(records.size(), 250U);
}

}  // namespace
}  // namespace badgemint
