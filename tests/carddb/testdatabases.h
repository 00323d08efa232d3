// What the tests of the card databases share: a folder to work in, files of records, and the sweep
// of failing calls.
#ifndef BADGEMINT_TESTS_CARDDB_TESTDATABASES_H
#define BADGEMINT_TESTS_CARDDB_TESTDATABASES_H

#include <fcntl.h>

#include <map>

#include "carddb/accessfile.h"
#include "carddb/identfile.h"
#include "support/testfiles.h"

namespace badgemint {

// What differs between the two kinds of files: name, record, records of a file of three, and the
// results of a failed open, read and write.
template <typename File>
struct Kind;
template <>
struct Kind<IdentFile> {
  static constexpr const char* kName = "ident";
  using Record = IdentRecord;
  static std::vector<Record> three() { return {{{1}, 10, 5}, {{2}, 20, 5}, {{3}, 10, 5}}; }
  static constexpr int32_t kOpen = -382, kRead = -383, kWrite = -385;
};
template <>
struct Kind<AccessFile> {
  static constexpr const char* kName = "access";
  using Record = AccessRecord;
  static std::vector<Record> three() { return {{.uniqid = 10}, {.uniqid = 20}, {.uniqid = 30}}; }
  static constexpr int32_t kOpen = -340, kRead = -341, kWrite = -342;
};

enum State { kClosed, kOpen, kReadingAhead };

// A file of three records, its index loaded, brought into this state.
template <typename File>
void prepare(File& file, State state = kClosed) {
  writeRecords(Kind<File>::kName, Kind<File>::three());
  static_cast<void>(file.loadIndex(Kind<File>::kName, 0));
  EXPECT_EQ(state == kClosed ? 0 : file.openFile(O_RDWR), 0);
  if (state == kReadingAhead) file.startReadingAhead();
}

// Such a file in a folder of its own, which is the current one.
template <typename File>
struct Prepared : WorkFolder, File {
  explicit Prepared(State state = kClosed) { prepare<File>(*this, state); }
};

// What an operation answers when its n-th call of a kind fails, for n = 1, 2, ... until there is no
// n-th: "read R! 0" is the result of a failed read with the message of that kind of call, then 0
// without a message. O and W are the results of a failed open and write, + is a file that has
// grown. Whatever failed, it stays whole records, and nothing is left to write and to tell
// afterwards.
template <typename File>
std::string failures(State state, int32_t (*run)(File&)) {
  using K = Kind<File>;
  const std::string kind = K::kName;
  std::map<int32_t, std::string> letters = {{K::kOpen, "O"}, {K::kRead, "R"}, {K::kWrite, "W"}};
  const std::tuple<std::string, std::string, bool> calls[] = {
      {"allocate", "", false},        {"stat", "opening", false},
      {"open", "opening", false},     {"lseek", "reading", false},
      {"read", "reading", false},     {"read", "reading", true},
      {"write", "writing to", false}, {"write", "writing to", true},
      {"close", "writing to", false}};
  TestLog log(25);
  std::string answers;
  for (const auto& [call, message, isShort] : calls) {
    for (int nth = 1;; ++nth) {
      File file;
      prepare(file, state);
      log.take();
      const ArmedFault fault({call, nth, false, EIO, isShort});
      const int32_t result = run(file);
      if (!fault.struck()) break;
      std::string text = log.take();
      if (text == "[25 " + kind + "file] Error " + message + " " + kind + " file " + kind + "\n")
        text = "!";
      if (nth == 1) answers += (answers.empty() ? "" : ", ") + (isShort ? "short " + call : call);
      answers += " " + (letters.contains(result) ? letters[result] : std::to_string(result)) + text;
      EXPECT_EQ(file.closeFile(), 0) << call;
      EXPECT_EQ(log.take(), "") << call;
      const size_t size = std::filesystem::file_size(kind);
      EXPECT_EQ(size % K::Record::kSize, 0) << call;
      if (size > 3 * K::Record::kSize) answers += "+";
    }
  }
  return answers;
}

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_CARDDB_TESTDATABASES_H
