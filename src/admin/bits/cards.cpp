#include "admin/bits/cards.h"

#include <algorithm>

#include "admin/check/finding.h"
#include "admin/check/sitecheck.h"
#include "admin/console.h"
#include "support/result.h"

namespace badgemint::admin {

CardLayout::CardLayout(const CardFormat& format) : _format(format), _masks(format.masks()) {
  const int32_t whole = (format.bitCount() + 7) / 8 * 8;
  for (int32_t place = 0; place < whole; ++place) {
    const Bit bit = bitAt(place, format.lastUsedBit() + 1 - whole + place);
    const bool isPadding = place < whole - format.bitCount() && bit.source == kNoPosition;
    if (!_bits.empty() || !isPadding) _bits.push_back(bit);
  }
}

// Fixed bits replace those of fields, and parity bits replace both.
CardLayout::Bit CardLayout::bitAt(int32_t place, int32_t position) const {
  Bit bit{place, position, -1, kNoPosition};
  if (position < 0) return bit;
  const auto at = static_cast<size_t>(position);
  for (int32_t mask = 0; mask < _format.numberOfParityBits(); ++mask)
    if (std::string_view(_masks.parity[static_cast<size_t>(mask)].data(), BitPattern::kPositions)
            .find_first_of("EO") == at)
      bit.parityMask = mask;
  const char fixed = _masks.fixed[at];
  if (isUsedPosition(_masks, position)) bit.source = _masks.output[at];
  if (fixed == '0' || fixed == '1') bit.source = fixed;
  if (bit.parityMask >= 0) bit.source = 'P';
  return bit;
}

std::string CardLayout::bitsOf(const CardPattern& pattern) const {
  std::string bits;
  for (const Bit& bit : _bits) {
    const auto place = static_cast<size_t>(bit.place);
    if (place >= 8 * pattern.size())
      bits += kNoBit;
    else
      bits += (pattern[place / 8] >> (7 - place % 8) & 1) != 0 ? '1' : '0';
  }
  return bits;
}

CardPattern CardLayout::patternOf(std::string_view bits) const {
  BitPattern places;
  for (size_t bit = 0; bit < count(); ++bit)
    if (bits[bit] == '1') places.set(_bits[bit].place);
  return places.toCard();
}

std::string CardLayout::rowOf(const BitMask& mask) const {
  std::string row;
  for (const Bit& bit : _bits) {
    const char c = bit.position < 0 ? '\0' : mask[static_cast<size_t>(bit.position)];
    row += c > ' ' && c <= '~' ? c : kNoPosition;
  }
  return row;
}

std::string CardLayout::mergedRow() const {
  std::string row;
  for (const Bit& bit : _bits) row += bit.source;
  return row;
}

// Parity of the bits that differ is the difference of parity.
std::string CardLayout::withParityOf(const std::string& card, std::string bits) const {
  std::string differs;
  for (size_t bit = 0; bit < bits.size(); ++bit)
    differs += card[bit] != bits[bit] && parityMaskOf(bit) < 0 ? 'X' : ' ';
  for (int32_t mask = 0; mask < _format.numberOfParityBits(); ++mask) {
    const std::string row = rowOf(_masks.parity[static_cast<size_t>(mask)]);
    size_t covered = 0, target = row.size();
    for (size_t bit = 0; bit < row.size(); ++bit) {
      covered += row[bit] == 'X' && differs[bit] == 'X' ? 1 : 0;
      if (parityMaskOf(bit) == mask) target = bit;
    }
    if (target == row.size() || covered % 2 == 0) continue;
    differs[target] = 'X';
    if (bits[target] != kNoBit) bits[target] ^= 1;
  }
  return bits;
}

std::string siteValuesText(const CardFormat& format, const CardFormat::FieldValues& values) {
  std::string text;
  for (int32_t field = 0; field < kFieldCount; ++field)
    if (hasSiteValue(format, field))
      text += fmt::format(", {:c}={}", 'A' + field,
                          static_cast<uint64_t>(values[static_cast<size_t>(field)]));
  return text;
}

NumberedCard encodeWord(const CardEncoder& encoder, std::string_view word) {
  SaturatedInt64 number{};
  if (word.size() > kMaxCardNumberDigits)
    throw Failure(ExitStatus::kRefused, "card number {} has more than 32 digits", inQuotes(word));
  if (readCardNumber(word, number) != kSuccess)
    throw Failure(ExitStatus::kRefused, "card number {} is not digits alone", inQuotes(word));
  NumberedCard card{number.value, {}};
  if (encodeCardNumber(encoder, number, 0, card.pattern) == kSuccess) return card;
  const int32_t field = encoder.format->cardNumberField();
  throw Failure(ExitStatus::kRefused,
                "card number {} does not fit field {} of {} bits: it would be read as card {}",
                word, encoder.format->masks().letters[static_cast<size_t>(field)],
                encoder.format->fieldBitCount(field), encoder.decode(card.pattern));
}

namespace {

// What is wrong in a card beside what its format makes of the same values, from the first bit to
// the last. A card with other fixed bits, as of another site, is not also wrong in parity.
std::vector<std::string> faultsOf(const CardLayout& layout, const CardPattern& card,
                                  const CardPattern& encoded) {
  const std::string sources = layout.mergedRow(), actual = layout.bitsOf(card);
  const std::string expected = layout.withParityOf(actual, layout.bitsOf(encoded));
  std::vector<std::string> faults;
  std::string fields;  // That are reported.
  for (size_t bit = 0, end = 0; bit < sources.size(); bit = std::max(end, bit + 1)) {
    const char source = sources[bit];
    end = std::min(sources.find_first_not_of("01", bit), sources.size());
    const std::string found = actual.substr(bit, std::max(end - bit, size_t{1}));
    const std::string right = expected.substr(bit, found.size());
    if (found == right || fields.find(source) != std::string::npos) continue;
    if (end > bit) {
      faults.push_back(fmt::format("fixed bits from {} are {}, not {}", bit, found, right));
    } else if (const int32_t mask = layout.parityMaskOf(bit); mask >= 0) {
      faults.push_back(fmt::format("parity mask {} wrong at position {}", mask + 1, bit));
    } else if (source == 'P' || source == CardLayout::kNoPosition) {
      faults.push_back(fmt::format("bit {} is 1, but 0 on every card", bit));
    } else {
      fields += source;
      faults.push_back(fmt::format("field {} has bits that no value has", source));
    }
  }
  return faults;
}

}  // namespace

std::optional<DecodedCard> decodeCard(const CardFormat& format, const CardPattern& card) {
  DecodedCard decoded;
  for (int32_t field = 0; int64_t & value : decoded.values)
    static_cast<void>(format.decodeField(card, field++, value));
  decoded.number = format.decodeCardNumber(card);
  decoded.encoded = format.encodeNumber(format.encodeSite(decoded.values), decoded.number);
  if (decoded.encoded != card) {
    const CardLayout layout(format);
    decoded.faults = faultsOf(layout, card, decoded.encoded);
    const bool isWithin = layout.patternOf(layout.bitsOf(card)) == card;
    if (decoded.faults.empty() || !isWithin) return std::nullopt;
  }
  if (decoded.number < 0)
    decoded.faults.push_back(fmt::format("the number is beyond {}", INT64_MAX));
  return decoded;
}

}  // namespace badgemint::admin
