#include "carddb/accessfile.h"

#include <fcntl.h>

#include "support/log.h"
#include "support/result.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "accessfile";

constexpr mode_t kCreationMode = 0600;

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

int32_t AccessFile::flushAppends() {
  return answer(_file.flush());
}

int32_t AccessFile::readNext(AccessRecord& record) {
  if (const int32_t rc = flushAppends(); rc < 0) return rc;
  RecordImage<AccessRecord> image;
  if (_file.readNext(image) != Outcome::kDone) return kShortTransfer;
  record = decodeRecord<AccessRecord>(image);
  return kSuccess;
}

int32_t AccessFile::readRecordAt(AccessRecord& record, uint32_t recno) {
  if (const int32_t rc = openFile(O_RDONLY); rc < 0) return rc;
  record = {};
  RecordImage<AccessRecord> image;
  const Outcome outcome = _file.readAt(recno, image);
  static_cast<void>(_file.close());  // Nothing was written that could be lost.
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

int32_t AccessFile::answer(Outcome outcome) const {
  return outcome == Outcome::kDone ? kSuccess : reportFailure(outcome);
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
