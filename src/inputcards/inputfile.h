// The input cards file, which a build reads twice: what the second pass writes must be what the
// first has checked. So it has to be one file that stays the same from the start of the first pass
// to the end of the second.
#ifndef BADGEMINT_INPUTCARDS_INPUTFILE_H
#define BADGEMINT_INPUTCARDS_INPUTFILE_H

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "support/linereader.h"

namespace badgemint {

// What distinguishes a file from all others, and from itself after a change.
struct FileState {
  uint64_t device, inode;
  int64_t size;
  int64_t modifiedSeconds, modifiedNanoseconds;
  int64_t changedSeconds, changedNanoseconds;

  bool operator==(const FileState&) const = default;
};
FileState stateOf(const struct stat& status);

// For each pass: open, read lines(), checkUnchanged, close. Messages are at level 25 and name the
// file.
class InputFile {
 public:
  // Keeps a copy of the name. False when there is no memory.
  [[nodiscard]] bool setName(const char* name);

  // Opens the file from its first line. kInputReadFailed with "Input cards file %s cannot be read
  // twice\n" for a pipe, a socket or a device other than an empty one or a disk, without waiting
  // for it; kInputOpenFailed with "Error opening input cards files %s\n"; result of checkUnchanged.
  // A folder opens, and fails when it is read.
  [[nodiscard]] int32_t open();
  void close() { _lines.close(); }

  LineReader& lines() { return _lines; }

  // Whether the open file is still the one that was opened first, and as it was then. Otherwise
  // kInputReadFailed with the message of reportChanged.
  [[nodiscard]] int32_t checkUnchanged();

  // Logs "Input cards file %s changed during the build\n" and returns kInputReadFailed.
  [[nodiscard]] int32_t reportChanged() const;

 private:
  std::unique_ptr<char[]> _name;
  LineReader _lines;
  std::optional<FileState> _state;  // When it was opened first.
};

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_INPUTFILE_H
