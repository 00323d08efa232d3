// Writes a text file through a buffer: the text files of the build and the dump.
#ifndef BADGEMINT_SUPPORT_TEXTWRITER_H
#define BADGEMINT_SUPPORT_TEXTWRITER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace badgemint {

// Owns its descriptor and its buffer; allocates nothing. A failure is remembered until close()
// reports it, so that callers may write on and ask once.
class TextWriter {
 public:
  TextWriter() = default;
  ~TextWriter() { static_cast<void>(close()); }
  TextWriter(const TextWriter&) = delete;
  TextWriter& operator=(const TextWriter&) = delete;

  // Creates or truncates a file (mode 0666 before the creation mask). False, with errno set, when
  // that fails.
  [[nodiscard]] bool open(const char* path);

  void write(std::string_view text);
  void writeChar(char c) {
    if (_used == kBufferSize) flush();
    _buffer[_used++] = c;
  }
  void writeInt(int64_t number);

  // Whether everything so far could be written.
  bool good() const { return _file >= 0 && !_failed; }

  // Writes what is left and closes. False when anything since open() could not be written; true
  // when nothing is open.
  [[nodiscard]] bool close();

 private:
  static constexpr size_t kBufferSize = 16384;
  static constexpr size_t kMaxDigits = 20;  // Of a 64-bit number, its sign included.

  void flush();

  int _file = -1;
  bool _failed = false;
  size_t _used = 0;
  char _buffer[kBufferSize];
};

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_TEXTWRITER_H
