// The build without its frame, for programs that give it one of their own.
#ifndef BADGEMINT_TOOLS_BUILD_H
#define BADGEMINT_TOOLS_BUILD_H

#include <cstdint>

#include "tools/entryrun.h"

namespace badgemint {

// Builds the databases and the card sets file of a site; the old databases are removed first. Logs
// the start and the files of the run. The result is that of BadgeMint.
[[nodiscard]] int32_t buildSite(EntryRun& run, SiteFiles files);

}  // namespace badgemint

#endif  // BADGEMINT_TOOLS_BUILD_H
