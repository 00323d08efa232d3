#include "support/packeddecimal.h"

#include <algorithm>

namespace badgemint {

namespace {

constexpr int kFiller = 15;

}  // namespace

void packDigits(std::string_view digits, std::span<uint8_t> bytes) {
  const auto nibble = [digits](size_t i) { return i < digits.size() ? digits[i] - '0' : kFiller; };
  const size_t whole = std::min(digits.size() / 2, bytes.size());
  for (size_t i = 0; i < whole; ++i)
    bytes[i] = static_cast<uint8_t>(nibble(2 * i) << 4 | nibble(2 * i + 1));
  if (whole == bytes.size()) return;
  const bool odd = digits.size() % 2 != 0;
  bytes[whole] = static_cast<uint8_t>(nibble(2 * whole) << 4 | (odd ? kFiller : 0));
}

size_t unpackDigits(std::span<const uint8_t> bytes, size_t count, char* text) {
  for (size_t i = 0; i < count; ++i) {
    const int nibble = i % 2 == 0 ? bytes[i / 2] >> 4 : bytes[i / 2] & 0xF;
    if (nibble == kFiller) return i;
    text[i] = static_cast<char>('0' + nibble);
  }
  return count;
}

}  // namespace badgemint
