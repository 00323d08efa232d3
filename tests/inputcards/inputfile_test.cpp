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

TEST(InputFile, ChangesBetweenThePasses) {
  const TestSite site;
  const TestLog log;
  std::ofstream("cards") << kCards;
  InputCards loader("cards", "ident", "access", "cardsets");
  ASSERT_EQ(loader.loadFormats("", "formats"), kSuccess);
  ASSERT_EQ(loader.pass1(), kSuccess);
  std::ofstream("cards", std::ios::app) << "c 1 8 0 2\n";
  EXPECT_EQ(loader.pass2(), kInputReadFailed);
  EXPECT_FALSE(std::filesystem::exists("ident"));
}

// The log goes to the cards file: the first line that is checked appends to it.
TEST(InputFile, ChangesInTheFirstPass) {
  const TestSite site;
  Logger logger("cards", 75);
  theLogger = &logger;
  std::ofstream("cards") << "f 1 1 A 21\n";
  InputCards loader("cards", "ident", "access", "cardsets");
  ASSERT_EQ(loader.loadFormats("", "formats"), kSuccess);
  EXPECT_EQ(loader.pass1(), kInputReadFailed);
  theLogger = nullptr;
  EXPECT_TRUE(contentOf("cards").ends_with(changed("cards")));
}

// The ident database is the cards file: opening the one empties the other.
TEST(InputFile, ChangesInTheSecondPass) {
  const TestSite site;
  TestLog log(25);
  std::ofstream("cards") << kCards;
  InputCards loader("cards", "cards", "access", "cardsets");
  ASSERT_EQ(loader.loadFormats("", "formats"), kSuccess);
  ASSERT_EQ(loader.pass1(), kSuccess);
  log.take();
  EXPECT_EQ(loader.pass2(), kInputReadFailed);
  EXPECT_EQ(log.take(), changed("cards"));
  EXPECT_FALSE(std::filesystem::exists("cardsets"));
}

TEST(InputFile, HasAsManyCredentialsInBothPasses) {
  const TestSite site;
  TestLog log(25);
  std::ofstream("cards") << kCards;
  InputCards loader("cards", "ident", "access", "cardsets");
  ASSERT_EQ(loader.loadFormats("", "formats"), kSuccess);
  EXPECT_EQ(loader.pass2(), kInputReadFailed) << "there was no first pass";
  EXPECT_EQ(log.take(), changed("cards"));
}

}  // namespace
}  // namespace badgemint
