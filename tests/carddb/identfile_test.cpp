#include "carddb/identfile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <functional>

#include "carddb/accessfile.h"
#include "carddb/databases.h"
#include "cardsets/cardsets.h"
#include "support/masterconfiguration.h"
#include "support/result.h"

namespace badgemint {
namespace {

class IdentFileTest : public testing::Test {
 protected:
  void load(const std::vector<IdentRecord>& records, uint32_t capacity = 0) {
    ASSERT_TRUE(file.loadIndex(folder.write("ident", fileOf(records)).c_str(), capacity));
    log.take();
  }
  std::string marks() {
    std::string text;
    for (size_t i = 24; i < folder.read("ident").size(); i += 28)
      text += static_cast<char>('0' + folder.read("ident")[i]);
    return text;
  }

  TestLog log;
  TestFolder folder;
  IdentFile file;
  IdentRecord record;
  CardPattern paired{};
  uint32_t recno = 0, uniqid = 0, deleted = 0;
};

TEST_F(IdentFileTest, AppendsWithAndWithoutBuffer) {
  constexpr size_t kBuffered = RecordFile::kBufferSize / IdentRecord::kSize;
  const std::string path = folder.path("ident");
  std::vector<IdentRecord> appended;
  const auto append = [&](size_t times = 1) {
    for (; times > 0; --times) {
      appended.push_back(ident(1, static_cast<uint32_t>(appended.size())));
      EXPECT_EQ(file.appendRecord(appended.back()), kSuccess);
    }
    return folder.read("ident").size() / IdentRecord::kSize;
  };
  ASSERT_EQ(file.setFileName(path.c_str()), kSuccess);
  const mode_t mask = umask(0);
  ASSERT_EQ(file.openFile(O_RDWR | O_CREAT | O_TRUNC), kSuccess);
  umask(mask);
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms{0666});
  EXPECT_EQ(append(2), 2u);
  file.startBuffering();
  EXPECT_EQ(append(kBuffered - 1), 2u);
  EXPECT_FALSE(file.appendBufferFull());
  EXPECT_EQ(append(), 2u);
  EXPECT_TRUE(file.appendBufferFull());
  EXPECT_EQ(append(), 2 + kBuffered);  // Writes the buffer itself.
  const std::function<void()> accesses[] = {
      [&] { EXPECT_EQ(file.flushAppends(), kSuccess); },
      [&] { EXPECT_EQ(file.readNext(record), kEndOfFile); },
      [&] { EXPECT_EQ(file.readRecordAt(record, 1), kSuccess); },
      [&] { EXPECT_EQ(file.writeRecordAt(appended[1], 1), kSuccess); },
      [&] { EXPECT_TRUE(file.loadIndex(path.c_str(), 0)); },
      [&] { EXPECT_EQ(file.openFile(O_RDONLY), kSuccess); },
      [&] { EXPECT_EQ(file.closeFile(), kSuccess); }};
  for (const auto& access : accesses) {  // All of them write it before.
    access();
    EXPECT_EQ(folder.read("ident"), fileOf(appended));
    ASSERT_EQ(file.openFile(O_RDWR), kSuccess);
    file.startBuffering();
    append();
  }
  EXPECT_EQ(file.closeFile(), kSuccess);
  append();  // Opens and closes by itself.
  EXPECT_EQ(folder.read("ident"), fileOf(appended));
}

TEST_F(IdentFileTest, ReportsFailures) {
  std::string path = folder.path("none");
  const auto use = [&](const std::string& name) {
    path = name;
    ASSERT_EQ(file.setFileName(name.c_str()), kSuccess);
    ASSERT_EQ(file.openFile(O_RDWR), kSuccess);
  };
  const auto message = [&](const std::string& verb) {
    return "[identfile] Error " + verb + " ident file " + path + "\n";
  };
  EXPECT_EQ(file.readNext(record), kIdentReadFailed);
  EXPECT_EQ(file.readRecordAt(record, 0), -1);
  EXPECT_EQ(file.writeRecordAt(record, 0), -1);
  EXPECT_EQ(log.take(), "");
  ASSERT_EQ(file.setFileName(path.c_str()), kSuccess);
  EXPECT_EQ(file.appendRecord(record), kIdentOpenFailed);
  EXPECT_EQ(log.take(), message("opening"));
  ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
  use(folder.path("pipe"));  // Cannot be sought in.
  EXPECT_EQ(file.appendRecord(record), kIdentReadFailed);
  file.startBuffering();
  EXPECT_EQ(file.appendRecord(record), kSuccess);
  EXPECT_EQ(file.flushAppends(), kIdentReadFailed);
  EXPECT_EQ(file.closeFile(), kSuccess);  // Nothing is left to write.
  EXPECT_EQ(log.take(), message("reading") + message("reading"));
  use("/dev/full");
  EXPECT_EQ(file.appendRecord(record), kIdentWriteFailed);
  file.startBuffering();
  EXPECT_EQ(file.appendRecord(record), kSuccess);
  EXPECT_EQ(file.closeFile(), kIdentWriteFailed);
  EXPECT_EQ(log.take(), message("writing to") + message("writing to"));
  EXPECT_EQ(file.writeRecordAt(record, 0), -2);
  EXPECT_EQ(file.readNext(record), kSuccess);  // It is still open.
  use(folder.write("short", std::string(50, 'x')));
  EXPECT_EQ(file.readRecordAt(record, 1), -2);
  EXPECT_EQ(record, IdentRecord{});
  EXPECT_EQ(log.take(), "");
}

TEST_F(IdentFileTest, LoadsItsIndex) {
  file.indexStats(recno, uniqid);
  EXPECT_EQ(recno + uniqid, 0u);
  const std::string two = fileOf<IdentRecord>({ident(2, 1), ident(1, 2)}) + "tail";
  const struct {
    std::string content;
    uint32_t requested, count, capacity;
  } rows[] = {{"", 0, 0, 100}, {"", 1, 0, 1}, {two, 2, 2, 102}, {two, 3, 2, 3}};
  for (const auto& row : rows) {
    log.logger().setThreshold(25);
    ASSERT_TRUE(file.loadIndex(folder.write("ident", row.content).c_str(), row.requested));
    file.indexStats(recno, uniqid);
    EXPECT_EQ(recno, row.count);
    EXPECT_EQ(log.take(), "[identfile] nrecs = " + std::to_string(row.capacity) +
                              "\n[identfile] ident index created\n[identindx] creating idrecs\n"
                              "[identindx] idrecs created\n[identindx] indexs loaded\n"
                              "[identindx] idrecs sorted\n[identindx] deleting idrecs\n"
                              "[identfile] indxs created and loaded\n[identfile] indxs sorted\n"
                              "[identindx] ident index record size = 36 \n");
    EXPECT_EQ(uniqid, row.capacity);
  }
  EXPECT_FALSE(file.loadIndex(folder.path("none").c_str(), 0));
  EXPECT_EQ(log.take(), "[identfile] unable to stat " + folder.path("none") + "\n");

  const std::string text = "ident " + folder.path("ident") + " 5\n";
  MasterConfiguration configuration(0, folder.write("config", text).c_str());
  EXPECT_TRUE(file.loadIndexFromConfig(configuration));
  EXPECT_EQ(file.index()->capacity(), 5u);
  errno = EINVAL;
  EXPECT_FALSE(AccessFile().loadIndexFromConfig(configuration));
  EXPECT_EQ(errno, 0);
}

TEST_F(IdentFileTest, FindsAndVerifiesCards) {
  EXPECT_EQ(file.findCard(cardKey(1), record), kCardNotFound);
  EXPECT_EQ(file.verifyCard(cardKey(1), uniqid, deleted), -1);
  EXPECT_EQ(file.getPairedCard(cardKey(1), paired), kCardNotFound);
  EXPECT_EQ(file.setPairedCard(cardKey(1), paired), -1);
  EXPECT_EQ(file.addIndexKey(cardKey(1)), -1);

  load({ident(2, 20), ident(1, 10)});
  EXPECT_EQ(file.findCard(cardKey(1), record, recno), kSuccess);
  EXPECT_EQ(record, ident(1, 10));
  EXPECT_EQ(recno, 1u);
  EXPECT_EQ(file.findCard(cardKey(3), record), kCardNotFound);
  EXPECT_EQ(log.take(), "");
  EXPECT_EQ(file.verifyCard(cardKey(1), uniqid, deleted), kSuccess);
  EXPECT_EQ(uniqid, 10u);
  const std::string one = hex(cardKey(1)) + "\n", two = hex(cardKey(2)) + "\n";
  EXPECT_EQ(log.take(), "[identfile]    cardno " + one + "[identfile] chkcardno " + one +
                            "[identfile] uniqid = 10\n");

  folder.write("ident", fileOf<IdentRecord>({ident(1, 10)}));  // Behind the index's back.
  EXPECT_EQ(file.verifyCard(cardKey(2), uniqid, deleted), -2);
  EXPECT_EQ(log.take(), "[identfile]    cardno " + two + "[identfile] chkcardno " + one);
  EXPECT_EQ(file.addOrReplace(ident(2, 20)), -1);
  EXPECT_EQ(file.verifyCard(cardKey(1), uniqid, deleted), -1);
  EXPECT_EQ(file.findCard(cardKey(1), record), kIdentReadFailed);
}

TEST_F(IdentFileTest, AddsAndReplacesCards) {
  load({ident(2, 20), ident(1, 10)}, 3);
  EXPECT_EQ(file.addOrReplace(ident(1, 11, 5)), kSuccess);
  EXPECT_EQ(file.addOrReplace(ident(3, 30)), kSuccess);
  EXPECT_EQ(file.addOrReplace(ident(3, 31)), kSuccess);
  EXPECT_EQ(file.addOrReplace(ident(4, 40)), -1);  // Appended, but the index is full.
  EXPECT_EQ(folder.read("ident"),
            fileOf<IdentRecord>({ident(2, 20), ident(1, 11, 5), ident(3, 31), ident(4, 40)}));
}

TEST_F(IdentFileTest, DeletesAndRestoresAHoldersCards) {
  load({ident(1, 10), ident(2, 20), ident(3, 10, 255), ident(4, 40)});
  EXPECT_EQ(file.setCardDeleted(cardKey(3), uniqid), kSuccess);
  EXPECT_EQ(uniqid, 10u);
  EXPECT_EQ(file.setCardDeleted(cardKey(2), uniqid), kSuccess);
  EXPECT_EQ(marks(), "1110");
  EXPECT_EQ(file.setCardUndeleted(cardKey(1), uniqid), kSuccess);
  EXPECT_EQ(marks(), "0100");

  ASSERT_EQ(file.setPairedCard(cardKey(2), cardKey(4)), kSuccess);
  EXPECT_EQ(file.setCardUndeleted(cardKey(2), uniqid), kPairedHolderDiffers);
  EXPECT_EQ(uniqid, 20u);
  ASSERT_EQ(file.setPairedCard(cardKey(4), cardKey(9)), kSuccess);
  EXPECT_EQ(file.setCardDeleted(cardKey(4), uniqid), kCardNotFound);
  EXPECT_EQ(marks(), "0001");
  EXPECT_EQ(file.setCardDeleted(cardKey(9), uniqid), kCardNotFound);
  EXPECT_EQ(uniqid, 40u);
}

TEST_F(IdentFileTest, CountsUnloadedCardSets) {
  cardsets sets;
  EXPECT_EQ(file.countUnloadedCardSets(sets), kIdentOpenFailed);
  ASSERT_EQ(sets.load(folder.write("sets", "f 7 1\n").c_str()), kSuccess);
  load({ident(1, 1, 0), ident(2, 2, 7), ident(3, 3, 8), ident(4, 4, 254), ident(5, 5, 255),
        ident(6, 6, 253)});
  EXPECT_EQ(file.countUnloadedCardSets(sets), 2);
  EXPECT_NE(log.take().find("[identfile] cardset 8 not loaded \n"), std::string::npos);
}

}  // namespace
}  // namespace badgemint
