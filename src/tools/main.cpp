// The command line: seven arguments in, one result line out.
#include <csignal>
#include <cstdio>

#include "support/fieldscanner.h"
#include "support/standardfiles.h"
#include "tools/badgemint.h"

namespace {

constexpr int kArguments = 7;

}  // namespace

int main(int argc, char* argv[]) {
  if (takeStandardFiles() != 0) return -1;
  std::signal(SIGXFSZ, SIG_IGN);  // At a limit of file sizes, writing fails and has a result.
  if (argc != kArguments + 1) {
    std::puts(
        "Usage: badgemint InputCards IdentDBFile AccessDBFile FormatsFile CardSetsFile LogFile "
        "LogLevel");
    return -1;
  }
  const auto logLevel = static_cast<uint32_t>(badgemint::textToInt32(argv[kArguments]));
  const int32_t result =
      BadgeMint("", argv[1], argv[2], argv[3], argv[4], argv[5], argv[6], logLevel);
  std::printf("badgemint result = %d\n", result);
  return 0;  // The result line carries the result, not the exit status.
}
