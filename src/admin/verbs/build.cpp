// The verb `build`: replaces a site's databases by proved ones, or leaves them as they are.
#include <fcntl.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <cstdio>
#include <ctime>
#include <memory>
#include <new>
#include <span>

#include "admin/arguments.h"
#include "admin/check/sitecheck.h"
#include "admin/files/replacement.h"
#include "admin/records/changes.h"
#include "admin/records/expected.h"
#include "admin/records/wording.h"
#include "admin/signals.h"
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
  bool changes = false;
  bool quiet = false;
};

constexpr mode_t kDatabaseMode = 0600;  // Without an old file.

// How many of the old holders may lose something.
struct RemovalLimit {
  uint64_t number = 0;
  bool isPercentage = false;

  static RemovalLimit parse(const std::string& text) {
    const bool isPercentage = text.ends_with('%');
    const auto number = numberOf(std::string_view(text).substr(0, text.size() - isPercentage));
    if (!number || (isPercentage && *number > 100))
      throw Failure(ExitStatus::kNotDone, "--max-removed {}: neither a number nor a percentage",
                    text);
    return {*number, isPercentage};
  }
  bool allowsAll() const { return isPercentage && number == 100; }
  bool allows(uint64_t losers, uint64_t holders) const {
    return isPercentage ? losers * 100 <= number * holders : losers <= number;
  }
};

// What a holder of the old databases may lose, and how a message says it.
enum Loss : size_t { kGone, kLostKey, kLostLevel, kLostValidity, kLostPin };
constexpr std::array kLossTexts = {"gone", "without a key they had",
                                   "without an access level they had", "no longer valid",
                                   "without a PIN they had"};
using LossSet = std::bitset<kLossTexts.size()>;

LossSet lossesOf(const Holder& old, const Holder& fresh, uint32_t now) {
  using std::ranges::any_of, std::ranges::count;
  LossSet losses;
  if (!fresh.exists()) return losses.set(kGone);
  for (const IdentRecord& ident : old.credentials) {
    const auto isSame = [&ident](const IdentRecord& other) {
      return other.deleted == 0 && other.cardnumber == ident.cardnumber;
    };
    if (ident.deleted == 0 && !any_of(fresh.credentials, isSame))
      losses.set(isPinEntry(ident) ? kLostPin : kLostKey);
  }
  const auto isValid = [now](const AccessRecord& access) {
    return access.starttime <= now && (access.endtime == 0 || now <= access.endtime);
  };
  if (any_of(old.accesses, isValid) && !any_of(fresh.accesses, isValid)) losses.set(kLostValidity);
  for (const AccessRecord& access : old.accesses) {
    for (const uint16_t level : access.acclevel) {
      const auto hasLevel = [level](const auto& other) { return count(other.acclevel, level) > 0; };
      if (level != 0 && !any_of(fresh.accesses, hasLevel)) losses.set(kLostLevel);
    }
    if (pinText(access, true) != "none" &&
        count(fresh.accesses, access.pincode, &AccessRecord::pincode) == 0)
      losses.set(kLostPin);
  }
  return losses;
}

// How many holders of the old databases lose something, and what.
struct LossCounts {
  size_t holders = 0, losers = 0;
  std::array<size_t, kLossTexts.size()> counts{};

  // "12 gone, 3 without a key they had".
  std::string text() const {
    std::string text;
    for (size_t i = 0; i < counts.size(); ++i)
      if (counts[i] != 0)
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", counts[i], kLossTexts[i]);
    return text;
  }
};

// Both are in the order of unique IDs.
LossCounts countLosses(const Databases& old, const Databases& fresh) {
  const auto now = static_cast<uint32_t>(std::time(nullptr));
  LossCounts result;
  old.forEachHolder([&](const Holder& holder) {
    const LossSet losses = lossesOf(holder, fresh.holder(holder.uniqid), now);
    ++result.holders;
    if (losses.any()) ++result.losers;
    for (size_t i = 0; i < losses.size(); ++i) result.counts[i] += losses[i] ? 1 : 0;
  });
  return result;
}

