// The card sets of a site: defined by the 'f' lines of the input cards file, written to the card
// sets file by the build, and read back from there by the dump and the bit patterns.
#ifndef BADGEMINT_CARDSETS_CARDSETS_H
#define BADGEMINT_CARDSETS_CARDSETS_H

#include <cstdint>

#include "cardsets/cardset.h"
#include "support/exported.h"
#include "support/steparray.h"

namespace BADGEMINT_EXPORTED badgemint {

class CardFormatSet;
class MasterConfiguration;
class Tokenizer;

// Owns its card sets. A line that is rejected after its card set ID was stored leaves a slot after
// the counted ones: it is written to the file and checked for its format, but never found. A later
// line that lands in that slot keeps the values that it does not set itself.
class cardsets {
 public:
  static constexpr int32_t kInitialCapacity = 20;
  static constexpr int32_t kGrowthStep = 10;
  static constexpr int kMaxLine = 150;  // Of a card sets file; the rest is a line of its own.

  cardsets() = default;

  // Makes room for `capacity` card sets (0 or more). kOutOfMemory, with a message at level 25, when
  // there is no memory.
  [[nodiscard]] int32_t create(int32_t capacity);

  // Adds the card set that the words of a line define: an optional "f", the card set ID and the
  // format ID (1 to 4294967295), then pairs of a letter A to H and a 32-bit value. At least three
  // words in all. 1 when it was added, 0 when it was rejected and the reason logged; a line without
  // words is rejected silently. IDs that exist already are accepted.
  [[nodiscard]] int32_t addCardSetLine(Tokenizer& tokens, int32_t lineNumber);

  // The first card set of this ID; null when there is none. Logs each call at level 100. The
  // pointer holds until the next card set is added. IDs below 256, all that a build has, are found
  // through a table of the first card set of each, others by a search.
  const cardset* getCardSet(uint32_t csid) const;

  // Reads a card sets file; a rejected line does not stop it. kSuccess; kCardSetsOpenFailed or
  // kCardSetsTransferFailed with their messages.
  [[nodiscard]] int32_t load(const char* path);

  // Loads the file that the configuration names under "cardsets". False when there is no such
  // entry, which is reported to the hook (1, 15), or the file cannot be loaded.
  [[nodiscard]] bool loadFromConfiguration(MasterConfiguration& configuration);

  // Looks up the format of every slot that holds a card set ID. 0, or -1 when one is missing; each
  // missing one is logged at level 3.
  [[nodiscard]] int32_t verifyFormats(const CardFormatSet& formats) const;

  // Writes every slot that holds a card set ID to a file, created or truncated. kSuccess;
  // kCardSetsOpenFailed or kCardSetsTransferFailed with their messages.
  [[nodiscard]] int32_t writeCardSetsFile(const char* path) const;

  int32_t count() const { return _records.count(); }
  int32_t capacity() const { return _records.capacity(); }

 private:
  static constexpr uint32_t kTableSize = 256;

  StepArray<cardset, kGrowthStep> _records;
  std::array<int32_t, kTableSize> _firstOf{};  // Counted from 1; 0 is none.
};

}  // namespace badgemint

#endif  // BADGEMINT_CARDSETS_CARDSETS_H
