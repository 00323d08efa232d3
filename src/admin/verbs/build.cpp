// The verb `build`: replaces a site's databases by proved ones, or leaves them as they are.
#include <fcntl.h>

#include <charconv>
#include <memory>

#include "admin/check/report.h"
#include "admin/files/buildfiles.h"
#include "admin/files/process.h"
#include "admin/files/replacement.h"
#include "admin/records/changes.h"
#include "admin/records/expected.h"
#include "admin/verbs/verb.h"
#include "support/textutil.h"
#include "tools/build.h"

namespace badgemint::admin {

namespace {

struct BuildOptions {
  SitePaths site;
  std::string log;  // Empty for none.
  uint32_t logLevel = 25;
  std::string maxRemoved = "50%";  // Of the old holders: a number, or a percentage with its sign.
  bool strict = false;
  bool allowEmpty = false;
  bool dryRun = false;
  bool keep = false;
};

constexpr mode_t kDatabaseMode = 0600;  // Without an old file.

[[noreturn]] void refuse(const std::string& why) {
  throw Failure(ExitStatus::kRefused, why + ": nothing was changed");
}

// How many of the old holders may be gone.
struct RemovalLimit {
  uint64_t number = 0;
  bool isPercentage = false;

  static RemovalLimit parse(const std::string& text) {
    RemovalLimit limit;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, limit.number);
    limit.isPercentage = rest != end && *rest == '%';
    if (error != std::errc{} || rest + (limit.isPercentage ? 1 : 0) != end ||
        (limit.isPercentage && limit.number > 100))
      throw Failure(ExitStatus::kNotDone,
                    "--max-removed " + text + ": neither a number nor a percentage");
    return limit;
  }
  bool allowsAll() const { return isPercentage && number == 100; }
  bool allows(uint64_t removed, uint64_t before) const {
    return isPercentage ? removed * 100 <= number * before : removed <= number;
  }
};

struct stat statusOf(const std::string& path) {
  struct stat status;
  throwUnless(stat(path.c_str(), &status) == 0, path);
  return status;
}

// The three targets have to stand in one folder: one place is locked, one place is written to.
std::string folderOf(const SitePaths& site) {
  std::string folder = splitPath(site.access).folder;
  for (const std::string& name : {site.ident, site.cardSets})
    if (!isSameFile(statusOf(folder), statusOf(splitPath(name).folder)))
      refuse(site.access + " and " + name + " do not stand in one folder");
  return folder;
}

PartNames targetsOf(const SitePaths& site) {
  return {splitPath(site.access).name, splitPath(site.ident).name, splitPath(site.cardSets).name};
}

void demandFilesApart(const BuildOptions& options, const BuildInputs& inputs) {
  const SitePaths& site = options.site;
  std::vector<std::string> outputs = {site.access, site.ident, site.cardSets};
  if (options.keep)
    for (const std::string& name : {site.access, site.ident, site.cardSets})
      outputs.push_back(name + ".old");
  if (!options.log.empty()) outputs.push_back(options.log);
  if (splitPath(outputs.back()).folder.ends_with(kPrivatePlace))
    refuse(outputs.back() + " stands where builds clean up");
  demandApart(inputs.names(), outputs);
}

// Returns whether there were warnings.
bool checkFiles(const BuildOptions& options, Console& console) {
  Findings findings;
  const SiteSummary summary =
      checkSite({options.site.cards, options.site.formats, {}, false}, findings);
  const ExitStatus status = report(findings, summary, options.strict, console);
  if (status == ExitStatus::kRefused) refuse("refused for what was found");
  return status == ExitStatus::kFound;
}

// The log holds PINs. What was prepared under its name is not written to, but a log of before is.
void prepareLog(const std::string& name) {
  const PathParts parts = splitPath(name);
  const Folder folder = Folder::open(parts.folder);
  const auto found = folder.look(parts.name);
  if (found && (!S_ISREG(found->st_mode) || found->st_nlink > 1))
    refuse(name + " is a link, or no file: it cannot be the log");
  const Descriptor file =
      folder.openFile(parts.name, O_WRONLY | O_CREAT | O_NONBLOCK, S_IRUSR | S_IWUSR);
  throwUnless(fchmod(file.number(), S_IRUSR | S_IWUSR) == 0, name);
}

// The library cuts longer paths.
void demandShortPaths(const SiteFiles& files, const std::string& log) {
  for (const std::string& path :
       {std::string(files.cards), std::string(files.formats), std::string(files.accessDb),
        std::string(files.identDb), std::string(files.cardSets), log})
    if (path.size() > kMaxJoinedPath) throw Failure(ExitStatus::kNotDone, path + ": too long");
}

// The build itself, with its log when there is one.
void buildStaged(const BuildOptions& options, const BuildInputs& inputs,
                 const ProvedFiles& staged) {
  const SiteFiles files = {staged.cards.c_str(), staged.ident.c_str(), staged.access.c_str(),
                           staged.formats.c_str(), staged.cardSets.c_str()};
  demandShortPaths(files, options.log);
  EntryRun run("BadgeMint", "", 0);
  int32_t result = 0;
  if (options.log.empty()) {
    result = buildSite(run, files);
  } else {
    prepareLog(options.log);
    const bool namesStream = options.log == "stdout" || options.log == "stderr";
    const std::string log = (namesStream ? "./" : "") + options.log;  // A file all the same.
    result = run.run(log.c_str(), options.logLevel,
                     [&files](EntryRun& frame) { return buildSite(frame, files); });
  }
  inputs.demandUnchanged();
  if (result < 0)
    throw Failure(ExitStatus::kNotDone, "the build ended with the result " +
                                            std::to_string(result) + ": nothing was changed");
}

// The old databases. With a limit of all holders it does not matter what they are.
Databases readOld(const Replacement& replacement, const RemovalLimit& limit) {
  Databases old;
  const std::string ident = replacement.targetPath(kIdentPart);
  const std::string access = replacement.targetPath(kAccessPart);
  if (replacement.isThere(kIdentPart)) old.readIdents(ident);
  if (replacement.isThere(kAccessPart)) old.readAccesses(access);
  try {
    requirePlausibleRecords(old, ident, access);
  } catch (const Failure& failure) {
    if (!limit.allowsAll())
      refuse(std::string(failure.what()) + " (--max-removed 100% replaces it all the same)");
    old = {};
  }
  old.sort();
  return old;
}

void guard(const BuildOptions& options, const RemovalLimit& limit, const Databases& old,
           const Databases& fresh, const Changes& changes) {
  if (fresh.idents.empty() && !options.allowEmpty)
    refuse("the cards file has no credential (--allow-empty)");
  const size_t before = old.countHolders();
  const size_t removed = changes.countHolders(true, false);
  if (!limit.allows(removed, before))
    refuse(std::to_string(removed) + " of " + std::to_string(before) +
           " holders would be gone, and --max-removed is " + options.maxRemoved);
}

void sayChanges(const Changes& changes, Console& console) {
  const auto fates = [&changes](auto... fate) { return (changes.countCredentials(fate) + ...); };
  using enum CredentialChange::Kind;
  console.output() << "credentials: " << fates(kAdded) << " added, " << fates(kRemoved)
                   << " removed, " << fates(kMoved, kDeleted, kRestored, kChanged) << " changed\n"
                   << "holders: " << changes.countHolders(false, true) << " added, "
                   << changes.countHolders(true, false) << " removed, "
                   << changes.countHolders(true, true) << " changed\n";
}

ExitStatus build(const BuildOptions& options, Console& console) {
  const SitePaths& site = options.site;
  const RemovalLimit limit = RemovalLimit::parse(options.maxRemoved);
  const BuildInputs inputs(site);
  demandFilesApart(options, inputs);

  const HeldSignals signals;
  const OwnerOnlyFiles ownerOnly;
  const mode_t cardSetsMode = 0666 & ~ownerOnly.userMask();
  Replacement replacement(
      folderOf(site), targetsOf(site),
      options.dryRun ? Replacement::Purpose::kTry : Replacement::Purpose::kReplace);
  if (!replacement.note().empty()) console.reportText(replacement.note());
  const bool hasWarnings = checkFiles(options, console);
  signals.endIfAsked();

  const ProvedFiles staged = {site.cards, site.formats, replacement.stagedPath(kIdentPart),
                              replacement.stagedPath(kAccessPart),
                              replacement.stagedPath(kCardSetsPart)};
  buildStaged(options, inputs, staged);
  signals.endIfAsked();
  prove(staged);
  inputs.demandUnchanged();
  signals.endIfAsked();

  const Databases old = readOld(replacement, limit);
  Databases fresh;
  fresh.readIdents(staged.ident);
  fresh.readAccesses(staged.access);
  fresh.sort();
  const Changes changes = compare(old, fresh);
  guard(options, limit, old, fresh, changes);
  signals.endIfAsked();

  std::vector<std::string> troubles;
  if (!options.dryRun) {
    troubles = replacement.replace({kDatabaseMode, kDatabaseMode, cardSetsMode}, options.keep);
    console.keepStatus();
  }
  console.output() << site.access << ", " << site.ident << " and " << site.cardSets
                   << (options.dryRun ? " would be replaced\n" : " are replaced\n");
  sayChanges(changes, console);
  for (const std::string& trouble : troubles) console.reportText(trouble);
  return hasWarnings || !troubles.empty() ? ExitStatus::kFound : ExitStatus::kAllWell;
}

}  // namespace

Run addBuild(Options options) {
  const auto given = std::make_shared<BuildOptions>();
  options.describe("Replace a site's databases by proved ones, or leave them",
                   "badgemint-admin build --keep --log build.log");
  options.cardsAndFormats(given->site);
  options.file("--ident", given->site.ident, "The ident database");
  options.file("--access", given->site.access, "The access database");
  options.file("--cardsets", given->site.cardSets, "The card sets file");
  options.file("--log", given->log, "Write the log of the build here; it holds PINs");
  options.number("--level", "N", given->logLevel, "The highest level that is logged");
  options.text("--max-removed", "N or N%", given->maxRemoved,
               "How many holders may be gone at most");
  options.flag("--strict", given->strict, "Warnings refuse, too");
  options.flag("--allow-empty", given->allowEmpty, "Also without a single credential");
  options.flag("--dry-run", given->dryRun, "Do all but replace, and say what would change");
  options.flag("--keep", given->keep, "Keep the replaced files under .old");
  return [given](Console& console) { return build(*given, console); };
}

}  // namespace badgemint::admin
