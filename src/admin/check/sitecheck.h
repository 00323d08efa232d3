// Everything that is wrong or dangerous in the files that a build of a site reads, found in one
// run: the access levels file, the formats file, the format files that it lists, the cards file. A
// check goes on after an error, and warns of what a build accepts without a message.
#ifndef BADGEMINT_ADMIN_CHECK_SITECHECK_H
#define BADGEMINT_ADMIN_CHECK_SITECHECK_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "admin/check/finding.h"
#include "formats/CardFormatSet.h"
#include "site/accesslevel.h"

namespace badgemint::admin {

// Format files are looked up by their base names in the current folder.
struct SiteCheckOptions {
  std::string cards = "cards.txt";
  std::string formats = "formats.txt";
  std::string levels{};     // The access levels file; empty for none.
  bool withPins = false;    // Whether texts may show PINs.
  bool allowEmpty = false;  // Without the rule `empty`.
};

struct SiteSummary {
  int64_t credentials = 0;
  int64_t holders = 0;  // Distinct unique IDs.
};

// Reads the formats file, the format files and the cards file; writes nothing and logs nothing. The
// findings' verdict is the result of a build of the same files. Throws std::bad_alloc, and
// std::system_error or a Failure when the access levels file cannot be read or is another file.
SiteSummary checkSite(const SiteCheckOptions& options, Findings& findings);

// Prints the findings and the summary. Returns the status that `check` ends with.
ExitStatus report(const Findings& findings, const SiteSummary& summary, bool isStrict,
                  Console& console, bool asJson = false);

// Reads an access levels file, and reports what is wrong in it as warnings: a build does not read
// it. Throws std::bad_alloc, std::system_error when the file cannot be read, and a Failure with
// this status when no line of it defines a level.
void readLevels(const std::string& path, AccessLevelSet& levels, Findings& findings,
                ExitStatus ifOtherFile = ExitStatus::kRefused);

// An entry of the formats file.
struct CheckedFormat {
  uint32_t id = 0;
  std::string fileName{};              // Its base name, in the current folder.
  const CardFormat* format = nullptr;  // Null when it did not load.
  int64_t line = 0;                    // Of the formats file.
  size_t error = Findings::kNotKept;   // The finding that reports why it did not load.
};

// The entries of a formats file; CardFormatSet owns the formats.
struct CheckedFormats {
  bool complete = true;                // False when the formats file could not be read to its end.
  std::vector<CheckedFormat> formats;  // In the order of the file.

  // The first of this ID, as a build finds it; null when there is none.
  const CheckedFormat* find(uint32_t id) const;
};

// Loads every format that can be loaded into `formats`, which owns them. Adds the formats file and
// then the format files, as listed and each once, to the findings, and sets their verdict at the
// first thing for which a build would fail. Throws std::bad_alloc, and std::system_error when a
// file that loaded cannot be read again. Format files are looked up in `folder`.
CheckedFormats checkFormats(const std::string& formatsFile, CardFormatSet& formats,
                            Findings& findings, const std::string& folder = ".");

// Loads the format of an entry into `formats`, and checks its file, which `path` leads to, line by
// line. Adds the file to the findings, sets `format` or `error` of the entry, and throws, as above.
void checkFormatFile(const std::string& path, CheckedFormat& entry, CardFormatSet& formats,
                     Findings& findings);

// "CDF", "EFF" or "VFF".
std::string_view kindName(const CardFormat& format);

// Whether cards of the format have this field beside their number.
bool hasSiteValue(const CardFormat& format, int32_t field);

// The values of a card set of this format from a text such as "A=101 B=7", as an 'f' line gives
// them. None when anything in it is wrong, with the finding; fields that get no value are findings
// too.
std::optional<CardFormat::FieldValues> readSiteValues(const std::string& text,
                                                      const CardFormat& format, Findings& findings);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_SITECHECK_H
