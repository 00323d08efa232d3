// The bits of a format's cards in the order in which a reader sends them, and card numbers to bits,
// with the reasons why a word is not a card number or a pattern not a card of a format.
#ifndef BADGEMINT_ADMIN_BITS_CARDS_H
#define BADGEMINT_ADMIN_BITS_CARDS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cardsets/card_functions.h"
#include "formats/CardFormat.h"

namespace badgemint::admin {

// Refers to the format, which must outlive it. In all rows a character is a bit; bit 0 is leftmost
// and sent first.
class CardLayout {
 public:
  static constexpr char kNoBit = '-';       // A pattern has no room for it.
  static constexpr char kNoPosition = '.';  // The layout has nothing there.

  explicit CardLayout(const CardFormat& format);

  // The number of bits. In a layout with gaps this includes bits that the format sets in front of
  // those it counts.
  size_t count() const { return _sources.size(); }

  // The bits of a pattern as '0' and '1', and the pattern of `count()` such bits. What has no place
  // in a pattern is left out.
  std::string bitsOf(const CardPattern& pattern) const;
  CardPattern patternOf(std::string_view bits) const;

  // A mask of the format, as its file has it.
  std::string rowOf(const BitMask& mask) const;

  // All masks in one, which shows where a bit comes from: the letter of a field ('*' in a VFF), 'P'
  // for parity, '0' or '1' where it is fixed.
  const std::string& mergedRow() const { return _sources; }

  // What differs between a card and what the format encodes for the same values, from the first bit
  // to the last, in plain words.
  std::vector<std::string> faultsOf(const CardPattern& card, const CardPattern& encoded) const;

 private:
  // The position in the masks; negative before their start.
  int32_t positionOf(size_t bit) const {
    return _format.lastUsedBit() + 1 - static_cast<int32_t>(count() - bit);
  }
  char sourceOf(int32_t position) const;
  // The parity mask that sets a position, the last one if there are several; -1 for none.
  int32_t parityMaskAt(int32_t position) const;
  // Whether a bit that a parity mask sets is right for the bits that the mask covers. `encoded` has
  // the bits of any card of the format.
  bool hasRightParity(size_t parityBit, const std::string& card, const std::string& encoded) const;

  const CardFormat& _format;
  const LayoutMasks _masks;
  std::string _sources;
  size_t _place = 0;  // Of bit 0 in a pattern: all of them end with a whole byte.
};

// The fields beside the number, as ", A=22, B=1".
std::string siteValuesText(const CardFormat& format, const CardFormat::FieldValues& values);

// The card of this number. Throws Failure (refused) with the reason when there is none: the word is
// not a card number, or does not fit its field.
CardPattern encodeWord(const CardEncoder& encoder, std::string_view word);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_BITS_CARDS_H
