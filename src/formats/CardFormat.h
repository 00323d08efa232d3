// A card format: how a card number and up to seven site values, such as a facility code, become the
// bit pattern that a reader delivers, and back. A format is one file; what kinds of file there are
// differ in how they are read and in which mask characters name a field.
#ifndef BADGEMINT_FORMATS_CARDFORMAT_H
#define BADGEMINT_FORMATS_CARDFORMAT_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "formats/bitlayout.h"
#include "formats/bitpattern.h"
#include "formats/fieldstate.h"
#include "support/exported.h"
#include "support/linereader.h"

namespace BADGEMINT_EXPORTED badgemint {

struct FieldDefinition {
  static constexpr size_t kMaxLabel = 20;

  std::array<char, 24> label{};  // Shown by printInfo only.
  int32_t minval = 0;            // The bounds are printed, not enforced.
  int32_t maxval = 0;
  int32_t dir = kNotGiven;
  int32_t ftyp = kNotGiven;
};

// One line or record of a format file, without its end, as a text.
using FormatLine = std::array<char, BitPattern::kPositions + 1>;

// A card pattern as two words, to be combined bit by bit.
using PatternWords = std::array<uint64_t, 2>;

// A card of a site whose number has no bit set: site values, fixed bits and their parity.
struct SitePattern {
  PatternWords words{};
};

// Loaded once, then used for any number of cards: the caller sets the field values of the card's
// card set and encodes. The values stay in the object, so one object serves one card at a time.
// Before it is loaded, and after a failed load, a format encodes every card as zeros.
class CardFormat {
 public:
  CardFormat() = default;
  virtual ~CardFormat() = default;
  CardFormat(const CardFormat&) = delete;
  CardFormat& operator=(const CardFormat&) = delete;

  // The ID under which the formats file lists the format.
  uint32_t getFormatID() const { return _formatID; }
  void setFormatID(uint32_t id) { _formatID = id; }

  // Sets the value of a field; an index outside 0 to 7 is ignored.
  void setFieldValue(int32_t index, int64_t value);

  // Encodes a card with the field values set; the card number takes the place of the value of its
  // field. Values that do not fit their fields are cut without notice: decode to find out. The
  // pattern is padded with zeros at its front to whole bytes; `bitCount` is without them. Always
  // kSuccess.
  int32_t encodeCard(int64_t cardNumber, CardPattern& pattern, int32_t& bitCount);

  // The same in two steps, for many cards of one card set: what the site's values make of a
  // pattern, and a card of such a site. The values set count for neither.
  using FieldValues = std::array<int64_t, kFieldCount>;
  SitePattern encodeSite(const FieldValues& values) const;
  CardPattern encodeNumber(const SitePattern& site, int64_t cardNumber) const {
    PatternWords words = site.words;
    flip(numberBits(cardNumber), words);
    return std::bit_cast<CardPattern>(words);
  }

  // The bits of a card number.
  uint64_t numberBits(int64_t cardNumber) const { return _numberState.toBits(cardNumber); }
  // Flips the positions that these bits of a number stand for: the bits in which two numbers differ
  // lead from the card of one to that of the other.
  void flip(uint64_t bits, PatternWords& words) const {
    for (const PatternWords* digit = _digits.data(); bits != 0; bits >>= 4, digit += 16) {
      const PatternWords& flipped = digit[bits & 15];
      words[0] ^= flipped[0];
      words[1] ^= flipped[1];
    }
  }

  int64_t decodeCardNumber(const CardPattern& pattern) const {
    return _numberState.toValue(_layout.collectField(_cardNumberField, _layout.fromCard(pattern)));
  }

  // The value of a field, 0 for an index outside 0 to 7. Always kSuccess.
  virtual int32_t decodeField(const CardPattern& pattern, int32_t field, int64_t& value) const;

