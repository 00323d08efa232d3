#include "formats/CardFormat.h"

#include "support/log.h"
#include "support/result.h"

namespace badgemint {

int32_t CardFormat::encodeCard(int64_t cardNumber, CardPattern& pattern, int32_t& bitCount) {
  if (_siteBitsStale) placeSiteFields();
  BitPattern work = _siteBits;
  const fieldstate state = stateOf(_cardNumberField, _layout.fieldWidth(_cardNumberField));
  _layout.placeField(_cardNumberField, state.toBits(cardNumber), work);
  _layout.placeFixedBits(work);
  for (int32_t i = 0; i < _numberParityBits; ++i) _layout.placeParityBit(i, work);
  pattern = _layout.toCard(work);
  bitCount = _numberOfBits;
  return kSuccess;
}

void CardFormat::placeSiteFields() {
  _siteBits = {};
  for (int32_t i = 0; i < kFieldCount; ++i) {
    if (i == _cardNumberField) continue;
    const int64_t value = _fieldDefs[static_cast<size_t>(i)].currentval;
    _layout.placeField(i, stateOf(i, _layout.fieldWidth(i)).toBits(value), _siteBits);
  }
  _siteBitsStale = false;
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
  if (i >= 0 && i < kParityMaskCount) _layout.placeParityBit(i, pattern);
}

bool CardFormat::readCharacter(LineReader& file, char& character) {
  const int first = file.readByte();
  const int second = first < 0 ? -1 : file.readByte();
  if (second < 0) return false;
  character = characterOf(first, second);
  return true;
}

void CardFormat::compileMasks(const std::array<char, kFieldCount>& letters) {
  _layout.compile({_outputBitMask, _fixedBitMask, _parityMasks, letters});
  _siteBitsStale = true;
}

void CardFormat::setNumberOfBits(int32_t bits) {
  _numberOfBits = bits;
  _layout.alignTo(bits);
}

void CardFormat::printFieldDefs(const char* module) const {
  LOG_AS(module, kLogRecord, "_fieldDefs  n=%d\n", kFieldCount);
  int i = 0;
  for (const FieldDefinition& field : _fieldDefs) {
    LOG_AS(module, kLogRecord, "   ii=%d, label=%s\n", i++, field.label.data());
    LOG_AS(module, kLogRecord, "   minval=%ld maxval=%ld\n", long{field.minval},
           long{field.maxval});
    LOG_AS(module, kLogRecord, "   currentval=%lld\n", static_cast<long long>(field.currentval));
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
