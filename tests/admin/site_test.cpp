// Readers of a site beside builds that replace its files.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>

#include "admin/adminrun.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

constexpr char kShow[] = "show 1";
constexpr char kDump[] = "dump";

void build(const char* cards) {
  runAdmin(std::string("build --max-removed 100% --cards ") + cards);
}

TEST(Site, IsReadAsOneStateWhileBuildsReplaceIt) {
  const TestSite site;
  std::filesystem::rename("formats", "formats.txt");
  site.folder.write("a", "f 1 1 A=1\nc 1 100 0 1 11\n");
  site.folder.write("b", "f 1 1 A=2\nc 1 200 0 1 22\nc 1 201 0 2 22\n");
  std::vector<std::string> shown, dumped;
  for (const char* const cards : {"a", "b"}) {
    build(cards);
    shown.push_back(runAdmin(kShow).output);
    dumped.push_back(runAdmin(kDump).output);
  }
  const pid_t builder = fork();
  while (builder == 0) {
    build("a");
    build("b");
  }
  size_t counts[2] = {};
  for (int i = 0; i < 500; ++i) {
    const AdminRun show = runAdmin(kShow), dump = runAdmin(kDump);
    for (size_t state = 0; state < 2; ++state) counts[state] += show.output == shown[state];
    EXPECT_TRUE(show.output == shown[0] || show.output == shown[1]) << show.output << show.errors;
    EXPECT_TRUE(dump.output == dumped[0] || dump.output == dumped[1]) << dump.output << dump.errors;
  }
  kill(builder, SIGKILL);
  waitpid(builder, nullptr, 0);
  EXPECT_GT(std::min(counts[0], counts[1]), 0U);
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
