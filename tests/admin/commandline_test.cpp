// What the command line does, and how it reports what it cannot do.
#include <poll.h>

#include "admin/adminrun.h"

namespace badgemint::admin::commandline_test {

TEST(CommandLine, DoesWhatItIsAskedOrReportsWhyNot) {
  const TestSite site;
  expectRuns({
      {"--version", 0, "badgemint-admin " BADGEMINT_VERSION "\n"},
      {"-C . help", 0, "Usage: badgemint-admin [OPTIONS]"},
      {"help build", 0, "Usage: badgemint-admin build [OPTIONS]"},
      {"", 3, "", "no verb given (badgemint-admin help lists them)"},
      {"biuld --keep", 3, "", "there is no verb biuld; did you mean build? (see"},
      {"check --form x", 3, "", "check has no option --form; did you mean --formats? (see"},
      {"check --colour\x07", 3, "", "check has no option --colour\\x07 (see"},
      {"check one two", 3, "", "check: unexpected word one (see"},
      {"--max-removed=0 build", 3, "", "after the verb: badgemint-admin build --max-removed"},
      {"-V", 3, "", "badgemint-admin has no option -V (see"},
      {"check -C .", 3, "", "before the verb: badgemint-admin -C DIR check"},
      {"build --level many", 3, "", "--level \"many\" is not a number from 0"},
      {"check --cards a --cards b", 3, "", "--cards: too few or too many values"},
      {"-C \"\" check", 3, "", "the value is empty"},  // As an unset variable gives it.
      {"format \"\"", 3, "", "the value is empty"},
      {"-C none check", 3, "", "none: No such file or directory"},
  });
}

TEST(CommandLine, CompletesVerbsOptionsAndFiles) {
  const TestSite site;
  writeFile("completion", runAdmin("completion").output);
  const std::pair<std::string, std::string> kCases[] = {{"''", "help"},
                                                        {"ver", "verify"},
                                                        {"-C . dec", "decode"},
                                                        {"build --max", "--max-removed"},
                                                        {"build --cards form", "formats"},
                                                        {"format 26", "26.cdf"}};
  for (const auto& [line, first] : kCases) {
    const std::string script = "source ./completion; compopt() { :; }; COMP_WORDS=(admin " + line +
                               "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _badgemint_admin; "
                               "echo -n \"$COMPREPLY\" >first";
    writeFile("script", script);
    ASSERT_EQ(std::system("bash script"), 0);
    EXPECT_EQ(contentOf("first"), first) << line;
  }
}

TEST(CommandLine, ShowsOnATerminalThatWorkGoesOn) {
  std::ostringstream output, errors;
  Console(output, errors, {}).showProgress("check");
  Console console(output, errors, {.errors = true});
  console.showProgress("check");
  console.print("a holder\n");
  EXPECT_EQ(Console(output, errors, {.output = true}).severityText(true), "\033[1;31merror\033[0m");
  poll(nullptr, 0, 1500);
  console.report("wrong");
  EXPECT_EQ(errors.str(), "\rcheck: 1 s\r\033[K\033[1;31mbadgemint-admin:\033[0m wrong\n");
}

}  // namespace badgemint::admin::commandline_test
