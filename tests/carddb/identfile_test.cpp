#include "carddb/identfile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <functional>

#include "carddb/databases.h"
#include "support/masterconfiguration.h"
#include "support/result.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

constexpr int kCreate = O_WRONLY | O_CREAT | O_TRUNC;

class IdentFileTest : public testing::Test {
 protected:
  void use(const std::string& filePath) {
    path = filePath;
    ASSERT_EQ(file.setFileName(path.c_str()), kSuccess);
  }
  void load(const std::vector<IdentRecord>& records, uint32_t capacity = 0) {
    path = folder.write("ident", fileOf(records));
    ASSERT_TRUE(file.loadIndex(path.c_str(), capacity));
    log.take();
  }
  std::string message(const std::string& verb) const {
    return "[identfile] Error " + verb + " ident file " + path + "\n";
  }
  std::vector<IdentRecord> stored() {
    std::vector<IdentRecord> records;
    IdentRecord record;
    EXPECT_EQ(file.openFile(O_RDONLY), kSuccess);
    while (file.readNext(record) == kSuccess) records.push_back(record);
    EXPECT_EQ(file.readNext(record), kEndOfFile);
    EXPECT_EQ(file.closeFile(), kSuccess);
    return records;
  }

  TestLog log;
  TestFolder folder;
  IdentFile file;
  std::string path;
};

TEST_F(IdentFileTest, AppendsWithAndWithoutBuffer) {
  use(folder.path("ident"));
  IdentRecord record;
  EXPECT_EQ(file.readNext(record), kIdentReadFailed);
  EXPECT_EQ(log.take(), "");
  const mode_t mask = umask(022);
  EXPECT_EQ(file.openFile(kCreate), kSuccess);
  umask(mask);
  struct stat status;
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0644u);

  std::vector<IdentRecord> records;
  const auto append = [&] {
    records.push_back(ident(1, static_cast<uint32_t>(records.size())));
    return file.appendRecord(records.back());
  };
  EXPECT_EQ(append(), kSuccess);
  EXPECT_EQ(folder.read("ident").size(), 28u);
  file.startBuffering();
  while (!file.appendBufferFull()) EXPECT_EQ(append(), kSuccess);
  EXPECT_EQ(records.size(), 1 + RecordFile::kBufferSize / 28);
  EXPECT_EQ(folder.read("ident").size(), 28u);
  EXPECT_EQ(append(), kSuccess);  // Writes the buffer itself.
  EXPECT_EQ(folder.read("ident").size(), 28u * (records.size() - 1));
  EXPECT_EQ(file.flushAppends(), kSuccess);
  EXPECT_EQ(folder.read("ident"), fileOf(records));
  EXPECT_EQ(append(), kSuccess);
  EXPECT_EQ(file.closeFile(), kSuccess);
  EXPECT_EQ(append(), kSuccess);  // Opens and closes by itself.
  EXPECT_EQ(stored(), records);
  EXPECT_EQ(log.take(), "");
}

TEST_F(IdentFileTest, WritesItsBufferBeforeAnyOtherAccess) {
  const std::vector<IdentRecord> records = {ident(1, 1), ident(2, 2)};
  const std::function<void()> accesses[] = {
      [&] { EXPECT_EQ(file.closeFile(), kSuccess); },
      [&] { EXPECT_EQ(file.openFile(O_RDONLY), kSuccess); },
      [&] {
        IdentRecord record;
        EXPECT_EQ(file.readNext(record), kEndOfFile);
      },
      [&] {
        IdentRecord record;
        EXPECT_EQ(file.readRecordAt(record, 1), kSuccess);
        EXPECT_EQ(record, records[1]);
      },
      [&] { EXPECT_EQ(file.writeRecordAt(records[1], 1), kSuccess); },
      [&] { EXPECT_TRUE(file.loadIndex(path.c_str(), 0)); }};
  for (const auto& access : accesses) {
    use(folder.path("ident"));
    ASSERT_EQ(file.openFile(O_RDWR | O_CREAT | O_TRUNC), kSuccess);
    file.startBuffering();
    for (const IdentRecord& record : records) ASSERT_EQ(file.appendRecord(record), kSuccess);
    access();
    EXPECT_EQ(folder.read("ident"), fileOf(records));
  }
  {
    IdentFile dying;
    ASSERT_EQ(dying.setFileName(path.c_str()), kSuccess);
    ASSERT_EQ(dying.openFile(kCreate), kSuccess);
    dying.startBuffering();
    ASSERT_EQ(dying.appendRecord(records[0]), kSuccess);
  }
  EXPECT_EQ(folder.read("ident").size(), 28u);
}

