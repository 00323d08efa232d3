// A folder held by its descriptor: what is done in it cannot be led elsewhere by links that
// somebody puts in the way, nor by renaming the folder.
#ifndef BADGEMINT_ADMIN_FILES_FOLDER_H
#define BADGEMINT_ADMIN_FILES_FOLDER_H

#include <sys/stat.h>

#include <optional>
#include <string>
#include <utility>

namespace badgemint::admin {

class Descriptor {
 public:
  explicit Descriptor(int number) : _number(number) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : _number(std::exchange(other._number, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(_number, other._number);
    return *this;
  }
  int number() const { return _number; }

 private:
  int _number;
};

// Whether both are one and the same file.
inline bool isSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Names are those of entries, without slashes; links are never followed. What the system refuses is
// thrown as std::system_error with the path of the entry.
class Folder {
 public:
  static Folder open(const std::string& path);

  const std::string& path() const { return _path; }
  std::string pathOf(const std::string& name) const;

  // What the entry is; none when there is no such entry.
  std::optional<struct stat> look(const std::string& name) const;
  // Opens a file with these open(2) flags.
  Descriptor openFile(const std::string& name, int flags, mode_t mode = 0) const;

  // Makes a folder of the owner alone; false when there is an entry of this name.
  bool makeFolder(const std::string& name) const;
  Folder openFolder(const std::string& name) const;
  struct stat status() const;

  // Locks the folder against all others that do so, until it is closed. False when one has it.
  bool lock() const;

  // Gives a file one more name, in the other folder.
  void linkTo(const std::string& name, const Folder& other, const std::string& newName) const;
  // Takes the place of what has the name in the other folder.
  void moveTo(const std::string& name, const Folder& other, const std::string& newName) const;
  // An entry that is missing is removed already.
  void remove(const std::string& name) const;
  // False, and errno, when it stays.
  [[nodiscard]] bool tryRemove(const std::string& name) const noexcept;
  // A folder without entries; false, and errno, when it stays.
  [[nodiscard]] bool tryRemoveFolder(const std::string& name) const noexcept;
  void sync() const;

 private:
  Folder(std::string path, Descriptor descriptor)
      : _path(std::move(path)), _descriptor(std::move(descriptor)) {}
  int number() const { return _descriptor.number(); }

  std::string _path;
  Descriptor _descriptor;
};

// Throws errno as std::system_error unless `result` is that of a call that went well.
void throwUnless(bool wentWell, const std::string& path);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_FILES_FOLDER_H