  // What the file says, for those who show or check a format; the masks hold the file's characters.
  // A field's letter in the output mask is NUL when the kind has none for it.
  int32_t cardNumberField() const { return _cardNumberField; }
  int32_t bitCount() const { return _numberOfBits; }
  int32_t numberOfParityBits() const { return _numberParityBits; }
  const std::array<FieldDefinition, kFieldCount>& fieldDefinitions() const { return _fieldDefs; }
  LayoutMasks masks() const { return {_outputBitMask, _fixedBitMask, _parityMasks, _fieldLetters}; }

  // The number of positions of a field; 0 for an index outside 0 to 7.
  virtual int32_t fieldBitCount(int32_t field) const;

  // The highest position in use, 143 to 0, or -1.
  int32_t lastUsedBit() const { return _layout.lastUsedBit(); }

  // Sets or clears the parity bit of mask i in a pattern whose positions are those of the masks,
  // and no other bit; nothing for an index outside 0 to 7 and for a mask without 'E' or 'O'.
  void computeParityBit(BitPattern& pattern, int32_t i) const;

  // Reads the format file. Messages and codes are those of the kind; a failed load leaves what was
  // read so far for printInfo and nothing else.
  [[nodiscard]] virtual int32_t loadFormatFile(const char* path) = 0;

  // Logs every member at level 100.
  virtual void printInfo() const = 0;

  // Fills a field definition from its line, which is taken apart.
  virtual void parseFieldDef(FieldDefinition& definition, char* line) = 0;

  // Reads the next line or record; on failure closes the file and returns the code of the kind.
  // `reportErrors` says whether the end of the file gets a message, where the kind has one.
  [[nodiscard]] virtual int32_t readFormatLine(LineReader& file, FormatLine& line,
                                               bool reportErrors) = 0;

 protected:
  // The files that spread a character over two bytes: each holds a nibble in its bits 2 to 5, the
  // low one first.
  static constexpr int nibbleOf(int byte) { return (byte & 0x3C) >> 2; }
  static constexpr char characterOf(int first, int second) {
    return static_cast<char>(nibbleOf(first) | nibbleOf(second) << 4);
  }
  static constexpr char kErrorMarker = '^';  // Stands in such a file where nothing should be read.
  // False when fewer than two bytes are left or cannot be read.
  static bool readCharacter(LineReader& file, char& character);

  // Makes the layout from the masks, and the number of bits with it. `letters` names the fields in
  // the output mask, NUL for a field without positions; `bitCount` is BitLayout's.
  void compileMasks(const std::array<char, kFieldCount>& letters, int32_t bitCount);

  // The value at the positions of one field, read with the type and direction of another.
  int64_t decodePositions(const CardPattern& pattern, int32_t positions, int32_t field) const;

  // The parts of printInfo that all kinds share, logged as `module`.
  void printFieldDefs(const char* module) const;
  void printMasks(const char* module) const;

  uint32_t _formatID = 0;
  int32_t _cardNumberField = 0;   // 0 to 7, always.
  int32_t _numberParityBits = 0;  // At most 8; below 1 no parity bit is set.
  std::array<FieldDefinition, kFieldCount> _fieldDefs{};
  BitMask _outputBitMask{};
  BitMask _fixedBitMask{};
  std::array<BitMask, kParityMaskCount> _parityMasks{};
  int32_t _numberOfBits = 0;  // 0 to 144.
  std::array<char, kFieldCount> _fieldLetters{};

 private:
  // The pattern of a card with these bits of site fields and of its number.
  PatternWords encodeBits(const BitPattern& site, uint64_t bits) const;
  void compileDigits();
  fieldstate stateOf(int32_t field, int32_t width) const;
  BitLayout _layout;
  FieldValues _currentValues{};
  fieldstate _numberState{.ftyp = kNotGiven};  // Of the card number field.

  // Which positions each hexadecimal digit of the number's bits flips: every position of a pattern,
  // parity included, is a sum modulo 2 of a constant and of bits of the number, so that the digits
  // act each for itself. Sixteen values for each of sixteen digits, the lowest digit first.
  std::array<PatternWords, 256> _digits{};
};

}  // namespace badgemint

#endif  // BADGEMINT_FORMATS_CARDFORMAT_H
