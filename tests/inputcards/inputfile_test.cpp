// What the second pass writes is what the first has checked: the input is one file that stays.
#include "inputcards/inputfile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>

#include "support/result.h"
#include "support/testsite.h"

namespace badgemint {
namespace {

constexpr char kCards[] = "f 1 1 A 21\nc 1 7 0 1\n";
constexpr char kOtherCards[] = "f 1 1 A 21\nc 1 8 0 1\n";

std::string changed(const std::string& name) {
  return "[25 inputcards] Input cards file " + name + " changed during the build\n";
}

TEST(InputFile, IsKnownByItsIdentityAndNotByItsSizeAndTimeAlone) {
  const TestFolder folder;
  TestLog log;
  const auto rewrite = [&] { folder.write("cards", kOtherCards); };
  const auto replace = [&] {
    std::filesystem::rename(folder.write("new", kOtherCards), folder.path("cards"));
  };
  const auto append = [&] { std::ofstream(folder.path("cards"), std::ios::app) << '#'; };
  const std::function<void()> changes[] = {rewrite, replace, append};
  for (const auto& change : changes) {
    const std::string path = folder.write("cards", kCards);
    const auto time = std::filesystem::last_write_time(path);
    InputFile input;
    ASSERT_TRUE(input.setName(path.c_str()));
    EXPECT_EQ(input.open(), kSuccess);
    EXPECT_EQ(input.checkUnchanged(), kSuccess);
    input.close();
    EXPECT_EQ(input.open(), kSuccess);
    EXPECT_EQ(log.take(), "");
    usleep(20000);  // Times of files move on in steps of some milliseconds.
    change();
    std::filesystem::last_write_time(path, time);
    EXPECT_EQ(input.open(), kInputReadFailed);
    EXPECT_EQ(log.take(), changed(path));
  }
}

TEST(InputFile, CanBeReadTwice) {
  const TestSite site;
  TestLog log(25);
  mkfifo("pipe", 0600);
  mknod("socket", S_IFSOCK | 0600, 0);
  for (const std::string name : {"pipe", "socket", "/dev/zero", "/dev/ptmx"}) {
    InputCards loader(name.c_str(), "ident", "access", "cardsets");
    EXPECT_EQ(loader.pass1(), kInputReadFailed);
    EXPECT_EQ(log.take(), "[25 inputcards] Input cards file " + name + " cannot be read twice\n");
  }
  InputCards loader("/dev/null", "ident", "access", "cardsets");
  EXPECT_EQ(loader.pass1(), kSuccess);
  EXPECT_EQ(loader.pass2(), kSuccess);
}

// A build whose ident database and log are these files, with something between its passes.
int32_t build(const char* ident, Logger& log, const std::string& appended) {
  theLogger = &log;
  std::ofstream("cards") << kCards;
  InputCards loader("cards", ident, "access", "cardsets");
  int32_t result = loader.loadFormats("", "formats");
  if (result == kSuccess) result = loader.pass1();
  std::ofstream("cards", std::ios::app) << appended;
  return result == kSuccess ? loader.pass2() : result;
}

TEST(InputFile, ChangesDuringTheBuild) {
  const TestSite site;
  TestLog log(25);
  EXPECT_EQ(build("ident", log.logger(), "c 1 8 0 2\n"), kInputReadFailed) << "between the passes";
  EXPECT_FALSE(std::filesystem::exists("ident"));
  EXPECT_EQ(build("cards", log.logger(), ""), kInputReadFailed) << "is the ident database as well";
  EXPECT_TRUE(log.take().ends_with(changed("cards")));
  EXPECT_FALSE(std::filesystem::exists("cardsets"));
  Logger inCards("cards", 75);
  EXPECT_EQ(build("ident", inCards, ""), kInputReadFailed)
      << "is the log of the first pass as well";
  EXPECT_TRUE(contentOf("cards").ends_with(changed("cards")));
  theLogger = nullptr;
  std::ofstream("cards") << kCards;
  InputCards unchecked("cards", "ident", "access", "cardsets");
  EXPECT_EQ(unchecked.loadFormats("", "formats"), kSuccess);
  EXPECT_EQ(unchecked.pass2(), kInputReadFailed) << "has other credentials than the first pass saw";
}

}  // namespace
}  // namespace badgemint
