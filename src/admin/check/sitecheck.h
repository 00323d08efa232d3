// Everything that is wrong or dangerous in the files that a build of a site reads, found in one
// run.
#ifndef BADGEMINT_ADMIN_CHECK_SITECHECK_H
#define BADGEMINT_ADMIN_CHECK_SITECHECK_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "admin/check/finding.h"
#include "admin/console.h"
#include "formats/CardFormat.h"
#include "inputcards/cardindex.h"
#include "site/accesslevel.h"

namespace badgemint::admin {

struct SiteCheckOptions {
  std::string cards;
  std::string formats;      // Format files are looked up by their base names in the current folder.
  std::string levels;       // The access levels file; empty for none.
  bool withPins = false;    // Whether texts may show PINs.
  bool allowEmpty = false;  // Without the rule `empty`.
};

struct SiteSummary {
  int64_t credentials = 0;
  int64_t holders = 0;              // Distinct unique IDs.
  std::vector<std::string> inputs;  // The files that a build of the site reads, as it opens them.
};

// Reads the formats file, the format files and the cards file; writes nothing and logs nothing. The
// findings' verdict is the result of a build of the same files. Throws std::bad_alloc, and
// std::system_error or a Failure when the access levels file cannot be read or is another file.
SiteSummary checkSite(const SiteCheckOptions& options, Findings& findings);

// Prints the findings and the summary. Returns the status that `check` ends with.
ExitStatus report(const Findings& findings, const SiteSummary& summary, bool isStrict,
                  Console& console, bool asJson = false);

// Reads an access levels file. Throws std::bad_alloc, and std::system_error when it cannot be read.
void readLevels(const std::string& path, AccessLevelSet& levels);

// Reports what is wrong in an access levels file, as warnings: a build does not read it. Throws
// std::bad_alloc, std::system_error when the file cannot be read, and a Failure when no line of it
// defines a level.
void checkLevelsFile(const std::string& path, Findings& findings);

// Whether cards of the format have this field beside their number.
bool hasSiteValue(const CardFormat& format, int32_t field);

// The values of a card set of this format from a text such as "A=101 B=7", as an 'f' line gives
// them. None when anything in it is wrong, with the finding; fields that get no value are findings
// too.
std::optional<CardFormat::FieldValues> readSiteValues(const std::string& text,
                                                      const CardFormat& format, Findings& findings);

// Unique IDs in a row that lines with an error name: they count as partners and as escorts.
struct UniqidRange {
  uint32_t first;
  uint32_t last;
};

// An escort that a line names, to be looked for when all holders are known.
struct EscortUse {
  uint32_t escort;
  uint32_t uniqid;
  int32_t line;
  int32_t column;
};

// The same for a line whose words have slipped, which is one finding.
struct SlippedEscort {
  uint32_t escort;
  size_t finding;
};

// What a run over a cards file leaves for the checks that need the whole of it.
struct WholeFile {
  const CardIndex& index;  // Its lines are those of an editor.
  std::vector<UniqidRange> unindexed;
  const std::vector<EscortUse>& escorts;
  const std::vector<SlippedEscort>& slippedEscorts;
  const std::vector<int32_t>& misread;  // Lines, in order, that are reported as a whole.
  int file;                             // The cards file.
  bool withPins;
};

// Reports keys and unique IDs that occur twice, PIN idents without a card, and escorts that are not
// holders. Sets the verdict as a build would that gets to these checks at all. Returns the number
// of distinct unique IDs in the index. Throws std::bad_alloc.
int64_t checkWholeFile(WholeFile whole, Findings& findings);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_SITECHECK_H
