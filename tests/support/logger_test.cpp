#include "support/log.h"

#include "support/testfiles.h"

namespace badgemint {

constexpr char kLogModule[] = "tests";

TEST(Logger, DumpsSoManyBytesAndNoMore) {
  TestLog log(25);
  const std::array<uint8_t, 101> bytes{};
  log.logger().dumpHex(26, bytes);
  for (const size_t size : {100U, 101U}) log.logger().dumpHex(25, std::span(bytes).first(size));
  EXPECT_EQ(log.take().substr(298), "0 hex data buffer not large enough\n");
  log.logger().dumpBits(26, bytes);
  for (const size_t size : {25U, 26U}) log.logger().dumpBits(25, std::span(bytes).first(size));
  EXPECT_EQ(log.take().substr(223), "0 bin data bufr not large enough\n");
}

TEST(Logger, WritesPrefixAndTextAndEvaluatesNothingElse) {
  TestLog log(25);
  int evaluated = 0;
  LOG(26, "%d\n", ++evaluated);
  LOG(25, "line=%s\n", std::string(300, 'x').c_str());  // Cut after 199 characters.
  LOG_HEX(25, (std::vector<uint8_t>{0x0A, 0xFF}), "label ");
  log.logger().setThreshold(UINT32_MAX);  // Is signed.
  LOG(0, "%d\n", ++evaluated);
  theLogger = nullptr;
  LOG(0, "%d\n", ++evaluated);
  EXPECT_EQ(log.take(), "[25 tests] line=" + std::string(194, 'x') + "[25 tests] label 0A FF \n");
  EXPECT_EQ(evaluated, 0);
}

TEST(Logger, OpensFilesAndStreams) {
  writeFile("list", "3");
  writeFile("log", "old text");
  EXPECT_TRUE(Logger("./log", 0).isOpen());
  EXPECT_EQ(contentOf("log"), "");
  EXPECT_FALSE(Logger("none/log", 0).isOpen());
  EXPECT_TRUE(Logger("none/log", LevelList{"list"}).isOpen());
  for (const char* const path : {"listless", "stdout"}) {
    Logger listless(path, LevelList{"none"});
    EXPECT_FALSE(listless.isOpen());
    listless.write(0, "later");
    EXPECT_EQ(contentOf(path), "later");
  }
  const ArmedFault noMemory({"allocate", 1});
  EXPECT_FALSE(Logger("none/log", LevelList{"list"}).isOpen());
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  Logger("stdout", 0u).write(0, "out");
  Logger("stderr", 1u).write(1, "err ");
  Logger(2u).write(2, "threshold ");
  Logger(LevelList{"list"}).write(3, "list");
  Logger("stdout", LevelList{"list"}).write(3, " listed");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "out listed");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "err threshold list");
  const ArmedFault noClose({"close", 1});
  EXPECT_FALSE(Logger("log", 0).isOpen());
}

TEST(Logger, PassesAtMostAHundredListedLevels) {
  const std::pair<std::string, std::string> cases[] = {
      {"# none\n\n 7 3\r\n10 12\n9 9\n25\t30\n40=50\nx", "0 7 9 10 11 12 25 40 "},
      {"10" + std::string(77, ' ') + "12 4", "2 3 4 10 "},
      {"-98 90", "0 1 "},
  };
  for (const auto& [list, levels] : cases) {
    writeFile("list", list);
    Logger logger("log", LevelList{"list"});
    for (int level = 0; level <= 60; ++level) logger.write(level, "%d ", level);
    EXPECT_EQ(contentOf("log"), levels);
  }
}

}  // namespace badgemint
