#include "carddb/accessfile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "site/accesslevel.h"
#include "support/log.h"
#include "support/masterconfiguration.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "accessfile";

constexpr mode_t kCreationMode = 0600;

constexpr int32_t kStateFlag = 2;  // The flag that the index entry's state value follows.

// What goes to the error report hook.
constexpr uint16_t kReportArea = 2;

using Outcome = RecordFile::Outcome;

}  // namespace

int32_t AccessFile::setFileName(const char* name) {
  if (_file.setName(name)) return kSuccess;
  LOG(kLogError, "Not enough memory to create access filename\n");
  return kOutOfMemory;
}

int32_t AccessFile::openFile(int flags) {
  return answer(_file.open(flags, kCreationMode));
}

int32_t AccessFile::closeFile() {
  return answer(_file.close());
}

int32_t AccessFile::appendRecord(const AccessRecord& record) {
  return answer(_file.append(encodeRecord(record)));
}

int32_t AccessFile::removeLast(size_t bytes) {
  return answer(_file.removeLast(bytes));
}

int32_t AccessFile::readNext(AccessRecord& record) {
  RecordImage<AccessRecord> image;
  if (_file.readNext(image) != Outcome::kDone) return kShortTransfer;
  record = decodeRecord<AccessRecord>(image);
  return kSuccess;
}

int32_t AccessFile::readRecordAt(AccessRecord& record, uint32_t recno) {
  const bool staysOpen = _file.readsAhead();
  if (!staysOpen) {
    if (const int32_t rc = openFile(O_RDONLY); rc < 0) return rc;
  }
  record = {};
  RecordImage<AccessRecord> image;
  const Outcome outcome = _file.readAt(recno, image);
  if (!staysOpen) static_cast<void>(_file.close());  // Nothing was written that could be lost.
  if (outcome == Outcome::kDone) record = decodeRecord<AccessRecord>(image);
  return answer(outcome);
}

int32_t AccessFile::writeRecordAt(const AccessRecord& record, uint32_t recno) {
  if (const int32_t rc = closeFile(); rc < 0) return rc;
  if (_file.open(O_RDWR) != Outcome::kDone) return kAccessOpenFailed;
  const Outcome written = _file.writeAt(recno, encodeRecord(record));
  const Outcome closed = _file.close();
  return written == Outcome::kDone && closed == Outcome::kDone ? kSuccess : kAccessWriteFailed;
}

int32_t AccessFile::loadIndex(const char* name, uint32_t requested) {
  _index.reset();  // It is of another file from here on.
  if (const int32_t rc = setFileName(name); rc < 0) return rc;
  LOG(kLogRecord, "get status info for %s\n", _file.name());
  struct stat status;
  if (::stat(_file.name(), &status) != 0) return answer(Outcome::kOpenFailed);
  const uint32_t capacity =
      indexCapacity(static_cast<uint64_t>(status.st_size), AccessRecord::kSize, requested);
  LOG(kLogRecord, "access index nrecs = %u\n", capacity);
  if (!_index.emplace().create(capacity)) {
    _index.reset();
    LOG(kLogError, "Not enough memory to create access index\n");
    return kOutOfMemory;
  }
  if (const int32_t rc = _index->loadFromFile(_file.name()); rc < 0) return rc;
  LOG(kLogStep, "access index created and loaded\n");
  _index->sort();
  LOG(kLogRecord, "access index sorted\n");
  return kSuccess;
}

bool AccessFile::loadIndexFromConfig(MasterConfiguration& configuration) {
  const MasterConfiguration::Entry* const entry = configuration.find("access");
  if (entry == nullptr) {
    errno = 0;
    reportSystemError(kReportArea, kReportEntryMissing);
    return false;
  }
  return loadIndex(entry->value.data(), static_cast<uint32_t>(std::max(entry->number, 0))) >= 0;
}

int32_t AccessFile::findAccess(uint32_t uniqid, AccessRecord& record, uint32_t& recno) {
  const AccessIndexEntry* const entry = findEntry(uniqid);
  if (entry == nullptr) {
    LOG(kLogError, "Access record not found for unique id=%u\n", uniqid);
    return kAccessNotFound;
  }
  if (const int32_t rc = readRecordAt(record, entry->recno); rc < 0) return rc;
  recno = entry->recno;
  return kSuccess;
}

