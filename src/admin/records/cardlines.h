// The lines of a cards file that the records of existing databases come from.
#ifndef BADGEMINT_ADMIN_RECORDS_CARDLINES_H
#define BADGEMINT_ADMIN_RECORDS_CARDLINES_H

#include <cstdint>
#include <string>

#include "carddb/accessrecord.h"
#include "carddb/identrecord.h"
#include "cardsets/cardset.h"
#include "formats/CardFormat.h"

namespace badgemint::admin {

// "f 3 3 A=666 B=0\n": the value of each field that the format has beside the card number, 0 too.
// Without a format the values that the set has.
std::string fieldsLine(const cardset& set, const CardFormat* format);

// Records of one credential.
struct Credential {
  const IdentRecord& ident;
  const AccessRecord* access;  // Null for the PIN beside a card, an 'o' line.
  int64_t cardNumber;          // Of a card of a card set.
};

// Appends the 'c', 'n', 'p' or 'o' line of a credential, its newline included. PINs that are not
// shown are a "*", whether there is one or not.
void appendLine(std::string& text, const Credential& credential, bool withPins);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_CARDLINES_H
