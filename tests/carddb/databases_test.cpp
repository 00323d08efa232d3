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
  const auto append = []<typename F>(F& f) { return f.appendRecord({}); };
  const auto next = []<typename F>(F& f) { return f.readNext(record<F>); };
  const auto read = []<typename F>(F& f) { return f.readRecordAt(record<F>, 2); };
  const auto write = []<typename F>(F& f) { return f.writeRecordAt({}, 2); };
  const auto flush = [](auto& f) { return f.flushAppends(); };
  const auto close = [](auto& f) { return f.closeFile(); };
  const auto open = [](auto& f) { return f.openFile(O_RDONLY); };
  expectFailures(kClosed, append, "open O!, seek R!, write W!, short write W!, close W!");
  expectFailures(kOpened, append, "seek R!, write W!, short write W!");
  expectFailures(kBuffering, append, "");
  expectFailures(kOpened, next, "read R!, short read 1", "read -2, short read -2");
  expectFailures(kReadingAhead, next, "read R!, short read 0", "read -2, short read 0");
  expectFailures(kClosed, read, "open -1, seek -2, read -2, short read -2, close 0",
                 "open O!, seek R!, read R!, short read R!, close 0");
  expectFailures(kClosed, write, "open -1, seek -2, write -2, short write -2, close -2",
                 "open O, seek W, write W, short write W, close W");
  expectFailures(kBuffering, flush, "seek R!, write W!, short write 0");
  expectFailures(kBuffering, close, "seek R!, write W!, short write 0, close W!");
  expectFailures(kBuffering, open, "open O!, seek R!, write W!, short write 0, close W!");
  expectFailures(kBuffering, next, "seek R!, read R!, short read 1, write W!, short write 1",
                 "seek R!, read -2, short read -2, write W!, short write -2");
  expectFailures(
      kBuffering, read,
      "open -1, seek R! -2, read -2, short read -2, write W!, short write 0, close W! 0",
      "open O!, seek R! R!, read R!, short read R!, write W!, short write 0, close W! 0");
  expectFailures(kBuffering, write,
                 "open -1, seek R! -2, write W! -2, short write 0 -2, close W! -2",
                 "open O, seek R! W, write W! W, short write 0 W, close W! W");
}

template <typename File>
void expectFullAt(size_t count) {
  const size_t size = Kind<File>::Record::kSize;
  const char* const name = Kind<File>::kName;
  File file;
  EXPECT_FALSE(file.appendBufferFull());
  EXPECT_EQ(file.setFileName(name), 0);
  EXPECT_EQ(file.openFile(O_RDWR | O_CREAT), 0);
  file.startBuffering();
  for (size_t i = 0; i < count; ++i) {
    EXPECT_FALSE(file.appendBufferFull());
    EXPECT_EQ(file.appendRecord({}), 0);
  }
  EXPECT_TRUE(file.appendBufferFull());
  EXPECT_EQ(std::filesystem::file_size(name), 0);
  EXPECT_EQ(file.appendRecord({}), 0);
  EXPECT_EQ(std::filesystem::file_size(name), count * size);
  EXPECT_EQ(file.closeFile(), 0);
  EXPECT_EQ(std::filesystem::file_size(name), (count + 1) * size);
}

TEST(Databases, BuffersUpTo64KiB) {
  const WorkFolder here;
  umask(0);
  expectFullAt<IdentFile>(2340);
  expectFullAt<AccessFile>(1489);
  EXPECT_EQ(std::filesystem::status("ident").permissions(), std::filesystem::perms(0666));
  EXPECT_EQ(std::filesystem::status("access").permissions(), std::filesystem::perms(0600));
}

// Two blocks and a part of a record; a read that is cut short is read on.
TEST(Databases, ReadsAheadWhatReadsOneByOneGive) {
  const WorkFolder here;
  std::mt19937 random(1);
  std::vector<AccessRecord> list(400);
  for (AccessRecord& any : list) any = anyRecord<AccessRecord>(random);
  here.write("access", bytesOf(list) + "tail");
  AccessFile file;
  EXPECT_EQ(file.setFileName("access"), 0);
  EXPECT_EQ(file.openFile(O_RDONLY), 0);
  file.startReadingAhead();
  for (uint32_t step = 0, recno = 0; step < 2000; ++step) {
    const ArmedFault fault({"read", static_cast<int>(random() % 3), false, EIO, true});
    const bool isNext = random() % 4 != 0;
    if (!isNext) recno = static_cast<uint32_t>(random() % 402);
    const int32_t result =
        isNext ? file.readNext(record<AccessFile>) : file.readRecordAt(record<AccessFile>, recno);
    EXPECT_EQ(result, recno < 400 ? 0 : isNext ? -2 : -341);
    EXPECT_TRUE(recno >= 400 || record<AccessFile> == list[recno++]);
  }
  // What is written meanwhile is read again.
  EXPECT_EQ(file.writeRecordAt(list[0], 5), 0);
  EXPECT_EQ(file.readRecordAt(record<AccessFile>, 5), 0);
  EXPECT_EQ(record<AccessFile>, list[0]);
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
  const std::string kind = Kind<File>::kName;
  File file;
  prepare(file);
  std::ofstream("named") << kind << ' ' << kind << " -1\n";
  MasterConfiguration named(0, "named"), unnamed(0, "unnamed");
  EXPECT_TRUE(file.loadIndexFromConfig(named));
  EXPECT_EQ(file.index()->capacity(), 103);
  TestLog log;
  errno = EINVAL;
  EXPECT_FALSE(file.loadIndexFromConfig(unnamed));
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(log.take(), report);
}

TEST(Databases, LoadsTheIndexThatTheConfigurationNames) {
  const WorkFolder here;
  here.write("unnamed", "idents ident 5\naccesses access 5\n");
  expectConfigured<IdentFile>("[report 1/15 \"\"]\n");
  expectConfigured<AccessFile>("[report 2/15 \"\"]\n");
}

}  // namespace
}  // namespace badgemint
