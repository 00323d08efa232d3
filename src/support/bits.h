// Single bits of a byte buffer, addressed most significant bit first: position p is bit 7 - p mod 8
// of byte p / 8. Positions before 0 are no bits: they read 0 and writing them changes nothing.
#ifndef BADGEMINT_SUPPORT_BITS_H
#define BADGEMINT_SUPPORT_BITS_H

#include <cstdint>

namespace badgemint {

// The buffer must hold position p; no other size is checked.
inline int getBit(const uint8_t* buffer, int32_t p) {
  return p < 0 ? 0 : buffer[p / 8] >> (7 - p % 8) & 1;
}
inline void setBit(uint8_t* buffer, int32_t p) {
  if (p >= 0) buffer[p / 8] = static_cast<uint8_t>(buffer[p / 8] | 1 << (7 - p % 8));
}
inline void clearBit(uint8_t* buffer, int32_t p) {
  if (p >= 0) buffer[p / 8] = static_cast<uint8_t>(buffer[p / 8] & ~(1 << (7 - p % 8)));
}

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_BITS_H
