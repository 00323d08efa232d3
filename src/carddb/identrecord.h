// A record of the ident database: maps what a reader can present, the bit pattern of a card or a
// PIN, to the unique ID of its holder.
#ifndef BADGEMINT_CARDDB_IDENTRECORD_H
#define BADGEMINT_CARDDB_IDENTRECORD_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "carddb/recordlayout.h"
#include "formats/bitpattern.h"
#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// Card set codes that stand for no card set. 1 to 253 are card sets.
inline constexpr uint32_t kPinOnlyCode = 0;       // A holder with a PIN alone; a packed PIN.
inline constexpr uint32_t kFormatlessCode = 254;  // A card without format; its raw digits.
inline constexpr uint32_t kPinIdentCode = 255;    // The PIN of a card holder; a packed PIN.

// A fresh record is all zero.
struct IdentRecord {
  static constexpr size_t kSize = 28;

  CardPattern cardnumber{};  // The identifier; what it holds depends on cardsetcode.
  uint32_t uniqid = 0;
  uint32_t cardsetcode = 0;
  uint32_t deleted = 0;  // 0 valid, 1 deleted.

  template <typename Record, typename Visit>
  static constexpr void forEachField(Record& record, Visit visit) {
    visit(0, record.cardnumber);
    visit(16, record.uniqid);
    visit(20, record.cardsetcode);
    visit(24, record.deleted);
  }

  bool operator==(const IdentRecord&) const = default;

  // Text forms, cut to what the buffer holds with its NUL. The buffer must not be empty.
  // The identifier form of a PIN: "%s 0 1 %u %u" with id, uniqid, deleted; of anything else:
  // "%s %u 0 %u %u" with id, cardsetcode, uniqid, deleted.
  void toIdentifierText(const char* id, bool isPin, std::span<char> buffer) const;
  // "%lld %u %u" with the card number of these two halves, cardsetcode, uniqid.
  void toNumericText(uint32_t low, uint32_t high, std::span<char> buffer) const;

  // Prints the size of every field, their sum and the record's size to standard output.
  static void printSizes();
};

static_assert(fieldsFillRecord<IdentRecord>());

}  // namespace badgemint

#endif  // BADGEMINT_CARDDB_IDENTRECORD_H
