#include "admin/bits/cardbits.h"

namespace badgemint::admin {

namespace {

char at(const BitMask& mask, int32_t position) {
  return mask[static_cast<size_t>(position)];
}

// The position that a parity mask sets: the first one if there are several. -1 for none.
int32_t targetOf(const BitMask& mask) {
  const size_t target = std::string_view(mask.data(), BitPattern::kPositions).find_first_of("EO");
  return target == std::string_view::npos ? -1 : static_cast<int32_t>(target);
}

bool isFixed(char c) {
  return c == '0' || c == '1';
}

}  // namespace

std::string CardBits::textOf(const CardPattern& pattern) const {
  std::string text;
  for (int32_t bit = 0; bit < count(); ++bit) {
    const auto place = static_cast<size_t>(placeOf(bit));
    if (place >= 8 * pattern.size())
      text += kNoBit;
    else
      text += (pattern[place / 8] >> (7 - place % 8) & 1) != 0 ? '1' : '0';
  }
  return text;
}

CardPattern CardBits::patternOf(std::string_view bits) const {
  BitPattern places;
  for (int32_t place = placeOf(0); const char bit : bits) {
    if (bit == '1') places.set(place);
    ++place;
  }
  return places.toCard();
}

std::string CardBits::draw(const BitMask& mask) const {
  std::string text;
  for (int32_t bit = 0; bit < count(); ++bit) {
    const int32_t position = positionOf(bit);
    const char c = position < 0 ? '\0' : at(mask, position);
    text += c > ' ' && c <= '~' ? c : kNoPosition;
  }
  return text;
}

std::string CardBits::drawLayout() const {
  std::string text;
  for (int32_t bit = 0; bit < count(); ++bit) text += drawBit(bit);
  return text;
}

// Fixed bits replace those of fields, and parity bits replace both.
char CardBits::drawBit(int32_t bit) const {
  const int32_t position = positionOf(bit);
  if (position < 0) return kNoPosition;
  if (parityMaskOf(bit) >= 0) return 'P';
  if (isFixed(at(_masks.fixed, position))) return at(_masks.fixed, position);
  return isUsedPosition(_masks, position) ? at(_masks.output, position) : kNoPosition;
}

int32_t CardBits::parityMaskOf(int32_t bit) const {
  const int32_t position = positionOf(bit);
  if (position < 0) return -1;
  for (int32_t mask = _format.numberOfParityBits(); mask-- > 0;)
    if (targetOf(_masks.parity[static_cast<size_t>(mask)]) == position) return mask;
  return -1;
}

int32_t CardBits::bitOfParity(int32_t mask) const {
  const int32_t target = targetOf(_masks.parity[static_cast<size_t>(mask)]);
  const int32_t bit = target - positionOf(0);
  return target >= 0 && bit >= 0 && bit < count() ? bit : -1;
}

}  // namespace badgemint::admin
