#include "carddb/identfile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "cardsets/cardsets.h"
#include "support/log.h"
#include "support/masterconfiguration.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "identfile";

constexpr mode_t kCreationMode = 0666;

bool namesCardSet(const IdentRecord& record) {
  return record.cardsetcode != kPinOnlyCode && record.cardsetcode != kFormatlessCode &&
         record.cardsetcode != kPinIdentCode;
}

constexpr uint32_t kValid = 0;
constexpr uint32_t kDeleted = 1;

// What goes to the error report hook.
constexpr uint16_t kReportArea = 1;
constexpr uint16_t kReportNoIndex = 1024;

using Outcome = RecordFile::Outcome;

}  // namespace

int32_t IdentFile::setFileName(const char* name) {
  if (_file.setName(name)) return kSuccess;
  LOG(kLogError, "Not enough memory to create ident filename\n");
  return kOutOfMemory;
}

int32_t IdentFile::openFile(int flags) {
  return answer(_file.open(flags, kCreationMode));
}

int32_t IdentFile::closeFile() {
  return answer(_file.close());
}

int32_t IdentFile::appendRecord(const IdentRecord& record) {
  return answer(_file.append(encodeRecord(record)));
}

int32_t IdentFile::removeLast(size_t bytes) {
  return answer(_file.removeLast(bytes));
}

int32_t IdentFile::readNext(IdentRecord& record) {
  if (!_file.isOpen()) return kIdentReadFailed;
  RecordImage<IdentRecord> image;
  const Outcome outcome = _file.readNext(image);
  if (outcome == Outcome::kShortRead) return kEndOfFile;
  if (outcome == Outcome::kDone) record = decodeRecord<IdentRecord>(image);
  return answer(outcome);
}

int32_t IdentFile::readRecordAt(IdentRecord& record, uint32_t recno) {
  if (const int32_t rc = closeFile(); rc < 0) return rc;
  if (_file.open(O_RDONLY) != Outcome::kDone) return kNotFound;
  RecordImage<IdentRecord> image;
  const Outcome outcome = _file.readAt(recno, image);
  static_cast<void>(_file.close());  // Nothing was written that could be lost.
  if (outcome != Outcome::kDone) return kShortTransfer;
  record = decodeRecord<IdentRecord>(image);
  return kSuccess;
}

int32_t IdentFile::writeRecordAt(const IdentRecord& record, uint32_t recno) {
  if (const int32_t rc = closeFile(); rc < 0) return rc;
  if (_file.open(O_RDWR) != Outcome::kDone) return kNotFound;
  if (_file.writeAt(recno, encodeRecord(record)) != Outcome::kDone)
    return kShortTransfer;  // Unlike readRecordAt, and unlike the access file, stays open.
  return _file.close() == Outcome::kDone ? kSuccess : kShortTransfer;
}

bool IdentFile::loadIndex(const char* name, uint32_t requested) {
  _index.reset();  // It is of another file from here on.
  if (setFileName(name) < 0) return false;
  struct stat status;
  if (::stat(_file.name(), &status) != 0) {
    reportSystemError(kReportArea, kReportEntryUnopened);
    LOG(kLogProgress, "unable to stat %s\n", _file.name());
    return false;
  }
  const uint32_t capacity =
      indexCapacity(static_cast<uint64_t>(status.st_size), IdentRecord::kSize, requested);
  LOG(kLogProgress, "nrecs = %u\n", capacity);
  if (!_index.emplace().create(capacity)) {
    _index.reset();
    LOG(kLogProgress, "ident index allocation failure\n");
    reportSystemError(kReportArea, kReportNoIndex);
    return false;
  }
  LOG(kLogProgress, "ident index created\n");
  if (_index->buildFromFile(_file.name()) != 1) return false;
  LOG(kLogProgress, "indxs created and loaded\n");
  _index->sort();
  LOG(kLogProgress, "indxs sorted\n");
  IdentIndex::printEntrySize();
  return true;
}

bool IdentFile::loadIndexFromConfig(MasterConfiguration& configuration) {
  const MasterConfiguration::Entry* const entry = configuration.find("ident");
  if (entry == nullptr) {
    errno = 0;
    reportSystemError(kReportArea, kReportEntryMissing);
    return false;
  }
  return loadIndex(entry->value.data(), static_cast<uint32_t>(std::max(entry->number, 0)));
}

void IdentFile::indexStats(uint32_t& count, uint32_t& capacity) const {
  count = _index ? _index->count() : 0;
  capacity = _index ? _index->capacity() : 0;
}

int32_t IdentFile::addIndexKey(const CardPattern& cardnumber) {
  return _index ? _index->insert(cardnumber) : kNotFound;
}

