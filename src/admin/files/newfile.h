// A file that a verb leaves behind: whole and its owner's alone, or not at all.
#ifndef BADGEMINT_ADMIN_FILES_NEWFILE_H
#define BADGEMINT_ADMIN_FILES_NEWFILE_H

#include <string>
#include <string_view>

#include "admin/files/folder.h"

namespace badgemint::admin {

// Is written under its name with ".new" behind and gets its name when it is whole, so that a run
// that is cut short leaves what was there. What the system refuses is thrown as std::system_error.
class NewFile {
 public:
  // Throws Failure (refused) when there is a file of this name that must not be replaced, and when
  // there is anything else than a file.
  NewFile(const std::string& path, bool mayReplace);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void write(std::string_view text);
  // Writes through to the disk and gives the file its name.
  void finish();

 private:
  void demandFree() const;

  Folder _folder;
  const std::string _name;
  const bool _mayReplace;
  Descriptor _file;
  bool _isFinished = false;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_FILES_NEWFILE_H
