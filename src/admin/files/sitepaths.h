// The files of a site by their paths: their names, what they are, and whether two paths lead to one
// file.
#ifndef BADGEMINT_ADMIN_FILES_SITEPATHS_H
#define BADGEMINT_ADMIN_FILES_SITEPATHS_H

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "admin/console.h"
#include "inputcards/inputfile.h"

namespace badgemint::admin {

// Relative to the current folder, where the format files are looked up as well.
struct SitePaths {
  std::string cards = "cards.txt";
  std::string formats = "formats.txt";
  std::string ident = "ident.db";
  std::string access = "access.db";
  std::string cardSets = "cardsets.txt";
};

// Throws Failure (not done) when the path leads to a folder, a FIFO, a socket or a device. Does not
// wait for any of them. A missing file is left to whoever opens it.
void requireRegularFile(const std::string& path);

// The format files that a formats file lists, as a build opens them.
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

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_FILES_SITEPATHS_H
