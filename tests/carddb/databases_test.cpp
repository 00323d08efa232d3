// What the two kinds of database files share, through both of them.
#include "carddb/testdatabases.h"
#include "support/masterconfiguration.h"

namespace badgemint {
namespace {

template <typename File>
typename Kind<File>::Record record;

// The failures of an operation, those of the access file where they differ.
template <typename Run>
void expectFailures(State state, Run run, const std::string& ident, const char* access = nullptr) {
  EXPECT_EQ(failures<IdentFile>(state, run), ident);
  EXPECT_EQ(failures<AccessFile>(state, run), access == nullptr ? ident : access);
}

TEST(Databases, TellsWhichCallFailed) {
  const WorkFolder here;
  const auto append = [](auto& f) { return f.appendRecord({}); };
  const auto next = []<typename F>(F& f) { return f.readNext(record<F>); };
  const auto read = []<typename F>(F& f) { return f.readRecordAt(record<F>, 2); };
  const auto write = [](auto& f) { return f.writeRecordAt({}, 2); };
  const auto flush = [](auto& f) { return f.flushAppends(); };
  expectFailures(kClosed, append, "open O!, lseek R!, write W!, short write W!, close W!");
  expectFailures(kReadingAhead, next, "read R!, short read 0", "read -2, short read 0");
  expectFailures(kBuffering, flush, "lseek R!, write W!, short write 0+");
  expectFailures(kBuffering, next, "lseek R!, read R!+, short read 1+, write W!, short write 1+",
                 "lseek R!, read -2+, short read -2+, write W!, short write -2+");
  expectFailures(
      kBuffering, read,
      "open -1+, lseek R! -2+, read -2+, short read -2+, write W!, short write 0+, close W!+ 0+",
      "open O!+, lseek R! R!+, read R!+, short read R!+, write W!, short write 0+, close W!+ 0+");
  expectFailures(kBuffering, write,
                 "open -1+, lseek R! -2+, write W! -2+, short write 0+ -2+, close W!+ -2+",
                 "open O+, lseek R! W+, write W! W+, short write 0+ W+, close W!+ W+");
}

TEST(Databases, BuffersUpTo64KiB) {
  const WorkFolder here;
  AccessFile file;
  EXPECT_FALSE(file.appendBufferFull());
  prepare(file, kBuffering);
  size_t count = 1;
  for (; !file.appendBufferFull(); ++count) EXPECT_EQ(file.appendRecord({}), 0);
  EXPECT_EQ(count, 1489);
  EXPECT_EQ(std::filesystem::file_size("access"), 3 * 44);
  EXPECT_EQ(file.appendRecord({}), 0);
  EXPECT_EQ(std::filesystem::file_size("access"), (3 + 1489) * 44);
  // Of five records the writes take half of what is left each time, in the end nothing.
  for (int i = 0; i < 4; ++i) EXPECT_EQ(file.appendRecord({}), 0);
  const ArmedFault fault({"write", 1, true, EIO, true});
  EXPECT_EQ(file.flushAppends(), -342);
  EXPECT_EQ(std::filesystem::file_size("access"), (3 + 1489 + 4) * 44);
}

TEST(Databases, CreatesAccessFilesForTheOwnerAlone) {
  const WorkFolder here;
  umask(0);
  IdentFile ident;
  AccessFile access;
  EXPECT_EQ(ident.setFileName("ident") + access.setFileName("access"), 0);
  EXPECT_EQ(ident.openFile(O_RDWR | O_CREAT) + access.openFile(O_RDWR | O_CREAT), 0);
  EXPECT_EQ(std::filesystem::status("ident").permissions(), std::filesystem::perms(0666));
  EXPECT_EQ(std::filesystem::status("access").permissions(), std::filesystem::perms(0600));
}

// Two blocks and a part of a record; a read that is cut short is read on.
TEST(Databases, ReadsAheadWhatIsThere) {
  const WorkFolder here;
  std::mt19937 random(1);
  std::vector<AccessRecord> list(400);
  for (uint32_t i = 0; i < 400; ++i) list[i].uniqid = i;
  here.write("access", bytesOf(list) + "tail");
  AccessFile file;
  EXPECT_EQ(file.setFileName("access"), 0);
  EXPECT_EQ(file.openFile(O_RDONLY), 0);
  file.startReadingAhead();
  AccessRecord found;
  for (uint32_t step = 0; step < 1000; ++step) {
    const ArmedFault fault({"read", static_cast<int>(random() % 3), false, EIO, true});
    const auto recno = static_cast<uint32_t>(random() % 402);
    EXPECT_EQ(file.readRecordAt(found, recno), recno < 400 ? 0 : -341);
    EXPECT_EQ(found.uniqid, recno < 400 ? recno : 0);
    EXPECT_EQ(file.readNext(found), recno < 399 ? 0 : -2);
    EXPECT_EQ(found.uniqid, recno < 399 ? recno + 1 : recno < 400 ? recno : 0);
  }
  // What is written meanwhile is read again.
  EXPECT_EQ(file.writeRecordAt(list[7], 5), 0);
  EXPECT_EQ(file.readRecordAt(found, 5), 0);
  EXPECT_EQ(found, list[7]);
}

// The buffered write goes on after an interruption, the single one does not; without memory for the
// buffer appends are written one by one.
TEST(Databases, DoesWithoutWhatItCanDoWithout) {
  const WorkFolder here;
  IdentFile file;
  prepare(file, kBuffering);
  const ArmedFault interrupted({"write", 1, false, EINTR});
  EXPECT_EQ(file.closeFile(), 0);
  EXPECT_EQ(file.openFile(O_RDWR), 0);
  const ArmedFault noMemory({"allocate", 1});
  file.startBuffering();
  EXPECT_EQ(file.appendRecord({}), 0);
  EXPECT_EQ(std::filesystem::file_size("ident"), 5 * 28);
}

template <typename File>
void expectConfigured(const std::string& report) {
  File file;
  prepare(file, kBuffering);
  MasterConfiguration configuration(0, "configuration"), empty(0, "empty");
  EXPECT_TRUE(file.loadIndexFromConfig(configuration));
  EXPECT_EQ(file.index()->count(), 4);
  EXPECT_EQ(file.index()->capacity(), 104);
  TestLog log;
  errno = EINVAL;
  EXPECT_FALSE(file.loadIndexFromConfig(empty));
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(log.take(), report);
}

TEST(Databases, LoadsTheIndexThatTheConfigurationNames) {
  const WorkFolder here;
  here.write("empty", "");
  here.write("configuration", "ident ident -1\naccess access -1\n");
  expectConfigured<IdentFile>("[report 1/15 \"\"]\n");
  expectConfigured<AccessFile>("[report 2/15 \"\"]\n");
}

}  // namespace
}  // namespace badgemint
