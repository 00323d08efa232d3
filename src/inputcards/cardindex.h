// The card index: every card, PIN and PIN ident of the input file in the checking pass, for the two
// questions that only the whole file can answer: does a key or a unique ID occur twice?
#ifndef BADGEMINT_INPUTCARDS_CARDINDEX_H
#define BADGEMINT_INPUTCARDS_CARDINDEX_H

#include <array>
#include <bit>
#include <cstdint>

#include "formats/bitpattern.h"
#include "support/result.h"
#include "support/steparray.h"

namespace badgemint {

// Kept to 36 bytes: the index holds one for every card of a site at once.
struct CardIndexEntry {
  CardPattern key{};  // Encoded card, raw card bytes, or packed PIN.
  uint32_t uniqid = 0;
  int32_t line = 0;                          // The line of the input file that made the entry.
  std::array<uint8_t, 8> cardNumberBytes{};  // As a number it would align the entry to 40 bytes.
  uint8_t csid = 0;                          // 0 for 'n', 'o' and 'p' entries, as the card number.
  char type = '\0';                          // 'c', 'd', 'n', 'o' or 'p'.

  int64_t cardNumber() const { return std::bit_cast<int64_t>(cardNumberBytes); }
};
static_assert(sizeof(CardIndexEntry) == 36);

// An entry that may be a duplicate: `order` is the same for equal values, and `position` is its
// place in the index.
struct CardIndexSuspect {
  uint32_t order;
  int32_t position;
};
using CardIndexSuspects = StepArray<CardIndexSuspect, 16384>;

// Entries stay in file order; the checks look at those that can be duplicates at all.
class CardIndex {
 public:
  static constexpr int32_t kGrowthStep = 1000;

  // Logs "Not enough memory to create card index\n" and is not initialised when there is none.
  // Three quarters of the machine's memory bound how far the index will grow.
  CardIndex();
  bool isInitialised() const { return _initialised; }

  // Appends an entry. kSuccess; kOutOfMemory, logged, when the table cannot grow or would
  // take the memory that the machine needs to go on.
  [[nodiscard]] int32_t add(const CardPattern& key, uint32_t uniqid, char type, int32_t line,
                            int32_t csid, int64_t cardNumber) {
    const CardIndexEntry entry{key,
                               uniqid,
                               line,
                               std::bit_cast<std::array<uint8_t, 8>>(cardNumber),
                               static_cast<uint8_t>(csid),
                               type};
    return count() < _limit && _entries.add(entry) ? kSuccess : reportNoMemory();
  }

  int32_t count() const { return _entries.count(); }
  // `position` is 0 to count - 1.
  const CardIndexEntry& entry(int32_t position) const { return _entries[position]; }

  // Collects all entries that share a key with another, and few besides, so that entries of one key
  // stand together and in file order. False when there is no memory.
  [[nodiscard]] bool collectByKey(CardIndexSuspects& suspects) const;
  // The same for the unique ID, which is the order then; every PIN ident ('o') is among them.
  [[nodiscard]] bool collectByUniqid(CardIndexSuspects& suspects) const;
  // Whether two entries may share a unique ID: a PIN ident and a card.
  static bool mayShareUniqid(const CardIndexEntry& a, const CardIndexEntry& b);

  // Whether a key occurs twice. kSuccess; kDuplicateCardKey when one does, with a report of the
  // smallest such key and the first two entries of the file that have it; kOutOfMemory, logged.
  [[nodiscard]] int32_t checkDuplicateKeys() const;

  // Whether a unique ID occurs twice other than as a PIN ident ('o') next to its card. In the order
  // of unique ID and file, the first entry that is wrong is reported: kUnpairedPinIdent for an 'o'
  // without a neighbour of its unique ID, unless it is the very first entry of that order;
  // kDuplicateUniqueId for a pair of neighbours other than an 'o' and a card. Only neighbours are
  // compared, so a card, an 'o' and a second card of one unique ID pass. kOutOfMemory, logged.
  [[nodiscard]] int32_t checkDuplicateUniqueIds() const;

 private:
  static int32_t reportNoMemory();

  StepArray<CardIndexEntry, kGrowthStep> _entries;
  const int32_t _limit;  // Entries.
  bool _initialised;
};

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_CARDINDEX_H
