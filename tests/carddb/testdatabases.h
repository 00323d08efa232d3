// What the tests of the card databases share: a folder to work in, files of records, and the sweep
// of failing calls.
#ifndef BADGEMINT_TESTS_CARDDB_TESTDATABASES_H
#define BADGEMINT_TESTS_CARDDB_TESTDATABASES_H

#include <fcntl.h>

#include "carddb/accessfile.h"
#include "carddb/identfile.h"
#include "support/testfiles.h"

namespace badgemint {

// What differs between the two kinds of files: their name, and the records of a file of three.
template <typename File>
constexpr bool kIsIdent = std::is_same_v<File, IdentFile>;
template <typename File>
constexpr const char* kName = kIsIdent<File> ? "ident" : "access";
inline const std::vector<IdentRecord> kIdents = {{{1}, 10, 5}, {{2}, 20, 5}, {{3}, 10, 5}};
inline const std::vector<AccessRecord> kAccesses = {{.uniqid = 10}, {.uniqid = 20}, {.uniqid = 30}};
template <typename File>
const auto& kThree = std::get<!kIsIdent<File>>(std::tie(kIdents, kAccesses));

enum State { kClosed, kOpen, kReadingAhead };

// A file of three records, its index loaded, brought into this state.
template <typename File>
void prepare(File& file, State state = kClosed) {
  writeRecords(kName<File>, kThree<File>);
  static_cast<void>(file.loadIndex(kName<File>, 0));
  EXPECT_EQ(state == kClosed ? 0 : file.openFile(O_RDWR), 0);
  if (state == kReadingAhead) file.startReadingAhead();
}

// Such a file in a folder of its own, which is the current one.
template <typename File>
struct Prepared : WorkFolder, File {
  explicit Prepared(State state = kClosed) { prepare<File>(*this, state); }
};

// What comes of an operation when its first call of a kind fails, then its second, and so on until
// there are no more: "read -383 reported, 0" is a failed first read, which is reported, and a
// second one that does not matter. A short transfer is listed when it is not like a failed one.
// Whatever failed, the file stays whole records, and nothing is left to write or to report
// afterwards.
template <typename File>
std::string failures(State state, int32_t (*run)(File&)) {
  const std::string kind = kName<File>;
  const size_t size = kThree<File>[0].kSize;
  const std::tuple<std::string, std::string, bool> calls[] = {
      {"allocate", "", false},        {"stat", "opening", false},
      {"open", "opening", false},     {"lseek", "reading", false},
      {"read", "reading", false},     {"read", "reading", true},
      {"write", "writing to", false}, {"write", "writing to", true},
      {"close", "writing to", false}};
  TestLog log(25);
  std::string all, failed;
  for (const auto& [call, message, isShort] : calls) {
    std::string outcomes;
    for (int nth = 1;; ++nth) {
      File file;
      prepare(file, state);
      log.take();
      const ArmedFault fault({call, nth, false, EIO, isShort});
      const int32_t result = run(file);
      if (!fault.struck()) break;
      std::string text = log.take();
      if (text == "[25 " + kind + "file] Error " + message + " " + kind + " file " + kind + "\n")
        text = " reported";
      outcomes += (nth == 1 ? " " : ", ") + std::to_string(result) + text;
      EXPECT_EQ(file.closeFile(), 0) << call;
      EXPECT_EQ(log.take(), "") << call;
      EXPECT_EQ(std::filesystem::file_size(kind) % size, 0) << call;
      if (std::filesystem::file_size(kind) > 3 * size) outcomes += " and a new record";
    }
    if (!outcomes.empty() && !(isShort && outcomes == failed))
      all += (all.empty() ? "" : "; ") + std::string(isShort ? "short " : "") + call + outcomes;
    failed = outcomes;
  }
  return all;
}

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_CARDDB_TESTDATABASES_H
