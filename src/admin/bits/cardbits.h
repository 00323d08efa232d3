// The bits of a format's cards in the order in which a reader delivers them, and what the masks of
// the format have for each of them. Bit 0 is leftmost and sent first.
#ifndef BADGEMINT_ADMIN_BITS_CARDBITS_H
#define BADGEMINT_ADMIN_BITS_CARDBITS_H

#include <cstdint>
#include <string>
#include <string_view>

#include "formats/CardFormat.h"

namespace badgemint::admin {

class CardBits {
 public:
  static constexpr char kNoBit = '-';       // A pattern has no room for it.
  static constexpr char kNoPosition = '.';  // The layout has nothing there.

  // The format must outlive the object.
  explicit CardBits(const CardFormat& format) : _format(format), _masks(format.masks()) {}

  int32_t count() const { return _format.bitCount(); }

  // The bits of a pattern as '0' and '1', and a pattern of such bits, `count()` in number. What
  // does not fit into a pattern is left out.
  std::string textOf(const CardPattern& pattern) const;
  CardPattern patternOf(std::string_view bits) const;

  // A mask of the format, a character a bit, as its file has them.
  std::string draw(const BitMask& mask) const;

  // All masks in one, a character a bit, which says what the bit comes from: the letter of a field
  // ('*' in a VFF), 'P' for parity, '0' or '1' where it is fixed.
  std::string drawLayout() const;

  // The parity mask that sets a bit of the card, the last one if there are several; -1 for none.
  int32_t parityMaskOf(int32_t bit) const;
  // The bit that a parity mask would set; -1 for none of the card.
  int32_t bitOfParity(int32_t mask) const;

 private:
  // Where a bit of the card stands in a pattern: all of them end with a whole byte.
  int32_t placeOf(int32_t bit) const { return (count() + 7) / 8 * 8 - count() + bit; }
  // Where it stands in the masks; negative in front of them.
  int32_t positionOf(int32_t bit) const { return _format.lastUsedBit() + 1 - count() + bit; }
  char drawBit(int32_t bit) const;

  const CardFormat& _format;
  LayoutMasks _masks;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_BITS_CARDBITS_H
