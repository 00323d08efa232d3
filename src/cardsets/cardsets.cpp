#include "cardsets/cardsets.h"

#include <cerrno>
#include <cstring>

#include "formats/CardFormatSet.h"
#include "support/fieldscanner.h"
#include "support/linereader.h"
#include "support/log.h"
#include "support/masterconfiguration.h"
#include "support/result.h"
#include "support/textutil.h"
#include "support/textwriter.h"
#include "support/tokenizer.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "cardsets";
constexpr uint32_t kFewestWords = 3;

// An ID of 1 to 4294967295; false, and logged, for any other number.
bool readId(const char* word, int32_t lineNumber, uint32_t& id) {
  const int64_t value = textToInt64(word);
  if (value < 1 || value > UINT32_MAX) {
    LOG(kLogError, "id out of range in card sets file, line %d\n", lineNumber);
    return false;
  }
  id = static_cast<uint32_t>(value);
  return true;
}

bool readFieldValues(Tokenizer& tokens, cardset& record) {
  while (const char* const letter = tokens.next()) {
    if (*letter < 'A' || *letter > 'H') {
      LOG(kLogError, "Error in card set file, field must be A-H\n");
      return false;
    }
    const char* const value = tokens.next();
    if (value == nullptr) break;
    record.setValueOf(*letter, textToInt32(value));
  }
  return true;
}

}  // namespace

int32_t cardsets::create(int32_t capacity) {
  if (_records.create(capacity)) return kSuccess;
  LOG(kLogError, "Not enough memory to create card sets\n");
  return kOutOfMemory;
}

int32_t cardsets::addCardSetLine(Tokenizer& tokens, int32_t lineNumber) {
  cardset* const record = _records.nextSlot();
  if (record == nullptr) {
    LOG(kLogError, "Not enough memory to create card sets\n");
    return 0;
  }
  if (tokens.count() == 0) return 0;
  if (tokens.count() < kFewestWords) {
    LOG(kLogError, "add line %d, too few parameters.\n", lineNumber);
    return 0;
  }
  const char* word = tokens.next();
  if (std::strcmp(word, "f") == 0) word = tokens.next();
  if (!readId(word, lineNumber, record->csid) ||
      !readId(tokens.next(), lineNumber, record->fmtid) || !readFieldValues(tokens, *record))
    return 0;
  _records.commit();
  if (record->csid < kTableSize && _firstOf[record->csid] == 0) _firstOf[record->csid] = count();
  return 1;
}

const cardset* cardsets::getCardSet(uint32_t csid) const {
  LOG(kLogRecord, "cardsets:getcardset %u, count = %d\n", csid, count());
  if (csid < kTableSize) {
    const int32_t first = _firstOf[csid];
    return first == 0 ? nullptr : &_records[first - 1];
  }
  for (const cardset& record : _records.elements()) {
    if (record.csid == csid) return &record;
  }
  return nullptr;
}

int32_t cardsets::load(const char* path) {
  LineReader reader;
  if (!reader.open(path)) {
    LOG(kLogError, "Error opening card sets file %s\n", path);
    return kCardSetsOpenFailed;
  }
  Tokenizer tokens;
  uint32_t lines = 0;  // Wraps where a signed number must not.
  while (reader.readLine(kMaxLine) == LineReader::Status::kLine) {
    tokens.split(reader.line(), kWordDelimiters);
    static_cast<void>(addCardSetLine(tokens, static_cast<int32_t>(++lines)));
  }
  if (reader.failed()) {
    LOG(kLogError, "Error reading card sets file %s\n", path);
    return kCardSetsTransferFailed;
  }
  LOG(kLogStep, "cardsets.load complete\n");
  return kSuccess;
}

bool cardsets::loadFromConfiguration(MasterConfiguration& configuration) {
  constexpr const char* kEntry = "cardsets";
  LOG(kLogDecision, "cardsets.load %s\n", kEntry);
  const MasterConfiguration::Entry* const entry = configuration.find(kEntry);
  if (entry == nullptr) {
    errno = 0;
    reportSystemError(1, kReportEntryMissing);
    return false;
  }
  return load(entry->value.data()) >= 0;
}

int32_t cardsets::verifyFormats(const CardFormatSet& formats) const {
  int32_t result = kSuccess;
  for (const cardset& record : _records.slots()) {
    if (record.csid == 0 || formats.findFormat(record.fmtid) != nullptr) continue;
    LOG(kLogDuplicate, "format %u not found\n", record.fmtid);
    result = kNotFound;
  }
  return result;
}

int32_t cardsets::writeCardSetsFile(const char* path) const {
  TextWriter writer;
  if (!writer.open(path)) {
    LOG(kLogError, "Error opening card sets file %s\n", path);
    return kCardSetsOpenFailed;
  }
  for (const cardset& record : _records.slots()) {
    if (record.csid != 0) writer.write(CardSetLine(record).text());
  }
  if (!writer.close()) {
    LOG(kLogError, "Error reading card sets file %s\n", path);
    return kCardSetsTransferFailed;
  }
  return kSuccess;
}

}  // namespace badgemint
