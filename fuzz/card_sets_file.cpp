// A card sets file: read, looked up, checked against formats, written and read again; and each line
// as a card set of its own. Input: the file.
#include "cardsets/card_functions.h"
#include "cardsets/cardsets.h"
#include "formats/CardFormatSet.h"
#include "fuzz.h"
#include "support/result.h"

namespace badgemint {
namespace {

void parseLines(std::string_view text) {
  while (!text.empty()) {
    const std::string line(text.substr(0, text.find('\n')));
    cardset set;
    if (parseCardSetText(set, line.c_str()) == kSuccess) set.printInfo();
    require(CardSetLine(set).text().size() < 256, "a card set fits its line");
    text.remove_prefix(std::min(text.size(), line.size() + 1));
  }
}

}  // namespace
}  // namespace badgemint

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace badgemint;
  static const WorkFolder folder;
  const DroppedLog log;
  const MemoryFile file(textOf(data, size));

  cardsets sets;
  require(sets.create(0) == kSuccess, "there is memory");
  require(sets.load(file.path()) == kSuccess, "a rejected line does not stop the file");
  for (uint32_t csid = 0; csid < 260; ++csid) {
    const cardset* const set = sets.getCardSet(csid);
    require(set == nullptr || set->csid == csid, "a card set is found by its ID");
  }
  const CardFormatSet noFormats;
  require(sets.count() == 0 || sets.verifyFormats(noFormats) == -1, "no format, no success");

  require(sets.writeCardSetsFile("written") == kSuccess, "the card sets are written");
  cardsets again;
  require(again.create(20) == kSuccess && again.load("written") == kSuccess, "and read");
  require(again.count() >= sets.count(), "no card set is lost on the way");
  for (uint32_t csid = 1; csid < 260; ++csid) {
    require(sets.getCardSet(csid) == nullptr || again.getCardSet(csid) != nullptr,
            "every card set is found again");
  }
  parseLines(textOf(data, size));
  return 0;
}