// In the order of SitePart.
PartNames outputsOf(const SitePaths& site) {
  return {site.access, site.ident, site.cardSets};
}

// The three have to be in one folder: one folder is locked, one folder is written to.
std::string folderOf(const PartNames& outputs) {
  std::string folder = splitPath(outputs.front()).folder;
  for (const std::string& name : outputs)
    if (!isSameFile(Folder::open(folder).status(), Folder::open(splitPath(name).folder).status()))
      throw Failure(ExitStatus::kRefused, "{} and {} are not in one folder", outputs.front(), name);
  return folder;
}

void checkOutputs(const BuildOptions& options, const BuildInputs& inputs) {
  std::vector<std::string> outputs;
  for (const std::string& name : outputsOf(options.site)) {
    outputs.push_back(name);
    if (options.keep) outputs.push_back(name + kKeptSuffix);
  }
  if (!options.log.empty()) outputs.push_back(options.log);
  requireDistinctFiles(inputs.names(), outputs);
}

using LogFile = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// The log of a build. It contains PINs: only the owner may read it, and it is written through the
// descriptor that was checked, whatever gets its name meanwhile. Throws Failure (refused) when the
// file has other names, and when it is in the folder that builds clean up; std::system_error.
LogFile openLog(const std::string& path, const Folder& privateFolder) {
  const PathParts parts = splitPath(path);
  const Folder folder = Folder::open(parts.folder);
  if (isSameFile(folder.status(), privateFolder.status()))
    throw Failure(ExitStatus::kRefused, "{} is in the folder that builds clean up", path);
  Descriptor file =
      folder.openFile(parts.name, O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK, S_IRUSR | S_IWUSR);
  struct stat status;
  throwErrnoUnless(fstat(file.number(), &status) == 0, path);
  if (!S_ISREG(status.st_mode) || status.st_nlink > 1)
    throw Failure(ExitStatus::kRefused, "{} is a link or not a file; it cannot be the log", path);
  throwErrnoUnless(fchmod(file.number(), S_IRUSR | S_IWUSR) == 0, path);
  throwErrnoUnless(ftruncate(file.number(), 0) == 0, path);
  LogFile log(fdopen(file.number(), "a"), std::fclose);
  throwErrnoUnless(log != nullptr, path);
  static_cast<void>(file.release());
  return log;
}

// One run of the verb.
class Build {
 public:
  // `isReplaced` becomes true when the files are replaced, whatever fails after that.
  Build(const BuildOptions& options, Console& console, bool& isReplaced)
      : _options(options),
        _console(console),
        _isReplaced(isReplaced),
        _limit(RemovalLimit::parse(options.maxRemoved)),
        _inputs(options.site) {}

  ExitStatus run() {
    const mode_t userMask = umask(0);
    umask(userMask);
    const std::string folder = folderOf(outputsOf(_options.site));
    if (const auto note = noteOfCutShort(folder); _options.dryRun && !note.empty())
      throw Failure(ExitStatus::kRefused, "{}", note);
    PartNames targets = outputsOf(_options.site);
    for (std::string& target : targets) target = splitPath(target).name;
    Replacement replacement(folder, targets, _options.keep);
    if (!replacement.note().empty()) _console.reportText(replacement.note());
    checkOutputs(_options, _inputs);  // A replacement that was cut short had given files two names.
    checkFiles();
    buildFiles(replacement);
    readDatabases(replacement);
    const Changes changes = compare(_old, _fresh);
    if (_options.changes) printDifferences(changes, replacement);
    requireFewLosses();
    const bool isUnchanged = replacement.isUnchanged();
    const std::string summary = _options.quiet ? "" : summaryOf(changes, isUnchanged);
    throwIfInterrupted();
    if (!_options.dryRun && !isUnchanged) {
      const BlockedSignals blocked;
      replacement.replace({kDatabaseMode, kDatabaseMode, 0666 & ~userMask});
      _isReplaced = true;
      _console.keepStatus();
    }
    _console.output() << summary;
    for (std::string& problem : replacement.cleanUp()) _problems.push_back(std::move(problem));
    for (const std::string& problem : _problems) _console.reportText(problem);
    if (!_options.quiet) reportReadableFiles();
    return _hasWarnings || !_problems.empty() ? ExitStatus::kFound : ExitStatus::kAllWell;
  }

