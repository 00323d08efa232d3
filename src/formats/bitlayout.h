// The bit layout of a card format, compiled from the masks of its file into what encoding and
// decoding need, so that no card ever looks at a mask character again.
#ifndef BADGEMINT_FORMATS_BITLAYOUT_H
#define BADGEMINT_FORMATS_BITLAYOUT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "formats/bitpattern.h"
#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

inline constexpr int32_t kFieldCount = 8;
inline constexpr int32_t kParityMaskCount = 8;

// A mask of a format file: one character per position and a NUL. Positions that the file does not
// fill hold a NUL as well.
using BitMask = std::array<char, BitPattern::kPositions + 1>;

// What a layout is compiled from.
struct LayoutMasks {
  const BitMask&
      output;            // The letter of a field, 'P' for parity, '.' where the fixed mask decides.
  const BitMask& fixed;  // '0' and '1' fix a position, whatever the output mask says there.
  std::span<const BitMask, kParityMaskCount> parity;  // 'X' is covered; 'E' or 'O' is set.
  std::array<char, kFieldCount> letters;  // Names the fields; NUL for one without positions.
};

// Whether position p, 0 to 143, is one of the card: of a field, of parity, or fixed where the
// output mask holds a '.'.
bool isUsedPosition(const LayoutMasks& masks, int32_t p);

// Everything that a layout holds is in range, whatever the masks were: it cannot fail.
//
// A card ends with the layout's last used position, and almost every layout can be compiled as it
// stands there: a pattern is then put together in its final place. Only where that would push
// positions in use over an end of a pattern is it put together as the masks have it and moved.
class BitLayout {
 public:
  static constexpr int32_t kCountBits = -1;

  // `bitCount` is what the card has, 0 to 144, or kCountBits for as many as there are used
  // positions.
  void compile(const LayoutMasks& masks, int32_t bitCount);

  int32_t bitCount() const { return _bitCount; }
  // Positions of fields, of parity ('P'), and fixed ones where the output mask holds a '.'.
  int32_t usedPositions() const { return _usedPositions; }
  // The highest of them, -1 when there is none.
  int32_t lastUsedBit() const { return _lastUsedBit; }
  // The number of positions of a field, 0 to 144; 0 for an index outside 0 to 7.
  int32_t fieldWidth(int32_t field) const {
    return field >= 0 && field < kFieldCount ? at(field).width : 0;
  }

  // Encoding. The bits of a field (0 to 7) are those of `fieldstate`; its positions are still
  // clear.
  void placeField(int32_t field, uint64_t bits, BitPattern& work) const {
    for (const Run& run : runsOf(field))
      work.words[run.word] |= (bits >> run.bit & run.mask) << run.shift;
  }
  void placeFixedBits(BitPattern& work) const {
    work &= _notCleared;
    work |= _set;
  }
  // Parity mask i is 0 to 7.
  void placeParityBit(int32_t i, BitPattern& work) const {
    const Parity& parity = _parities[static_cast<size_t>(i)];
    const uint64_t one = work.parityOf(parity.cover) ^ parity.odd;
    uint64_t& word = work.words[parity.word];
    word = (word & ~parity.bit) | (parity.bit & (0 - one));
  }

  // The last used position comes to stand on the last of the card's positions in whole bytes. Both
  // ways, what has no place there is lost.
  CardPattern toCard(const BitPattern& work) const {
    BitPattern aligned = _distance == 0 ? work : work.moved(_distance);
    aligned &= _aligned;
    return aligned.toCard();
  }
  BitPattern fromCard(const CardPattern& card) const {
    BitPattern aligned = BitPattern::fromCard(card);
    aligned &= _aligned;
    return _distance == 0 ? aligned : aligned.moved(-_distance);
  }

  // Where position 0 of the masks stands in a pattern of this layout.
  int32_t origin() const { return _origin; }

  // Decoding: the bits of a field (0 to 7) for `fieldstate`.
  uint64_t collectField(int32_t field, const BitPattern& work) const {
    uint64_t bits = 0;
    for (const Run& run : runsOf(field))
      bits |= (work.words[run.word] >> run.shift & run.mask) << run.bit;
    return bits;
  }

 private:
  // Adjacent positions of one field within one word.
  struct Run {
    uint64_t mask = 0;  // As many ones as there are positions.
    uint8_t word = 0;
    uint8_t shift = 0;  // Of the last position in its word.
    uint8_t bit = 0;    // Of the field that belongs to the last position.
  };
  struct Field {
    uint8_t firstRun = 0;
    uint8_t runCount = 0;
    int32_t width = 0;
  };
  struct Parity {
    BitPattern cover;
    uint64_t odd = 0;
    uint64_t bit = 0;  // 0 for a mask that sets no position.
    size_t word = 0;
  };

  const Field& at(int32_t field) const { return _fields[static_cast<size_t>(field)]; }
  std::span<const Run> runsOf(int32_t field) const {
    return {_runs.data() + at(field).firstRun, at(field).runCount};
  }

  void countUsed(const LayoutMasks& masks);
  void align(const LayoutMasks& masks, int32_t bitCount);
  size_t compileField(const LayoutMasks& masks, size_t field, size_t firstRun);
  void compileFixedBits(const BitMask& mask);
  Parity compileParity(const BitMask& mask) const;

  std::array<Run, BitPattern::kPositions> _runs{};  // Never more than a run per position.
  std::array<Field, kFieldCount> _fields{};
  BitPattern _set;
  BitPattern _notCleared;
  std::array<Parity, kParityMaskCount> _parities{};
  BitPattern _aligned;  // The positions that alignment leaves.
  int32_t _origin = 0;
  int32_t _distance = 0;  // What is left to move, towards the first position.
  int32_t _bitCount = 0;
  int32_t _usedPositions = 0;
  int32_t _lastUsedBit = -1;
};

}  // namespace badgemint

#endif  // BADGEMINT_FORMATS_BITLAYOUT_H
