#include "admin/files/folder.h"

#include <fcntl.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "admin/console.h"

namespace badgemint::admin {

namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

}  // namespace

void throwErrno(const std::string& path) {
  throw std::system_error(errno, std::generic_category(), path);
}

PathParts splitPath(const std::string& path) {
  const std::filesystem::path whole = path;
  PathParts parts{whole.has_parent_path() ? whole.parent_path() : ".", whole.filename()};
  if (parts.name.empty() || parts.name == "." || parts.name == ".." ||
      parts.name.find('\n') != std::string::npos)
    throw Failure(ExitStatus::kNotDone, "\"{}\" is not the name of a file", path);
  return parts;
}

struct stat Descriptor::status(const std::string& path) const {
  struct stat status;
  throwErrnoUnless(fstat(_number, &status) == 0, path);
  return status;
}

void writeAll(const Descriptor& file, std::string_view text, const std::string& path) {
  while (!text.empty()) {
    const ssize_t written = write(file.number(), text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    throwErrnoUnless(written >= 0, path);
    text.remove_prefix(static_cast<size_t>(written));
  }
}

Folder Folder::open(const std::string& path) {
  Descriptor descriptor(::open(path.c_str(), kFolderFlags));
  throwErrnoUnless(descriptor.number() >= 0, path);
  return {path, std::move(descriptor)};
}

std::optional<struct stat> Folder::look(const std::string& name) const {
  struct stat status;
  if (fstatat(number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return status;
  if (errno != ENOENT) throwErrno(pathOf(name));
  return std::nullopt;
}

Descriptor Folder::openFile(const std::string& name, int flags, mode_t mode) const {
  Descriptor file(openat(number(), name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode));
  if (file.number() < 0) throwErrno(pathOf(name));
  return file;
}

std::string Folder::readFile(const std::string& name) const {
  const Descriptor file = openFile(name, O_RDONLY);
  std::string text;
  char block[65536];
  for (;;) {
    const ssize_t got = read(file.number(), block, sizeof block);
    if (got == 0) return text;
    if (got > 0) text.append(block, static_cast<size_t>(got));
    if (got < 0 && errno != EINTR) throwErrno(pathOf(name));
  }
}

bool Folder::makeFolder(const std::string& name) const {
  const bool made = mkdirat(number(), name.c_str(), S_IRWXU) == 0;
  if (!made && errno != EEXIST) throwErrno(pathOf(name));
  return made;
}

Folder Folder::openFolder(const std::string& name) const {
  return {pathOf(name), openFile(name, kFolderFlags)};
}

void Folder::linkTo(const std::string& name, const Folder& other,
                    const std::string& newName) const {
  if (linkat(number(), name.c_str(), other.number(), newName.c_str(), 0) != 0)
    throwErrno(pathOf(name) + " cannot get a second name");
}

void Folder::moveTo(const std::string& name, const Folder& other,
                    const std::string& newName) const {
  if (renameat(number(), name.c_str(), other.number(), newName.c_str()) != 0)
    throwErrno(other.pathOf(newName));
}

bool Folder::tryRemove(const std::string& name, int flags) const noexcept {
  return unlinkat(number(), name.c_str(), flags) == 0 || errno == ENOENT;
}

NewFile::NewFile(const std::string& path, bool mayReplace)
    : _folder(Folder::open(splitPath(path).folder)),
      _name(splitPath(path).name),
      _unfinishedName(_name + ".new"),
      _mayReplace(mayReplace),
      _file(create()) {}

Descriptor NewFile::create() const {
  checkTarget();
  if (_folder.look(_unfinishedName))
    throw Failure(ExitStatus::kRefused,
                  "{} is there: another run writes it, or was killed and left it; remove it then",
                  _folder.pathOf(_unfinishedName));
  return _folder.openFile(_unfinishedName, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
}

NewFile::~NewFile() {
  if (!_isFinished) static_cast<void>(_folder.tryRemove(_unfinishedName));
}

void NewFile::checkTarget() const {
  const auto found = _folder.look(_name);
  if (found && !S_ISREG(found->st_mode))
    throw Failure(ExitStatus::kRefused, "{} is not a regular file", _folder.pathOf(_name));
  if (found && !_mayReplace)
    throw Failure(ExitStatus::kRefused, "{} is there already (--force replaces it)",
                  _folder.pathOf(_name));
}

bool NewFile::finish() {
  throwErrnoUnless(fsync(_file.number()) == 0, _folder.pathOf(_name));
  checkTarget();
  if (_mayReplace)
    _folder.moveTo(_unfinishedName, _folder, _name);
  else  // Fails where there is such a file since a moment ago.
    _folder.linkTo(_unfinishedName, _folder, _name);
  _isFinished = _mayReplace || _folder.tryRemove(_unfinishedName);
  return fsync(_folder.number()) == 0 && _isFinished;
}

}  // namespace badgemint::admin