 private:
  void checkFiles() {
    Findings findings;
    const SiteSummary summary = checkSite({.cards = _options.site.cards,
                                           .formats = _options.site.formats,
                                           .levels = {},
                                           .allowEmpty = _options.allowEmpty},
                                          findings);
    const bool isSilent = _options.quiet && findings.errors() + findings.warnings() == 0;
    const ExitStatus status =
        isSilent ? ExitStatus::kAllWell : report(findings, summary, _options.strict, _console);
    if (status == ExitStatus::kRefused)
      throw Failure(ExitStatus::kRefused, "refused because of these findings");
    _hasWarnings = status == ExitStatus::kFound;
    throwIfInterrupted();
  }

  // Builds the new files and proves that they are what the cards file says.
  void buildFiles(const Replacement& replacement) {
    const SitePaths& site = _options.site;
    _staged = {site.cards, site.formats, replacement.stagedPath(kIdentPart),
               replacement.stagedPath(kAccessPart), replacement.stagedPath(kCardSetsPart)};
    const int32_t result = runLibrary(replacement);
    _inputs.requireUnchanged();
    throwIfInterrupted();
    if (result < 0)
      throw Failure(ExitStatus::kNotDone, "the build ended with the result {}", result);
    _fresh = prove(_staged);
    _fresh.sort();
    _inputs.requireUnchanged();
    throwIfInterrupted();
  }

  int32_t runLibrary(const Replacement& replacement) {
    const SiteFiles files = {_staged.cards.c_str(), _staged.ident.c_str(), _staged.access.c_str(),
                             _staged.formats.c_str(), _staged.cardSets.c_str()};
    for (const std::string& path : {_staged.cards, _staged.formats, _staged.access, _staged.ident,
                                    _staged.cardSets, _options.log})
      if (path.size() > kMaxJoinedPath)  // The library cuts longer ones.
        throw Failure(ExitStatus::kNotDone, "{}: the path is too long", path);
    EntryRun run("BadgeMint", "", 0);
    if (_options.log.empty()) return buildSite(run, files);
    LogFile log = openLog(_options.log, replacement.privateFolder());
    run.logTo(log.get());
    const int32_t result = run.run(_options.log.c_str(), _options.logLevel,
                                   [&files](EntryRun& frame) { return buildSite(frame, files); });
    const bool isWritten = std::ferror(log.get()) == 0;
    if (std::fclose(log.release()) != 0 || !isWritten)
      _problems.push_back(
          fmt::format("the log {} is incomplete: it could not be written", _options.log));
    return result;
  }

  void readDatabases(const Replacement& replacement) {
    if (_fresh.idents.empty() && !_options.allowEmpty)
      throw Failure(ExitStatus::kRefused,
                    "the cards file has no credential (--allow-empty builds all the same)");
    readOld(replacement);
  }

  void requireFewLosses() const {
    const LossCounts losses = countLosses(_old, _fresh);
    if (!_limit.allows(losses.losers, losses.holders))
      throw Failure(ExitStatus::kRefused,
                    "{} of {} holders would lose something ({}), and --max-removed is {}",
                    losses.losers, losses.holders, losses.text(), _options.maxRemoved);
  }

  // With a limit of all holders it does not matter what the old databases are.
  void readOld(const Replacement& replacement) {
    const std::string ident = replacement.targetPath(kIdentPart);
    const std::string access = replacement.targetPath(kAccessPart);
    if (replacement.hasTarget(kIdentPart)) _old.readIdents(ident);
    if (replacement.hasTarget(kAccessPart)) _old.readAccesses(access);
    try {
      requirePlausibleRecords(_old, ident, access);
    } catch (const Failure& failure) {
      if (!_limit.allowsAll())
        throw Failure(ExitStatus::kRefused, "{} (--max-removed 100% replaces it all the same)",
                      failure.what());
      _old = {};
    }
    _old.sort();
  }

