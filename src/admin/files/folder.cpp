#include "admin/files/folder.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "formats/CardFormatSet.h"
#include "formats/fmtfile.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

bool isOneFile(const std::string& a, const std::string& b) {
  const PathParts partsOfA = splitPath(a), partsOfB = splitPath(b);
  std::error_code missing;
  return std::filesystem::equivalent(a, b, missing) ||
         (partsOfA.name == partsOfB.name &&
          std::filesystem::equivalent(partsOfA.folder, partsOfB.folder, missing));
}

// Whether users other than owner and group can read the file, where it is.
bool isReadableByOthers(const std::string& path) {
  std::error_code isMissing;
  std::filesystem::path part = std::filesystem::canonical(path, isMissing);
  struct stat status;
  mode_t needed = S_IFREG | S_IROTH;
  while (stat(part.c_str(), &status) == 0 && (status.st_mode & needed) == needed) {
    if (part == part.root_path()) return true;
    part = part.parent_path();
    needed = S_IFDIR | S_IXOTH;  // To enter a folder.
  }
  return false;
}

}  // namespace

void throwErrno(const std::string& path) {
  throw std::system_error(errno, std::generic_category(), path);
}

PathParts splitPath(const std::string& path) {
  const std::filesystem::path whole = path;
  PathParts parts{whole.has_parent_path() ? whole.parent_path() : ".", whole.filename()};
  if (parts.name.empty() || parts.name == "." || parts.name == ".." ||
      parts.name.find('\n') != std::string::npos)
    throw NotDone("\"{}\" is not the name of a file", path);
  return parts;
}

void requireRegularFile(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    throw NotDone("{} is not a regular file", path);
}

FileStates statesOf(std::span<const std::string> paths) {
  FileStates states;
  struct stat status;
  for (const std::string& path : paths)
    states.push_back(stat(path.c_str(), &status) == 0 ? std::optional(stateOf(status))
                                                      : std::nullopt);
  return states;
}

void reportReadableByOthers(const std::vector<std::string>& paths, Console& console) {
  for (const std::string& path : paths)
    if (isReadableByOthers(path))
      console.report("{0} contains PINs and can be read by other users (chmod o-r {0})", path);
}

std::vector<std::string> formatFiles(const std::string& formatsName) {
  requireRegularFile(formatsName);
  std::vector<std::string> names;
  fmtfile file;
  if (file.open(formatsName.c_str()) < 0) return names;
  uint32_t id = 0;
  FormatFileName name;
  while (file.readEntryBaseName(id, name) == kSuccess)
    if (CardFormatSet::isFormatFile(name.data())) names.emplace_back(name.data());
  return names;
}

void requireDistinctFiles(const std::vector<std::string>& inputs,
                          const std::vector<std::string>& outputs) {
  std::vector<std::string> names = inputs;
  for (const std::string& output : outputs) {
    const auto twin = std::ranges::find_if(
        names, [&output](const auto& name) { return isOneFile(name, output); });
    if (twin != names.end())
      throw Refused("{} and {} are the same file; each output needs its own", *twin, output);
    names.push_back(output);
  }
}

mode_t usualMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
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
      _mayReplace(mayReplace) {
  checkTarget();
  if (_folder.look(_unfinishedName))
    throw Refused("{} exists: another run writes it or was killed; if none is running, remove it",
                  _folder.pathOf(_unfinishedName));
  _file.emplace(_folder.openFile(_unfinishedName, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR));
}

NewFile::~NewFile() {
  if (!_isFinished) static_cast<void>(_folder.tryRemove(_unfinishedName));
}

void NewFile::checkTarget() const {
  const auto found = _folder.look(_name);
  if (found && !S_ISREG(found->st_mode))
    throw Refused("{} is not a regular file", _folder.pathOf(_name));
  if (found && !_mayReplace)
    throw Refused("{} already exists (--force replaces it)", _folder.pathOf(_name));
}

bool NewFile::finish(Console& console) {
  throwErrnoUnless(fsync(_file->number()) == 0, _folder.pathOf(_name));
  checkTarget();
  if (_mayReplace)
    _folder.moveTo(_unfinishedName, _folder, _name);
  else  // Fails where there is such a file since a moment ago.
    _folder.linkTo(_unfinishedName, _folder, _name);
  _isFinished = _mayReplace || _folder.tryRemove(_unfinishedName);
  if (fsync(_folder.number()) == 0 && _isFinished) return true;
  console.report("{} is written, but a power cut may undo that: {}", _folder.pathOf(_name),
                 std::strerror(errno));
  return false;
}

}  // namespace badgemint::admin
