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

void requireRegularFile(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
    throw Failure(ExitStatus::kNotDone, "{} is not a regular file", path);
}

FileStates statesOf(std::span<const std::string> paths) {
  FileStates states;
  for (const std::string& path : paths) {
    struct stat status;
    const bool isThere = stat(path.c_str(), &status) == 0;
    states.push_back(isThere ? std::optional(stateOf(status)) : std::nullopt);
  }
  return states;
}

void reportReadableByOthers(const std::vector<std::string>& paths, Console& console) {
  for (const std::string& path : paths)
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
