#include "formats/CardFormat.h"

#include <bit>

#include "support/log.h"
#include "support/result.h"

namespace badgemint {

int32_t CardFormat::encodeCard(int64_t cardNumber, CardPattern& pattern, int32_t& bitCount) {
  pattern = encodeNumber(encodeSite(_currentValues), cardNumber);
  bitCount = _numberOfBits;
  return kSuccess;
}

SitePattern CardFormat::encodeSite(const FieldValues& values) const {
  BitPattern site;
  for (int32_t i = 0; i < kFieldCount; ++i) {
    if (i == _cardNumberField) continue;
    const int64_t value = values[static_cast<size_t>(i)];
    _layout.placeField(i, stateOf(i, _layout.fieldWidth(i)).toBits(value), site);
  }
  return {encodeBits(site, 0)};
}

PatternWords CardFormat::encodeBits(const BitPattern& site, uint64_t bits) const {
  BitPattern work = site;
  _layout.placeField(_cardNumberField, bits, work);
  _layout.placeFixedBits(work);
  for (int32_t i = 0; i < _numberParityBits; ++i) _layout.placeParityBit(i, work);
  return std::bit_cast<PatternWords>(_layout.toCard(work));
}

void CardFormat::compileDigits() {
  const PatternWords zero = encodeBits({}, 0);
  for (size_t i = 0; i < _digits.size(); ++i) {
    const PatternWords words = encodeBits({}, uint64_t{i % 16} << (i / 16 * 4));
    _digits[i] = {words[0] ^ zero[0], words[1] ^ zero[1]};
  }
}

void CardFormat::setFieldValue(int32_t index, int64_t value) {
  if (index >= 0 && index < kFieldCount) _currentValues[static_cast<size_t>(index)] = value;
}

fieldstate CardFormat::stateOf(int32_t field, int32_t width) const {
  const FieldDefinition& definition = _fieldDefs[static_cast<size_t>(field)];
  return {.ftyp = definition.ftyp, .dir = definition.dir, .nbits = width};
}

int64_t CardFormat::decodePositions(const CardPattern& pattern, int32_t positions,
                                    int32_t field) const {
  const uint64_t bits = _layout.collectField(positions, _layout.fromCard(pattern));
  return stateOf(field, _layout.fieldWidth(positions)).toValue(bits);
}

int32_t CardFormat::decodeField(const CardPattern& pattern, int32_t field, int64_t& value) const {
  value = field >= 0 && field < kFieldCount ? decodePositions(pattern, field, field) : 0;
  return kSuccess;
}

int32_t CardFormat::fieldBitCount(int32_t field) const {
  return _layout.fieldWidth(field);
}

void CardFormat::computeParityBit(BitPattern& pattern, int32_t i) const {
  if (i < 0 || i >= kParityMaskCount) return;
  // The layout has no place for unused positions at the front: only what changes is moved back.
  const BitPattern before = pattern.moved(-_layout.origin());
  BitPattern changed = before;
  _layout.placeParityBit(i, changed);
  changed ^= before;
  pattern ^= changed.moved(_layout.origin());
}

bool CardFormat::readCharacter(LineReader& file, char& character) {
  const int first = file.readByte();
  const int second = first < 0 ? -1 : file.readByte();
  if (second < 0) return false;
  character = characterOf(first, second);
  return true;
}

void CardFormat::compileMasks(const std::array<char, kFieldCount>& letters, int32_t bitCount) {
  _fieldLetters = letters;
  _layout.compile(masks(), bitCount);
  _numberOfBits = _layout.bitCount();
  _numberState = stateOf(_cardNumberField, _layout.fieldWidth(_cardNumberField));
  compileDigits();
}

void CardFormat::printFieldDefs(const char* module) const {
  LOG_AS(module, kLogRecord, "_fieldDefs  n=%d\n", kFieldCount);
  for (size_t i = 0; i < _fieldDefs.size(); ++i) {
    const FieldDefinition& field = _fieldDefs[i];
    LOG_AS(module, kLogRecord, "   ii=%d, label=%s\n", static_cast<int>(i), field.label.data());
    LOG_AS(module, kLogRecord, "   minval=%ld maxval=%ld\n", long{field.minval},
           long{field.maxval});
    LOG_AS(module, kLogRecord, "   currentval=%lld\n", static_cast<long long>(_currentValues[i]));
    LOG_AS(module, kLogRecord, "   dir=%d ftyp=%d\n", field.dir, field.ftyp);
  }
}

void CardFormat::printMasks(const char* module) const {
  LOG_AS(module, kLogRecord, "_outputBitMask=%s\n", _outputBitMask.data());
  LOG_AS(module, kLogRecord, "_fixedBitMask=%s\n", _fixedBitMask.data());
  LOG_AS(module, kLogRecord, "_parityMasks  n=%d\n", kParityMaskCount);
  int i = 0;
  for (const BitMask& mask : _parityMasks)
    LOG_AS(module, kLogRecord, "   ii=%d _parityMasks=%s\n", i++, mask.data());
  LOG_AS(module, kLogRecord, "_numberOfBits=%d\n\n", _numberOfBits);
}

}  // namespace badgemint
