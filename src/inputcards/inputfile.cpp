#include "inputcards/inputfile.h"

#include <sys/sysmacros.h>

#include "support/log.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

FileState stateOf(const struct stat& status) {
  return {.device = status.st_dev,
          .inode = status.st_ino,
          .size = status.st_size,
          .modifiedSeconds = status.st_mtim.tv_sec,
          .modifiedNanoseconds = status.st_mtim.tv_nsec,
          .changedSeconds = status.st_ctim.tv_sec,
          .changedNanoseconds = status.st_ctim.tv_nsec};
}

namespace {

constexpr char kLogModule[] = "inputcards";

const dev_t kNullDevice = makedev(1, 3);  // The one character device that is always empty.

// Asked before the file is opened: opening a pipe waits for its writer.
bool canBeReadTwice(const char* name) {
  struct stat status;
  if (stat(name, &status) != 0) return true;  // Opening it will tell.
  if (S_ISCHR(status.st_mode)) return status.st_rdev == kNullDevice;
  return !S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode);
}

std::optional<FileState> stateOfOpen(int file) {
  struct stat status;
  if (fstat(file, &status) != 0) return std::nullopt;
  return stateOf(status);
}

}  // namespace

bool InputFile::setName(const char* name) {
  _name = copyText(name);
  return _name != nullptr;
}

int32_t InputFile::open() {
  if (!canBeReadTwice(_name.get())) {
    LOG(kLogError, "Input cards file %s cannot be read twice\n", _name.get());
    return kInputReadFailed;
  }
  if (!_lines.open(_name.get())) {
    LOG(kLogError, "Error opening input cards files %s\n", _name.get());
    return kInputOpenFailed;
  }
  if (!_state) _state = stateOfOpen(_lines.descriptor());
  return checkUnchanged();
}

int32_t InputFile::checkUnchanged() {
  return _state && stateOfOpen(_lines.descriptor()) == _state ? kSuccess : reportChanged();
}

int32_t InputFile::reportChanged() const {
  LOG(kLogError, "Input cards file %s changed during the build\n", _name.get());
  return kInputReadFailed;
}

}  // namespace badgemint
