#include "formats/CdfCardFormat.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "support/fieldscanner.h"
#include "support/log.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {
namespace {

constexpr char kLogModule[] = "CdfCardFormat";

// Two digits stand for 1920 to 2019.
int32_t fullYear(int32_t year) {
  if (year <= 19) return year + 2000;
  return year <= 99 ? year + 1900 : year;
}

}  // namespace

int32_t CdfCardFormat::loadFormatFile(const char* path) {
  LOG(kLogStep, "load format file %s\n", path);
  LineReader file;
  if (!openFormatFile(path, file)) return kFormatFileOpenFailed;
  if (const int32_t rc = loadHeader(path, file); rc < 0) return rc;
  if (const int32_t rc = loadFieldDefs(file); rc < 0) return rc;
  if (const int32_t rc = loadMasks(file, 0, 0); rc < 0) return rc;
  if (const int32_t rc = loadWiderMasks(path, file); rc < 0) return rc;
  compile();
  return kSuccess;
}

// Lines 1 to 12.
int32_t CdfCardFormat::loadHeader(const char* path, LineReader& file) {
  FormatLine line;
  if (const int32_t rc = readFormatLine(file, line, true); rc < 0) return rc;
  copyCut(line.data(), _customerName);
  Date& date = _creationDate;
  if (const int32_t rc = loadNumbers(file, {&date.month, &date.day, &date.year}); rc < 0) return rc;
  completeDate(path);
  if (const int32_t rc =
          loadNumbers(file, {&_formatRevision, &_customerNumber, &_numberActiveFields});
      rc < 0)
    return rc;
  if (const int32_t rc = loadCardNumberField(path, file); rc < 0) return rc;
  if (const int32_t rc = loadNumbers(file, {&_numberParityBits}); rc < 0) return rc;
  _numberParityBits = std::min(_numberParityBits, kParityMaskCount);
  if (const int32_t rc = loadNumbers(file, {&_offset, &_cardStyleFlag}); rc < 0) return rc;
  return loadErrorDetectionField(file);
}

int32_t CdfCardFormat::loadNumbers(LineReader& file, std::initializer_list<int32_t*> numbers) {
  FormatLine line;
  for (int32_t* const number : numbers) {
    if (const int32_t rc = readFormatLine(file, line, true); rc < 0) return rc;
    *number = textToInt32(line.data());
  }
  return kSuccess;
}

void CdfCardFormat::completeDate(const char* path) {
  Date& date = _creationDate;
  date.year = fullYear(date.year);
  const bool valid = date.month >= 1 && date.month <= 12 && date.day >= 1 && date.day <= 31 &&
                     date.year >= 1970 && date.year <= 2037;
  if (!valid)
    LOG(kLogError, "bad date in format file %s (%02d/%02d/%04d)\n", path, date.month, date.day,
        date.year);
}

int32_t CdfCardFormat::loadCardNumberField(const char* path, LineReader& file) {
  FormatLine line;
  if (const int32_t rc = readFormatLine(file, line, true); rc < 0) return rc;
  if (line[0] < 'A' || line[0] > 'H') {
    file.close();
    LOG(kLogError, "Error reading cdf file %s, need A-H, got %c\n", path, line[0]);
    return kBadCardNumberField;
  }
  _cardNumberField = line[0] - 'A';
  return kSuccess;
}

// H names no error detection field, although it may be the card number field.
int32_t CdfCardFormat::loadErrorDetectionField(LineReader& file) {
  FormatLine line;
  if (const int32_t rc = readFormatLine(file, line, true); rc < 0) return rc;
  _errorDetectionField = line[0] >= 'A' && line[0] <= 'G' ? line[0] - 'A' : -1;
  return kSuccess;
}

int32_t CdfCardFormat::loadFieldDefs(LineReader& file) {
  FormatLine line;
  for (FieldDefinition& definition : _fieldDefs) {
    if (const int32_t rc = readFormatLine(file, line, true); rc < 0) return rc;
    parseFieldDef(definition, line.data());
  }
  return kSuccess;
}

// The lines of masks `first` to the last, for the 48 positions from `position` on.
int32_t CdfCardFormat::loadMasks(LineReader& file, size_t position, int first) {
  FormatLine line;
  for (int i = first; i < kMaskCount; ++i) {
    if (const int32_t rc = readFormatLine(file, line, true); rc < 0) return rc;
    storeMask(i, position, line);
  }
  return kSuccess;
}

