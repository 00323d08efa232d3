// The verb `build`: replaces a site's databases with checked ones, or leaves them as they are.
#include <fcntl.h>

#include <cstdio>
#include <ctime>
#include <new>
#include <set>

#include "admin/files/replacement.h"
#include "admin/records/changes.h"
#include "admin/records/expected.h"
#include "admin/verbs/verb.h"
#include "tools/build.h"

namespace badgemint::admin {

namespace {

struct BuildOptions {
  SitePaths site;
  std::string log;  // Empty for none.
  std::string logLevel = "25";
  std::string maxRemoved = "50%";  // Of the old holders: a number, or a percentage with its sign.
  bool strict = false, allowEmpty = false, dryRun = false, keep = false;
  bool changes = false, quiet = false;
};

// How many of the old holders may lose something.
uint64_t mostLosers(const std::string& maxRemoved, uint64_t holders) {
  const bool isPercentage = maxRemoved.ends_with('%');
  const auto number =
      numberOf(std::string_view(maxRemoved).substr(0, maxRemoved.size() - isPercentage));
  if (!number || (isPercentage && *number > 100))
    throw NotDone("--max-removed {}: neither a number nor a percentage", maxRemoved);
  return isPercentage ? *number * holders / 100 : *number;
}

// What a holder of the old databases loses, in words; empty for nothing.
std::set<std::string_view> lossesOf(const Holder& old, const Holder& fresh, uint32_t now) {
  using std::ranges::any_of, std::ranges::count;
  if (!fresh.exists()) return {"gone"};
  std::set<std::string_view> losses;
  for (const IdentRecord& ident : old.credentials) {
    const auto isSame = [&ident](const IdentRecord& other) {
      return other.deleted == 0 && other.cardnumber == ident.cardnumber;
    };
    if (ident.deleted == 0 && !any_of(fresh.credentials, isSame))
      losses.insert(isPinEntry(ident) ? "without a PIN they had" : "without a key they had");
  }
  const auto isValid = [now](const AccessRecord& access) {
    return access.starttime <= now && (access.endtime == 0 || now <= access.endtime);
  };
  if (any_of(old.accesses, isValid) && !any_of(fresh.accesses, isValid))
    losses.insert("no longer valid");
  for (const AccessRecord& access : old.accesses) {
    for (const uint16_t level : access.acclevel) {
      const auto hasLevel = [level](const auto& other) { return count(other.acclevel, level) > 0; };
      if (level != 0 && !any_of(fresh.accesses, hasLevel))
        losses.insert("without an access level they had");
    }
    if (pinText(access, true) != "none" &&
        count(fresh.accesses, access.pincode, &AccessRecord::pincode) == 0)
      losses.insert("without a PIN they had");
  }
  return losses;
}

using LogFile = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// The log of a build. It contains PINs: only the owner may read it, and it is written through the
// descriptor that was checked, whatever gets its name meanwhile. Throws Failure (refused) when the
// file has other names, and when it is in the folder that builds clean up; std::system_error.
LogFile openLog(const std::string& path, const Folder& privateFolder) {
  const PathParts parts = splitPath(path);
  const Folder folder = Folder::open(parts.folder);
  if (isSameFile(folder.status(), privateFolder.status()))
    throw Refused("{} is in the folder that builds clean up", path);
  Descriptor file =
      folder.openFile(parts.name, O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK, S_IRUSR | S_IWUSR);
  const struct stat status = file.status(path);
  if (!S_ISREG(status.st_mode) || status.st_nlink > 1)
    throw Refused("{} is a link or not a file; it cannot be the log", path);
  throwErrnoUnless(fchmod(file.number(), S_IRUSR | S_IWUSR) == 0, path);
  throwErrnoUnless(ftruncate(file.number(), 0) == 0, path);
  LogFile log(fdopen(file.release(), "a"), std::fclose);
  throwErrnoUnless(log != nullptr, path);
  return log;
}

// One run of the verb.
class Build {
 public:
  Build(const BuildOptions& options, Console& console) : _options(options), _console(console) {}

  // Every end reports what became of the files.
  ExitStatus run() {
    deferTerminationSignals();
    try {
      const ExitStatus status = build();
      _replacement.reset();
      if (isInterrupted()) _console.report("interrupted: {}", outcome());
      return status;
    } catch (const CutShortFailure&) {
      throw;
    } catch (const std::bad_alloc&) {
      _console.reportText(_isReplaced ? "not enough memory: all files are replaced"
                                      : "not enough memory: nothing was changed");
    } catch (const std::exception& error) {
      _console.report("{}: {}", isInterrupted() ? "interrupted" : error.what(), outcome());
      const auto* const failure = dynamic_cast<const Failure*>(&error);
      if (!_isReplaced && failure != nullptr) return failure->status();
    }
    return _isReplaced ? ExitStatus::kFound : ExitStatus::kNotDone;
  }

