// Readers of a site beside builds that replace its files.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <map>

#include "admin/adminrun.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

constexpr char kShow[] = "show 1";
constexpr char kDump[] = "dump";

void build(const char* cards) {
  runAdmin(std::string("build --max-removed 100% --cards ") + cards);
}

// One of the two states as a whole; or nothing and a message, after five seconds of waiting that
// are much shorter here.
TEST(Site, IsReadAsOneStateWhileBuildsReplaceIt) {
  const TestSite site;
  std::filesystem::rename("formats", "formats.txt");
  site.folder.write("a", "f 1 1 A=1\nc 1 100 0 1 11\n");
  site.folder.write("b", "f 1 1 A=2\nc 1 200 0 1 22\nc 1 201 0 2 22\n");
  std::map<std::string, int> seen;  // How often each output was there.
  for (const char* const cards : {"a", "b"}) {
    build(cards);
    for (const char* const verb : {kShow, kDump}) seen[runAdmin(verb).output] = 0;
  }
  const pid_t builder = fork();
  while (builder == 0) {
    build("a");
    build("b");
  }
  for (int i = 0; i < 500; ++i)
    for (const char* const verb : {kShow, kDump}) {
      const AdminRun run = runAdmin(verb);
      const bool isBusy = run.status == 3 && run.output.empty();
      EXPECT_TRUE(isBusy || seen.contains(run.output)) << run.output << run.errors;
      ++seen[run.output];
    }
  kill(builder, SIGKILL);
  waitpid(builder, nullptr, 0);
  for (const auto& [output, count] : seen)
    if (!output.empty()) EXPECT_GT(count, 0) << output;
}

TEST(Site, IsNotReadAfterAReplacementThatWasCutShort) {
  const TestSite site;
  std::filesystem::rename("formats", "formats.txt");
  site.folder.write("cards.txt", "f 1 1 A=1\nc 1 100 0 1 11\n");
  build("cards.txt");
  std::filesystem::create_directory(".badgemint-admin");
  for (const char* const verb : {"show 1", "diff . ."}) EXPECT_EQ(runAdmin(verb).status, 0);
  site.folder.write(".badgemint-admin/journal", "");
  for (const char* const verb : {"show 1", "diff . .", "verify", "dump"}) {
    const AdminRun run = runAdmin(verb);
    EXPECT_EQ(run.status, 3) << verb;
    EXPECT_EQ(run.output, "") << verb;
    EXPECT_NE(run.errors.find("cut short"), std::string::npos) << run.errors;
  }
}

}  // namespace
}  // namespace badgemint::admin