TEST_F(IdentFileTest, ReportsFailures) {
  use(folder.path("none"));
  IdentRecord record = ident(7, 7);
  const IdentRecord untouched = record;
  EXPECT_EQ(file.appendRecord(record), kIdentOpenFailed);
  EXPECT_EQ(log.take(), message("opening"));
  EXPECT_EQ(file.readRecordAt(record, 0), -1);
  EXPECT_EQ(file.writeRecordAt(record, 0), -1);
  EXPECT_FALSE(folder.has("none"));

  use(folder.path(""));
  EXPECT_EQ(file.openFile(O_RDONLY), kSuccess);
  EXPECT_EQ(file.readNext(record), kIdentReadFailed);
  EXPECT_EQ(log.take(), message("reading"));

  use(folder.path("pipe"));
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  ASSERT_EQ(file.openFile(O_RDWR), kSuccess);
  EXPECT_EQ(file.appendRecord(record), kIdentReadFailed);  // Cannot be sought in.
  file.startBuffering();
  ASSERT_EQ(file.appendRecord(record), kSuccess);
  EXPECT_EQ(file.flushAppends(), kIdentReadFailed);
  EXPECT_EQ(file.closeFile(), kSuccess);  // Nothing is left to write.
  EXPECT_EQ(log.take(), message("reading") + message("reading"));

  use("/dev/full");
  ASSERT_EQ(file.openFile(O_RDWR), kSuccess);
  file.startBuffering();
  while (!file.appendBufferFull()) ASSERT_EQ(file.appendRecord(record), kSuccess);
  EXPECT_EQ(file.appendRecord(record), kIdentWriteFailed);
  ASSERT_EQ(file.appendRecord(record), kSuccess);
  EXPECT_EQ(file.closeFile(), kIdentWriteFailed);
  EXPECT_EQ(log.take(), message("writing to") + message("writing to"));

  const size_t size = kFarRecord * IdentRecord::kSize + 20;
  use(folder.write("short", std::string(size, 'x')));
  EXPECT_EQ(file.readRecordAt(record, kFarRecord), -2);
  EXPECT_EQ(record, untouched);
  const FileSizeLimit limit(size + 2);
  EXPECT_EQ(file.writeRecordAt(record, kFarRecord), -2);
  ASSERT_EQ(file.readNext(record), kEndOfFile);  // It is still open, behind the part.
  EXPECT_EQ(file.appendRecord(record), kIdentWriteFailed);
  EXPECT_EQ(folder.read("short").size(), size + 2);
  EXPECT_EQ(log.take(), message("writing to"));
}

TEST_F(IdentFileTest, LoadsItsIndex) {
  const std::string two = fileOf<IdentRecord>({ident(2, 1), ident(1, 1)});
  const struct {
    std::string content;
    uint32_t requested, count, capacity;
  } rows[] = {
      {"", 0, 0, 100}, {"", 1, 0, 1}, {two, 0, 2, 102}, {two + "tail", 2, 2, 102}, {two, 3, 2, 3}};
  uint32_t count = 9, capacity = 9;
  file.indexStats(count, capacity);
  EXPECT_EQ(count + capacity, 0u);
  log.logger().setThreshold(25);
  for (const auto& row : rows) {
    ASSERT_TRUE(file.loadIndex(folder.write("ident", row.content).c_str(), row.requested));
    file.indexStats(count, capacity);
    EXPECT_EQ(count, row.count);
    EXPECT_EQ(capacity, row.capacity);
    EXPECT_EQ(log.take(),
              "[identfile] nrecs = " + std::to_string(row.capacity) +
                  "\n[identfile] ident index created\n[identindx] creating idrecs\n"
                  "[identindx] idrecs created\n[identindx] indexs loaded\n"
                  "[identindx] idrecs sorted\n" +
                  (count == 0 ? "" : "[identindx] uniqid=1 has both card and pin ident records\n") +
                  "[identindx] deleting idrecs\n[identfile] indxs created and loaded\n"
                  "[identfile] indxs sorted\n[identindx] ident index record size = 36 \n");
  }
  EXPECT_FALSE(file.loadIndex(folder.path("none").c_str(), 0));
  EXPECT_EQ(log.take(), "[identfile] unable to stat " + folder.path("none") + "\n");
  EXPECT_NE(file.index(), nullptr);
  EXPECT_FALSE(file.loadIndex(folder.path("").c_str(), 1));
  file.indexStats(count, capacity);
  EXPECT_EQ(count, 0u);
}

