#include "admin/bits/layout.h"

#include <fmt/format.h>

#include <algorithm>

namespace badgemint::admin {

namespace {

constexpr size_t kBitsPerLine = 90;

char at(const BitMask& mask, int32_t position) {
  return mask[static_cast<size_t>(position)];
}

// The position that a parity mask sets: the first one if there are several. -1 for none.
int32_t targetPosition(const BitMask& mask) {
  const size_t target = std::string_view(mask.data(), BitPattern::kPositions).find_first_of("EO");
  return target == std::string_view::npos ? -1 : static_cast<int32_t>(target);
}

}  // namespace

CardLayout::CardLayout(const CardFormat& format)
    : _format(format), _masks(format.masks()), _count((format.bitCount() + 7) / 8 * 8) {
  while (_count > format.bitCount() && !isEverSet(0)) --_count;
}

bool CardLayout::isEverSet(int32_t bit) const {
  const int32_t position = positionOf(bit);
  return position >= 0 && (parityMaskOf(bit) >= 0 || at(_masks.fixed, position) == '1' ||
                           isUsedPosition(_masks, position));
}

std::string CardLayout::bitsOf(const CardPattern& pattern) const {
  std::string bits;
  for (int32_t bit = 0; bit < count(); ++bit) {
    const auto place = static_cast<size_t>(placeOf(bit));
    if (place >= 8 * pattern.size())
      bits += kNoBit;
    else
      bits += (pattern[place / 8] >> (7 - place % 8) & 1) != 0 ? '1' : '0';
  }
  return bits;
}

CardPattern CardLayout::patternOf(std::string_view bits) const {
  BitPattern places;
  for (int32_t place = placeOf(0); const char bit : bits) {
    if (bit == '1') places.set(place);
    ++place;
  }
  return places.toCard();
}

std::string CardLayout::rowOf(const BitMask& mask) const {
  std::string row;
  for (int32_t bit = 0; bit < count(); ++bit) {
    const int32_t position = positionOf(bit);
    const char c = position < 0 ? '\0' : at(mask, position);
    row += c > ' ' && c <= '~' ? c : kNoPosition;
  }
  return row;
}

std::string CardLayout::mergedRow() const {
  std::string row;
  for (int32_t bit = 0; bit < count(); ++bit) row += sourceOf(bit);
  return row;
}

// Fixed bits replace those of fields, and parity bits replace both.
char CardLayout::sourceOf(int32_t bit) const {
  const int32_t position = positionOf(bit);
  if (position < 0) return kNoPosition;
  if (parityMaskOf(bit) >= 0) return 'P';
  const char fixed = at(_masks.fixed, position);
  if (fixed == '0' || fixed == '1') return fixed;
  return isUsedPosition(_masks, position) ? at(_masks.output, position) : kNoPosition;
}

int32_t CardLayout::parityMaskOf(int32_t bit) const {
  for (int32_t mask = _format.numberOfParityBits(); mask-- > 0;)
    if (targetOf(mask) == bit) return mask;
  return -1;
}

int32_t CardLayout::targetOf(int32_t mask) const {
  const int32_t target = targetPosition(_masks.parity[static_cast<size_t>(mask)]);
  const int32_t bit = target - positionOf(0);
  return target >= 0 && bit >= 0 && bit < count() ? bit : -1;
}

void printUnderRuler(std::span<const BitRow> rows, std::ostream& output) {
  const auto print = [&](std::string_view name, std::string_view bits) {
    output << fmt::format("{:<10}{}\n", name, bits);
  };
  const size_t count = rows.front().bits.size();
  for (size_t from = 0; from < count; from += kBitsPerLine) {
    const size_t length = std::min(kBitsPerLine, count - from);
    std::string tens, units;
    for (size_t bit = from; bit < from + length; ++bit) {
      if (bit % 10 == 0) tens += fmt::format("{:<10}", bit / 10);
      units += static_cast<char>('0' + bit % 10);
    }
    print("", tens.substr(0, tens.find_last_not_of(' ') + 1));
    print("bit", units);
    for (const auto& [name, bits] : rows) print(name, bits.substr(from, length));
  }
}

}  // namespace badgemint::admin
