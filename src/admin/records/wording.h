// How the verbs of badgemint-admin put into words what the databases hold. A PIN is only shown to
// those who asked for PINs.
#ifndef BADGEMINT_ADMIN_RECORDS_WORDING_H
#define BADGEMINT_ADMIN_RECORDS_WORDING_H

#include <cstdint>
#include <span>
#include <string>

#include "admin/records/site.h"
#include "carddb/accessrecord.h"
#include "carddb/identrecord.h"

namespace badgemint::admin {

inline constexpr char kHiddenPin[] = "****";

// A time of validity as in the cards file: "2026/01/31 18:00:00", or "0" for none.
std::string timeText(uint32_t seconds);

// The 32 hexadecimal digits of a card.
std::string keyText(const CardPattern& key);
// Those of an ident record, unless they are a PIN that is not to be shown.
std::string keyText(const IdentRecord& record, bool withPins);

// Also for a code that no build writes: it may have been that of a PIN.
inline bool isPinEntry(const IdentRecord& record) {
  return record.cardsetcode == kPinOnlyCode || record.cardsetcode >= kPinIdentCode;
}

// "card 15890 of card set 1", "card 1A2B3C4D without format", "PIN **** alone", "PIN **** beside a
// card"; by its key what the site cannot decode.
std::string credentialText(const IdentRecord& record, const Site& site, bool withPins);

// The PIN of an access record: "none" when there is none. That of a holder without a card means
// nothing: it is all zeros.
std::string pinText(const AccessRecord& record, bool withPins);

// A field of an access record beside its unique ID.
struct AccessField {
  enum class Kind { kNumber, kTime, kPin };

  const char* name;  // "access level 1", "flag 2 (first of the line)", "escort", "start", ...
  Kind kind;
  uint32_t (*valueOf)(const AccessRecord& record);  // Of a PIN its bytes, as a number.
};
std::span<const AccessField> accessFields();

std::string valueText(const AccessField& field, const AccessRecord& record, bool withPins);

// "flag 2 (first of the line)", for a bit from 0 to 7.
const char* flagText(int32_t bit);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_WORDING_H