int32_t AccessFile::findAccess(uint32_t uniqid, AccessRecord& record) {
  uint32_t recno = 0;
  return findAccess(uniqid, record, recno);
}

int32_t AccessFile::putAccess(const AccessRecord& record) {
  if (!_index) return kAccessNotFound;
  const AccessIndexEntry* const entry = findEntry(record.uniqid);
  return entry != nullptr ? writeRecordAt(record, entry->recno) : appendRecord(record);
}

int32_t AccessFile::updateAccessTimes(const AccessRecord& record) {
  AccessRecord stored;
  uint32_t recno = 0;
  if (findAccess(record.uniqid, stored, recno) < 0) return kAccessNotFound;
  if (stored.uniqid != record.uniqid) return kAccessRecordDiffers;
  stored.copyValidityFrom(record);
  const int32_t written = writeRecordAt(stored, recno);
  return findEntry(record.uniqid) != nullptr ? written : kAccessEntryLost;
}

int32_t AccessFile::mergeAccess(AccessRecord& record, bool keepValidity) {
  AccessRecord stored;
  uint32_t recno = 0;
  const int32_t found = findAccess(record.uniqid, stored, recno);
  if (found == kAccessNotFound) return addHolder(record);
  if (found < 0) return found;
  if (stored.uniqid != record.uniqid) return kAccessRecordDiffers;
  if (keepValidity) record.copyValidityFrom(stored);
  if (const int32_t rc = writeRecordAt(record, recno); rc < 0) return rc;
  AccessIndexEntry* const entry = findEntry(record.uniqid);
  if (entry == nullptr) return kAccessEntryLost;
  return AccessIndex::setState(*entry, record.flag(kStateFlag));
}

int32_t AccessFile::addHolder(const AccessRecord& record) {
  if (!_index) return kAccessNotFound;
  if (const int32_t rc = appendRecord(record); rc < 0) return rc;
  return _index->insert(record.uniqid);
}

int32_t AccessFile::setFlag3(uint32_t uniqid) {
  return writeFlag3(uniqid, 1);
}

int32_t AccessFile::clearFlag3(uint32_t uniqid) {
  return writeFlag3(uniqid, 0);
}

int32_t AccessFile::writeFlag3(uint32_t uniqid, int32_t value) {
  AccessRecord record;
  uint32_t recno = 0;
  if (const int32_t rc = findAccess(uniqid, record, recno); rc < 0) return rc;
  record.setFlag(3, value);
  return writeRecordAt(record, recno);
}

int32_t AccessFile::checkAccessLevels(const AccessLevelSet& levels) {
  if (const int32_t rc = openFile(O_RDONLY); rc < 0) return rc;
  int32_t missing = 0;
  AccessRecord record;
  for (uint32_t recno = 0; readRecordAt(record, recno) == kSuccess; ++recno) {
    for (const uint16_t number : record.acclevel) {
      if (number == 0 || levels.findLevel(number) >= 0) continue;
      LOG(kLogDuplicate, "access level %d not found for usr %u\n", number, record.uniqid);
      ++missing;
    }
  }
  return missing;  // The read that failed has closed the file.
}

AccessIndexEntry* AccessFile::findEntry(uint32_t uniqid) {
  return _index ? _index->find(uniqid) : nullptr;
}

int32_t AccessFile::reportFailure(Outcome outcome) const {
  switch (outcome) {
    case Outcome::kOpenFailed:
      LOG(kLogError, "Error opening access file %s\n", _file.name());
      return kAccessOpenFailed;
    case Outcome::kWriteFailed:
      LOG(kLogError, "Error writing to access file %s\n", _file.name());
      return kAccessWriteFailed;
    default:  // The message of a failed read serves a failed seek and a short read as well.
      LOG(kLogError, "Error reading access file %s\n", _file.name());
      return kAccessReadFailed;
  }
}

}  // namespace badgemint
