#include "support/textwriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace badgemint {

bool TextWriter::open(const char* path) {
  static_cast<void>(close());
  _file = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  return _file >= 0;
}

void TextWriter::write(std::string_view text) {
  while (!text.empty()) {
    if (_used == kBufferSize) flush();
    const size_t room = std::min(text.size(), kBufferSize - _used);
    std::memcpy(_buffer + _used, text.data(), room);
    _used += room;
    text.remove_prefix(room);
  }
}

void TextWriter::writeInt(int64_t number) {
  if (kBufferSize - _used < kMaxDigits) flush();
  char* const digits = _buffer + _used;
  _used = static_cast<size_t>(std::to_chars(digits, digits + kMaxDigits, number).ptr - _buffer);
}

// A write that transfers nothing would go on for ever: it counts as a failure.
void TextWriter::flush() {
  size_t done = 0;
  while (done < _used && !_failed) {
    const ssize_t written = ::write(_file, _buffer + done, _used - done);
    if (written > 0) {
      done += static_cast<size_t>(written);
    } else {
      _failed = true;
    }
  }
  _used = 0;
}

bool TextWriter::close() {
  if (_file < 0) return true;
  flush();
  if (::close(_file) != 0) _failed = true;
  _file = -1;
  const bool written = !_failed;
  _failed = false;
  return written;
}

}  // namespace badgemint