int32_t IdentFile::findCard(const CardPattern& cardnumber, IdentRecord& record, uint32_t& recno) {
  const IdentIndexEntry* const entry = findEntry(cardnumber);
  if (entry == nullptr) return kCardNotFound;
  if (readRecordAt(record, entry->recno) < 0) return kIdentReadFailed;
  recno = entry->recno;
  return kSuccess;
}

int32_t IdentFile::findCard(const CardPattern& cardnumber, IdentRecord& record) {
  uint32_t recno = 0;
  return findCard(cardnumber, record, recno);
}

int32_t IdentFile::verifyCard(const CardPattern& cardnumber, uint32_t& uniqid, uint32_t& deleted) {
  IdentRecord record;
  if (findCard(cardnumber, record) < 0) return kNotFound;
  LOG_HEX(kLogRecord, cardnumber, "   cardno ");
  LOG_HEX(kLogRecord, record.cardnumber, "chkcardno ");
  if (record.cardnumber != cardnumber) return kShortTransfer;
  uniqid = record.uniqid;
  LOG(kLogRecord, "uniqid = %u\n", uniqid);
  deleted = record.deleted;
  return kSuccess;
}

int32_t IdentFile::addOrReplace(const IdentRecord& record) {
  IdentRecord stored;
  uint32_t recno = 0;
  if (findCard(record.cardnumber, stored, recno) < 0) {
    if (const int32_t rc = appendRecord(record); rc < 0) return rc;
    return _index ? addIndexKey(record.cardnumber) : kSuccess;
  }
  if (stored.cardnumber != record.cardnumber) return kNotFound;
  return writeRecordAt(record, recno);
}

int32_t IdentFile::setCardDeleted(const CardPattern& cardnumber, uint32_t& uniqid) {
  return markCard(cardnumber, kDeleted, uniqid);
}

int32_t IdentFile::setCardUndeleted(const CardPattern& cardnumber, uint32_t& uniqid) {
  return markCard(cardnumber, kValid, uniqid);
}

int32_t IdentFile::markCard(const CardPattern& cardnumber, uint32_t deleted, uint32_t& uniqid) {
  IdentRecord record;
  uint32_t recno = 0;
  if (const int32_t rc = findCard(cardnumber, record, recno); rc < 0) return rc;
  uniqid = record.uniqid;
  record.deleted = deleted;
  if (writeRecordAt(record, recno) < 0) return kIdentWriteFailed;

  CardPattern paired;
  if (const int32_t rc = getPairedCard(cardnumber, paired); rc < 0) return rc;
  if (paired == CardPattern{}) return kSuccess;
  if (const int32_t rc = findCard(paired, record, recno); rc < 0) return rc;
  if (record.uniqid != uniqid) return kPairedHolderDiffers;
  record.deleted = deleted;
  return writeRecordAt(record, recno) < 0 ? kIdentWriteFailed : kSuccess;
}

int32_t IdentFile::getPairedCard(const CardPattern& cardnumber, CardPattern& paired) {
  const IdentIndexEntry* const entry = findEntry(cardnumber);
  if (entry == nullptr) return kCardNotFound;
  paired = entry->pairedcard;
  return kSuccess;
}

int32_t IdentFile::setPairedCard(const CardPattern& cardnumber, const CardPattern& paired) {
  IdentIndexEntry* const entry = findEntry(cardnumber);
  if (entry == nullptr) return kNotFound;
  entry->pairedcard = paired;
  return kSuccess;
}

int32_t IdentFile::countUnloadedCardSets(const cardsets& sets) {
  if (const int32_t rc = openFile(O_RDONLY); rc < 0) return rc;
  int32_t unloaded = 0;
  for (IdentRecord record; readNext(record) == kSuccess;) {
    if (!namesCardSet(record) || sets.getCardSet(record.cardsetcode) != nullptr) continue;
    LOG(kLogRecord, "cardset %u not loaded \n", record.cardsetcode);
    ++unloaded;
  }
  static_cast<void>(_file.close());  // Nothing was written that could be lost.
  return unloaded;
}

IdentIndexEntry* IdentFile::findEntry(const CardPattern& cardnumber) {
  return _index ? _index->find(cardnumber) : nullptr;
}

int32_t IdentFile::reportFailure(Outcome outcome) const {
  switch (outcome) {
    case Outcome::kOpenFailed:
      LOG(kLogError, "Error opening ident file %s\n", _file.name());
      return kIdentOpenFailed;
    case Outcome::kWriteFailed:
      LOG(kLogError, "Error writing to ident file %s\n", _file.name());
      return kIdentWriteFailed;
    default:  // The message of a failed read serves a failed seek as well.
      LOG(kLogError, "Error reading ident file %s\n", _file.name());
      return kIdentReadFailed;
  }
}

}  // namespace badgemint
