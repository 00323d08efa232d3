// The bits of a format's cards in the order in which a reader sends them, what the format has for
// each of them, and rows of such bits drawn under a ruler. Bit 0 is leftmost and sent first.
#ifndef BADGEMINT_ADMIN_BITS_LAYOUT_H
#define BADGEMINT_ADMIN_BITS_LAYOUT_H

#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "formats/CardFormat.h"

namespace badgemint::admin {

// Refers to the format, which must outlive it. In all rows a character is a bit.
class CardLayout {
 public:
  static constexpr char kNoBit = '-';       // A pattern has no room for it.
  static constexpr char kNoPosition = '.';  // The layout has nothing there.

  explicit CardLayout(const CardFormat& format);

  // Those of the format, and in a layout with gaps, which it does not count, also what it sets in
  // front of them.
  int32_t count() const { return _count; }

  // The bits of a pattern as '0' and '1', and the pattern of `count()` such bits. What has no place
  // in a pattern is left out.
  std::string bitsOf(const CardPattern& pattern) const;
  CardPattern patternOf(std::string_view bits) const;

  // A mask of the format, as its file has it.
  std::string rowOf(const BitMask& mask) const;

  // All masks in one, which shows where a bit comes from: the letter of a field ('*' in a VFF), 'P'
  // for parity, '0' or '1' where it is fixed.
  std::string mergedRow() const;

  // The parity mask that sets a bit, the last one if there are several; -1 for none.
  int32_t parityMaskOf(int32_t bit) const;
  // The bit that a parity mask sets; -1 when it is not one of the card.
  int32_t targetOf(int32_t mask) const;

 private:
  // Where a bit is in a pattern: all of them end with a whole byte.
  int32_t placeOf(int32_t bit) const { return (count() + 7) / 8 * 8 - count() + bit; }
  // Where it is in the masks; negative before their begin.
  int32_t positionOf(int32_t bit) const { return _format.lastUsedBit() + 1 - count() + bit; }
  char sourceOf(int32_t bit) const;
  bool isEverSet(int32_t bit) const;

  const CardFormat& _format;
  const LayoutMasks _masks;
  int32_t _count;
};

// A row of a drawing.
struct BitRow {
  std::string name, bits;
};

// Prints rows of the same length under a ruler that counts the bits from 0. Long rows are continued
// below, so that no line has more than 100 characters.
void printUnderRuler(std::span<const BitRow> rows, std::ostream& output);

// A drawing of a layout for documents.
struct LayoutPicture {
  std::string title;
  std::vector<BitRow> rows;    // The first one has the source of each bit: it gives the colours.
  std::vector<BitRow> legend;  // A source, such as "A", and what it is.
  std::vector<std::string> remarks;
};

// The picture as a whole SVG file, which needs nothing else to be shown or printed.
std::string svgOf(const LayoutPicture& picture);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_BITS_LAYOUT_H
