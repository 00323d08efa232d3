#include "admin/files/newfile.h"

#include <fcntl.h>
#include <unistd.h>

#include "admin/console.h"
#include "admin/files/buildfiles.h"

namespace badgemint::admin {

namespace {

constexpr char kUnfinished[] = ".new";
constexpr int kCreateFlags = O_WRONLY | O_CREAT | O_EXCL;
constexpr mode_t kOwnerOnly = 0600;

}  // namespace

NewFile::NewFile(const std::string& path, bool mayReplace)
    : _folder(Folder::open(splitPath(path).folder)),
      _name(splitPath(path).name),
      _mayReplace(mayReplace),
      _file(-1) {
  demandFree();
  if (_folder.look(_name + kUnfinished))
    throw Failure(ExitStatus::kRefused, _folder.pathOf(_name + kUnfinished) +
                                            " is there: another run writes it, or was killed and "
                                            "left it");
  _file = _folder.openFile(_name + kUnfinished, kCreateFlags, kOwnerOnly);
}

NewFile::~NewFile() {
  if (!_isFinished) static_cast<void>(_folder.tryRemove(_name + kUnfinished));
}

void NewFile::demandFree() const {
  const auto found = _folder.look(_name);
  if (!found) return;
  const std::string path = _folder.pathOf(_name);
  if (!S_ISREG(found->st_mode)) throw Failure(ExitStatus::kRefused, path + " is no regular file");
  if (!_mayReplace)
    throw Failure(ExitStatus::kRefused, path + " is there already (--force replaces it)");
}

void NewFile::write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(_file.number(), text.data(), text.size());
    throwUnless(written >= 0, _folder.pathOf(_name));
    text.remove_prefix(static_cast<size_t>(written));
  }
}

void NewFile::finish() {
  throwUnless(fsync(_file.number()) == 0, _folder.pathOf(_name));
  demandFree();
  _folder.moveTo(_name + kUnfinished, _folder, _name);
  _isFinished = true;
  _folder.sync();
}

}  // namespace badgemint::admin
