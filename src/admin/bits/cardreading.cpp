#include "admin/bits/cardreading.h"

#include <algorithm>
#include <cstddef>

#include "admin/bits/cardbits.h"
#include "admin/bits/cardnumber.h"

namespace badgemint::admin {

namespace {

// Tells in which bits a card differs from what its format would have made of the same values.
class Differences {
 public:
  Differences(const CardFormat& format, const CardPattern& card, const CardPattern& encoded)
      : _format(format),
        _bits(format),
        _layout(_bits.drawLayout()),
        _is(_bits.textOf(card)),
        _due(_bits.textOf(encoded)) {}

  std::vector<std::string> tell() {
    takeParityOfCard();
    for (size_t bit = 0; bit < _layout.size(); ++bit)
      if (isWrong(bit)) tellOf(bit);
    std::vector<std::string> all = std::move(_ofFields);
    all.insert(all.end(), _ofParity.begin(), _ofParity.end());
    all.insert(all.end(), _ofOthers.begin(), _ofOthers.end());
    return all;
  }

 private:
  // The parity that is due is that of the card's own bits, wrong ones too: a card with the fixed
  // bits of another site has the parity of those.
  void takeParityOfCard() {
    std::vector<bool> isOther(_layout.size());  // Than the format's.
    for (size_t bit = 0; bit < isOther.size(); ++bit)
      isOther[bit] = isWrong(bit) && !isOfParity(bit);
    for (int32_t mask = 0; mask < _format.numberOfParityBits(); ++mask) {
      const int32_t target = _bits.bitOfParity(mask);
      if (target < 0) continue;
      const std::string row = _bits.draw(_format.masks().parity[static_cast<size_t>(mask)]);
      bool isOdd = false;
      for (size_t bit = 0; bit < row.size(); ++bit)
        isOdd = isOdd != (row[bit] == 'X' && isOther[bit]);
      isOther[static_cast<size_t>(target)] = isOdd;
    }
    for (size_t bit = 0; bit < isOther.size(); ++bit)
      if (isOther[bit] && isOfParity(bit) && _due[bit] != CardBits::kNoBit) _due[bit] ^= 1;
  }

  bool isWrong(size_t bit) const { return _is[bit] != _due[bit]; }
  bool isOfParity(size_t bit) const { return _bits.parityMaskOf(static_cast<int32_t>(bit)) >= 0; }
  bool isFixed(size_t bit) const { return _layout[bit] == '0' || _layout[bit] == '1'; }

  void tellOf(size_t bit) {
    const std::string number = std::to_string(bit);
    const int32_t mask = _bits.parityMaskOf(static_cast<int32_t>(bit));
    if (mask >= 0)
      _ofParity.push_back("parity mask " + std::to_string(mask + 1) + " wrong at position " +
                          number);
    else if (isFixed(bit))
      tellOfFixed(bit);
    else if (_layout[bit] == 'P' || _layout[bit] == CardBits::kNoPosition)
      _ofOthers.push_back("bit " + number + " is 1, and is 0 on every card");
    else
      tellOfField(_layout[bit]);
  }

  // Fixed bits that stand together are told of together.
  void tellOfFixed(size_t bit) {
    if (bit < _fixedEnd) return;
    for (_fixedEnd = bit; _fixedEnd < _layout.size() && isFixed(_fixedEnd);) ++_fixedEnd;
    size_t last = _fixedEnd - 1;
    while (!isWrong(last)) --last;
    const bool isOne = last == bit;
    std::string text = isOne ? "fixed bit " : "fixed bits ";
    text += std::to_string(bit);
    if (!isOne) text += " to " + std::to_string(last);
    text += isOne ? " is " : " are ";
    text += _is.substr(bit, last + 1 - bit) + ", not " + _due.substr(bit, last + 1 - bit);
    _ofOthers.push_back(text);
  }

  void tellOfField(char letter) {
    const std::string fault = fieldName(letter) + " has bits that no value gives";
    if (std::ranges::find(_ofFields, fault) == _ofFields.end()) _ofFields.push_back(fault);
  }

  const CardFormat& _format;
  const CardBits _bits;
  const std::string _layout, _is;
  std::string _due;
  size_t _fixedEnd = 0;  // Of the fixed bits that were told of last.
  std::vector<std::string> _ofFields, _ofParity, _ofOthers;
};

}  // namespace

std::optional<CardReading> readCard(const CardFormat& format, const CardPattern& card) {
  CardReading reading;
  for (int32_t field = 0; int64_t & value : reading.values)
    static_cast<void>(format.decodeField(card, field++, value));
  reading.number = format.decodeCardNumber(card);
  reading.encoded = format.encodeNumber(format.encodeSite(reading.values), reading.number);
  if (reading.encoded != card) {
    const CardBits bits(format);
    reading.faults = Differences(format, card, reading.encoded).tell();
    const bool isWithin = bits.patternOf(bits.textOf(card)) == card;
    if (reading.faults.empty() || !isWithin) return std::nullopt;
  }
  if (reading.number < 0)
    reading.faults.push_back("the number is beyond " + std::to_string(INT64_MAX));
  return reading;
}

}  // namespace badgemint::admin
