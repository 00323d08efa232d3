// The reader of every text file of the system: lines as fgets gives them, with a limit a line, and
// single bytes for the files that are stored two bytes a character.
#ifndef BADGEMINT_SUPPORT_LINEREADER_H
#define BADGEMINT_SUPPORT_LINEREADER_H

#include <cstddef>
#include <cstdint>

#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// Owns its descriptor and its buffer; allocates nothing. A line stands in the buffer and may be
// changed in place; it is gone with the next read.
class LineReader {
 public:
  enum class Status { kLine, kEnd, kError };

  LineReader() : _line(_buffer), _next(_line), _end(_line) {}
  ~LineReader() { close(); }
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // Opens a file for reading, after closing what was open. False, with errno set, when it cannot
  // be opened.
  [[nodiscard]] bool open(const char* path);
  void close();
  bool isOpen() const { return _file >= 0; }
  // Of the open file, which stays the reader's; -1 when none is open.
  int descriptor() const { return _file; }

  // Reads up to and with the next newline, but at most `limit` characters (1 to kMaxLine): what a
  // longer line has left is read as the next line. The last line may lack its newline. A read error
  // loses the characters of an unfinished line and is final.
  Status readLine(int limit);

  // The line read last, with its newline and a NUL; as a text it ends at the first NUL of the file.
  char* line() { return _line; }
  // Its length, newline included and not ended by a NUL.
  size_t length() const { return _length; }

  // Where the line read last begins, as an editor counts: the line from 1, and the bytes of that
  // line before it, which are 0 unless a longer line is read in pieces.
  int64_t lineNumber() const { return _lineNumber; }
  int64_t bytesBefore() const { return _bytesBefore; }
  // Whether the line read last had its newline; true before the first line.
  bool endedLine() const { return _endedLine; }

  // The next byte, or -1 at the end of the file and on a read error.
  int readByte();

  // Whether a read failed, as against the end of the file.
  bool failed() const { return _failed; }

 private:
  static constexpr size_t kMaxLine = 1024;
  static constexpr size_t kBufferSize = 65536;

  bool fill();
  void restore();

  int _file = -1;
  bool _failed = false;
  bool _ended = true;
  char _covered = '\0';           // The character that the NUL of the last line stands on.
  char _buffer[kBufferSize + 1];  // The spare one is for the last line's NUL.
  size_t _length = 0;
  int64_t _lineNumber = 0;
  int64_t _bytesBefore = 0;
  bool _endedLine = true;  // Whether the line read last had its newline.
  char* _line;
  char* _next;  // The first character not yet handed out.
  char* _end;   // After the last character read.
};

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_LINEREADER_H
