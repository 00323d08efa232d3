// How the verbs of badgemint-admin put into words what the databases hold. A PIN is only shown to
// those who asked for PINs.
#ifndef BADGEMINT_ADMIN_WORDING_H
#define BADGEMINT_ADMIN_WORDING_H

#include <cstdint>
#include <string>
#include <vector>

#include "admin/cardsite.h"
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

inline bool isPinEntry(const IdentRecord& record) {
  return record.cardsetcode == kPinOnlyCode || record.cardsetcode == kPinIdentCode;
}

// "card 15890 of card set 1", "card 1A2B3C4D without format", "PIN **** alone", "PIN **** beside a
// card"; by its key what the site cannot decode.
std::string credentialText(const IdentRecord& record, const CardSite& site, bool withPins);

// The PIN of an access record: "none" when there is none. That of a holder without a card means
// nothing: it is all zeros.
std::string pinText(const AccessRecord& record, bool withPins);

// "flag 2 (first of the line)".
std::string flagText(int32_t bit);

// What an access record says beside its unique ID, a field a name: "PIN", "access level 1" to "8",
// "flag 0" and on as flagText has it, "escort", "start", "end", ...
struct NamedValue {
  std::string name, value;
};
std::vector<NamedValue> valuesOf(const AccessRecord& record, bool withPins);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_WORDING_H
