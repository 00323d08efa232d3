#include "admin/files/buildfiles.h"

#include <sys/stat.h>

#include <algorithm>

#include "admin/console.h"
#include "formats/fmtfile.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

std::optional<FileState> stateOfFile(const std::string& name) {
  struct stat status;
  if (stat(name.c_str(), &status) != 0) return std::nullopt;
  return stateOf(status);
}

PathParts partsOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {".", path};
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

// What makes two paths lead to one file.
struct Identity {
  explicit Identity(const std::string& path)
      : file(stateOfFile(path)),
        name(partsOf(path).name),
        folder(stateOfFile(partsOf(path).folder)) {}

  bool operator==(const Identity& other) const {
    return isOne(file, other.file) || (name == other.name && isOne(folder, other.folder));
  }
  static bool isOne(const std::optional<FileState>& a, const std::optional<FileState>& b) {
    return a && b && a->device == b->device && a->inode == b->inode;
  }

  std::optional<FileState> file;
  std::string name;
  std::optional<FileState> folder;
};

}  // namespace

std::vector<std::string> formatFiles(const std::string& formatsName) {
  std::vector<std::string> names;
  fmtfile file;
  if (file.open(formatsName.c_str()) < 0) return names;
  uint32_t id = 0;
  FormatFileName name;
  while (file.readEntryBaseName(id, name) == kSuccess) names.emplace_back(name.data());
  return names;
}

BuildInputs::BuildInputs(const SitePaths& site) : _names(formatFiles(site.formats)) {
  _names.push_back(site.formats);
  _names.push_back(site.cards);
  for (const std::string& name : _names) _states.push_back(stateOfFile(name));
}

void BuildInputs::demandUnchanged() const {
  for (size_t i = 0; i < _names.size(); ++i)
    if (stateOfFile(_names[i]) != _states[i])
      throw Failure(ExitStatus::kRefused,
                    _names[i] + " changed while the build was at work: nothing was changed");
}

void demandApart(const std::vector<std::string>& inputs, const std::vector<std::string>& outputs) {
  std::vector<std::string> names = inputs;
  for (const std::string& output : outputs) {
    const auto twin = std::ranges::find_if(
        names, [&output](const auto& name) { return Identity(name) == Identity(output); });
    if (twin != names.end())
      throw Failure(ExitStatus::kRefused, *twin + " and " + output + " are one file");
    names.push_back(output);
  }
}

PathParts splitPath(const std::string& path) {
  PathParts parts = partsOf(path);
  if (parts.name.empty() || parts.name == "." || parts.name == ".." ||
      parts.name.find('\n') != std::string::npos)
    throw Failure(ExitStatus::kNotDone, '"' + path + "\" is no name of a file");
  return parts;
}

}  // namespace badgemint::admin
