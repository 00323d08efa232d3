#include "support/standardfiles.h"

#include "support/testfiles.h"

namespace badgemint {

// The result, and whether the descriptor is open afterwards.
std::pair<int, bool> takenWithout(int closed) {
  const int kept = dup(closed);
  close(closed);
  const int result = takeStandardFiles();
  const bool isOpen = fcntl(closed, F_GETFD) >= 0;
  dup2(kept, closed);
  close(kept);
  return {result, isOpen};
}

TEST(StandardFiles, AreTakenWhereTheyAreClosed) {
  for (const int file : {0, 1, 2}) EXPECT_EQ(takenWithout(file), std::pair(0, true)) << file;
  const ArmedFault fault({"open", 1});
  EXPECT_EQ(takenWithout(1), std::pair(-1, false));
}

}  // namespace badgemint
