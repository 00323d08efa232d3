// The verb `diff`: what differs between two pairs of databases, holder by holder.
#include <memory>

#include "admin/records/changes.h"
#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

struct DiffOptions {
  SitePaths site;                               // The databases' names in both folders.
  std::vector<std::string> folders;             // The old one and the new one, or none.
  std::vector<std::string> oldFiles, newFiles;  // Ident and access database, instead of folders.
  bool counts = false;                          // Instead of a line for each change.
  bool withPins = false;
};

void requireTwoSides(const DiffOptions& options) {
  const bool hasOld = !options.oldFiles.empty(), hasNew = !options.newFiles.empty();
  const bool byFolders = options.folders.size() == 2 && !hasOld && !hasNew;
  const bool byFiles = options.folders.empty() && hasOld && hasNew;
  if (!byFolders && !byFiles)
    throw Failure(ExitStatus::kNotDone,
                  "give two folders to compare, or --old IDENT ACCESS and --new IDENT ACCESS");
}

// The databases of one side: in its folder, or as an option names them.
Databases readSide(const std::vector<std::string>& folders, size_t side,
                   const std::vector<std::string>& files, const DiffOptions& options,
                   Console& console) {
  SitePaths paths = options.site;
  paths.formats = paths.cardSets = "";
  paths.ident = files.empty() ? folders.at(side) + '/' + paths.ident : files.at(0);
  paths.access = files.empty() ? folders.at(side) + '/' + paths.access : files.at(1);
  Site site(paths, Site::Formats::kOptional, console);
  requireWholeRecords(site.databases(), paths.ident, paths.access);
  site.databases().sort();
  return std::move(site.databases());
}

void printCounts(const Changes& changes, Console& console) {
  using enum CredentialChange::Kind;
  console.print("holders: {} added, {} removed, {} changed\n", changes.countHolders(false, true),
                changes.countHolders(true, false), changes.countHolders(true, true));
  console.print(
      "credentials: {} added, {} removed, {} moved, {} deleted, {} restored, {} changed\n",
      changes.countCredentials(kAdded), changes.countCredentials(kRemoved),
      changes.countCredentials(kMoved), changes.countCredentials(kDeleted),
      changes.countCredentials(kRestored), changes.countCredentials(kChanged));
}

ExitStatus diff(const DiffOptions& options, Console& console) {
  requireTwoSides(options);
  const Databases before = readSide(options.folders, 0, options.oldFiles, options, console);
  const Databases now = readSide(options.folders, 1, options.newFiles, options, console);
  const Changes changes = compare(before, now);
  if (options.counts) {
    printCounts(changes, console);
  } else if (!changes.empty()) {
    SitePaths cards = options.site;
    cards.ident = cards.access = "";
    const Site site(cards, Site::Formats::kOptional, console);
    printChanges(changes, site, site, options.withPins, console);
  }
  return changes.empty() ? ExitStatus::kAllWell : ExitStatus::kFound;
}

}  // namespace

Run addDiff(Options options) {
  const auto given = std::make_shared<DiffOptions>();
  options.describe("Print what differs between old and new databases",
                   "badgemint-admin diff /backup/monday .");
  options.filePair("FOLDERS", "OLD NEW", given->folders,
                   "The folder of the old databases and that of the new ones");
  options.filePair("--old", "IDENT ACCESS", given->oldFiles,
                   "The old databases, instead of a folder");
  options.filePair("--new", "IDENT ACCESS", given->newFiles, "The new databases");
  options.file("--ident", given->site.ident, "The ident database in both folders");
  options.file("--access", given->site.access, "The access database in both folders");
  options.formatsAndCardSets(given->site);
  options.flag("--stat", given->counts, "Print counts instead of a line for each change");
  options.flag("--with-pins", given->withPins, "Show PINs");
  return [given](Console& console) { return diff(*given, console); };
}

}  // namespace badgemint::admin
