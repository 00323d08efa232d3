#include "admin/bits/cards.h"

#include "admin/check/sitecheck.h"
#include "support/result.h"

namespace badgemint::admin {

CardLayout::CardLayout(const CardFormat& format) : _format(format), _masks(format.masks()) {
  const int32_t whole = (format.bitCount() + 7) / 8 * 8;
  for (int32_t left = whole; left > 0; --left)
    _sources += sourceOf(format.lastUsedBit() + 1 - left);
  _place = std::min(_sources.find_first_not_of(kNoPosition),
                    static_cast<size_t>(whole - format.bitCount()));
  _sources.erase(0, _place);
}

// Fixed bits replace those of fields, and parity bits replace both.
char CardLayout::sourceOf(int32_t position) const {
  if (position < 0) return kNoPosition;
  if (parityMaskAt(position) >= 0) return 'P';
  const auto at = static_cast<size_t>(position);
  if (_masks.fixed[at] == '0' || _masks.fixed[at] == '1') return _masks.fixed[at];
  return isUsedPosition(_masks, position) ? _masks.output[at] : kNoPosition;
}

int32_t CardLayout::parityMaskAt(int32_t position) const {
  int32_t mask = position < 0 ? -1 : _format.numberOfParityBits() - 1;
  for (; mask >= 0; --mask) {
    const char* const row = _masks.parity[static_cast<size_t>(mask)].data();
    const size_t target = std::string_view(row, BitPattern::kPositions).find_first_of("EO");
    if (target == static_cast<size_t>(position)) break;
  }
  return mask;
}

std::string CardLayout::bitsOf(const CardPattern& pattern) const {
  std::string bits(count(), kNoBit);
  for (size_t bit = 0, place = _place; bit < count() && place < 8 * pattern.size(); ++bit, ++place)
    bits[bit] = (pattern[place / 8] >> (7 - place % 8) & 1) != 0 ? '1' : '0';
  return bits;
}

CardPattern CardLayout::patternOf(std::string_view bits) const {
  BitPattern places;
  for (size_t bit = 0; bit < bits.size(); ++bit)
    if (bits[bit] == '1') places.set(static_cast<int32_t>(_place + bit));
  return places.toCard();
}

std::string CardLayout::rowOf(const BitMask& mask) const {
  std::string row;
  for (int32_t position = positionOf(0); row.size() < count(); ++position) {
    const char c = position < 0 ? '\0' : mask[static_cast<size_t>(position)];
    row += c > ' ' && c <= '~' ? c : kNoPosition;
  }
  return row;
}

// Parity of the bits that differ is the difference of parity. A bit that a later mask sets counts
// for no mask before it.
bool CardLayout::hasRightParity(size_t parityBit, const std::string& card,
                                const std::string& encoded) const {
  const int32_t mask = parityMaskAt(positionOf(parityBit));
  const std::string row = rowOf(_masks.parity[static_cast<size_t>(mask)]);
  bool isRight = card[parityBit] == encoded[parityBit];
  for (size_t bit = 0; bit < row.size(); ++bit)
    if (row[bit] == 'X' && parityMaskAt(positionOf(bit)) < mask && card[bit] != encoded[bit])
      isRight = !isRight;
  return isRight;
}

// A card with other fixed bits, as of another site, is not also wrong in parity.
std::vector<std::string> CardLayout::faultsOf(const CardPattern& card,
                                              const CardPattern& encoded) const {
  const std::string actual = bitsOf(card), expected = bitsOf(encoded);
  std::vector<std::string> faults;
  std::string fields;  // That are reported.
  for (size_t bit = 0, end = 0; bit < count(); bit = end) {
    const char source = _sources[bit];
    const bool isFixed = source == '0' || source == '1';
    end = isFixed ? std::min(_sources.find_first_not_of("01", bit), count()) : bit + 1;
    const std::string found = actual.substr(bit, end - bit),
                      right = expected.substr(bit, end - bit);
    if (const int32_t mask = parityMaskAt(positionOf(bit)); mask >= 0) {
      if (!hasRightParity(bit, actual, expected))
        faults.push_back(fmt::format("the parity bit of mask {} (bit {}) is wrong", mask + 1, bit));
    } else if (found == right || fields.find(source) != std::string::npos) {
      continue;
    } else if (isFixed) {
      faults.push_back(fmt::format("fixed bits from {} are {}, not {}", bit, found, right));
    } else if (source == 'P' || source == kNoPosition) {
      faults.push_back(fmt::format("bit {} is 1, but it is 0 on every card of the format", bit));
    } else {
      fields += source;
      faults.push_back(fmt::format("the bits of field {} are not a valid value", source));
    }
  }
  return faults;
}

std::string siteValuesText(const CardFormat& format, const CardFormat::FieldValues& values) {
  std::string text;
  for (int32_t field = 0; field < kFieldCount; ++field)
    if (hasSiteValue(format, field))
      text += fmt::format(", {:c}={}", 'A' + field,
                          static_cast<uint64_t>(values[static_cast<size_t>(field)]));
  return text;
}

CardPattern encodeWord(const CardEncoder& encoder, std::string_view word) {
  SaturatedInt64 number{};
  if (readCardNumber(word, number) != kSuccess)
    throw Refused("card number {} must be 1 to 32 decimal digits", inQuotes(word));
  CardPattern card{};
  if (encodeCardNumber(encoder, number, 0, card) == kSuccess) return card;
  const int32_t field = encoder.format->cardNumberField();
  throw Refused("card number {} does not fit field {} of {} bits: it would be read as card {}",
                word, encoder.format->masks().letters[static_cast<size_t>(field)],
                encoder.format->fieldBitCount(field), encoder.decode(card));
}

}  // namespace badgemint::admin
