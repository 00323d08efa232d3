// The bits of a card: the pattern that a reader delivers, and the 144 positions of a layout in
// which it is put together. Positions count from 0, the first bit on the card.
#ifndef BADGEMINT_FORMATS_BITPATTERN_H
#define BADGEMINT_FORMATS_BITPATTERN_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// The encoded card, which is also its key everywhere in the system: position p is bit 7 - p mod 8
// of byte p / 8. Bits after the card's own are 0.
using CardPattern = std::array<uint8_t, 16>;

// 144 positions as three words: position p is bit 63 - p mod 64 of word p / 64. A plain value. The
// words have room for 192 positions, so that a pattern may stand up to 48 positions further back.
struct BitPattern {
  static constexpr int32_t kPositions = 144;

  std::array<uint64_t, 3> words{};

  // p is 0 to 191 in all three.
  static constexpr size_t wordOf(int32_t p) { return static_cast<size_t>(p / 64); }
  static constexpr uint64_t bitOf(int32_t p) { return uint64_t{1} << (63 - p % 64); }
  constexpr void set(int32_t p) { words[wordOf(p)] |= bitOf(p); }

  // A pattern with the first n positions set, 0 to 144.
  static constexpr BitPattern first(int32_t n) {
    BitPattern ones;
    for (int32_t p = 0; p < n; ++p) ones.set(p);
    return ones;
  }

  constexpr BitPattern& operator&=(const BitPattern& other) {
    for (size_t i = 0; i < words.size(); ++i) words[i] &= other.words[i];
    return *this;
  }
  constexpr BitPattern& operator|=(const BitPattern& other) {
    for (size_t i = 0; i < words.size(); ++i) words[i] |= other.words[i];
    return *this;
  }

  constexpr BitPattern& operator^=(const BitPattern& other) {
    for (size_t i = 0; i < words.size(); ++i) words[i] ^= other.words[i];
    return *this;
  }

  // 1 when the number of set positions among those of `mask` is odd, else 0. Not std::popcount,
  // which is a library call where the processor's own instruction may not be used.
  uint64_t parityOf(const BitPattern& mask) const {
    return static_cast<uint64_t>(__builtin_parityll(
        (words[0] & mask.words[0]) ^ (words[1] & mask.words[1]) ^ (words[2] & mask.words[2])));
  }

  // Moved by `distance` positions, -192 to 191: towards the first position when it is positive.
  // What moves past either end is lost, and zeros follow.
  constexpr BitPattern moved(int32_t distance) const {
    const std::array<uint64_t, 9> framed = {0, 0, 0, words[0], words[1], words[2], 0, 0, 0};
    const auto from = static_cast<size_t>(3 + (distance >> 6));
    const auto bits = static_cast<unsigned>(distance & 63);
    BitPattern result;
    for (size_t i = 0; i < words.size(); ++i)
      result.words[i] = framed[from + i] << bits | framed[from + i + 1] >> 1 >> (63 - bits);
    return result;
  }

  // The first 128 positions; the rest does not fit on a card.
  CardPattern toCard() const {
    const std::array<uint64_t, 2> bytes = {bigEndian(words[0]), bigEndian(words[1])};
    return std::bit_cast<CardPattern>(bytes);
  }
  static BitPattern fromCard(const CardPattern& card) {
    const auto bytes = std::bit_cast<std::array<uint64_t, 2>>(card);
    return {{bigEndian(bytes[0]), bigEndian(bytes[1]), 0}};
  }

 private:
  static constexpr uint64_t bigEndian(uint64_t word) {
    return std::endian::native == std::endian::big ? word : __builtin_bswap64(word);
  }
};

}  // namespace badgemint

#endif  // BADGEMINT_FORMATS_BITPATTERN_H
