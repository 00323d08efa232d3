// Runs badgemint-admin in process, as its user sees it.
#ifndef BADGEMINT_TESTS_ADMIN_ADMINRUN_H
#define BADGEMINT_TESTS_ADMIN_ADMINRUN_H

#include <sys/wait.h>

#include <iomanip>
#include <sstream>

#include "admin/verbs/verb.h"
#include "support/testsite.h"

namespace badgemint::admin {

// What buildCards writes.
inline const std::string kSite =
    " --formats formats --ident ident --access access --cardsets cardsets";

struct AdminRun {
  int status = 0;
  std::string output, errors;
  bool faultOccurred = false;  // Whether the fault occurred.
  int calls = 0;               // Of the kind of the fault.
  int signal = 0;              // That has ended the process.
};

// The arguments follow the name of the program, separated by blanks or in double quotes.
inline AdminRun runAdmin(const std::string& line, const Fault& fault, std::ostream& output,
                         std::ostream& errors) {
  std::istringstream words("badgemint-admin " + line);
  std::vector<std::string> arguments;
  for (std::string word; words >> std::quoted(word);) arguments.push_back(word);
  std::vector<const char*> argv;
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  Console console(output, errors, {});
  AdminRun result;
  const ArmedFault armed(fault);
  result.status = run(static_cast<int>(argv.size()), argv.data(), console);
  result.faultOccurred = armed.hasOccurred();
  result.calls = armed.calls();
  return result;
}

inline AdminRun runAdmin(const std::string& line, const Fault& fault = {}) {
  std::string room;
  room.reserve(size_t{1} << 12);  // For messages about memory that has run out.
  std::ostringstream output, errors(std::move(room));
  AdminRun result = runAdmin(line, fault, output, errors);
  result.output = output.str();
  result.errors = errors.str();
  return result;
}

// The same in a process of its own, which a signal may end.
inline AdminRun runAdminProcess(const std::string& line, const Fault& fault) {
  const TestFolder streams;
  const pid_t child = fork();
  if (child == 0) {
    std::ofstream output(streams.path("output")), errors(streams.path("errors"));
    const AdminRun run = runAdmin(line, fault, output, errors);
    _exit(run.status);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  AdminRun result;
  result.output = contentOf(streams.path("output"));
  result.errors = contentOf(streams.path("errors"));
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  result.faultOccurred = WIFSIGNALED(status);
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  return result;
}

// A command line, its exit status, and parts of its output and of its messages; none where "" is.
struct Expected {
  std::string line;
  int status;
  std::string output, errors = "";
};
inline void expectRuns(const std::vector<Expected>& runs) {
  for (const auto& [line, status, output, errors] : runs) {
    SCOPED_TRACE(line);
    const AdminRun run = runAdmin(line);
    EXPECT_EQ(run.status, status);
    EXPECT_TRUE(contains(run.output, output));
    EXPECT_TRUE(contains(run.errors, errors));
    EXPECT_EQ(run.output.empty(), output.empty()) << run.output;
    EXPECT_EQ(run.errors.empty(), errors.empty()) << run.errors;
  }
}

}  // namespace badgemint::admin

#endif  // BADGEMINT_TESTS_ADMIN_ADMINRUN_H
