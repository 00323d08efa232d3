#include "support/syserr_report.h"

#include "support/testfiles.h"

namespace badgemint::syserr_report_test {

// As it stands in a file, in the byte order of this machine.
std::string bytesOf(const ErrorFileHeader& header) {
  return {reinterpret_cast<const char*>(&header), sizeof header};
}

// One report as a caller makes it: lock, header, record, unlock.
bool report(uint8_t bytes) {
  const int file = ::open("errors", O_RDWR | O_CREAT, 0600);
  struct flock lock;
  ErrorFileHeader header;
  std::array<uint8_t, kErrorRecordSize> record;
  record.fill(bytes);
  const bool written = lockErrorFile(file, lock) && readErrorFileHeader(file, header) &&
                       syserr_report(file, header, record);
  EXPECT_EQ(lock.l_len, 2);
  return unlockAndCloseErrorFile(file, lock) == 0 && written;
}

TEST(SyserrReport, KeepsTheLast250RecordsAfterAnyHeader) {
  const ArmedFault halfAHeader({.call = "write", .nth = 701, .isShort = true});
  std::string records;
  for (uint32_t i = 0; i < 600; ++i) {
    ASSERT_TRUE(report(static_cast<uint8_t>(i)));
    records.replace(i % 250 * 64, 64, 64, static_cast<char>(i));
    ASSERT_EQ(contentOf("errors"),
              bytesOf({4243, 64, i % 250, std::min(i + 1, 250U), 250}) + records);
  }
  const std::pair<std::string, ErrorFileHeader> cases[] = {
      {bytesOf({4243, 64, UINT32_MAX, UINT32_MAX, 250}), {4243, 64, 0, 250, 250}},
      {bytesOf({4243, 64, 5, 6, 250}).substr(0, 8), {4243, 64, 1, 1, 0}},
      {bytesOf({4242, 64, 5, 6, 250}), {4243, 64, 0, 1, 250}},
  };
  for (const auto& [before, after] : cases) {
    writeFile("errors", before);
    EXPECT_TRUE(report('a'));
    EXPECT_EQ(contentOf("errors").substr(0, 20), bytesOf(after));
    EXPECT_EQ(contentOf("errors").substr(20 + 64 * after.lastslot), std::string(64, 'a'));
  }
}

TEST(SyserrReport, ReportsEachFailure) {
  const std::string fresh = bytesOf({4243, 64, 250, 0, 250}), one = bytesOf({4243, 64, 0, 1, 250});
  const std::tuple<const char*, int, std::string, std::string> cases[] = {
      {"fcntl", 1, "setting lock", ""},           {"read", 1, "reading header", ""},
      {"write", 1, "writing initial header", ""}, {"lseek", 1, "writing record", fresh},
      {"write", 2, "writing record", fresh},      {"lseek", 2, "writing header", fresh},
      {"write", 3, "writing header", fresh},      {"fcntl", 2, "freeing lock", one},
  };
  for (const auto& [call, nth, what, header] : cases) {
    fs::remove("errors");
    testing::internal::CaptureStdout();
    const ArmedFault armed({.call = call, .nth = nth});
    EXPECT_EQ(report('a'), header == one);
    const std::string text = "syserr_report: ERROR " + what + " (Input/output error)";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), text + (what == "setting lock" ? "\n" : ""));
    EXPECT_EQ(contentOf("errors").substr(0, 20), header);
  }
}

}  // namespace badgemint::syserr_report_test