 private:
  const char* outcome() const {
    return _isReplaced ? "all files are replaced" : "nothing was changed";
  }

  ExitStatus build() {
    static_cast<void>(mostLosers(_options.maxRemoved, 0));  // What is not a limit is refused first.
    _logLevel = parseNumber("--level", _options.logLevel, UINT32_MAX);
    rememberInputs();
    lock();
    checkOutputs();  // A replacement that was cut short had given files two names.
    checkFiles();
    buildFiles();
    readOld();
    const Changes changes = compare(*_old, *_fresh);
    if (_options.changes) printChanges(changes, *_old, *_fresh, {}, _console);
    requireFewLosses();
    replace(changes);
    return finish();
  }

  void lock() {
    _replacement.emplace(PartPaths{_site.access, _site.ident, _site.cardSets}, _options.keep,
                         !_options.dryRun);
    if (!_replacement->note().empty()) _console.reportText(_replacement->note());
  }

  void replace(const Changes& changes) {
    const bool isUnchanged = _replacement->isUnchanged();
    const std::string summary = _options.quiet ? "" : summaryOf(changes, isUnchanged);
    throwIfInterrupted();
    if (!_options.dryRun && !isUnchanged) {
      const BlockedSignals blocked;
      _replacement->replace();
      _isReplaced = true;
      _console.keepStatus();
    }
    _console.output() << summary;
  }

  ExitStatus finish() {
    for (std::string& problem : _replacement->cleanUp()) _problems.push_back(std::move(problem));
    for (const std::string& problem : _problems) _console.reportText(problem);
    const bool isWell = !_hasWarnings && _problems.empty();
    if (!_options.quiet || !isWell)
      reportReadableByOthers({_site.cards, _site.access, _site.ident, _site.access + kKeptSuffix,
                              _site.ident + kKeptSuffix},
                             _console);
    return isWell ? ExitStatus::kAllWell : ExitStatus::kFound;
  }

  void rememberInputs() {
    _inputs = formatFiles(_site.formats);
    _inputs.insert(_inputs.end(), {_site.formats, _site.cards});
    for (const std::string& name : _inputs) requireRegularFile(name);
    _inputStates = statesOf(_inputs);
  }

  void requireUnchangedInputs() const {
    const FileStates states = statesOf(_inputs);
    for (size_t i = 0; i < states.size(); ++i)
      if (states[i] != _inputStates[i]) throw Refused("{} changed during the build", _inputs[i]);
    throwIfInterrupted();
  }

  void checkOutputs() const {
    std::vector<std::string> outputs = {_site.access, _site.ident, _site.cardSets};
    if (_options.keep)
      for (size_t part = 0; part < kSiteParts; ++part)
        outputs.push_back(outputs[part] + kKeptSuffix);
    if (!_options.log.empty()) outputs.push_back(_options.log);
    requireDistinctFiles(_inputs, outputs);
  }

  void checkFiles() {
    Findings findings;
    const SiteCheckOptions files = {
        .cards = _site.cards, .formats = _site.formats, .allowEmpty = _options.allowEmpty};
    const SiteSummary summary = checkSite(files, findings);
    const bool isSilent = _options.quiet && findings.errors() + findings.warnings() == 0;
    const ExitStatus status =
        isSilent ? ExitStatus::kAllWell : report(findings, summary, _options.strict, _console);
    if (status == ExitStatus::kRefused) throw Refused("refused because of these findings");
    _hasWarnings = status == ExitStatus::kFound;
    throwIfInterrupted();
  }

  // Builds the new files and compares them with the cards file.
  void buildFiles() {
    _staged = {_site.cards, _site.formats, _replacement->stagedPath(kIdentPart),
               _replacement->stagedPath(kAccessPart), _replacement->stagedPath(kCardSetsPart)};
    const int32_t result = runLibrary();
    requireUnchangedInputs();
    if (result < 0) throw NotDone("the build ended with result {} (see badgemint(1))", result);
    _fresh.emplace(prove(_staged));
    requireUnchangedInputs();
    if (_fresh->databases().idents.empty() && !_options.allowEmpty)
      throw Refused("the cards file has no credential (--allow-empty builds all the same)");
  }

