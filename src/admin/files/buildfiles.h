// The files of a build by what they are, not by their names: what it reads must stay the same from
// the check to the proof, and what it writes must be none of that.
#ifndef BADGEMINT_ADMIN_FILES_BUILDFILES_H
#define BADGEMINT_ADMIN_FILES_BUILDFILES_H

#include <optional>
#include <string>
#include <vector>

#include "admin/files/sitepaths.h"
#include "inputcards/inputfile.h"

namespace badgemint::admin {

// The format files that a formats file lists, as a build opens them.
std::vector<std::string> formatFiles(const std::string& formatsName);

// What a build of a site reads, as it was when this was made.
class BuildInputs {
 public:
  explicit BuildInputs(const SitePaths& site);

  const std::vector<std::string>& names() const { return _names; }
  // Throws Failure (refused) when a file is another now, or is there no more.
  void demandUnchanged() const;

 private:
  std::vector<std::string> _names;
  std::vector<std::optional<FileState>> _states;
};

// Throws Failure (refused) when one of `outputs` is one of `inputs` or another output: the same
// file, or the same name in the same folder.
void demandApart(const std::vector<std::string>& inputs, const std::vector<std::string>& outputs);

// The folder of a path ("." for a name alone), and its last name. Throws Failure (not done) for a
// path without a name that a file can have.
struct PathParts {
  std::string folder, name;
};
PathParts splitPath(const std::string& path);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_FILES_BUILDFILES_H
