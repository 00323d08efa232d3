// The verb `diff`: what differs between two pairs of databases, holder by holder.
#ifndef BADGEMINT_ADMIN_DIFF_H
#define BADGEMINT_ADMIN_DIFF_H

#include <string>
#include <vector>

#include "admin/console.h"
#include "admin/site.h"

namespace badgemint::admin {

struct DiffOptions {
  // Formats and card sets to show card numbers with; the databases' names in both folders.
  SiteNames site;
  std::vector<std::string> folders;             // The old one and the new one, or none.
  std::vector<std::string> oldFiles, newFiles;  // Ident and access database, in place of folders.
  bool counts = false;                          // Instead of a line a change.
  bool withPins = false;
};

// kAllWell: the same. kFound: they differ.
ExitStatus diff(const DiffOptions& options, Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_DIFF_H
