// The files of a site by their paths: their names, what they are, and whether two paths lead to one
// file. And folders and files as the verbs that write use them: by descriptors, so that neither
// links nor renamed folders lead elsewhere, and with every failure thrown under the name of the
// file.
#ifndef BADGEMINT_ADMIN_FILES_FOLDER_H
#define BADGEMINT_ADMIN_FILES_FOLDER_H

#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "admin/console.h"
#include "inputcards/inputfile.h"

namespace badgemint::admin {

// Relative to the current folder.
struct SitePaths {
  std::string cards = "cards.txt";
  std::string formats = "formats.txt";
  std::string ident = "ident.db";
  std::string access = "access.db";
  std::string cardSets = "cardsets.txt";
  std::string formatFolder = ".";  // Where the format files are looked up.
};

// Throws Failure (not done) when the path leads to a folder, a FIFO, a socket or a device. Does not
// wait for any of them. A missing file is left to whoever opens it.
void requireRegularFile(const std::string& path);

// The format files that a formats file lists, as a build opens them. Throws as above.
std::vector<std::string> formatFiles(const std::string& formatsName);

// The states of files; none of one that is missing.
using FileStates = std::vector<std::optional<FileState>>;
FileStates statesOf(std::span<const std::string> paths);

// Reports each of these files, which contain PINs, that users other than owner and group can read.
void reportReadableByOthers(const std::vector<std::string>& paths, Console& console);

// Throws Failure (refused) when one of `outputs` is one of `inputs` or another output: the same
// file, or the same name in the same folder.
void requireDistinctFiles(const std::vector<std::string>& inputs,
                          const std::vector<std::string>& outputs);

// Throw errno as std::system_error with the path that the failed call was about.
[[noreturn]] void throwErrno(const std::string& path);
inline void throwErrnoUnless(bool succeeded, const std::string& path) {
  if (!succeeded) throwErrno(path);
}

// The path of a file in a folder.
inline std::string pathIn(const std::string& folder, const std::string& name) {
  return folder == "." ? name : folder + '/' + name;
}

// The folder of a path ("." for a name alone), and its last name. Throws Failure (not done) for a
// path whose last part is not a name that a file can have.
struct PathParts {
  std::string folder, name;
};
PathParts splitPath(const std::string& path);

// That of a file without secrets: for everybody as far as the umask allows it.
mode_t usualMode();

// Whether both are one and the same file.
inline bool isSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Owns an open descriptor and closes it.
class Descriptor {
 public:
  explicit Descriptor(int number) : _number(number) {}
  ~Descriptor() {
    if (_number >= 0) close(_number);
  }
  Descriptor(Descriptor&& other) noexcept : _number(other.release()) {}
  int number() const { return _number; }
  // Throws std::system_error with the path.
  struct stat status(const std::string& path) const;
  // Hands the open descriptor over to the caller.
  int release() { return std::exchange(_number, -1); }

 private:
  int _number;
};

// Writes all of the text and throws std::system_error with the path when that fails: the one place
// that writes to a descriptor.
void writeAll(const Descriptor& file, std::string_view text, const std::string& path);

// A folder that is held open. Names are those of entries, without slashes; links are never
// followed. What the system refuses is thrown as std::system_error with the path of the entry.
// Apart from that, no operation with names as parameters allocates memory.
class Folder {
 public:
  static Folder open(const std::string& path);

  const std::string& path() const { return _path; }
  std::string pathOf(const std::string& name) const { return pathIn(_path, name); }
  int number() const { return _descriptor.number(); }
  auto status() const { return _descriptor.status(_path); }

  // The status of an entry; none when there is no such entry.
  std::optional<struct stat> look(const std::string& name) const;
  // Opens a file with these open(2) flags.
  Descriptor openFile(const std::string& name, int flags, mode_t mode = 0) const;
  std::string readFile(const std::string& name) const;

  // Makes a folder that only its owner may enter; false when there is an entry of this name.
  bool makeFolder(const std::string& name) const;
  Folder openFolder(const std::string& name) const;

  // Gives a file a further name, in the other folder.
  void linkTo(const std::string& name, const Folder& other, const std::string& newName) const;
  // Replaces what has the new name in the other folder.
  void moveTo(const std::string& name, const Folder& other, const std::string& newName) const;
  // An entry that is missing counts as removed.
  void remove(const std::string& name) const {
    if (!tryRemove(name)) throwErrno(pathOf(name));
  }
  // False, with errno set, when the entry stays. With the flag AT_REMOVEDIR, for an empty folder.
  [[nodiscard]] bool tryRemove(const std::string& name, int flags = 0) const noexcept;
  void sync() const { throwErrnoUnless(fsync(number()) == 0, _path); }

 private:
  Folder(std::string path, Descriptor descriptor)
      : _path(std::move(path)), _descriptor(std::move(descriptor)) {}

  std::string _path;
  Descriptor _descriptor;
};

// A file that a verb creates for its owner alone: complete, or not at all. It is written under its
// name with ".new" appended and gets its name when it is complete. What the system refuses is
// thrown as std::system_error.
class NewFile {
 public:
  // Throws Failure (refused) when there is a file of this name that must not be replaced, and when
  // there is anything else than a file.
  NewFile(const std::string& path, bool mayReplace);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void write(std::string_view text) { writeAll(*_file, text, _folder.pathOf(_name)); }
  // For a file without secrets.
  void letOthersRead() { static_cast<void>(fchmod(_file->number(), usualMode())); }
  // Writes through to the disk and gives the file its name. Throws when there is a file of this
  // name meanwhile that must not be replaced. Returns false, with a report, when the file is in
  // place but its name may be lost in a power cut.
  [[nodiscard]] bool finish(Console& console);

 private:
  void checkTarget() const;

  const Folder _folder;
  const std::string _name, _unfinishedName;
  const bool _mayReplace;
  std::optional<Descriptor> _file;
  bool _isFinished = false;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_FILES_FOLDER_H