  void reportReadableFiles() const {
    const SitePaths& site = _options.site;
    for (const std::string& path :
         {site.cards, site.access, site.ident, site.access + kKeptSuffix, site.ident + kKeptSuffix})
      reportIfReadableByOthers(path, _console);
  }

  // What `diff` prints of the old and the new databases.
  void printDifferences(const Changes& changes, const Replacement& replacement) {
    SitePaths before = _options.site, now = _options.site;
    before.ident = before.access = now.ident = now.access = "";
    before.cardSets = replacement.hasTarget(kCardSetsPart) ? before.cardSets : "";
    now.cardSets = _staged.cardSets;
    printChanges(changes, Site(before, Site::Formats::kOptional, _console),
                 Site(now, Site::Formats::kOptional, _console), {}, _console);
  }

  std::string summaryOf(const Changes& changes, bool isUnchanged) const {
    const SitePaths& site = _options.site;
    const auto count = [&changes](auto... fates) {
      return (changes.countCredentials(fates) + ...);
    };
    using enum ChangeKind;
    const char* const outcome = isUnchanged       ? "are up to date; nothing was replaced"
                                : _options.dryRun ? "would be replaced"
                                                  : "are replaced";
    return fmt::format(
        "{}, {} and {} {}\n"
        "credentials: {} added, {} removed, {} changed\n"
        "holders: {} added, {} removed, {} changed\n",
        site.access, site.ident, site.cardSets, outcome, count(kAdded), count(kRemoved),
        count(kMoved, kDeleted, kRestored, kChanged), changes.countHolders(kAdded),
        changes.countHolders(kRemoved), changes.countHolders(kChanged));
  }

  const BuildOptions& _options;
  Console& _console;
  bool& _isReplaced;
  RemovalLimit _limit;
  BuildInputs _inputs;
  SitePaths _staged;
  Databases _old, _fresh;
  std::vector<std::string> _problems;  // Reported at the end, with status kFound.
  bool _hasWarnings = false;
};

// Every end says what became of the files.
ExitStatus build(const BuildOptions& options, Console& console) {
  deferTerminationSignals();
  bool isReplaced = false;
  const auto outcome = [&isReplaced] {
    return isReplaced ? "all files are replaced" : "nothing was changed";
  };
  const auto statusOr = [&isReplaced](ExitStatus failed) {
    return isReplaced ? ExitStatus::kFound : failed;
  };
  try {
    const ExitStatus status = Build(options, console, isReplaced).run();
    if (isInterrupted()) console.report("interrupted: {}", outcome());
    return status;
  } catch (const CutShortFailure&) {
    throw;
  } catch (const std::bad_alloc&) {
    console.reportText(isReplaced ? "not enough memory: all files are replaced"
                                  : "not enough memory: nothing was changed");
    return statusOr(ExitStatus::kNotDone);
  } catch (const std::exception& error) {
    console.report("{}: {}", isInterrupted() ? "interrupted" : error.what(), outcome());
    const auto* const failure = dynamic_cast<const Failure*>(&error);
    return statusOr(failure != nullptr ? failure->status() : ExitStatus::kNotDone);
  }
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
  options.file("--log", given->log, "Write the log of the build here; it contains PINs");
  options.number("--level", "N", given->logLevel, "The highest level that is logged");
  options.text("--max-removed", "N or N%", given->maxRemoved,
               "How many holders may be gone or lose something at most");
  options.flag("--strict", given->strict, "Warnings refuse, too");
  options.flag("--allow-empty", given->allowEmpty, "Also without a single credential");
  options.flag("--dry-run", given->dryRun, "Do all but replace, and print what would change");
  options.flag("--keep", given->keep, "Keep the replaced files under .old");
  options.flag("--changes", given->changes, "Print each change, as diff does");
  options.flag("--quiet", given->quiet, "Print nothing when there is nothing to report");
  return [given](Console& console) { return build(*given, console); };
}

}  // namespace badgemint::admin
