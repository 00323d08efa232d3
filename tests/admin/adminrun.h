// Runs badgemint-admin in process, as its user sees it.
#ifndef BADGEMINT_TESTS_ADMIN_ADMINRUN_H
#define BADGEMINT_TESTS_ADMIN_ADMINRUN_H

#include <iomanip>
#include <sstream>

#include "admin/commandline.h"
#include "support/testfiles.h"

namespace badgemint::admin {

struct AdminRun {
  int status = 0;
  std::string output, errors;
  bool struck = false;  // Whether the fault has come to pass.
};

// The arguments stand behind the name of the program, separated by blanks or in double quotes.
inline AdminRun runAdmin(const std::string& line, const Fault& fault = {}) {
  std::istringstream words("badgemint-admin " + line);
  std::vector<std::string> arguments;
  for (std::string word; words >> std::quoted(word);) arguments.push_back(word);
  std::vector<const char*> argv;
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  std::ostringstream output, errors;
  Console console(output, errors, false);
  AdminRun result;
  {
    const ArmedFault armed(fault);
    result.status = run(static_cast<int>(argv.size()), argv.data(), console);
    result.struck = armed.struck();
  }
  result.output = output.str();
  result.errors = errors.str();
  return result;
}

}  // namespace badgemint::admin

#endif  // BADGEMINT_TESTS_ADMIN_ADMINRUN_H
