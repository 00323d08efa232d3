// The verb `diff`: what differs between two pairs of databases, holder by holder.
#include <filesystem>
#include <set>

#include "admin/files/replacement.h"
#include "admin/records/changes.h"
#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

struct DiffOptions {
  SitePaths site;                               // The files' names in both folders.
  std::vector<std::string> folders;             // The old one and the new one, or none.
  std::vector<std::string> oldFiles, newFiles;  // Ident and access database, instead of folders.
  bool kept = false;                            // The kept files with those that replaced them.
  bool counts = false;                          // Instead of a line for each change.
  bool json = false, withPins = false;
};

// Formats and card sets are beside the databases, in a folder of their own; those that are not are
// as given.
SitePaths sideOf(const std::vector<std::string>& databases, const SitePaths& given) {
  SitePaths side = given;
  side.ident = databases[0];
  side.access = databases[1];
  const std::string folder = splitPath(side.ident).folder;
  if (folder == ".") return side;
  const auto inFolder = [&](const std::string& name) { return pathIn(folder, name); };
  const auto exists = [&](const auto& name) { return std::filesystem::exists(inFolder(name)); };
  const std::string formats = inFolder(given.formats);
  if (exists(given.formats) && std::ranges::all_of(formatFiles(formats), exists))
    side.formatFolder = folder, side.formats = formats;
  if (exists(given.cardSets)) side.cardSets = inFolder(given.cardSets);
  return side;
}

SitePaths keptSide(const SitePaths& given) {
  SitePaths side = given;
  side.ident += kKeptSuffix;
  side.access += kKeptSuffix;
  if (std::filesystem::exists(given.cardSets + kKeptSuffix)) side.cardSets += kKeptSuffix;
  return side;
}

std::pair<SitePaths, SitePaths> sidesOf(const DiffOptions& options) {
  const SitePaths& site = options.site;
  const auto& folders = options.folders;
  if (options.oldFiles.empty() != options.newFiles.empty() ||
      !folders.empty() + !options.oldFiles.empty() + options.kept != 1)
    throw NotDone(
        "give two folders to compare, or --old IDENT ACCESS and --new IDENT ACCESS, "
        "or --kept");
  if (options.kept) return {keptSide(site), site};
  if (folders.empty()) return {sideOf(options.oldFiles, site), sideOf(options.newFiles, site)};
  const auto sideOfFolder = [&site](const std::string& folder) {
    if (std::filesystem::is_regular_file(folder))
      throw NotDone("{} is not a folder; for files write --old IDENT ACCESS --new IDENT ACCESS",
                    folder);
    return sideOf({pathIn(folder, site.ident), pathIn(folder, site.access)}, site);
  };
  return {sideOfFolder(folders[0]), sideOfFolder(folders[1])};
}

void printCounts(const Changes& changes, bool asJson, Console& console) {
  using enum ChangeKind;
  std::string text;
  JsonObject summary;
  const auto add = [&](const char* name, const auto& list,
                       std::initializer_list<ChangeKind> kinds) {
    JsonObject counts;
    text += name;
    for (const ChangeKind kind : kinds) {
      const size_t count = countOf(kind, list);
      counts.add(nameOf(kind), count);
      text += fmt::format("{} {} {}", kind == kAdded ? ":" : ",", count, nameOf(kind));
    }
    text += '\n';
    summary.add(name, counts);
  };
  add("holders", changes.holders, {kAdded, kRemoved, kChanged});
  add("credentials", changes.credentials,
      {kAdded, kRemoved, kMoved, kDeleted, kRestored, kChanged});
  asJson ? console.printJson(JsonObject().add("summary", summary)) : console.print("{}", text);
}

ExitStatus diff(const DiffOptions& options, Console& console) {
  const auto [oldSide, newSide] = sidesOf(options);
  const Site::Needs needs = {.wholeRecords = ExitStatus::kRefused, .sorted = true};
  std::optional<Site> before, now;
  readOneState(std::vector{oldSide.ident, oldSide.access, newSide.ident, newSide.access},
               [&, &oldSide = oldSide, &newSide = newSide] {  // A build --keep replaces both sides.
                 before.emplace(oldSide, needs);
                 now.emplace(newSide, needs);
               });
  const Changes changes = compare(*before, *now);
  if (changes.empty() && !options.counts) return ExitStatus::kAllWell;
  std::set<std::string> problems(before->problems().begin(), before->problems().end());
  problems.insert(now->problems().begin(), now->problems().end());
  for (const std::string& problem : problems) console.report("{}", problem);
  if (options.counts)
    printCounts(changes, options.json, console);
  else
    printChanges(changes, *before, *now, {.withPins = options.withPins, .json = options.json},
                 console);
  return changes.empty() ? ExitStatus::kAllWell : ExitStatus::kFound;
}

}  // namespace

Run addDiff(Options options) {
  const auto given = std::make_shared<DiffOptions>();
  options.describe("Print what differs between old and new databases",
                   "badgemint-admin diff /backup/monday .");
  options.texts("FOLDERS", "", given->folders,
                "The folder of the old databases and that of the new ones, with the same names", 2);
  options.texts("--old", "IDENT ACCESS", given->oldFiles, "The old databases, instead of a folder",
                2);
  options.texts("--new", "IDENT ACCESS", given->newFiles, "The new databases", 2);
  options.flag("--kept", given->kept, "The files that build --keep has kept are the old ones");
  options.databases(given->site);
  options.flag("--stat", given->counts, "Print counts instead of a line for each change");
  options.flag("--json", given->json, "Print JSON, one object a line");
  options.flag("--with-pins", given->withPins, "Show PINs");
  return [given](Console& console) { return diff(*given, console); };
}

}  // namespace badgemint::admin
