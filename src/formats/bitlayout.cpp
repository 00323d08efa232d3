#include "formats/bitlayout.h"

#include <algorithm>
#include <string_view>

namespace badgemint {
namespace {

constexpr int32_t kLastPosition = BitPattern::kPositions - 1;
constexpr int32_t kSparePositions = 192 - BitPattern::kPositions;  // In the words of a pattern.
constexpr int32_t kValueBits = 64;  // Positions of a field beyond these hold no bit of its value.

char charAt(const BitMask& mask, int32_t p) {
  return mask[static_cast<size_t>(p)];
}

// The first position that a mask gives a meaning; after the last one when there is none.
int32_t firstPosition(const LayoutMasks& masks) {
  for (int32_t p = 0; p <= kLastPosition; ++p) {
    const auto means = [p](std::string_view meanings) {
      return [p, meanings](const BitMask& mask) {
        return meanings.find(charAt(mask, p)) != std::string_view::npos;
      };
    };
    if (isUsedPosition(masks, p) || means("01")(masks.fixed) ||
        std::ranges::any_of(masks.parity, means("XEO")))
      return p;
  }
  return BitPattern::kPositions;
}

}  // namespace

bool isUsedPosition(const LayoutMasks& masks, int32_t p) {
  const char output = charAt(masks.output, p);
  const char fixed = charAt(masks.fixed, p);
  if (output == '\0') return false;
  if (output == '.') return fixed == '0' || fixed == '1';
  return output == 'P' || std::ranges::find(masks.letters, output) != masks.letters.end();
}

void BitLayout::compile(const LayoutMasks& masks, int32_t bitCount) {
  countUsed(masks);
  align(masks, bitCount);
  size_t run = 0;
  for (size_t field = 0; field < _fields.size(); ++field) run = compileField(masks, field, run);
  compileFixedBits(masks.fixed);
  std::ranges::transform(masks.parity, _parities.begin(),
                         [this](const BitMask& mask) { return compileParity(mask); });
}

void BitLayout::countUsed(const LayoutMasks& masks) {
  _usedPositions = 0;
  _lastUsedBit = -1;
  for (int32_t p = 0; p <= kLastPosition; ++p) {
    if (!isUsedPosition(masks, p)) continue;
    ++_usedPositions;
    _lastUsedBit = p;
  }
}

void BitLayout::align(const LayoutMasks& masks, int32_t bitCount) {
  _bitCount = bitCount == kCountBits ? _usedPositions : bitCount;
  const int32_t whole = (_bitCount + 7) / 8 * 8;
  const int32_t shift = whole - 1 - _lastUsedBit;
  _origin = shift >= -firstPosition(masks) && shift <= kSparePositions ? shift : 0;
  _distance = _origin - shift;
  _aligned = BitPattern::first(whole);
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
    const int32_t place = p + _origin;
    const bool continues = previous == place + 1 && previous % 64 != 0;
    if (!continues)
      _runs[end++] = {0, static_cast<uint8_t>(place / 64), static_cast<uint8_t>(63 - place % 64),
                      static_cast<uint8_t>(bit)};
    _runs[end - 1].mask = _runs[end - 1].mask << 1 | 1;
    previous = place;
  }
  _fields[field] = {static_cast<uint8_t>(firstRun), static_cast<uint8_t>(end - firstRun), width};
  return end;
}

void BitLayout::compileFixedBits(const BitMask& mask) {
  _set = {};
  _notCleared.words.fill(UINT64_MAX);
  for (int32_t p = 0; p <= kLastPosition; ++p) {
    const int32_t place = p + _origin;
    if (charAt(mask, p) == '1') _set.set(place);
    if (charAt(mask, p) == '0')
      _notCleared.words[BitPattern::wordOf(place)] &= ~BitPattern::bitOf(place);
  }
}

// Of several 'E' and 'O' the one furthest to the front decides.
BitLayout::Parity BitLayout::compileParity(const BitMask& mask) const {
  Parity parity;
  for (int32_t p = kLastPosition; p >= 0; --p) {
    const char c = charAt(mask, p);
    const int32_t place = p + _origin;
    if (c == 'X') parity.cover.set(place);
    if (c != 'E' && c != 'O') continue;
    parity.odd = c == 'O' ? 1 : 0;
    parity.bit = BitPattern::bitOf(place);
    parity.word = BitPattern::wordOf(place);
  }
  return parity;
}

}  // namespace badgemint
