#include "admin/bits/cards.h"

#include <algorithm>

#include "admin/bits/layout.h"
#include "admin/check/finding.h"
#include "admin/console.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

// "16 bits", and how many digits that is in a field of digits.
std::string widthText(const CardFormat& format, int32_t field) {
  constexpr int32_t kValueBits = 64;
  const int32_t width = format.fieldBitCount(field);
  const int32_t usable = std::min(width, kValueBits);
  const int32_t type = format.fieldDefinitions()[static_cast<size_t>(field)].ftyp;
  std::string text = fmt::format("{} bit{}", width, width == 1 ? "" : "s");
  if (type == kTypeBcd) text += fmt::format(" ({} digits)", usable / 4);
  if (type == kTypeMsd) text += fmt::format(" ({} digits)", usable / 5);
  if (type == kNotGiven) text += " (without a type)";
  return text;
}

bool isFixed(char source) {
  return source == '0' || source == '1';
}

// A card beside what its format makes of the same values; parity as it follows from the card's own
// bits, so that a card with other fixed bits, as of another site, is not also reported for parity.
class Comparison {
 public:
  Comparison(const CardFormat& format, const CardPattern& card, const CardPattern& encoded)
      : _format(format),
        _layout(format),
        _sources(_layout.mergedRow()),
        _actual(_layout.bitsOf(card)),
        _expected(_layout.bitsOf(encoded)) {
    adjustParity();
  }

  // Of fields, then of parity, then of all other bits.
  std::vector<std::string> faults() const {
    std::vector<std::string> all;
    addFieldFaults(all);
    addParityFaults(all);
    for (size_t bit = 0; bit < _sources.size(); ++bit) {
      if (isFixed(_sources[bit])) {
        bit = addFixedFault(bit, all);
      } else if (isWrong(bit) && !isParity(bit) && !isField(bit)) {
        all.push_back(fmt::format("bit {} is 1, but 0 on every card", bit));
      }
    }
    return all;
  }

 private:
  // Parity of the bits that differ is the difference of parity.
  void adjustParity() {
    std::vector<bool> differs(_sources.size());
    for (size_t bit = 0; bit < differs.size(); ++bit) differs[bit] = isWrong(bit) && !isParity(bit);
    for (int32_t mask = 0; mask < _format.numberOfParityBits(); ++mask) {
      const int32_t target = _layout.targetOf(mask);
      if (target < 0) continue;
      const std::string row = _layout.rowOf(_format.masks().parity[static_cast<size_t>(mask)]);
      bool isOdd = false;
      for (size_t bit = 0; bit < row.size(); ++bit)
        isOdd = isOdd != (row[bit] == 'X' && differs[bit]);
      differs[static_cast<size_t>(target)] = isOdd;
    }
    for (size_t bit = 0; bit < differs.size(); ++bit)
      if (differs[bit] && isParity(bit) && _expected[bit] != CardLayout::kNoBit)
        _expected[bit] ^= 1;
  }

  void addFieldFaults(std::vector<std::string>& all) const {
    std::string reported;
    for (size_t bit = 0; bit < _sources.size(); ++bit) {
      const char letter = _sources[bit];
      if (!isField(bit) || !isWrong(bit) || reported.find(letter) != std::string::npos) continue;
      reported += letter;
      all.push_back(letter == '*' ? "the number has bits that no value has"
                                  : fmt::format("field {} has bits that no value has", letter));
    }
  }

  void addParityFaults(std::vector<std::string>& all) const {
    for (size_t bit = 0; bit < _sources.size(); ++bit)
      if (isParity(bit) && isWrong(bit))
        all.push_back(fmt::format("parity mask {} wrong at position {}",
                                  _layout.parityMaskOf(static_cast<int32_t>(bit)) + 1, bit));
  }

  // Fixed bits that stand together are compared together. Returns the last of them.
  size_t addFixedFault(size_t first, std::vector<std::string>& all) const {
    size_t end = first;
    while (end < _sources.size() && isFixed(_sources[end])) ++end;
    size_t from = first, to = end;
    while (from < end && !isWrong(from)) ++from;
    while (to > from && !isWrong(to - 1)) --to;
    const std::string actual = _actual.substr(from, to - from);
    const std::string expected = _expected.substr(from, to - from);
    if (to - from == 1)
      all.push_back(fmt::format("fixed bit {} is {}, not {}", from, actual, expected));
    else if (to > from)
      all.push_back(
          fmt::format("fixed bits {} to {} are {}, not {}", from, to - 1, actual, expected));
    return end - 1;
  }

  bool isWrong(size_t bit) const { return _actual[bit] != _expected[bit]; }
  bool isParity(size_t bit) const { return _layout.parityMaskOf(static_cast<int32_t>(bit)) >= 0; }
  bool isField(size_t bit) const {
    const char source = _sources[bit];
    return !isFixed(source) && source != 'P' && source != CardLayout::kNoPosition;
  }

  const CardFormat& _format;
  const CardLayout _layout;
  const std::string _sources, _actual;
  std::string _expected;
};

}  // namespace

NumberedCard encodeWord(const CardEncoder& encoder, std::string_view word) {
  SaturatedInt64 number{};
  if (word.size() > kMaxCardNumberDigits)
    throw Failure(ExitStatus::kRefused, "card number {} has more than 32 digits", inQuotes(word));
  if (readCardNumber(word, number) != kSuccess)
    throw Failure(ExitStatus::kRefused, "card number {} is not digits alone", inQuotes(word));
  NumberedCard card{number.value, {}};
  if (encodeCardNumber(encoder, number, 0, card.pattern) == kSuccess) return card;
  const CardFormat& format = *encoder.format;
  const int32_t field = format.cardNumberField();
  const char letter = format.masks().letters[static_cast<size_t>(field)];
  throw Failure(ExitStatus::kRefused,
                "card number {} does not fit {} of {}: it would be read as card {}", word,
                letter == '*' ? "its number" : fmt::format("field {}", letter),
                widthText(format, field), encoder.decode(card.pattern));
}

std::optional<DecodedCard> decodeCard(const CardFormat& format, const CardPattern& card) {
  DecodedCard decoded;
  for (int32_t field = 0; int64_t & value : decoded.values)
    static_cast<void>(format.decodeField(card, field++, value));
  decoded.number = format.decodeCardNumber(card);
  decoded.encoded = format.encodeNumber(format.encodeSite(decoded.values), decoded.number);
  if (decoded.encoded != card) {
    const CardLayout layout(format);
    decoded.faults = Comparison(format, card, decoded.encoded).faults();
    const bool isWithin = layout.patternOf(layout.bitsOf(card)) == card;
    if (decoded.faults.empty() || !isWithin) return std::nullopt;
  }
  if (decoded.number < 0)
    decoded.faults.push_back(fmt::format("the number is beyond {}", INT64_MAX));
  return decoded;
}

}  // namespace badgemint::admin
