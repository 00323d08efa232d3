// How messages and lists name what the databases hold. PINs appear only when the user asks for
// them.
#ifndef BADGEMINT_ADMIN_RECORDS_WORDING_H
#define BADGEMINT_ADMIN_RECORDS_WORDING_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "admin/check/finding.h"
#include "admin/json.h"
#include "admin/records/site.h"
#include "carddb/accessrecord.h"
#include "support/datetime.h"
#include "support/packeddecimal.h"

namespace badgemint::admin {

inline constexpr char kHiddenPin[] = "****";

// A field of an access record, beside its unique ID.
struct AccessField {
  enum class Kind { kAccessLevel, kFlag, kEscort, kTime, kNumber, kPin };

  const char* name;      // "access level 1", "flag 2 (first of the line)", "start", ...
  std::string_view key;  // In JSON; that of the array for access levels and flags.
  Kind kind;
  uint32_t (*valueOf)(const AccessRecord& record);  // Of a PIN its bytes, as a number.
};
// Every byte of a record after its unique ID belongs to one of them.
std::span<const AccessField> accessFields();

// The first field in which two records differ: "unique ID", "card set", "key", "mark of deletion",
// or the name of an access field. Null for equal records.
const char* differingField(const IdentRecord& a, const IdentRecord& b);
const char* differingField(const AccessRecord& a, const AccessRecord& b);

// A time as in the cards file: "2026/01/31 18:00:00", or "0" for none.
DateTimeText timeText(uint32_t seconds);

// "valid", "not yet valid", "expired" or "never valid". Both ends belong to the validity.
const char* validityText(const AccessRecord& record, uint32_t time);

// The key of an ident record, masked when it is a PIN that must not be shown.
std::string keyText(const IdentRecord& record, bool withPins);

// Also for a code that no build writes: it may have been that of a PIN.
inline bool isPinEntry(const IdentRecord& record) {
  return record.cardsetcode == kPinOnlyCode || record.cardsetcode >= kPinIdentCode;
}

// Whether a holder has a card, with which the PIN of the access record is entered.
bool hasCard(const Holder& holder);

// The number as the cards file has it: decimal for a card of a card set, hexadecimal for a card
// without format. None for a PIN, and for a card that the site cannot decode.
std::optional<std::string> cardNumberText(const IdentRecord& record, const Site& site);

// "card 15890 of card set 1", "card 1A2B3C4D without format", "PIN **** without a card", "PIN ****
// beside a card". A card that the site cannot decode is named by its key.
std::string credentialText(const IdentRecord& record, const Site& site, bool withPins);

// The PIN of an access record, or "none"; masked alike whether there is one or not. A holder
// without a card has none there, whatever the record says.
std::string pinText(const AccessRecord& record, bool withPins);

// The digits of a packed PIN; "0" for none, as in the cards file.
template <size_t MostDigits>
std::string pinDigits(std::span<const uint8_t> packed) {
  const std::string digits = DigitText<MostDigits>(packed).c_str();
  return digits.empty() ? "0" : digits;
}

// Adds what a record says, with PINs masked alike: "kind" ("card", "card without format", "PIN
// alone", "PIN beside a card"), "set", "card", "key", "pin", "deleted".
void addCredential(JsonObject& object, const IdentRecord& record, const Site& site, bool withPins);
// "holder", "access" with an object for each record, and "credentials".
JsonObject holderJson(const Holder& holder, const Site& site, uint32_t now, bool withPins);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_WORDING_H
