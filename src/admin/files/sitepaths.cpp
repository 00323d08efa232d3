#include "admin/files/sitepaths.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "admin/files/folder.h"
#include "formats/fmtfile.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

std::optional<FileState> stateOfFile(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return stateOf(status);
}

bool isOneFile(const std::string& a, const std::string& b) {
  const PathParts partsOfA = splitPath(a), partsOfB = splitPath(b);
  std::error_code missing;
  return std::filesystem::equivalent(a, b, missing) ||
         (partsOfA.name == partsOfB.name &&
          std::filesystem::equivalent(partsOfA.folder, partsOfB.folder, missing));
}

const char* kindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISSOCK(mode)) return "a socket";
  return "a device";
}

}  // namespace

void requireRegularFile(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    throw Failure(ExitStatus::kNotDone, "{} is {}, not a regular file", path,
                  kindOf(status.st_mode));
}

bool isReadableByOthers(const std::string& path) {
  std::error_code failed;
  std::filesystem::path part = std::filesystem::canonical(path, failed);
  if (failed || !std::filesystem::is_regular_file(part, failed)) return false;
  auto needed = std::filesystem::perms::others_read;
  for (; !failed; part = part.parent_path()) {
    if ((std::filesystem::status(part, failed).permissions() & needed) == std::filesystem::perms{})
      return false;
    if (part == part.root_path()) return !failed;
    needed = std::filesystem::perms::others_exec;  // To enter a folder.
  }
  return false;
}

void reportIfReadableByOthers(const std::string& path, Console& console) {
  if (isReadableByOthers(path))
    console.report("{0} contains PINs and can be read by other users (chmod o-r {0})", path);
}

std::vector<std::string> formatFiles(const std::string& formatsName) {
  std::vector<std::string> names;
  fmtfile file;
  if (file.open(formatsName.c_str()) < 0) return names;
  uint32_t id = 0;
  FormatFileName name;
  while (file.readEntryBaseName(id, name) == kSuccess) names.emplace_back(name.data());
  return names;
}

BuildInputs::BuildInputs(const SitePaths& site) {
  requireRegularFile(site.formats);
  _names = formatFiles(site.formats);
  _names.push_back(site.formats);
  _names.push_back(site.cards);
  for (const std::string& name : _names) {
    requireRegularFile(name);
    _states.push_back(stateOfFile(name));
  }
}

void BuildInputs::requireUnchanged() const {
  for (size_t i = 0; i < _names.size(); ++i)
    if (stateOfFile(_names[i]) != _states[i])
      throw Failure(ExitStatus::kRefused, "{} changed during the build", _names[i]);
}

void requireDistinctFiles(const std::vector<std::string>& inputs,
                          const std::vector<std::string>& outputs) {
  std::vector<std::string> names = inputs;
  for (const std::string& output : outputs) {
    const auto twin = std::ranges::find_if(
        names, [&output](const auto& name) { return isOneFile(name, output); });
    if (twin != names.end())
      throw Failure(ExitStatus::kRefused, "{} and {} are one file", *twin, output);
    names.push_back(output);
  }
}

}  // namespace badgemint::admin
