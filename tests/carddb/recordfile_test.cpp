// A failed append leaves whole records only: a part of one would put all later ones out of step.
#include "carddb/recordfile.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "carddb/accessfile.h"
#include "carddb/identfile.h"
#include "support/faults.h"
#include "support/result.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

class RecordFileTest : public testing::Test {
 protected:
  TestFolder folder;
  TestLog log;
  const std::string before = std::string(3 * IdentRecord::kSize, 'x') + "torn";
  const std::string path = folder.write("ident", before);
};

TEST_F(RecordFileTest, TakesBackAFailedAppend) {
  const Fault faults[] = {{.call = "write", .nth = 1},
                          {.call = "write", .nth = 1, .isShort = true},
                          {.call = "close", .nth = 1}};
  for (const Fault& fault : faults) {
    IdentFile file;
    ASSERT_EQ(file.setFileName(path.c_str()), kSuccess);
    const ArmedFault armed(fault);
    EXPECT_EQ(file.appendRecord({}), kIdentWriteFailed) << fault.call;
    EXPECT_EQ(folder.read("ident"), before) << fault.call;
  }
}

TEST_F(RecordFileTest, KeepsTheWholeRecordsOfAFailedFlush) {
  constexpr int kRecords = 5;
  AccessFile file;
  ASSERT_EQ(file.setFileName(path.c_str()), kSuccess);
  ASSERT_EQ(file.openFile(O_WRONLY | O_TRUNC), kSuccess);
  file.startBuffering();
  for (uint32_t uniqid = 1; uniqid <= kRecords; ++uniqid) {
    AccessRecord record;
    record.uniqid = uniqid;
    ASSERT_EQ(file.appendRecord(record), kSuccess);
  }
  // Half of what is left is written each time, until nothing is taken: 110, 55, 27 bytes and so on.
  {
    const ArmedFault armed({.call = "write", .forEver = true, .isShort = true});
    EXPECT_EQ(file.flushAppends(), kAccessWriteFailed);
  }
  EXPECT_EQ(folder.read("ident").size(), (kRecords - 1) * AccessRecord::kSize);
  EXPECT_EQ(file.appendRecord({}), kSuccess);
  EXPECT_EQ(file.closeFile(), kSuccess);
  EXPECT_EQ(folder.read("ident").size(), kRecords * AccessRecord::kSize);
}

TEST(AccessIndex, WalksOverEntriesWhoseStateCanBeSet) {
  AccessIndex index;
  ASSERT_TRUE(index.create(3));
  EXPECT_EQ(index.insert(7), kSuccess);
  EXPECT_EQ(index.insert(5), kSuccess);
  for (AccessIndexEntry* entry = index.first(); entry != nullptr; entry = index.next())
    AccessIndex::setState(*entry, 1);
  EXPECT_EQ(index.find(5)->state.value, 2u);
  EXPECT_EQ(index.find(7)->state.value, 2u);
}

}  // namespace
}  // namespace badgemint
