// How the value of one field stands in the bits of its positions.
#ifndef BADGEMINT_FORMATS_FIELDSTATE_H
#define BADGEMINT_FORMATS_FIELDSTATE_H

#include <cstdint>
#include <string_view>

#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// Bit directions and field types as format files name them. 0 is neither: a field without direction
// stands like "MSB", one without type has no bits set and no value.
inline constexpr int32_t kNotGiven = 0;
inline constexpr int32_t kDirectionMsb = 1;
inline constexpr int32_t kDirectionLsb = 2;  // The bits of the field stand in reverse order.
inline constexpr int32_t kTypeBin = 1;
inline constexpr int32_t kTypeBcd = 2;  // Four bits a decimal digit.
inline constexpr int32_t kTypeMsd = 3;  // Five bits a decimal digit, as on a magnetic stripe.

// Exactly "MSB" or "LSB", and exactly "BIN", "BCD" or "MSD"; kNotGiven for everything else.
int32_t directionFromText(std::string_view text);
int32_t typeFromText(std::string_view text);

// Converts between a field's value and its bits, of which bit 0 belongs to the field's last
// position and bit 63 to the 64th from the end. Positions further to the front are always 0.
struct fieldstate {
  int32_t ftyp = kTypeBin;
  int32_t dir = kDirectionMsb;
  int32_t nbits = 0;  // The field's width, 0 to 144.

  // What does not fit the width is lost without notice. A negative value of a decimal type gives
  // the digits of its unsigned form. Bits beyond the width may be set and belong to no position.
  uint64_t toBits(int64_t value) const {
    return isPlain() ? static_cast<uint64_t>(value) : convertToBits(value);
  }

  // Decimal nibbles above 9 count as they are. A five-bit group that is no digit is skipped and
  // logged.
  int64_t toValue(uint64_t bits) const {
    return isPlain() ? static_cast<int64_t>(bits) : convertToValue(bits);
  }

 private:
  // The value is the bits.
  bool isPlain() const { return ftyp == kTypeBin && dir != kDirectionLsb; }
  uint64_t convertToBits(int64_t value) const;
  int64_t convertToValue(uint64_t bits) const;
  uint64_t directed(uint64_t bits) const;
  uint64_t toStripeDigits(uint64_t value) const;
  uint64_t fromStripeDigits(uint64_t bits) const;
};

}  // namespace badgemint

#endif  // BADGEMINT_FORMATS_FIELDSTATE_H
