#include "support/log.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/script.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

constexpr char kLogModule[] = "tests";

TEST(Logger, FollowsTheTranscript) {
  Commands on;
  const auto onLog = [](auto use) {
    return [use](Step& c) {
      if (theLogger != nullptr) use(c, *theLogger);
    };
  };
  on["write"] = onLog([](Step& c, Logger& log) {
    for (size_t i = 0; i < c.words.size(); ++i) log.write(c.as<int32_t>(i), "%s ", c.name(i));
  });
  // N bytes at a level.
  on["hex-dump"] = onLog([](Step& c, Logger& log) {
    log.dumpHex(c.as<int32_t>(1), std::vector<uint8_t>(c.as<size_t>(0), 0xA5));
  });
  on["bit-dump"] = onLog([](Step& c, Logger& log) {
    log.dumpBits(c.as<int32_t>(1), std::vector<uint8_t>(c.as<size_t>(0), 0xA5));
  });
  play("support/logger.txt", on);
}

TEST(Logger, WritesPrefixAndTextAndCutsAfter199Characters) {
  TestLog log(25);
  LOG(25, "line=%s\n", std::string(300, 'x').c_str());
  LOG_HEX(25, (std::vector<uint8_t>{0x0A, 0xFF}), "label ");
  EXPECT_EQ(log.take(), "[25 tests] line=" + std::string(194, 'x') + "[25 tests] label 0A FF \n");
  int evaluated = 0;
  LOG(26, "%d\n", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  theLogger = nullptr;
  LOG(0, "%d\n", ++evaluated);
  EXPECT_EQ(evaluated, 0);
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
