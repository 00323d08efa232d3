#include "carddb/identfile.h"

#include <fcntl.h>

#include "support/log.h"
#include "support/result.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "identfile";

constexpr mode_t kCreationMode = 0666;

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

int32_t IdentFile::flushAppends() {
  return answer(_file.flush());
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

int32_t IdentFile::answer(Outcome outcome) const {
  return outcome == Outcome::kDone ? kSuccess : reportFailure(outcome);
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
