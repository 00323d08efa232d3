#include "support/packeddecimal.h"

namespace badgemint {

namespace {

constexpr uint8_t kFiller = 15;

}  // namespace

void packDigits(std::string_view digits, std::span<uint8_t> bytes) {
  if (digits.size() > 2 * bytes.size()) digits = digits.substr(0, 2 * bytes.size());
  const auto put = [bytes](size_t i, int nibble) {
    uint8_t& byte = bytes[i / 2];
    byte = static_cast<uint8_t>(i % 2 == 0 ? nibble << 4 : byte | nibble);
  };
  for (size_t i = 0; i < digits.size(); ++i) put(i, digits[i] - '0');
  if (digits.size() < 2 * bytes.size()) put(digits.size(), kFiller);
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