  int32_t runLibrary() {
    const SiteFiles files = {_staged.cards.c_str(), _staged.ident.c_str(), _staged.access.c_str(),
                             _staged.formats.c_str(), _staged.cardSets.c_str()};
    for (const std::string& path : {_staged.cards, _staged.formats, _staged.access, _staged.ident,
                                    _staged.cardSets, _options.log})
      if (path.size() > kMaxJoinedPath)  // The library cuts longer ones.
        throw NotDone("{}: the path is too long", path);
    EntryRun run("BadgeMint", "", 0);
    if (_options.log.empty()) return buildSite(run, files);
    LogFile log = openLog(_options.log, _replacement->privateFolder());
    run.logTo(log.get());
    const int32_t result = run.run(_options.log.c_str(), _logLevel,
                                   [&files](EntryRun& frame) { return buildSite(frame, files); });
    const bool isWritten = std::ferror(log.get()) == 0;
    if (std::fclose(log.release()) != 0 || !isWritten)
      _problems.push_back(
          fmt::format("the log {} is incomplete: it could not be written", _options.log));
    return result;
  }

  // With a limit of all holders it does not matter what the old databases are.
  void readOld() {
    SitePaths paths = _site;
    if (!_replacement->hasTarget(kIdentPart)) paths.ident = "";
    if (!_replacement->hasTarget(kAccessPart)) paths.access = "";
    if (!_replacement->hasTarget(kCardSetsPart)) paths.cardSets = "";
    _old.emplace(paths, Site::Needs{.sorted = true}, _options.changes ? &_console : nullptr);
    const std::string problem = whyImpossible(_old->databases(), _site);
    if (!problem.empty() && _options.maxRemoved != "100%")
      throw Refused("{} (--max-removed 100% replaces it all the same)", problem);
    if (!problem.empty()) _old->databases() = {};
  }

  void requireFewLosses() const {
    const auto now = static_cast<uint32_t>(std::time(nullptr));
    size_t holders = 0, losers = 0;
    std::map<std::string_view, size_t> counts;
    _old->databases().forEachHolder([&](const Holder& holder) {
      const auto losses = lossesOf(holder, _fresh->databases().holder(holder.uniqid), now);
      ++holders;
      losers += losses.empty() ? 0 : 1;
      for (const std::string_view loss : losses) ++counts[loss];
    });
    if (losers <= mostLosers(_options.maxRemoved, holders)) return;
    std::string texts;
    for (const auto& [loss, count] : counts) texts += fmt::format(", {} {}", count, loss);
    throw Refused("{} of {} holders would lose something ({}), and --max-removed is {}", losers,
                  holders, texts.erase(0, 2), _options.maxRemoved);
  }

  std::string summaryOf(const Changes& changes, bool isUnchanged) const {
    using enum ChangeKind;
    const auto& [holders, credentials] = changes;
    const size_t added = countOf(kAdded, credentials), removed = countOf(kRemoved, credentials);
    const char* const result = isUnchanged       ? "are up to date; nothing was replaced"
                               : _options.dryRun ? "would be replaced"
                                                 : "are replaced";
    return fmt::format(
        "{}, {} and {} {}\n"
        "credentials: {} added, {} removed, {} changed\n"
        "holders: {} added, {} removed, {} changed\n",
        printable(_site.access), printable(_site.ident), printable(_site.cardSets), result, added,
        removed, credentials.size() - added - removed, countOf(kAdded, holders),
        countOf(kRemoved, holders), countOf(kChanged, holders));
  }

  const BuildOptions& _options;
  const SitePaths& _site = _options.site;
  Console& _console;
  uint32_t _logLevel = 0;
  std::vector<std::string> _inputs;
  FileStates _inputStates;  // Before the build.
  std::optional<Replacement> _replacement;
  bool _isReplaced = false;  // Whatever fails after that.
  SitePaths _staged;
  std::optional<Site> _old, _fresh;
  std::vector<std::string> _problems;  // Reported at the end, with status kFound.
  bool _hasWarnings = false;
};

}  // namespace

Run addBuild(Options options) {
  const auto given = std::make_shared<BuildOptions>();
  options.describe("Replace the databases of a site with new, checked ones",
                   "badgemint-admin build --keep --log build.log");
  options.file("--cards", given->site.cards, "The cards file");
  options.databases(given->site);
  options.file("--log", given->log, "Write the log of the build here; it contains PINs");
  options.text("--level", "N", given->logLevel, "The highest level that is logged");
  options.text("--max-removed", "N or N%", given->maxRemoved,
               "How many of the old holders may lose something");
  options.flag("--strict", given->strict, "Warnings end the build, too");
  options.flag("--allow-empty", given->allowEmpty, "Accept a cards file without a credential");
  options.flag("--dry-run", given->dryRun, "Check, build and compare, but replace nothing");
  options.flag("--keep", given->keep, "Keep the replaced files, with .old added to their names");
  options.flag("--changes", given->changes, "Print each change, as diff does");
  options.flag("--quiet", given->quiet, "Print nothing when there is nothing to report");
  return [given](Console& console) { return Build(*given, console).run(); };
}

}  // namespace badgemint::admin
