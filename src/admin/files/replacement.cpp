#include "admin/files/replacement.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <sstream>
#include <system_error>
#include <utility>

namespace badgemint::admin {

namespace {

// What the private folder holds of each target: the file built in a replacement and in a dry run,
// the file to be replaced, and the one that had the name under which that is kept.
enum Version : size_t { kNew, kTried, kOld, kFormerKept };
constexpr std::array kVersions = {kNew, kTried, kOld, kFormerKept};

const std::string& entryOf(Version version, SitePart part) {
  static const std::array<PartNames, kVersions.size()> kEntries = {
      {{"new.access", "new.ident", "new.cardsets"},
       {"tried.access", "tried.ident", "tried.cardsets"},
       {"old.access", "old.ident", "old.cardsets"},
       {"kept.access", "kept.ident", "kept.cardsets"}}};
  return kEntries[version][part];
}

// The journal of a replacement that is under way, then under another name as the mark that all
// files are replaced; and a second name of a file that is about to be moved over a target.
constexpr char kJournal[] = "journal";
constexpr char kUnfinishedJournal[] = "journal.new";
constexpr char kDone[] = "done";
constexpr char kLink[] = "link";

constexpr char kJournalHead[] = "badgemint-admin replaces:";
constexpr char kJournalKeeps[] = "and keeps the old files";
constexpr char kJournalEnd[] = "end";

// Other users may look for the journal, and for nothing else.
constexpr mode_t kReplacingMode = 0711;

// The replacement of three files, of this run or of one that was cut short. Once made, it allocates
// memory only to report a failure, so that it can be undone where memory has run out.
class Transaction {
 public:
  Transaction(const Folder& folder, const Folder& privateFolder, PartNames targets, bool keep)
      : _folder(folder), _private(privateFolder), _targets(std::move(targets)), _keep(keep) {
    for (const SitePart part : kSiteParts) _keptNames[part] = _targets[part] + kKeptSuffix;
  }

  const PartNames& targets() const { return _targets; }
  const PartNames& keptNames() const { return _keptNames; }
  bool keep() const { return _keep; }

  // The names of the old files are on disk before anything is replaced.
  void keepOldFiles() const {
    if (!_keep) return;
    for (const SitePart part : kSiteParts)
      if (_private.look(entryOf(kOld, part))) putInPlace(kOld, part, _keptNames[part]);
    _folder.sync();
  }

  void replaceTargets() const {
    for (const SitePart part : kSiteParts) {
      if (isTarget(kNew, part)) continue;
      if (!isTarget(kOld, part))
        throw Failure(ExitStatus::kRefused, "{} was replaced by another program meanwhile",
                      _folder.pathOf(_targets[part]));
      putInPlace(kNew, part, _targets[part]);
    }
    _folder.sync();
  }

  void undo() const {
    for (const SitePart part : kSiteParts) {
      if (isTarget(kNew, part)) putBack(kOld, part, _targets[part]);
      if (_keep && isFile(kOld, part, _keptNames[part]) && _private.look(entryOf(kOld, part)))
        putBack(kFormerKept, part, _keptNames[part]);
    }
    _folder.sync();
  }

  bool isDone() const {
    return std::ranges::all_of(kSiteParts, [this](SitePart part) { return isTarget(kNew, part); });
  }

  // A target that is neither the old nor the new file, so that nothing can be decided about it.
  std::optional<std::string> unknownTarget() const {
    for (const SitePart part : kSiteParts)
      if (!_private.look(entryOf(kNew, part)) || (!isTarget(kNew, part) && !isTarget(kOld, part)))
        return _folder.pathOf(_targets[part]);
    return std::nullopt;
  }

 private:
  // Whether the file of this name is that version; also when neither is there.
  bool isFile(Version version, SitePart part, const std::string& name) const {
    const auto found = _folder.look(name);
    const auto file = _private.look(entryOf(version, part));
    return found && file ? isSameFile(*found, *file) : !found && !file;
  }
  bool isTarget(Version version, SitePart part) const {
    return isFile(version, part, _targets[part]);
  }

