// Whether databases say what the lines of a cards file say. The words of the lines are compared
// with what the records decode to; nothing is encoded again to be compared.
#ifndef BADGEMINT_ADMIN_RECORDS_PROOF_H
#define BADGEMINT_ADMIN_RECORDS_PROOF_H

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "carddb/accessrecord.h"
#include "carddb/identrecord.h"
#include "inputcards/cardline.h"
#include "inputcards/sitecards.h"
#include "support/packeddecimal.h"

namespace badgemint::admin {

// A credential as its line states it.
struct StatedCredential {
  int32_t line;
  uint32_t cardSetCode;
  uint32_t uniqid;
  int64_t cardNumber;          // Of a card of a card set.
  std::string_view key;        // Of any other credential: hexadecimal digits, or a PIN.
  std::string_view pin;        // Of the holder of a card.
  const HolderFields* holder;  // Null for what has no access record.
  int32_t flag5;
};

// Reads a cards file of which a build is known to go well, and tells of each credential in the
// order of a build. `site` has its formats and gets the card sets. False from `tell` ends it.
// Throws Failure (refused) when a line is wrong all the same, and std::system_error.
using TellOfCredential = std::function<bool(const StatedCredential&)>;
void readStatements(const std::string& cardsName, SiteCards& site, const TellOfCredential& tell);

// The first thing in which records are not what the line states, in plain words; null for none.
// `access` is not looked at where the credential has no access record.
const char* differenceTo(const StatedCredential& stated, const IdentRecord& ident,
                         const AccessRecord& access, SiteCards& site);

// Whether a packed PIN is this one. Behind the digits, where there is room, stands one filler, and
// then nothing.
template <size_t Digits>
bool isPin(std::span<const uint8_t> packed, std::string_view pin) {
  if (DigitText<Digits>(packed).c_str() != pin) return false;
  for (size_t i = pin.size(); i < 2 * packed.size(); ++i) {
    const int nibble = packed[i / 2] >> (i % 2 == 0 ? 4 : 0) & 0xF;
    if (nibble != (i == pin.size() ? 0xF : 0)) return false;
  }
  return true;
}

// What the card sets file, once it was read, has otherwise than the cards file, behind "says";
// empty for nothing.
std::string differenceTo(const cardsets& stated, const cardsets& stored);

struct ProvedFiles {
  std::string cards, formats, ident, access, cardSets;
};

// Proves that the databases hold the records of the cards file, in its order, and no others, and
// that the card sets file has its card sets. Returns the number of credentials. Throws Failure
// (refused) that says what is not proved, and std::system_error.
int64_t prove(const ProvedFiles& files);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_PROOF_H
