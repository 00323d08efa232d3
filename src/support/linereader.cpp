#include "support/linereader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace badgemint {

bool LineReader::open(const char* path) {
  close();
  _file = ::open(path, O_RDONLY | O_CLOEXEC);
  _failed = _ended = false;
  _line = _next = _end = _buffer;
  _covered = '\0';
  _lineNumber = _bytesBefore = 0;
  _endedLine = true;
  *_end = '\0';
  return isOpen();
}

void LineReader::close() {
  if (isOpen()) ::close(_file);
  _file = -1;
  _ended = true;
  _next = _end;
}

// Moves what is left to the front of the buffer and reads more after it.
bool LineReader::fill() {
  if (_ended || _failed) return false;
  const auto left = static_cast<size_t>(_end - _next);
  std::memmove(_buffer, _next, left);
  _next = _buffer;
  _end = _next + left;
  const ssize_t got = ::read(_file, _end, kBufferSize - left);
  _failed = got < 0;
  _ended = got == 0;
  if (got > 0) _end += got;
  return got > 0;
}

// Puts back the character under the last line's NUL.
void LineReader::restore() {
  if (_next < _end) *_next = _covered;
}

LineReader::Status LineReader::readLine(int limit) {
  restore();
  const size_t wanted = std::min(static_cast<size_t>(limit), kMaxLine);
  size_t length = 0;
  const void* newline = nullptr;
  for (;;) {
    const size_t available = std::min(static_cast<size_t>(_end - _next), wanted);
    newline = std::memchr(_next, '\n', available);
    length = newline != nullptr ? static_cast<size_t>(static_cast<const char*>(newline) - _next) + 1
                                : available;
    if (newline != nullptr || length == wanted || !fill()) break;
  }
  if (_failed) return Status::kError;
  if (length == 0) return Status::kEnd;
  _bytesBefore = _endedLine ? 0 : _bytesBefore + static_cast<int64_t>(_length);
  _lineNumber += _endedLine ? 1 : 0;
  _line = _next;
  _length = length;
  _next += length;
  _endedLine = newline != nullptr;
  _covered = *_next;
  *_next = '\0';
  return Status::kLine;
}

int LineReader::readByte() {
  restore();
  if (_next == _end && !fill()) return -1;
  const int byte = static_cast<unsigned char>(*_next++);
  if (_next < _end) _covered = *_next;
  return byte;
}

}  // namespace badgemint
