// A record of the access database: what one holder may do. PIN, access levels, validity, escort,
// elevator and output group settings, and six flags.
#ifndef BADGEMINT_CARDDB_ACCESSRECORD_H
#define BADGEMINT_CARDDB_ACCESSRECORD_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "carddb/recordlayout.h"
#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// A fresh record is all zero.
struct AccessRecord {
  static constexpr size_t kSize = 44;
  static constexpr int32_t kAccessLevels = 8;
  static constexpr size_t kPinDigits = 8;
  static constexpr uint8_t kAllFlags = 0x3F;
  // Room for either text form, whatever the record holds.
  static constexpr size_t kTextSize = 256;

  uint32_t uniqid = 0;
  std::array<uint8_t, kPinDigits / 2> pincode{};   // Packed digits; blank when the first is 15.
  std::array<uint16_t, kAccessLevels> acclevel{};  // 0: slot unused.
  uint32_t starttime = 0;                          // Seconds since 1970-01-01 UTC; 0: none.
  uint32_t endtime = 0;
  uint32_t escortid = 0;
  uint32_t cardissuelevel = 0;
  uint8_t bitflds = 0;  // Flags 0 to 5, flag i in bit i.
  uint8_t elevatoraccess = 0;
  uint8_t outrelaygrpid = 0;
  uint8_t outgrpmode = 0;

  template <typename Record, typename Visit>
  static constexpr void forEachField(Record& record, Visit visit) {
    visit(0, record.uniqid);
    visit(4, record.pincode);
    visit(8, record.acclevel);
    visit(24, record.starttime);
    visit(28, record.endtime);
    visit(32, record.escortid);
    visit(36, record.cardissuelevel);
    visit(40, record.bitflds);
    visit(41, record.elevatoraccess);
    visit(42, record.outrelaygrpid);
    visit(43, record.outgrpmode);
  }

  bool operator==(const AccessRecord&) const = default;

  // The access level of a slot; 0 for a slot outside 0 to 7.
  uint16_t accessLevel(int32_t slot) const {
    return slot >= 0 && slot < kAccessLevels ? acclevel[static_cast<size_t>(slot)] : uint16_t{0};
  }
  // Nothing happens for a slot outside 0 to 7.
  void setAccessLevel(int32_t slot, uint16_t number) {
    if (slot >= 0 && slot < kAccessLevels) acclevel[static_cast<size_t>(slot)] = number;
  }

  // Flag `bit` is 0 to 5; it reads as 0 or 1 and is set by anything but 0.
  int32_t flag(int32_t bit) const { return bitflds >> bit & 1; }
  void setFlag(int32_t bit, int32_t value) {
    const int32_t mask = 1 << bit;
    bitflds = static_cast<uint8_t>(value != 0 ? bitflds | mask : bitflds & ~mask);
  }

  // Takes over what bounds a holder's validity: starttime, endtime, escortid, elevatoraccess and
  // outrelaygrpid.
  void copyValidityFrom(const AccessRecord& other);

  // Text forms, cut to what the buffer holds with its NUL. The buffer must not be empty.
  //
  // The full form: PIN digits, uniqid, the eight levels, flags 2, 0, 1, 3, 4, cardissuelevel, the
  // two times as text, escortid, elevatoraccess, outrelaygrpid, outgrpmode, flag 5. A blank PIN is
  // changed to the PIN "0" in the record itself, and logged:
  // "pincode for uniqid=%u was blank and is now %s\n" (level 25).
  void toText(std::span<char> buffer);
  // The short form: uniqid, the PIN's raw bytes as characters up to the first NUL, the levels,
  // flags 2, 0, 1, cardissuelevel, elevatoraccess, outrelaygrpid, outgrpmode, flag 5.
  void toShortText(std::span<char> buffer) const;

  // Prints the size of every field, their sum and the record's size to standard output.
  static void printSizes();
};

static_assert(fieldsFillRecord<AccessRecord>());

}  // namespace badgemint

#endif  // BADGEMINT_CARDDB_ACCESSRECORD_H
