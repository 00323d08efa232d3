#include "inputcards/cardindex.h"

#include "support/testfiles.h"

namespace badgemint {
namespace {

int32_t addCards(int32_t count) {
  CardIndex index;
  for (int32_t i = 0; i < count; ++i) {
    if (const int32_t rc = index.add({}, 1, 'c', 1, 1, i); rc < 0) return rc;
  }
  return kSuccess;
}

TEST(CardIndex, TakesThreeQuartersOfTheMachinesMemory) {
  TestLog log;
  machinePages = 38;  // As many pages as an entry takes bytes with its bits in the checks.
  const auto entries = static_cast<int32_t>(sysconf(_SC_PAGESIZE) * 3 / 4);
  EXPECT_EQ(addCards(entries), kSuccess);
  EXPECT_EQ(log.take(), "");
  EXPECT_EQ(addCards(entries + 1), kOutOfMemory);
  EXPECT_EQ(log.take(), "[25 cardindex] Not enough memory to create card index\n");
  machinePages = -1;
  EXPECT_EQ(addCards(entries + 1), kSuccess) << "nothing is known of the machine";
  machinePages = 0;
}

}  // namespace
}  // namespace badgemint
