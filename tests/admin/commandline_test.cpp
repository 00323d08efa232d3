// What the command line asks for, and what is said of one that asks for nothing.
#include <gtest/gtest.h>

#include "admin/adminrun.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

TEST(CommandLine, DoesWhatItIsAskedOrSaysWhyNot) {
  const TestSite site;
  const struct {
    const char* line;
    int status;
    const char *output, *errors;
  } kCases[] = {
      {"--version", 0, "badgemint-admin " BADGEMINT_VERSION "\n", ""},
      {"help", 0, "Usage: badgemint-admin [OPTIONS]", ""},
      {"--help", 0, "Usage: badgemint-admin [OPTIONS]", ""},
      {"help build", 0, "Usage: badgemint-admin build [OPTIONS]", ""},
      {"build --help", 0, "--max-removed N or N%", ""},
      {"help none", 3, "", "there is no verb none"},
      {"", 3, "", "no verb given (badgemint-admin help lists them)"},
      {"biuld", 3, "", "(see badgemint-admin help)"},
      {"check --colour\x07", 3, "", "--colour\\x07 (see badgemint-admin help)"},
      {"build --level many", 3, "", "--level"},
      {"-C . help", 0, "check", ""},
      {"-C none check", 3, "", "none: No such file or directory"},
  };
  for (const auto& [line, status, output, errors] : kCases) {
    SCOPED_TRACE(line);
    const AdminRun run = runAdmin(line);
    EXPECT_EQ(run.status, status);
    EXPECT_TRUE(run.output.find(output) != std::string::npos &&
                run.output.empty() == (status != 0));
    EXPECT_NE(run.errors.find(errors), std::string::npos) << run.errors;
  }
}

TEST(CommandLine, FailsWithoutStandardOutput) {
  std::ostringstream output, errors;
  output.setstate(std::ios::badbit);
  Console console(output, errors, true);
  const char* const argv[] = {"badgemint-admin", "help"};
  EXPECT_EQ(run(2, argv, console), 3);
  EXPECT_EQ(errors.str(), "badgemint-admin: standard output cannot be written\n");
  EXPECT_EQ(console.inErrorColour("error"), "\033[1;31merror\033[0m");
}

}  // namespace
}  // namespace badgemint::admin
