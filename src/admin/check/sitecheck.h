// Everything that is wrong or dangerous in the files that a build of a site reads, in one run.
#ifndef BADGEMINT_ADMIN_CHECK_SITECHECK_H
#define BADGEMINT_ADMIN_CHECK_SITECHECK_H

#include <cstdint>
#include <string>
#include <vector>

#include "admin/check/finding.h"
#include "site/accesslevel.h"

namespace badgemint::admin {

struct SiteCheckOptions {
  std::string cards;
  std::string formats;    // Format files are looked up by their base names in the current folder.
  std::string levels;     // The access levels file; empty for none.
  bool withPins = false;  // Whether texts may show PINs.
};

struct SiteSummary {
  int64_t credentials = 0;
  int64_t holders = 0;              // Distinct unique IDs.
  std::vector<std::string> inputs;  // The files that a build of the site reads, as it opens them.
};

// Reads the formats file, the format files and the cards file; writes nothing and logs nothing. The
// findings' verdict is the result of a build of the same files. Throws std::bad_alloc, and
// std::system_error when the access levels file cannot be read.
SiteSummary checkSite(const SiteCheckOptions& options, Findings& findings);

// Reads an access levels file. Throws std::bad_alloc, and std::system_error when it cannot be read.
void readLevels(const std::string& path, AccessLevelSet& levels);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_SITECHECK_H
