// Packed decimal digits: two a byte, the first in the high nibble, and the nibble 15 as filler
// after the last digit of a field that is not full. PINs are stored this way.
#ifndef BADGEMINT_SUPPORT_PACKEDDECIMAL_H
#define BADGEMINT_SUPPORT_PACKEDDECIMAL_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace badgemint {

// Packs `digits` (characters '0' to '9') into `bytes`, a field of twice as many digits; digits that
// do not fit are dropped. When the field is not full, exactly one filler nibble follows the last
// digit; the bytes after it stay as the caller prepared them.
void packDigits(std::string_view digits, std::span<uint8_t> bytes);

// Unpacks at most `count` digits, up to the first filler nibble, into `text`, which has room for
// `count` characters, and returns how many there were. The text is not terminated. The nibbles 10
// to 14 give the characters after '9'. `bytes` holds at least `count` nibbles.
size_t unpackDigits(std::span<const uint8_t> bytes, size_t count, char* text);

// The digits of a packed PIN as a text of its own.
template <size_t Count>
struct DigitText {
  std::array<char, Count + 1> text{};
  explicit DigitText(std::span<const uint8_t> bytes) { unpackDigits(bytes, Count, text.data()); }
  const char* c_str() const { return text.data(); }
};

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_PACKEDDECIMAL_H
