#include "formats/VffCardFormat.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <utility>

#include "support/fieldscanner.h"
#include "support/log.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {
namespace {

constexpr char kLogModule[] = "VffCardFormat";

constexpr bool isBitCount(int32_t bits) {
  return bits >= 0 && bits <= BitPattern::kPositions;
}
constexpr bool isFieldFromOne(int32_t field) {
  return field >= 1 && field <= kFieldCount;
}

}  // namespace

int32_t VffCardFormat::loadFormatFile(const char* path) {
  LOG(kLogStep, "load VFF file %s\n", path);
  LineReader file;
  if (!file.open(path)) {
    LOG(kLogError, "Error opening VFF file %s\n", path);
    return kVffOpenFailed;
  }
  if (const int32_t rc = loadTexts(file); rc < 0) return rc;
  if (const int32_t rc = loadCardNumberDefinition(path, file); rc < 0) return rc;
  if (const int32_t rc = loadMasks(file); rc < 0) return rc;
  FormatLine record;
  if (const int32_t rc = readFormatLine(file, record, true); rc < 0) return rc;
  _checkSum = textToInt32(record.data());
  compile();
  LOG(kLogStep, "Format loaded %s\n", path);
  return kSuccess;
}

// Records 1 to 5.
int32_t VffCardFormat::loadTexts(LineReader& file) {
  FormatLine record;
  for (const std::span<char> text :
       {std::span<char>(_filename), std::span<char>(_version), std::span<char>(_dateCreated),
        std::span<char>(_templateID), std::span<char>(_fixedFieldDetails)}) {
    if (const int32_t rc = readFormatLine(file, record, true); rc < 0) return rc;
    copyCut(record.data(), text);
  }
  return kSuccess;
}

// Record 6.
int32_t VffCardFormat::loadCardNumberDefinition(const char* path, LineReader& file) {
  FormatLine record;
  if (const int32_t rc = readFormatLine(file, record, true); rc < 0) return rc;
  parseFieldDef(_fieldDefs[0], record.data());
  if (!isBitCount(_bitCount)) {
    LOG(kLogError, "Error in VFF file %s, need 0-144 bits, got %d\n", path, _bitCount);
    return kVffReadFailed;
  }
  if (!isFieldFromOne(_cardNumberFieldFromOne)) {
    LOG(kLogError, "Error in VFF file %s, need card number field 1-8, got %d\n", path,
        _cardNumberFieldFromOne);
    return kVffReadFailed;
  }
  return kSuccess;
}

void VffCardFormat::parseFieldDef(FieldDefinition& definition, char* line) {
  FieldScanner scanner(line);
  _bitCount = scanner.nextInt();
  _cardNumberFieldFromOne = scanner.nextInt();
  definition = {};
  definition.dir = directionFromText(scanner.nextWord(sizeof(FormatLine)));
  definition.ftyp = typeFromText(scanner.nextWord(sizeof(FormatLine)));
  if (isBitCount(_bitCount)) _numberOfBits = _bitCount;
  if (isFieldFromOne(_cardNumberFieldFromOne)) _cardNumberField = _cardNumberFieldFromOne - 1;
  if (_cardNumberField == 0) return;
  FieldDefinition& target = _fieldDefs[static_cast<size_t>(_cardNumberField)];
  target.dir = std::exchange(definition.dir, kNotGiven);
  target.ftyp = std::exchange(definition.ftyp, kNotGiven);
}

// Records 7 to 16.
int32_t VffCardFormat::loadMasks(LineReader& file) {
  FormatLine record;
  for (BitMask* const mask : {&_outputBitMask, &_fixedBitMask}) {
    if (const int32_t rc = readFormatLine(file, record, true); rc < 0) return rc;
    *mask = record;
  }
  for (BitMask& mask : _parityMasks) {
    if (const int32_t rc = readFormatLine(file, record, true); rc < 0) return rc;
    mask = record;
  }
  _numberParityBits = usedParityMasks();
  return kSuccess;
}

// A mask is out of use only when it holds a '.' at every position: a shorter one counts. The number
// is that of the first masks applied, wherever the ones in use stand.
int32_t VffCardFormat::usedParityMasks() const {
  return static_cast<int32_t>(std::ranges::count_if(_parityMasks, [](const BitMask& mask) {
    return std::any_of(mask.begin(), mask.end() - 1, [](char c) { return c != '.'; });
  }));
}

void VffCardFormat::compile() {
  std::array<char, kFieldCount> letters{};
  letters[static_cast<size_t>(_cardNumberField)] = '*';
  compileMasks(letters, _numberOfBits);
}

int32_t VffCardFormat::decodeField(const CardPattern& pattern, int32_t field,
                                   int64_t& value) const {
  value = field >= 0 && field < kFieldCount ? decodePositions(pattern, _cardNumberField, field) : 0;
  return kSuccess;
}

int32_t VffCardFormat::fieldBitCount(int32_t /*field*/) const {
  return CardFormat::fieldBitCount(_cardNumberField);
}

int32_t VffCardFormat::readFormatLine(LineReader& file, FormatLine& record, bool /*reportErrors*/) {
  record.fill('\0');
  for (char& character : std::span(record).first<BitPattern::kPositions>()) {
    if (readCharacter(file, character) && character != kErrorMarker) continue;
    file.close();
    if (file.failed()) LOG(kLogError, "Error reading vff file\n");
    return kVffReadFailed;
  }
  size_t end = std::strlen(record.data());  // A NUL ends a record as it ends a line.
  while (end > 0 && isSpace(record[end - 1])) --end;
  std::fill(record.begin() + static_cast<ptrdiff_t>(end), record.end(), '\0');
  return kSuccess;
}

void VffCardFormat::printInfo() const {
  LOG(kLogRecord, "Card Format Info:\n");
  LOG(kLogRecord, "_formatID=%u\n", _formatID);
  LOG(kLogRecord, "_filename=%s\n", _filename.data());
  LOG(kLogRecord, "_version=%s\n", _version.data());
  LOG(kLogRecord, "_dateCreated=%s\n", _dateCreated.data());
  LOG(kLogRecord, "_templateID=%s\n", _templateID.data());
  LOG(kLogRecord, "_cardNumberField=%d\n", _cardNumberField);
  LOG(kLogRecord, "_numberParityBits=%d\n", _numberParityBits);
  LOG(kLogRecord, "_fixedFieldDetails=%s\n", _fixedFieldDetails.data());
  printFieldDefs(kLogModule);
  printMasks(kLogModule);
  LOG(kLogRecord, "_checkSum=%d\n\n", _checkSum);
}

}  // namespace badgemint
