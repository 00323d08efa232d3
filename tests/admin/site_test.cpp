// Readers of a site beside builds that replace its files.
#include <sys/wait.h>

#include <csignal>
#include <map>

#include "admin/adminrun.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

constexpr const char* kVerbs[] = {"show 1", "dump"};

void build(const char* cards) {
  runAdmin(std::string("build --max-removed 100% --cards ") + cards);
}

// One of the two states as a whole; or nothing and a message, after five seconds of waiting that
// are much shorter here.
TEST(Site, IsReadAsOneStateWhileBuildsReplaceIt) {
  const TestSite site("formats.txt");
  site.folder.write("a", "f 1 1 A=1\nc 1 100 0 1 11\n");
  site.folder.write("b", "f 1 1 A=2\nc 1 200 0 1 22\nc 1 201 0 2 22\n");
  std::map<std::string, int> seen;  // How often each output was there.
  for (const char* const cards : {"a", "b"}) {
    build(cards);
    for (const char* const verb : kVerbs) seen[runAdmin(verb).output] = 0;
  }
  const pid_t builder = fork();
  while (builder == 0) {
    build("a");
    build("b");
  }
  for (int i = 0; i < 500; ++i)
    for (const char* const verb : kVerbs) {
      const AdminRun run = runAdmin(verb);
      const bool isBusy = run.status == 3 && run.output.empty();
      EXPECT_TRUE(isBusy || seen.contains(run.output)) << run.output << run.errors;
      ++seen[run.output];
    }
  kill(builder, SIGKILL);
  waitpid(builder, nullptr, 0);
  for (const auto& [output, count] : seen) EXPECT_TRUE(output.empty() || count > 0) << output;
}

}  // namespace
}  // namespace badgemint::admin
