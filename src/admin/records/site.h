// A site as its files describe it: what every verb opens that looks at cards or existing databases.
#ifndef BADGEMINT_ADMIN_RECORDS_SITE_H
#define BADGEMINT_ADMIN_RECORDS_SITE_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "admin/check/sitecheck.h"
#include "admin/records/databases.h"
#include "cardsets/cardsets.h"
#include "inputcards/sitecards.h"

namespace badgemint::admin {

// Formats, card sets and databases of one site. Owns all of them; the records are in the order of
// their files unless they are to be sorted.
class Site {
 public:
  // What a verb cannot do without.
  struct Needs {
    bool formats = false;  // And card sets; else cards may be known by their keys only.
    std::optional<ExitStatus> wholeRecords{};  // Thrown when a database ends within a record.
    bool sorted = false;                       // The records, by unique IDs.
  };

  // Reads what the paths name, card sets and databases as one state, and leaves out what has an
  // empty path. Reports the problems where there is a console. Throws Failure or std::system_error
  // when a file that is needed cannot be read, and as readOneState does.
  Site(const SitePaths& paths, const Needs& needs, Console* console = nullptr);

  // What is wrong with formats and card sets that can be done without, with lines of the card sets
  // file, and with the ends of the databases.
  const std::vector<std::string>& problems() const { return _problems; }
  // Those of the card sets file by their lines.
  const std::map<int64_t, std::string>& cardSetProblems() const { return _cardSetProblems; }

  const Databases& databases() const { return _databases; }
  Databases& databases() { return _databases; }

  // Those that did not load have no `format`.
  const CheckedFormats& formats() const { return _checked; }
  const CardFormatSet& formatSet() const { return _siteCards->formats(); }
  const cardsets& sets() const { return *_sets; }
  // What a build knows of the site: the formats, and the card sets of the lines that it has read.
  SiteCards& siteCards() const { return *_siteCards; }

  // Null when there is no such card set, or its format did not load.
  const CardFormat* formatOfSet(uint32_t csid) const;
  // None for what is not a card of a card set, and where there is no format to decode it.
  std::optional<int64_t> cardNumberOf(const IdentRecord& record) const;

 private:
  // Loads every format that loads. The first error is a problem.
  void loadFormats(const SitePaths& paths);
  void readCardSets(const std::string& path);

  std::unique_ptr<SiteCards> _siteCards = std::make_unique<SiteCards>();
  CheckedFormats _checked;
  std::unique_ptr<cardsets> _sets = std::make_unique<cardsets>();
  Databases _databases;
  std::vector<std::string> _problems;
  std::map<int64_t, std::string> _cardSetProblems;
};

// Reads an access levels file. Throws Failure (not done) when it is not one, and std::system_error
// when it cannot be read.
void openLevels(const std::string& path, AccessLevelSet& levels);

// Calls `read`, which reads these files, until they are not replaced while it reads. Throws Failure
// (not done) when that takes more than five seconds, as after a replacement that was cut short.
void readOneState(std::span<const std::string> paths, const std::function<void()>& read);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_SITE_H
