#include "formats/bitlayout.h"

#include <algorithm>

namespace badgemint {
namespace {

constexpr int32_t kLastPosition = BitPattern::kPositions - 1;
constexpr int32_t kValueBits = 64;  // Positions of a field beyond these hold no bit of its value.

char charAt(const BitMask& mask, int32_t p) {
  return mask[static_cast<size_t>(p)];
}

bool isUsed(const LayoutMasks& masks, int32_t p) {
  const char output = charAt(masks.output, p);
  const char fixed = charAt(masks.fixed, p);
  if (output == '\0') return false;
  if (output == '.') return fixed == '0' || fixed == '1';
  return output == 'P' || std::ranges::find(masks.letters, output) != masks.letters.end();
}

}  // namespace

void BitLayout::compile(const LayoutMasks& masks) {
  countUsed(masks);
  size_t run = 0;
  for (size_t field = 0; field < _fields.size(); ++field) run = compileField(masks, field, run);
  compileFixedBits(masks.fixed);
  std::ranges::transform(masks.parity, _parities.begin(), compileParity);
}

void BitLayout::countUsed(const LayoutMasks& masks) {
  _usedPositions = 0;
  _lastUsedBit = -1;
  for (int32_t p = 0; p <= kLastPosition; ++p) {
    if (!isUsed(masks, p)) continue;
    ++_usedPositions;
    _lastUsedBit = p;
  }
}

// Goes from the last position to the first, as the bits of a value do from the lowest to the
// highest, and returns the run after the field's own.
size_t BitLayout::compileField(const LayoutMasks& masks, size_t field, size_t firstRun) {
  const char letter = masks.letters[field];
  int32_t width = 0;
  int32_t previous = -1;
  size_t end = firstRun;
  for (int32_t p = kLastPosition; p >= 0 && letter != '\0'; --p) {
    if (charAt(masks.output, p) != letter) continue;
    const int32_t bit = width++;
    if (bit >= kValueBits) continue;
    const bool continues = previous == p + 1 && previous % 64 != 0;
    if (!continues)
      _runs[end++] = {0, static_cast<uint8_t>(p / 64), static_cast<uint8_t>(63 - p % 64),
                      static_cast<uint8_t>(bit)};
    _runs[end - 1].mask = _runs[end - 1].mask << 1 | 1;
    previous = p;
  }
  _fields[field] = {static_cast<uint8_t>(firstRun), static_cast<uint8_t>(end - firstRun), width};
  return end;
}

void BitLayout::compileFixedBits(const BitMask& mask) {
  _set = {};
  _notCleared = BitPattern::first(BitPattern::kPositions);
  for (int32_t p = 0; p <= kLastPosition; ++p) {
    if (charAt(mask, p) == '1') _set.set(p);
    if (charAt(mask, p) == '0') _notCleared.words[BitPattern::wordOf(p)] &= ~BitPattern::bitOf(p);
  }
}

// Of several 'E' and 'O' the one furthest to the front decides.
BitLayout::Parity BitLayout::compileParity(const BitMask& mask) {
  Parity parity;
  for (int32_t p = kLastPosition; p >= 0; --p) {
    const char c = charAt(mask, p);
    if (c == 'X') parity.cover.set(p);
    if (c != 'E' && c != 'O') continue;
    parity.odd = c == 'O' ? 1 : 0;
    parity.bit = BitPattern::bitOf(p);
    parity.word = BitPattern::wordOf(p);
  }
  return parity;
}

void BitLayout::alignTo(int32_t bitCount) {
  const int32_t whole = (bitCount + 7) / 8 * 8;
  _distance = _lastUsedBit - (whole - 1);
  _aligned = BitPattern::first(whole);
}

}  // namespace badgemint
