#include "admin/files/folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "admin/console.h"

namespace badgemint::admin {

namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t kOwnerOnlyFolder = 0700;
constexpr mode_t kOwnerOnlyFile = 0600;

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

Descriptor::~Descriptor() {
  if (_number >= 0) close(_number);
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

std::string Folder::pathOf(const std::string& name) const {
  return _path == "." ? name : _path + '/' + name;
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
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throwErrno(pathOf(name));
    if (got == 0) return text;
    text.append(block, static_cast<size_t>(got));
  }
}

std::vector<std::string> Folder::entries() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(_path))
    names.push_back(entry.path().filename().string());
  return names;
}

bool Folder::makeFolder(const std::string& name) const {
  const bool made = mkdirat(number(), name.c_str(), kOwnerOnlyFolder) == 0;
  if (!made && errno != EEXIST) throwErrno(pathOf(name));
  return made;
}

Folder Folder::openFolder(const std::string& name) const {
  return {pathOf(name), openFile(name, kFolderFlags)};
}

struct stat Folder::status() const {
  struct stat status;
  throwErrnoUnless(fstat(number(), &status) == 0, _path);
  return status;
}

void Folder::setMode(mode_t mode) const {
  throwErrnoUnless(fchmod(number(), mode) == 0, _path);
}

bool Folder::lock() const {
  const bool locked = flock(number(), LOCK_EX | LOCK_NB) == 0;
  throwErrnoUnless(locked || errno == EWOULDBLOCK, _path);
  return locked;
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

void Folder::remove(const std::string& name) const {
  if (!tryRemove(name)) throwErrno(pathOf(name));
}

bool Folder::tryRemove(const std::string& name) const noexcept {
  return unlinkat(number(), name.c_str(), 0) == 0 || errno == ENOENT;
}

bool Folder::tryRemoveFolder(const std::string& name) const noexcept {
  return unlinkat(number(), name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT;
}

void Folder::sync() const {
  throwErrnoUnless(trySync(), _path);
}

bool Folder::trySync() const noexcept {
  return fsync(number()) == 0;
}

NewFile::NewFile(const std::string& path, bool mayReplace)
    : _folder(Folder::open(splitPath(path).folder)),
      _name(splitPath(path).name),
      _unfinishedName(_name + ".new"),
      _mayReplace(mayReplace),
      _file(-1) {
  checkTarget();
  if (_folder.look(_unfinishedName))
    throw Failure(ExitStatus::kRefused,
                  "{} is there: another run writes it, or was killed and left it; remove it then",
                  _folder.pathOf(_unfinishedName));
  _file = _folder.openFile(_unfinishedName, O_WRONLY | O_CREAT | O_EXCL, kOwnerOnlyFile);
}

NewFile::~NewFile() {
  if (!_isFinished) static_cast<void>(_folder.tryRemove(_unfinishedName));
}

void NewFile::checkTarget() const {
  const auto found = _folder.look(_name);
  if (!found) return;
  const std::string path = _folder.pathOf(_name);
  if (!S_ISREG(found->st_mode))
    throw Failure(ExitStatus::kRefused, "{} is not a regular file", path);
  if (!_mayReplace)
    throw Failure(ExitStatus::kRefused, "{} is there already (--force replaces it)", path);
}

void NewFile::write(std::string_view text) {
  writeAll(_file, text, _folder.pathOf(_name));
}

bool NewFile::finish() {
  throwErrnoUnless(fsync(_file.number()) == 0, _folder.pathOf(_name));
  checkTarget();
  if (_mayReplace)
    _folder.moveTo(_unfinishedName, _folder, _name);
  else  // Fails where there is such a file since a moment ago.
    _folder.linkTo(_unfinishedName, _folder, _name);
  _isFinished = _mayReplace || _folder.tryRemove(_unfinishedName);
  return _folder.trySync() && _isFinished;
}

}  // namespace badgemint::admin
