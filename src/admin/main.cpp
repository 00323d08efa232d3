#include <sys/prctl.h>
#include <sys/resource.h>

#include <cstdlib>
#include <iostream>

#include "admin/verbs/verb.h"
#include "support/standardfiles.h"

// A core dump would hold PINs, in the folder of the site.
static void preventCoreDumps() {
  const struct rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
  prctl(PR_SET_DUMPABLE, 0);  // A program that the system hands dumps to ignores the limit.
}

int main(int argc, char* argv[]) {
  if (takeStandardFiles() != 0) return static_cast<int>(badgemint::admin::ExitStatus::kNotDone);
  preventCoreDumps();
  std::signal(SIGPIPE, SIG_IGN);  // A reader that has gone must not end a run halfway.
  std::signal(SIGXFSZ, SIG_IGN);  // A limit of file sizes is a write that fails.
  std::ios::sync_with_stdio(false);
  // https://no-color.org: any value but the empty one.
  const char* const noColor = std::getenv("NO_COLOR");
  badgemint::admin::Console console(std::cout, std::cerr,
                                    {.output = isatty(STDOUT_FILENO) == 1,
                                     .errors = isatty(STDERR_FILENO) == 1,
                                     .colours = noColor == nullptr || *noColor == '\0'});
  return badgemint::admin::run(argc, argv, console);
}
