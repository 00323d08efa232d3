#include "support/packeddecimal.h"

#include <algorithm>

namespace badgemint {

namespace {

constexpr int kFiller = 15;

}  // namespace

void packDigits(std::string_view digits, std::span<uint8_t> bytes) {
  const size_t whole = std::min(digits.size() / 2, bytes.size());
  const char* digit = digits.data();
  for (uint8_t& byte : bytes.first(whole)) {
    byte = static_cast<uint8_t>((digit[0] - '0') << 4 | (digit[1] - '0'));
    digit += 2;
  }
  if (whole == bytes.size()) return;
  const bool odd = digits.size() % 2 != 0;
  bytes[whole] = static_cast<uint8_t>(odd ? (*digit - '0') << 4 | kFiller : kFiller << 4);
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
