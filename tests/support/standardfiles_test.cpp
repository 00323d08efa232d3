#include "support/standardfiles.h"

#include <sys/wait.h>
#include "support/testfiles.h"

namespace badgemint {
namespace {

// In a process of its own, which tells by its status: the lowest free descriptor afterwards.
int lowestFree(std::initializer_list<int> closed) {
  const pid_t child = fork();
  if (child == 0) {
    for (int file = 3; file < 100; ++file) close(file);
    for (const int file : closed) close(file);
    _exit(takeStandardFiles() != 0 ? -1 : dup(0));
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WEXITSTATUS(status);
}

TEST(StandardFiles, AreTakenWhereTheyAreClosed) {
  EXPECT_EQ(lowestFree({}), 3);
  EXPECT_EQ(lowestFree({0}), 3);
  EXPECT_EQ(lowestFree({1, 2}), 3);
  EXPECT_EQ(lowestFree({0, 1, 2}), 3);
  const ArmedFault fault({"open", 1});
  EXPECT_EQ(lowestFree({1}), 255) << "stays closed";
}

}  // namespace
}  // namespace badgemint
