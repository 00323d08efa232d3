// A whole build of an input cards file and, if it succeeds, the dump of the databases. Input: the
// file. The formats are 1 (numbers to 2047, A to 63) and 2 (three decimal digits, A to 3).
#include <map>

#include "fuzz.h"
#include "tools/badgemint.h"

extern "C" unsigned sleep(unsigned /*seconds*/) {  // The pauses of the entry functions.
  return 0;
}

namespace badgemint {
namespace {

constexpr size_t kIdentSize = 28;
constexpr size_t kUniqidOffset = 16;
constexpr size_t kAccessSize = 44;

int32_t build(const char* cards) {
  return BadgeMint("", cards, "ident", "access", "formats", "cardsets", "/dev/null", 25);
}

// The text forms have no negative field values and keep one holder's PIN and access record only:
// not those of a second card, which an 'o' line lets pass.
bool canComeBack(std::string_view cards, const std::string& ident) {
  if (cards.find('-') != cards.npos) return false;
  std::map<std::string, int> records;
  for (size_t at = 0; at < ident.size(); at += kIdentSize) {
    if (++records[ident.substr(at + kUniqidOffset, 4)] > 2) return false;
  }
  return true;
}

}  // namespace
}  // namespace badgemint

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace badgemint;
  static const FormatsFolder folder;
  const MemoryFile cards(textOf(data, size));

  const int32_t built = build(cards.path());
  require(built <= 0, "the result of a build is 0 or negative");
  if (built < 0) return 0;
  const std::string ident = WorkFolder::read("ident");
  const std::string access = WorkFolder::read("access");
  require(ident.size() % kIdentSize == 0 && access.size() % kAccessSize == 0, "records are whole");
  require(access.size() / kAccessSize <= ident.size() / kIdentSize, "a holder has a credential");

  require(
      DumpCardFile("", "ident", "access", "formats", "cardsets", "dumped", "/dev/null", 25) == 0,
      "what was built can be dumped");
  if (!canComeBack(textOf(data, size), ident)) return 0;
  require(build("dumped") == 0, "what was dumped can be built");
  require(WorkFolder::read("ident") == ident && WorkFolder::read("access") == access,
          "and gives the same databases");
  return 0;
}
