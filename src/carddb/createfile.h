// How the build and the dump make the objects of their database files: with the same messages, each
// under its own module.
#ifndef BADGEMINT_CARDDB_CREATEFILE_H
#define BADGEMINT_CARDDB_CREATEFILE_H

#include <memory>
#include <new>

#include "support/log.h"
#include "support/result.h"

namespace badgemint {

// An IdentFile or AccessFile of this name, not yet opened. Null when there is no memory for it or
// for the name: `module` logs "Not enough memory to create %s\n" with `what`.
template <typename File>
std::unique_ptr<File> createFile(const char* module, const char* name, const char* what) {
  std::unique_ptr<File> file(new (std::nothrow) File);
  if (file != nullptr && file->setFileName(name) == kSuccess) return file;
  LOG_AS(module, kLogError, "Not enough memory to create %s\n", what);
  return nullptr;
}

}  // namespace badgemint

#endif  // BADGEMINT_CARDDB_CREATEFILE_H
