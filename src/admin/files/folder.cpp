#include "admin/files/folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace badgemint::admin {

namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t kOwnerOnly = 0700;

}  // namespace

void throwUnless(bool wentWell, const std::string& path) {
  if (!wentWell) throw std::system_error(errno, std::generic_category(), path);
}

Descriptor::~Descriptor() {
  if (_number >= 0) close(_number);
}

Folder Folder::open(const std::string& path) {
  Descriptor descriptor(::open(path.c_str(), kFolderFlags));
  throwUnless(descriptor.number() >= 0, path);
  return {path, std::move(descriptor)};
}

std::string Folder::pathOf(const std::string& name) const {
  return _path == "." ? name : _path + '/' + name;
}

std::optional<struct stat> Folder::look(const std::string& name) const {
  struct stat status;
  if (fstatat(number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return status;
  throwUnless(errno == ENOENT, pathOf(name));
  return std::nullopt;
}

Descriptor Folder::openFile(const std::string& name, int flags, mode_t mode) const {
  Descriptor file(openat(number(), name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode));
  throwUnless(file.number() >= 0, pathOf(name));
  return file;
}

bool Folder::makeFolder(const std::string& name) const {
  const bool made = mkdirat(number(), name.c_str(), kOwnerOnly) == 0;
  throwUnless(made || errno == EEXIST, pathOf(name));
  return made;
}

Folder Folder::openFolder(const std::string& name) const {
  return {pathOf(name), openFile(name, kFolderFlags)};
}

struct stat Folder::status() const {
  struct stat status;
  throwUnless(fstat(number(), &status) == 0, _path);
  return status;
}

bool Folder::lock() const {
  const bool locked = flock(number(), LOCK_EX | LOCK_NB) == 0;
  throwUnless(locked || errno == EWOULDBLOCK, _path);
  return locked;
}

void Folder::linkTo(const std::string& name, const Folder& other,
                    const std::string& newName) const {
  throwUnless(linkat(number(), name.c_str(), other.number(), newName.c_str(), 0) == 0,
              pathOf(name) + " cannot be kept under a second name");
}

void Folder::moveTo(const std::string& name, const Folder& other,
                    const std::string& newName) const {
  throwUnless(renameat(number(), name.c_str(), other.number(), newName.c_str()) == 0,
              other.pathOf(newName));
}

void Folder::remove(const std::string& name) const {
  throwUnless(tryRemove(name), pathOf(name));
}

bool Folder::tryRemove(const std::string& name) const noexcept {
  return unlinkat(number(), name.c_str(), 0) == 0 || errno == ENOENT;
}

bool Folder::tryRemoveFolder(const std::string& name) const noexcept {
  return unlinkat(number(), name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT;
}

void Folder::sync() const {
  throwUnless(fsync(number()) == 0, _path);
}

}  // namespace badgemint::admin
