#include "admin/files/replacement.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <utility>

namespace badgemint::admin {

namespace {

// Beside the versions of the files the private folder holds the journal of a replacement that is
// under way, which is then renamed as the mark that all files are replaced; and a second name of a
// file that is about to be moved over a target.
constexpr char kJournal[] = "journal";
constexpr char kUnfinishedJournal[] = "journal.new";
constexpr char kDone[] = "done";
constexpr char kLink[] = "link";

constexpr char kJournalKeeps[] = "and keeps the old files";

// Other users may look for the journal, and for nothing else.
constexpr mode_t kReplacingMode = 0711;

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

void requireRegular(const std::optional<struct stat>& status, const std::string& path,
                    const char* purpose) {
  if (status && !S_ISREG(status->st_mode))
    throw Failure(ExitStatus::kRefused, "{} is a link or not a file; {}", path, purpose);
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

// With this done, the destructor runs also when the rest of the construction fails.
Replacement::Replacement(const PartPaths& targets, bool keep)
    : _folder(Folder::open(splitPath(targets.front()).folder)), _files(filesOf(targets, keep)) {}

Replacement::Replacement(const PartPaths& targets, bool keep, bool mayFinish)
    : Replacement(targets, keep) {
  // One folder is locked, one folder is written to.
  for (const std::string& target : targets)
    if (!isSameFile(_folder.status(), Folder::open(splitPath(target).folder).status()))
      throw Failure(ExitStatus::kRefused, "{} and {} are not in one folder", targets.front(),
                    target);
  const bool isLocked = flock(_folder.number(), LOCK_EX | LOCK_NB) == 0;
  throwErrnoUnless(isLocked || errno == EWOULDBLOCK, _folder.path());
  if (!isLocked)
    throw Failure(ExitStatus::kRefused, "another build is running in {}", _folder.path());
  const bool isNew = _folder.makeFolder(kPrivateFolder);
  openPrivateFolder();
  if (!isNew) recover(mayFinish);
  _mustCleanUp = true;
  lookAtTargets();
}

Replacement::~Replacement() {
  try {
    if (_mustCleanUp) static_cast<void>(cleanUp());
  } catch (const std::exception&) {  // The next build cleans up.
  }
}

Replacement::Files Replacement::filesOf(const PartPaths& targets, bool keep) {
  constexpr std::array kEntries = {"access", "ident", "cardsets"};
  const mode_t mask = umask(0);
  umask(mask);
  Files files;
  for (size_t part = 0; part < kSiteParts; ++part) {
    const std::string target = splitPath(targets[part]).name;
    files[part] = {.target = target,
                   .kept = keep ? target + kKeptSuffix : "",
                   .fresh = fmt::format("new.{}", kEntries[part]),
                   .old = fmt::format("old.{}", kEntries[part]),
                   .formerKept = fmt::format("kept.{}", kEntries[part]),
                   .mode = part == kCardSetsPart ? 0666 & ~mask : 0600};
  }
  return files;
}

// Neither a link nor a folder that another user may have prepared is used.
void Replacement::openPrivateFolder() {
  const auto status = _folder.look(kPrivateFolder);
  if (status && S_ISDIR(status->st_mode) && status->st_uid == geteuid() &&
      (status->st_mode & (S_IRWXG | S_IRWXO) & ~kReplacingMode) == 0) {
    _private.emplace(_folder.openFolder(kPrivateFolder));
    if (isSameFile(*status, _private->status())) return;
  }
  throw Failure(ExitStatus::kRefused,
                "{} is not a private folder of this user; find out who made it, then remove it",
                _folder.pathOf(kPrivateFolder));
}

void Replacement::recover(bool mayFinish) {
  const auto isNewFileLeft = [this](const File& file) {
    return _private->look(file.fresh).has_value();
  };
  if (_private->look(kJournal)) {
    if (!mayFinish) throw Failure(ExitStatus::kRefused, noteOfCutShort(_folder.path()));
    finishCutShort();
  } else if (_private->look(kDone)) {
    _note = "an earlier build was cut short after it had replaced all files";
  } else if (std::ranges::any_of(_files, isNewFileLeft)) {
    _note = "an earlier build was cut short and changed nothing";
  }
  removeFiles();
}

void Replacement::finishCutShort() {
  try {
    const Files files = readJournal();
    keepOldFiles(files);
    replaceTargets(files);
    _note = "a replacement was cut short; it is finished now:";
    for (const File& file : files) _note += ' ' + _folder.pathOf(file.target);
  } catch (const Failure& failure) {
    throw CutShortFailure(
        ExitStatus::kRefused,
        "a replacement was cut short and cannot be finished: {}; the old and the new files are in "
        "{}: put the right ones in place, then remove that folder",
        failure.what(), _private->path());
  } catch (const std::system_error& failure) {
    throw CutShortFailure(ExitStatus::kNotDone,
                          "a replacement was cut short and cannot be finished: {}; remove the "
                          "cause, then build again",
                          failure.what());
  }
}

void Replacement::lookAtTargets() {
  for (File& file : _files) {
    file.replaced = _folder.look(file.target);
    requireRegular(file.replaced, _folder.pathOf(file.target), "it cannot be replaced");
    if (file.replaced && !file.kept.empty())
      requireRegular(_folder.look(file.kept), _folder.pathOf(file.kept),
                     "the old file cannot be kept");
  }
}

bool Replacement::isUnchanged() const {
  return std::ranges::all_of(_files, [this](const File& file) {
    return file.replaced && _folder.readFile(file.target) == _private->readFile(file.fresh);
  });
}

void Replacement::replace() {
  for (const File& file : _files) prepare(file);
  const std::exception_ptr cutShort = std::make_exception_ptr(CutShortFailure(
      ExitStatus::kNotDone,  // Made before memory may be short.
      "the replacement failed and the old files could not be put back: it is cut short, and the "
      "databases may be a mixture of old and new ones; the next build finishes it"));
  try {
    writeJournal();
    keepOldFiles(_files);
    replaceTargets(_files);
  } catch (...) {
    try {
      undo();
      _private->remove(kJournal);
      _private->sync();
    } catch (...) {
      _mustCleanUp = false;
      std::rethrow_exception(cutShort);
    }
    throw;
  }
}

// The new file gets its rights and is on disk; the old ones get their second names.
void Replacement::prepare(const File& file) const {
  const std::string path = _private->pathOf(file.fresh);
  const Descriptor fresh = _private->openFile(file.fresh, O_RDONLY);
  if (file.replaced) {
    copyOwnerAndMode(*file.replaced, fresh, path);
    _folder.linkTo(file.target, *_private, file.old);
    if (!file.kept.empty() && _folder.look(file.kept))
      _folder.linkTo(file.kept, *_private, file.formerKept);
  } else {
    throwErrnoUnless(fchmod(fresh.number(), file.mode) == 0, path);
  }
  throwErrnoUnless(fsync(fresh.number()) == 0, path);
  const auto old = _private->look(file.old);
  requireKnownTarget(file, !file.replaced || isSameFile(*file.replaced, old.value()));
}

// The head, the three targets, whether the old files are kept, the end.
std::string Replacement::journalOf(const Files& files) {
  const auto& [access, ident, cardSets] = files;
  return fmt::format("badgemint-admin replaces:\n{}\n{}\n{}\n{}\nend", access.target, ident.target,
                     cardSets.target, access.kept.empty() ? "" : kJournalKeeps);
}

void Replacement::writeJournal() const {
  {
    const std::string path = _private->pathOf(kUnfinishedJournal);
    const Descriptor file =
        _private->openFile(kUnfinishedJournal, O_WRONLY | O_CREAT | O_TRUNC, S_IRUSR | S_IWUSR);
    writeAll(file, journalOf(_files), path);
    throwErrnoUnless(fsync(file.number()) == 0, path);
  }
  throwErrnoUnless(fchmod(_private->number(), kReplacingMode) == 0, _private->path());
  _private->sync();  // What the journal is about comes before it.
  _folder.sync();    // And so does the private folder itself.
  _private->moveTo(kUnfinishedJournal, *_private, kJournal);
  _private->sync();
}

// Throws Failure when writeJournal has not written it.
Replacement::Files Replacement::readJournal() const {
  const std::string journal = _private->readFile(kJournal);
  std::istringstream text(journal);
  std::string head, keeps;
  PartPaths targets;
  std::getline(text, head);
  for (std::string& target : targets) std::getline(text, target);
  std::getline(text, keeps);
  Files files = filesOf(targets, keeps == kJournalKeeps);
  if (journalOf(files) != journal) throw Failure(ExitStatus::kRefused, "its journal is invalid");
  return files;
}

// The names of the old files are on disk before anything is replaced.
void Replacement::keepOldFiles(const Files& files) const {
  for (const File& file : files)
    if (!file.kept.empty() && _private->look(file.old)) putInPlace(file.old, file.kept);
  _folder.sync();
}

void Replacement::replaceTargets(const Files& files) const {
  for (const File& file : files) requireKnownTarget(file, _private->look(file.fresh).has_value());
  for (const File& file : files) {
    requireKnownTarget(file, true);
    if (!isSame(file.target, file.fresh)) putInPlace(file.fresh, file.target);
  }
  _folder.sync();
}

void Replacement::requireKnownTarget(const File& file, bool areVersionsRight) const {
  const bool isKnown = isSame(file.target, file.fresh) || isSame(file.target, file.old);
  if (!isKnown || !areVersionsRight)
    throw Failure(ExitStatus::kRefused, "{} was replaced by another program meanwhile",
                  _folder.pathOf(file.target));
}

void Replacement::undo() const {
  for (const File& file : _files) {
    if (isSame(file.target, file.fresh)) putBack(file.old, file.target);
    if (!file.kept.empty() && _private->look(file.old) && isSame(file.kept, file.old))
      putBack(file.formerKept, file.kept);
  }
  _folder.sync();
}

// Whether the file of this name is that version; also when neither is there.
bool Replacement::isSame(const std::string& name, const std::string& version) const {
  const auto found = _folder.look(name);
  const auto file = _private->look(version);
  return found && file ? isSameFile(*found, *file) : !found && !file;
}

// A second name of the file is moved, so that it keeps its name in the private folder.
void Replacement::putInPlace(const std::string& version, const std::string& name) const {
  _private->remove(kLink);
  _private->linkTo(version, *_private, kLink);
  _private->moveTo(kLink, _folder, name);
  _private->remove(kLink);  // Moving a file over itself does nothing.
}

void Replacement::putBack(const std::string& version, const std::string& name) const {
  if (_private->look(version)) {
    putInPlace(version, name);
  } else {
    _folder.remove(name);
  }
}

// Without the journal nothing has to be finished. The mark that all files are replaced is removed
// last: whatever is found beside it was not cut short.
void Replacement::removeFiles() const {
  if (_private->look(kJournal)) {
    _private->moveTo(kJournal, *_private, kDone);
    _private->sync();
  }
  const auto remove = [this](const std::string& name) {
    if (!_private->tryRemove(name))
      throw Failure(ExitStatus::kNotDone, "{} cannot be removed ({}); remove it",
                    _private->pathOf(name), std::strerror(errno));
  };
  for (const File& file : _files)
    for (const std::string& name : {file.fresh, file.old, file.formerKept}) remove(name);
  remove(kUnfinishedJournal);
  remove(kLink);
  if (!_private->look(kDone)) return;
  _private->sync();
  _private->remove(kDone);
}

std::vector<std::string> Replacement::cleanUp() {
  _mustCleanUp = false;
  std::vector<std::string> left;
  try {
    removeFiles();
    if (!_folder.tryRemove(kPrivateFolder, AT_REMOVEDIR)) {
      throwErrnoUnless(errno == ENOTEMPTY, _private->path());
      for (const auto& entry : std::filesystem::directory_iterator(_private->path()))
        left.push_back(fmt::format("{} does not belong there; remove it",
                                   _private->pathOf(entry.path().filename())));
    }
    _folder.sync();
  } catch (const std::runtime_error& failure) {
    left.push_back(fmt::format("the private folder of builds was not removed: {}", failure.what()));
  }
  return left;
}

}  // namespace badgemint::admin
