// Pass 1 line by line: checks a line of the input cards file and enters its keys into the card
// index. It knows nothing of other lines but the card sets that they define: a line that fails
// leaves the next one as it would be.
#ifndef BADGEMINT_INPUTCARDS_LINECHECKER_H
#define BADGEMINT_INPUTCARDS_LINECHECKER_H

#include <cstdint>

#include "inputcards/cardindex.h"
#include "inputcards/sitecards.h"

namespace badgemint {

class LineChecker {
 public:
  // Both must outlive the checker.
  LineChecker(SiteCards& site, CardIndex& index) : _site(site), _index(index) {}

  // kSuccess, or the code with which a build ends here, logged. What a line enters stands at the
  // end of the index; of a block ('d') whose cards do not all fit, the cards before.
  [[nodiscard]] int32_t check(InputLine line);

  // The parts of that for each line type, for SiteCards::dispatch.
  int32_t handleCard(InputLine line);
  int32_t handleNoFormatCard(InputLine line);
  int32_t handlePin(InputLine line);
  int32_t handlePinIdent(InputLine line);
  int32_t handleMultiCards(InputLine line);

 private:
  int32_t indexPin(InputLine line);
  int32_t indexMultiCards(const MultiCards& block, int32_t lineNumber);

  SiteCards& _site;
  CardIndex& _index;
};

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_LINECHECKER_H