  // A second name of the file is moved, so that it keeps its name in the private folder.
  void putInPlace(Version version, SitePart part, const std::string& name) const {
    _private.remove(kLink);
    _private.linkTo(entryOf(version, part), _private, kLink);
    _private.moveTo(kLink, _folder, name);
    _private.remove(kLink);  // Moving a file over itself does nothing.
  }

  void putBack(Version version, SitePart part, const std::string& name) const {
    if (_private.look(entryOf(version, part))) {
      putInPlace(version, part, name);
    } else {
      _folder.remove(name);
    }
  }

  const Folder& _folder;
  const Folder& _private;
  PartNames _targets, _keptNames;
  bool _keep;
};

void writeJournal(const Transaction& transaction, const Folder& folder, const Folder& place) {
  std::string text = kJournalHead;
  for (const std::string& target : transaction.targets()) text += '\n' + target;
  text += fmt::format("\n{}\n{}", transaction.keep() ? kJournalKeeps : "", kJournalEnd);
  {
    const Descriptor file =
        place.openFile(kUnfinishedJournal, O_WRONLY | O_CREAT | O_TRUNC, S_IRUSR | S_IWUSR);
    writeAll(file, text, place.pathOf(kUnfinishedJournal));
    throwErrnoUnless(fsync(file.number()) == 0, place.pathOf(kUnfinishedJournal));
  }
  place.setMode(kReplacingMode);
  place.sync();   // What the journal is about comes before it.
  folder.sync();  // And so does the private folder itself.
  place.moveTo(kUnfinishedJournal, place, kJournal);
  place.sync();
}

// None when the journal is not one that writeJournal has written.
std::optional<Transaction> readJournal(const Folder& folder, const Folder& place) {
  std::istringstream text(place.readFile(kJournal));
  std::string head, keeps, end;
  PartNames targets;
  std::getline(text, head);
  for (std::string& target : targets) {
    std::getline(text, target);
    if (target.empty() || target.find('/') != std::string::npos) return std::nullopt;
  }
  std::getline(text, keeps);
  std::getline(text, end);
  if (head != kJournalHead || end != kJournalEnd) return std::nullopt;
  return std::optional<Transaction>(std::in_place, folder, place, targets, keeps == kJournalKeeps);
}

// As far as this user may. Without the group of the old file no group gets its rights.
void copyOwnerAndMode(const struct stat& old, const Descriptor& file, const std::string& path) {
  struct stat own;
  throwErrnoUnless(fstat(file.number(), &own) == 0, path);
  mode_t mode = old.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
  const bool isOwned = own.st_uid == old.st_uid && own.st_gid == old.st_gid;
  if (!isOwned && fchown(file.number(), old.st_uid, old.st_gid) != 0 && own.st_gid != old.st_gid &&
      fchown(file.number(), own.st_uid, old.st_gid) != 0)
    mode &= ~mode_t{S_IRWXG};
  throwErrnoUnless(fchmod(file.number(), mode) == 0, path);
}

bool isRegularFile(const std::optional<struct stat>& status) {
  return status && S_ISREG(status->st_mode);
}

}  // namespace

std::string noteOfCutShort(const std::string& folder) {
  struct stat status;
  const std::string journal = folder + '/' + kPrivateFolder + '/' + kJournal;
  if (lstat(journal.c_str(), &status) != 0) return "";
  return fmt::format(
      "a replacement in {} is under way or was cut short: the databases may be a mixture of old "
      "and new ones; badgemint-admin build finishes it",
      folder);
}

Replacement::Replacement(const std::string& folder, PartNames targets, Purpose purpose, bool keep)
    : _folder(Folder::open(folder)), _targets(std::move(targets)), _purpose(purpose), _keep(keep) {
  if (!_folder.lock())
    throw Failure(ExitStatus::kRefused, "another build is running in {}", folder);
  if (_folder.look(kPrivateFolder)) {
    openPrivateFolder();
    recover();
  }
  lookAtTargets();
  const bool isNewFolder = _folder.makeFolder(kPrivateFolder);
  try {
    openPrivateFolder();
  } catch (...) {
    if (isNewFolder) static_cast<void>(_folder.tryRemoveFolder(kPrivateFolder));
    throw;
  }
}

Replacement::~Replacement() {
  try {
    if (!_isCleanedUp) static_cast<void>(cleanUp());
  } catch (const std::exception&) {  // The next build cleans up.
  }
}

// Neither a link nor a folder that another user may have prepared is used.
void Replacement::openPrivateFolder() {
  const auto status = _folder.look(kPrivateFolder);
  if (status && S_ISDIR(status->st_mode) && status->st_uid == geteuid() &&
      (status->st_mode & (S_IRWXG | S_IRWXO) & ~kReplacingMode) == 0) {
    _private = _folder.openFolder(kPrivateFolder);
    if (isSameFile(*status, _private->status())) return;
  }
  throw Failure(ExitStatus::kRefused,
                "{} is not a private folder of this user; find out who made it, then remove it",
                _folder.pathOf(kPrivateFolder));
}

void Replacement::recover() {
  const bool isDryRun = _purpose == Purpose::kDryRun;
  const auto entries = _private->entries();
  const auto has = [&entries](const std::string& name) {
    return std::ranges::find(entries, name) != entries.end();
  };
  bool hasFiles = false;
  for (const SitePart part : kSiteParts)
    for (const Version version : kVersions) hasFiles = hasFiles || has(entryOf(version, part));
  if (has(kJournal)) {
    if (isDryRun)
      throw Failure(ExitStatus::kRefused,
                    "a replacement was cut short; a build without --dry-run finishes it");
    finishCutShort();
  } else if (has(kDone)) {
    _note = "an earlier build was cut short after it had replaced all files";
  } else if (hasFiles) {
    _note = "an earlier build was cut short and changed nothing";
  }
  if (isDryRun) return;
  removeFiles();
  static_cast<void>(_folder.tryRemoveFolder(kPrivateFolder));  // Unless it has other files.
}

void Replacement::finishCutShort() {
  const auto fail = [this](const std::string& reason) {
    throw CutShortFailure(
        ExitStatus::kRefused,
        "a replacement was cut short and cannot be finished: {}; the old and the new files are in "
        "{}: put the right ones in place, then remove that folder",
        reason, _private->path());
  };
  try {
    const auto transaction = readJournal(_folder, *_private);
    if (!transaction) return fail("its journal is invalid");
    if (const auto target = transaction->unknownTarget())
      return fail(*target + " is neither its old nor its new file");
    if (transaction->isDone()) {
      _note = "an earlier build was cut short after it had replaced all files";
      return;
    }
    transaction->keepOldFiles();
    transaction->replaceTargets();
    _note = "a replacement was cut short; it is finished now:";
    for (const std::string& target : transaction->targets()) _note += ' ' + _folder.pathOf(target);
  } catch (const std::system_error& failure) {
    throw CutShortFailure(ExitStatus::kNotDone,
                          "a replacement was cut short and cannot be finished: {}; remove the "
                          "cause, then build again",
                          failure.what());
  }
}

void Replacement::lookAtTargets() {
  for (const SitePart part : kSiteParts) {
    _old[part] = _folder.look(_targets[part]);
    if (_old[part] && !isRegularFile(_old[part]))
      throw Failure(ExitStatus::kRefused, "{} is a link or not a file; it cannot be replaced",
                    targetPath(part));
    const std::string kept = _targets[part] + kKeptSuffix;
    const auto former = _keep && _old[part] ? _folder.look(kept) : std::nullopt;
    if (former && !isRegularFile(former))
      throw Failure(ExitStatus::kRefused, "{} is a link or not a file; the old file cannot be kept",
                    _folder.pathOf(kept));
  }
}

const std::string& Replacement::staged(SitePart part) const {
  return entryOf(_purpose == Purpose::kDryRun ? kTried : kNew, part);
}

std::string Replacement::stagedPath(SitePart part) const {
  return _private->pathOf(staged(part));
}

bool Replacement::isUnchanged() const {
  return std::ranges::all_of(kSiteParts, [this](SitePart part) {
    return hasTarget(part) && _folder.readFile(_targets[part]) == _private->readFile(staged(part));
  });
}

void Replacement::replace(const PartModes& modes) {
  const Transaction transaction(_folder, *_private, _targets, _keep);
  for (const SitePart part : kSiteParts) {
    const std::string& kept = transaction.keptNames()[part];
    if (_keep && _old[part] && _folder.look(kept))
      _folder.linkTo(kept, *_private, entryOf(kFormerKept, part));
    prepare(part, modes[part]);
  }
  const std::exception_ptr cutShort = std::make_exception_ptr(CutShortFailure(
      ExitStatus::kNotDone,  // Made before memory may be short.
      "the replacement failed and the old files could not be put back: it is cut short, and the "
      "databases may be a mixture of old and new ones; the next build finishes it"));
  try {
    writeJournal(transaction, _folder, *_private);
    transaction.keepOldFiles();
    transaction.replaceTargets();
  } catch (...) {
    try {
      transaction.undo();
      _private->remove(kJournal);
      _private->sync();
    } catch (...) {
      _isCleanedUp = true;
      std::rethrow_exception(cutShort);
    }
    throw;
  }
}

// The new file gets its rights and is on disk; the old one gets its second name.
void Replacement::prepare(SitePart part, mode_t mode) {
  const Descriptor file = _private->openFile(staged(part), O_RDONLY);
  if (_old[part]) {
    copyOwnerAndMode(*_old[part], file, stagedPath(part));
    _folder.linkTo(_targets[part], *_private, entryOf(kOld, part));
  } else {
    throwErrnoUnless(fchmod(file.number(), mode) == 0, stagedPath(part));
  }
  throwErrnoUnless(fsync(file.number()) == 0, stagedPath(part));
  const auto now = _folder.look(_targets[part]);
  if (now.has_value() != _old[part].has_value() || (now && !isSameFile(*now, *_old[part])))
    throw Failure(ExitStatus::kRefused, "{} was replaced by another program meanwhile",
                  targetPath(part));
}

// Without the journal nothing has to be finished. The mark that all files are replaced is removed
// last: whatever is found beside it was not cut short.
void Replacement::removeFiles() {
  if (_purpose == Purpose::kReplace && _private->look(kJournal)) {
    _private->moveTo(kJournal, *_private, kDone);
    _private->sync();
  }
  for (const SitePart part : kSiteParts)
    for (const Version version : kVersions)
      if (version == kTried || _purpose == Purpose::kReplace) removeFile(entryOf(version, part));
  if (_purpose == Purpose::kDryRun) return;
  removeFile(kUnfinishedJournal);
  removeFile(kLink);
  if (!_private->look(kDone)) return;
  _private->sync();
  _private->remove(kDone);
}

void Replacement::removeFile(const std::string& name) {
  if (!_private->tryRemove(name))
    throw Failure(ExitStatus::kNotDone, "{} cannot be removed ({}); remove it",
                  _private->pathOf(name), std::strerror(errno));
}

std::vector<std::string> Replacement::cleanUp() {
  _isCleanedUp = true;
  std::vector<std::string> left;
  try {
    removeFiles();
    if (!_folder.tryRemoveFolder(kPrivateFolder)) {
      if (errno != ENOTEMPTY && errno != EEXIST) throwErrno(_private->path());
      if (_purpose == Purpose::kReplace)
        for (const std::string& name : _private->entries())
          left.push_back(
              fmt::format("{} does not belong there; remove it", _private->pathOf(name)));
    }
    _folder.sync();
  } catch (const Failure& failure) {
    left.emplace_back(failure.what());
  } catch (const std::system_error& failure) {
    left.push_back(fmt::format("the private folder of builds was not removed: {}", failure.what()));
  }
  return left;
}

}  // namespace badgemint::admin
