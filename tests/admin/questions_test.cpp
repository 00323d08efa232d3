// What the verbs that answer questions have in common: they change nothing, whatever fails.
#include <gtest/gtest.h>

#include "admin/adminrun.h"
#include "admin/files/replacement.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

const std::string kCards =
    "f 1 1 A=21\nf 2 2\nc 1 15890 12345678 1 1 2 0 0 0 0 0 8 1 0 1 2 2024/1/1 0 2031/12/31 "
    "23:59:58 3 4 1\no 0099 1\nn 0 1A2b30 0 2 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
    "p 1234 3 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\nd 2 2147483640 3 4294967290 9\n";
const std::string kSite = " --formats formats --cardsets cardsets --ident ident --access access";
const std::string kCheck = "check --cards cards --formats formats";
const std::string kQuestions[] = {"diff . ." + kSite,
                                  "show --card 1:15890 1" + kSite,
                                  "verify --cards cards" + kSite,
                                  "dump" + kSite,
                                  "pattern 1 15890 --formats formats --cardsets cardsets",
                                  "decode 022A7C24 --formats formats --cardsets cardsets "
                                  "--ident ident"};

// The names and contents of all files but formats.
std::string files() {
  std::string all;
  for (const auto& entry : std::filesystem::directory_iterator("."))
    all += entry.path().string() + contentOf(entry.path().string());
  return all;
}

TEST(Questions, SayWhatFailsAndChangeNothing) {
  const TestSite site;
  ASSERT_EQ(buildCards(kCards), 0);
  const std::string before = files();
  std::vector<std::string> lines(std::begin(kQuestions), std::end(kQuestions));
  lines.insert(lines.end(), {kCheck, "format 26.cdf 32.cdf"});
  for (const std::string& question : lines) {
    const AdminRun whole = runAdmin(question);
    EXPECT_EQ(whole.errors, "");
    for (const char* const call : {"any", "new", "allocate"}) {
      for (int nth = 1; !HasFailure(); ++nth) {
        SCOPED_TRACE(question + ' ' + call + ' ' + std::to_string(nth));
        const AdminRun run = runAdmin(question, {.call = call, .nth = nth});
        if (!run.struck) break;
        const bool isSame = run.status == whole.status && run.output == whole.output;
        EXPECT_TRUE(isSame || !run.errors.empty() || run.status == 2) << run.output;
        EXPECT_EQ(files(), before);
      }
    }
  }
}

TEST(Questions, TellOfReplacementsThatWereCutShort) {
  const TestSite site;
  ASSERT_EQ(buildCards(kCards), 0);
  std::filesystem::create_directory(kPrivatePlace);
  site.folder.write(kPrivatePlace + std::string("/journal"), "");
  for (const std::string& question : kQuestions)
    EXPECT_NE(runAdmin(question).errors.find("was cut short"), std::string::npos) << question;
}

}  // namespace
}  // namespace badgemint::admin