// Positions from 48 and from 96 on: the file may end before the first line of either.
int32_t CdfCardFormat::loadWiderMasks(const char* path, LineReader& file) {
  FormatLine line;
  for (size_t position = kPositionsPerLine; position < BitPattern::kPositions;
       position += kPositionsPerLine) {
    if (const int32_t rc = readFormatLine(file, line, false); rc < 0) {
      if (_broken) return rc;
      LOG(kLogStep, "format loaded\n");
      return kSuccess;
    }
    storeMask(0, position, line);
    if (const int32_t rc = loadMasks(file, position, 1); rc < 0) return rc;
  }
  LOG(kLogStep, "Format loaded %s\n", path);
  return kSuccess;
}

BitMask& CdfCardFormat::maskAt(int i) {
  if (i == 0) return _outputBitMask;
  return i == 1 ? _fixedBitMask : _parityMasks[static_cast<size_t>(i - 2)];
}

// A shorter line leaves the rest of its positions unused.
void CdfCardFormat::storeMask(int i, size_t position, const FormatLine& line) {
  const std::string_view text = line.data();
  const auto start = maskAt(i).begin() + static_cast<std::ptrdiff_t>(position);
  std::fill_n(start, kPositionsPerLine, '\0');
  std::copy_n(text.begin(), std::min(text.size(), kPositionsPerLine), start);
}

void CdfCardFormat::compile() {
  compileMasks({'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H'}, BitLayout::kCountBits);
}

CdfCardFormat::FieldWords CdfCardFormat::fieldWords(char* line) {
  FieldWords words;
  char* rest = nullptr;
  for (const char*& word : words) {
    word = strtok_r(line, ",\n", &rest);
    if (word == nullptr) word = "";
    line = nullptr;
  }
  return words;
}

void CdfCardFormat::parseFieldDef(FieldDefinition& definition, char* line) {
  definition = {};
  if (*line == ' ') return;
  const FieldWords words = fieldWords(line);
  copyCut(std::string_view(words[0]).substr(0, FieldDefinition::kMaxLabel), definition.label);
  definition.minval = textToInt32(words[1]);
  definition.maxval = textToInt32(words[2]);
  definition.dir = directionFromText(words[3]);
  definition.ftyp = typeFromText(words[4]);
}

int32_t CdfCardFormat::readFormatLine(LineReader& file, FormatLine& line, bool reportErrors) {
  if (file.readLine(kMaxLine) != LineReader::Status::kLine) {
    _broken = file.failed();
    file.close();
    if (reportErrors || _broken) LOG(kLogError, "Error reading CDF file\n");
    return kCdfReadFailed;
  }
  copyCut(file.line(), line);
  stripLineEnd(line.data());
  return kSuccess;
}

void CdfCardFormat::stripLineEnd(char* line) {
  for (int i = 0; i < 2; ++i) {
    const size_t length = std::strlen(line);
    if (length > 0 && (line[length - 1] == '\n' || line[length - 1] == '\r'))
      line[length - 1] = '\0';
  }
}

bool CdfCardFormat::openFormatFile(const char* path, LineReader& file) {
  if (file.open(path)) return true;
  LOG(kLogError, "Error opening CDF file %s\n", path);
  return false;
}

void CdfCardFormat::printInfo() const {
  LOG(kLogRecord, "Card Format Info:\n");
  LOG(kLogRecord, "_formatID=%u\n", _formatID);
  LOG(kLogRecord, "_customerName=%s\n", _customerName.data());
  LOG(kLogRecord, "_creationDate=%d %d %d\n", _creationDate.month, _creationDate.day,
      _creationDate.year);
  LOG(kLogRecord, "_formatRevision=%d\n", _formatRevision);
  LOG(kLogRecord, "_customerNumber=%d\n", _customerNumber);
  LOG(kLogRecord, "_numberActiveFields=%d\n", _numberActiveFields);
  LOG(kLogRecord, "_cardNumberField=%d\n", _cardNumberField);
  LOG(kLogRecord, "_numberParityBits=%d\n", _numberParityBits);
  LOG(kLogRecord, "_offset=%d\n", _offset);
  LOG(kLogRecord, "_cardStyleFlag=%d\n", _cardStyleFlag);
  LOG(kLogRecord, "_errorDetectionField=%d\n", _errorDetectionField);
  printFieldDefs(kLogModule);
  printMasks(kLogModule);
}

}  // namespace badgemint
