#include "carddb/recordfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "support/textutil.h"

namespace badgemint {

namespace {

// Writes on after a short or interrupted write, until nothing more can be written. Returns how much
// was written.
size_t writeAll(int descriptor, std::span<const uint8_t> bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written = ::write(descriptor, &bytes[done], bytes.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) break;
    done += static_cast<size_t>(written);
  }
  return done;
}

// One write that must take everything.
bool writeOnce(int descriptor, std::span<const uint8_t> bytes) {
  return ::write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

}  // namespace

bool RecordFile::setName(const char* name) {
  std::unique_ptr<char[]> copy = copyText(name);  // Before the old one goes: it may be `name`.
  _name = std::move(copy);
  return _name != nullptr;
}

RecordFile::Outcome RecordFile::open(int flags, mode_t mode) {
  if (const Outcome closed = close(); closed != Outcome::kDone) return closed;
  _descriptor = ::open(name(), flags | O_CLOEXEC, mode);
  return isOpen() ? Outcome::kDone : Outcome::kOpenFailed;
}

RecordFile::Outcome RecordFile::close() {
  if (!isOpen()) return Outcome::kDone;
  _block.reset();
  const int closed = ::close(std::exchange(_descriptor, kClosed));
  return closed == 0 ? Outcome::kDone : Outcome::kWriteFailed;
}

RecordFile::Outcome RecordFile::append(std::span<const uint8_t> record) {
  off_t end = 0;
  if (isOpen()) return appendOpen(record, end);
  if (const Outcome opened = open(O_WRONLY); opened != Outcome::kDone) return opened;
  const Outcome appended = appendOpen(record, end);
  const Outcome closed = close();
  if (appended != Outcome::kDone || closed == Outcome::kDone) return appended;
  static_cast<void>(!::truncate(name(), end));
  return closed;
}

// `end` is where the file ended before.
RecordFile::Outcome RecordFile::appendOpen(std::span<const uint8_t> record, off_t& end) {
  if (!seekEnd(end)) return Outcome::kSeekFailed;
  if (writeOnce(_descriptor, record)) return Outcome::kDone;
  static_cast<void>(!::ftruncate(_descriptor, end));
  return Outcome::kWriteFailed;
}

bool RecordFile::seekEnd(off_t& end) const {
  end = ::lseek(_descriptor, 0, SEEK_END);
  return end >= 0 && end % static_cast<off_t>(_recordSize) == 0;
}

size_t RecordFile::appendMany(std::span<const uint8_t> records) {
  off_t end = 0;
  return seekEnd(end) ? writeAll(_descriptor, records) : 0;
}

RecordFile::Outcome RecordFile::removeLast(size_t bytes) {
  if (bytes == 0) return Outcome::kDone;
  const off_t end = ::lseek(_descriptor, 0, SEEK_END);
  if (end < 0) return Outcome::kSeekFailed;
  const off_t rest = std::max<off_t>(0, end - static_cast<off_t>(bytes));
  return end == 0 || ::ftruncate(_descriptor, rest) == 0 ? Outcome::kDone : Outcome::kWriteFailed;
}

void RecordFile::startReadingAhead() {
  if (!isOpen() || readsAhead()) return;
  _block.reset(new (std::nothrow) uint8_t[kBlockSize]);
  _blockStart = _blockCount = _nextRecord = 0;
}

RecordFile::Outcome RecordFile::readAhead(std::span<uint8_t> record) {
  if (_nextRecord - _blockStart >= _blockCount) {
    if (const Outcome filled = fillBlock(); filled != Outcome::kDone) return filled;
  }
  const auto inBlock = static_cast<size_t>(_nextRecord - _blockStart);
  std::memcpy(record.data(), &_block[inBlock * _recordSize], record.size());
  ++_nextRecord;
  return Outcome::kDone;
}

// Reads the block from the next record on; done when that is there as a whole.
RecordFile::Outcome RecordFile::fillBlock() {
  _blockStart = _nextRecord;
  _blockCount = 0;
  const uint64_t offset = _nextRecord * _recordSize;
  size_t filled = 0;
  while (filled < _recordSize) {
    const ssize_t got = ::pread(_descriptor, _block.get() + filled, kBlockSize - filled,
                                static_cast<off_t>(offset + filled));
    if (got < 0) return Outcome::kReadFailed;
    if (got == 0) break;
    filled += static_cast<size_t>(got);
  }
  _blockCount = filled / _recordSize;
  return _blockCount > 0 ? Outcome::kDone : Outcome::kShortRead;
}

RecordFile::Outcome RecordFile::readNext(std::span<uint8_t> record) {
  if (readsAhead()) return readAhead(record);
  const ssize_t transferred = ::read(_descriptor, record.data(), record.size());
  if (transferred < 0) return Outcome::kReadFailed;
  return transferred == static_cast<ssize_t>(record.size()) ? Outcome::kDone : Outcome::kShortRead;
}

RecordFile::Outcome RecordFile::readAt(uint32_t recno, std::span<uint8_t> record) {
  if (readsAhead()) {
    _nextRecord = recno;
    return readAhead(record);
  }
  const Outcome sought = seekRecord(recno);
  return sought == Outcome::kDone ? readNext(record) : sought;
}

RecordFile::Outcome RecordFile::writeAt(uint32_t recno, std::span<const uint8_t> record) {
  if (const Outcome sought = seekRecord(recno); sought != Outcome::kDone) return sought;
  return writeOnce(_descriptor, record) ? Outcome::kDone : Outcome::kWriteFailed;
}

RecordFile::Outcome RecordFile::seekRecord(uint32_t recno) {
  const off_t offset = static_cast<off_t>(recno) * static_cast<off_t>(_recordSize);
  return ::lseek(_descriptor, offset, SEEK_SET) < 0 ? Outcome::kSeekFailed : Outcome::kDone;
}

RecordReader::~RecordReader() {
  if (_descriptor >= 0) ::close(_descriptor);
}

bool RecordReader::open(const char* path) {
  _descriptor = ::open(path, O_RDONLY | O_CLOEXEC);
  return _descriptor >= 0;
}

bool RecordReader::fill(size_t recordSize) {
  if (_failed) return false;
  _end -= _next;
  std::memmove(_block.data(), &_block[_next], _end);
  _next = 0;
  while (_end < recordSize) {
    const ssize_t transferred = ::read(_descriptor, &_block[_end], kBlockSize - _end);
    _failed = transferred < 0;
    if (transferred <= 0) return false;
    _end += static_cast<size_t>(transferred);
  }
  return true;
}

}  // namespace badgemint
