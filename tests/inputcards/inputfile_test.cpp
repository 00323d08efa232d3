// What the second pass writes is what the first has checked: the input is one file that stays.
#include "inputcards/inputfile.h"

#include <sys/stat.h>

#include "support/result.h"
#include "support/testsite.h"

namespace badgemint {
namespace {

constexpr char kCards[] = "f 1 1 A 21\nc 1 7 0 1\n";
constexpr char kChanged[] = "[25 inputcards] Input cards file cards changed during the build\n";

TEST(InputFile, IsKnownByMoreThanItsSizeAndTime) {
  const TestSite site;
  TestLog log;
  site.folder.write("cards", kCards);
  const auto time = std::filesystem::last_write_time("cards");
  InputFile input;
  EXPECT_TRUE(input.setName("cards"));
  EXPECT_EQ(input.open(), kSuccess);
  usleep(20000);  // Times of files move on in steps of some milliseconds.
  site.folder.write("cards", "f 1 1 A 21\nc 1 8 0 1\n");
  std::filesystem::last_write_time("cards", time);
  EXPECT_EQ(input.open(), kInputReadFailed);
  EXPECT_EQ(log.take(), kChanged);
}

TEST(InputFile, CanBeReadTwice) {
  const TestSite site;
  TestLog log(25);
  mkfifo("pipe", 0600);
  mknod("socket", S_IFSOCK | 0600, 0);
  InputFile input;
  for (const std::string name : {"pipe", "socket", "/dev/zero"}) {
    EXPECT_TRUE(input.setName(name.c_str()));
    EXPECT_EQ(input.open(), kInputReadFailed);
    EXPECT_EQ(log.take(), "[25 inputcards] Input cards file " + name + " cannot be read twice\n");
  }
  EXPECT_TRUE(input.setName("/dev/null"));
  EXPECT_EQ(input.open(), kSuccess);
}

// A build with something between its passes.
int32_t build(const char* ident, const std::string& appended) {
  std::ofstream("cards") << kCards;
  InputCards loader("cards", ident, "access", "cardsets");
  EXPECT_EQ(loader.loadFormats("", "formats"), kSuccess);
  EXPECT_EQ(loader.pass1(), kSuccess);
  std::ofstream("cards", std::ios::app) << appended;
  return loader.pass2();
}

TEST(InputFile, ChangesDuringTheBuild) {
  const TestSite site;
  TestLog log(25);
  EXPECT_EQ(build("ident", "c 1 8 0 2\n"), kInputReadFailed) << "between the passes";
  EXPECT_FALSE(std::filesystem::exists("ident"));
  EXPECT_EQ(build("cards", ""), kInputReadFailed) << "is the ident database as well";
  EXPECT_TRUE(log.take().ends_with(kChanged));
  EXPECT_FALSE(std::filesystem::exists("cardsets"));
}

}  // namespace
}  // namespace badgemint