TEST_F(IdentFileTest, LoadsItsIndexFromTheConfiguration) {
  folder.write("ident", fileOf<IdentRecord>({ident(2, 1)}));
  const std::string text = "ident " + folder.path("ident") + " 5\n";
  MasterConfiguration configuration(0, folder.write("config", text).c_str());
  EXPECT_TRUE(file.loadIndexFromConfig(configuration));
  EXPECT_EQ(file.index()->capacity(), 5u);
  MasterConfiguration none(0, folder.write("config", "access x 5\n").c_str());
  errno = EINVAL;
  EXPECT_FALSE(file.loadIndexFromConfig(none));
  EXPECT_EQ(errno, 0);
}

TEST_F(IdentFileTest, FindsAndVerifiesCards) {
  IdentRecord record;
  uint32_t recno = 9, uniqid = 9, deleted = 9;
  CardPattern paired{};
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
  EXPECT_EQ(file.setPairedCard(cardKey(1), cardKey(8)), kSuccess);
  EXPECT_EQ(file.getPairedCard(cardKey(1), paired), kSuccess);
  EXPECT_EQ(paired, cardKey(8));
  EXPECT_EQ(log.take(), "");
  EXPECT_EQ(file.verifyCard(cardKey(1), uniqid, deleted), kSuccess);
  EXPECT_EQ(uniqid + deleted, 10u);
  const std::string one = hex(cardKey(1)), two = hex(cardKey(2));
  EXPECT_EQ(log.take(), "[identfile]    cardno " + one + "\n[identfile] chkcardno " + one +
                            "\n[identfile] uniqid = 10\n");

  folder.write("ident", fileOf<IdentRecord>({ident(1, 10)}));  // Behind the index's back.
  EXPECT_EQ(file.verifyCard(cardKey(2), uniqid, deleted), -2);
  EXPECT_EQ(log.take(), "[identfile]    cardno " + two + "\n[identfile] chkcardno " + one + "\n");
  EXPECT_EQ(file.addOrReplace(ident(2, 20)), -1);
  EXPECT_EQ(file.verifyCard(cardKey(1), uniqid, deleted), -1);
  EXPECT_EQ(file.findCard(cardKey(1), record), kIdentReadFailed);
  EXPECT_EQ(log.take(), "");
}

TEST_F(IdentFileTest, AddsAndReplacesCards) {
  load({ident(2, 20), ident(1, 10)}, 3);
  EXPECT_EQ(file.addOrReplace(ident(1, 11, 5)), kSuccess);
  EXPECT_EQ(file.addOrReplace(ident(3, 30)), kSuccess);
  EXPECT_EQ(file.addOrReplace(ident(3, 31)), kSuccess);
  EXPECT_EQ(file.addOrReplace(ident(4, 40)), -1);  // Appended, but the index is full.
  EXPECT_EQ(stored(), (std::vector{ident(2, 20), ident(1, 11, 5), ident(3, 31), ident(4, 40)}));
  IdentFile plain;
  ASSERT_EQ(plain.setFileName(path.c_str()), kSuccess);
  EXPECT_EQ(plain.addOrReplace(ident(4, 41)), kSuccess);  // Without an index all is new.
  EXPECT_EQ(stored().size(), 5u);
}

TEST_F(IdentFileTest, DeletesAndRestoresAHoldersCards) {
  load({ident(1, 10), ident(2, 20), ident(3, 10, 255), ident(4, 40)});
  const auto marks = [this] {
    std::string text;
    for (const IdentRecord& record : stored()) text += std::to_string(record.deleted);
    return text;
  };
  uint32_t uniqid = 0;
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
  load(std::vector(kFarRecord + 1, ident(4, 40)));
  ASSERT_EQ(file.setPairedCard(cardKey(4), CardPattern{}), kSuccess);
  file.index()->find(cardKey(4))->recno = kFarRecord;
  const FileSizeLimit limit(kFarRecord * IdentRecord::kSize);
  EXPECT_EQ(file.setCardUndeleted(cardKey(4), uniqid), kIdentWriteFailed);
  EXPECT_EQ(log.take(), "");
}

}  // namespace
}  // namespace badgemint
