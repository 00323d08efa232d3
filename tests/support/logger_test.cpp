#include "support/log.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/testfiles.h"

namespace badgemint {
namespace {

constexpr char kLogModule[] = "tests";

TEST(Logger, FiltersBySignedThreshold) {
  struct Row {
    uint32_t threshold;
    const char* passing;
  };
  for (const Row& row : {Row{25, "0 25 "}, Row{100, "0 25 26 100 "}, Row{UINT32_MAX, ""}}) {
    TestLog log(row.threshold);
    for (const int level : {0, 25, 26, 100, 101}) log.logger().write(level, "%d ", level);
    EXPECT_EQ(log.take(), row.passing);
  }
}

TEST(Logger, WritesPrefixAndTextAndCutsAfter199Characters) {
  TestLog log(25);
  LOG(25, "line=%s\n", std::string(300, 'x').c_str());
  LOG_HEX(25, (std::vector<uint8_t>{0x0A, 0xFF}), "label ");
  EXPECT_EQ(log.take(), "[tests] line=" + std::string(194, 'x') + "tests " +
                            std::to_string(__LINE__ - 2) + " label 0A FF \n");
  int evaluated = 0;
  LOG(26, "%d\n", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  theLogger = nullptr;
  LOG(0, "%d\n", ++evaluated);
  EXPECT_EQ(evaluated, 0);
}

TEST(Logger, DumpsUpToTheirLimits) {
  TestLog log;
  log.logger().dumpBits(0, std::vector<uint8_t>{0xA5});
  EXPECT_EQ(log.take(), "10100101 ");
  log.logger().dumpHex(0, std::vector<uint8_t>(100));
  EXPECT_EQ(log.take().size(), 300u);
  log.logger().dumpHex(0, std::vector<uint8_t>(101));
  log.logger().dumpBits(0, std::vector<uint8_t>(25));
  log.logger().dumpBits(0, std::vector<uint8_t>(26));
  const std::string text = log.take();
  EXPECT_EQ(text.substr(0, 33), "hex data buffer not large enough\n");
  EXPECT_EQ(text.substr(33 + 225), "bin data bufr not large enough\n");
}

TEST(Logger, OpensFilesAndStreams) {
  const TestFolder folder;
  EXPECT_TRUE(Logger(folder.write("old", "old text").c_str(), 0).isOpen());
  EXPECT_EQ(folder.read("old"), "");
  EXPECT_FALSE(Logger(folder.path("missing/log").c_str(), 0).isOpen());
  EXPECT_TRUE(Logger(7u).isOpen());

  testing::internal::CaptureStdout();
  Logger("stdout", 0u).write(0, "shown\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "shown\n");
  EXPECT_FALSE(std::filesystem::exists("stdout"));
}

TEST(Logger, ListsLevels) {
  const TestFolder folder;
  const std::string list = folder.write("list", "# none\n\n10 12\n25\t30\n40=50\n7 3\n1000 2000\n");
  Logger logger(folder.path("log").c_str(), LevelList{list.c_str()});
  EXPECT_TRUE(logger.isOpen());
  std::string passing;
  for (int level = 0; level <= 2000; ++level)
    if (logger.passes(level)) passing += std::to_string(level) + " ";
  EXPECT_EQ(passing.substr(0, 27), "7 10 11 12 25 40 1000 1001 ");
  EXPECT_TRUE(logger.passes(1093));  // The hundredth level named.
  EXPECT_FALSE(logger.passes(1094));

  EXPECT_FALSE(Logger(folder.path("log").c_str(), LevelList{folder.path("none").c_str()}).isOpen());
  EXPECT_FALSE(Logger(LevelList{folder.path("none").c_str()}).isOpen());
  EXPECT_TRUE(Logger(folder.path("missing/log").c_str(), LevelList{list.c_str()}).isOpen());
}

}  // namespace
}  // namespace badgemint
