#include "formats/fieldstate.h"

#include <algorithm>
#include <array>

#include "support/log.h"

namespace badgemint {
namespace {

constexpr char kLogModule[] = "fieldstate";

// Four data bits, the least significant first, and an odd parity bit.
constexpr std::array<uint8_t, 10> kStripeDigits = {0x01, 0x10, 0x08, 0x19, 0x04,
                                                   0x15, 0x0D, 0x1C, 0x02, 0x13};

constexpr uint64_t reversed(uint64_t v) {
  v = (v >> 1 & 0x5555555555555555) | (v & 0x5555555555555555) << 1;
  v = (v >> 2 & 0x3333333333333333) | (v & 0x3333333333333333) << 2;
  v = (v >> 4 & 0x0F0F0F0F0F0F0F0F) | (v & 0x0F0F0F0F0F0F0F0F) << 4;
  return __builtin_bswap64(v);
}

uint64_t toNibbles(uint64_t value) {
  uint64_t bits = 0;
  for (int shift = 0; shift < 64 && value != 0; shift += 4, value /= 10)
    bits |= value % 10 << shift;
  return bits;
}

uint64_t fromNibbles(uint64_t bits) {
  uint64_t value = 0;
  for (int shift = 60; shift >= 0; shift -= 4) value = value * 10 + (bits >> shift & 0xF);
  return value;
}

// The five bits that end `shift` bits above the last one; what lies outside the word reads 0.
constexpr uint64_t fiveBits(uint64_t bits, int32_t shift) {
  if (shift >= 64) return 0;
  return (shift < 0 ? bits << -shift : bits >> shift) & 0x1F;
}

}  // namespace

int32_t directionFromText(std::string_view text) {
  return text == "MSB" ? kDirectionMsb : text == "LSB" ? kDirectionLsb : kNotGiven;
}

int32_t typeFromText(std::string_view text) {
  if (text == "BIN") return kTypeBin;
  if (text == "BCD") return kTypeBcd;
  return text == "MSD" ? kTypeMsd : kNotGiven;
}

uint64_t fieldstate::convertToBits(int64_t value) const {
  const auto v = static_cast<uint64_t>(value);
  switch (ftyp) {
    case kTypeBin:
      return directed(v);
    case kTypeBcd:
      return directed(toNibbles(v));
    case kTypeMsd:
      return directed(toStripeDigits(v));
    default:
      return 0;
  }
}

int64_t fieldstate::convertToValue(uint64_t bits) const {
  switch (ftyp) {
    case kTypeBin:
      return static_cast<int64_t>(directed(bits));
    case kTypeBcd:
      return static_cast<int64_t>(fromNibbles(directed(bits)));
    case kTypeMsd:
      return static_cast<int64_t>(fromStripeDigits(directed(bits)));
    default:
      return 0;
  }
}

// Reverses the last `nbits` bits of a LSB field. Bit b takes bit nbits - 1 - b where there are such
// bits, which is also the rule for a field wider than the word.
uint64_t fieldstate::directed(uint64_t bits) const {
  if (dir != kDirectionLsb) return bits;
  if (nbits <= 0 || nbits >= 128) return 0;
  return nbits <= 64 ? reversed(bits) >> (64 - nbits) : reversed(bits) << (nbits - 64);
}

// As many digits as the field has whole groups, missing ones as 0. A thirteenth group loses its
// first bit to the front of the word.
uint64_t fieldstate::toStripeDigits(uint64_t value) const {
  uint64_t bits = 0;
  for (int32_t shift = 0; shift < std::min(nbits / 5 * 5, 64); shift += 5, value /= 10)
    bits |= uint64_t{kStripeDigits[static_cast<size_t>(value % 10)]} << shift;
  return bits;
}

// Groups count from the first position of the field, so that they miss the digits of a field whose
// width is no multiple of five.
uint64_t fieldstate::fromStripeDigits(uint64_t bits) const {
  uint64_t value = 0;
  for (int32_t shift = nbits - 5; shift >= -4; shift -= 5) {
    const uint64_t code = fiveBits(bits, shift);
    const auto digit = std::find(kStripeDigits.begin(), kStripeDigits.end(), code);
    if (digit == kStripeDigits.end()) {
      LOG(kLogStep, "invalid msddig dig = %x\n", static_cast<unsigned>(code));
      continue;
    }
    value = value * 10 + static_cast<uint64_t>(digit - kStripeDigits.begin());
  }
  return value;
}

}  // namespace badgemint
