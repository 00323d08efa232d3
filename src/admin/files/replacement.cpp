#include "admin/files/replacement.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <sstream>

namespace badgemint::admin {

namespace {

// Beside the versions of the files the private folder holds the journal of a replacement that is
// under way, which is then renamed as the mark that all files are replaced; and a second name of a
// file that is about to be moved over a target.
constexpr char kJournal[] = "journal";
constexpr char kUnfinishedJournal[] = "journal.new";
constexpr char kDone[] = "done";
constexpr char kLink[] = "link";

// The versions of each file; `kept` had the name under which `old` is kept.
constexpr struct {
  const char *fresh, *old, *kept;
} kVersions[] = {{"new.access", "old.access", "kept.access"},
                 {"new.ident", "old.ident", "kept.ident"},
                 {"new.cardsets", "old.cardsets", "kept.cardsets"}};

constexpr char kJournalKeeps[] = "and keeps the old files";

// Other users may look for the journal, and for nothing else.
constexpr mode_t kReplacingMode = 0711;

// As far as this user may. Without the group of the old file no group gets its rights.
void copyOwnerAndMode(const struct stat& old, const Descriptor& file, const std::string& path) {
  const struct stat own = file.status(path);
  mode_t mode = old.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
  const bool isOwned = own.st_uid == old.st_uid && own.st_gid == old.st_gid;
  if (!isOwned && fchown(file.number(), old.st_uid, old.st_gid) != 0 && own.st_gid != old.st_gid &&
      fchown(file.number(), own.st_uid, old.st_gid) != 0)
    mode &= ~mode_t{S_IRWXG};
  throwErrnoUnless(fchmod(file.number(), mode) == 0, path);
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
      throw Refused("{} and {} are not in one folder", targets.front(), target);
  const bool isLocked = flock(_folder.number(), LOCK_EX | LOCK_NB) == 0;
  throwErrnoUnless(isLocked || errno == EWOULDBLOCK, _folder.path());
  if (!isLocked) throw Refused("another build is running in {}", _folder.path());
  const bool isNew = _folder.makeFolder(kPrivateFolder);
  openPrivateFolder();
  if (!isNew) recover(mayFinish);
  // A replacement that was cut short has opened it for others.
  throwErrnoUnless(fchmod(_private->number(), S_IRWXU) == 0, _private->path());
  _mustCleanUp = true;
  for (File& file : _files) {
    file.found = _folder.look(file.name);
    if (file.found && !S_ISREG(file.found->st_mode))
      throw Refused("{} is a link or not a file; {}", _folder.pathOf(file.name),
                    file.mode ? "it cannot be replaced" : "the old file cannot be kept");
  }
}

Replacement::~Replacement() {
  try {
    if (_mustCleanUp) static_cast<void>(cleanUp());
  } catch (const std::exception&) {  // The next build cleans up.
  }
}

Replacement::Files Replacement::filesOf(const PartPaths& targets, bool keep) {
  Files files;
  for (size_t part = 0; part < kSiteParts; ++part)
    files.push_back({.name = splitPath(targets[part]).name,
                     .before = kVersions[part].old,
                     .after = kVersions[part].fresh,
                     .mode = part == kCardSetsPart ? usualMode() : 0600});
  for (size_t part = 0; keep && part < kSiteParts; ++part)
    files.push_back({.name = files[part].name + kKeptSuffix,
                     .before = kVersions[part].kept,
                     .after = kVersions[part].old});
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
  throw Refused("{} is not a private folder of this user; find out who made it, then remove it",
                _folder.pathOf(kPrivateFolder));
}

void Replacement::recover(bool mayFinish) {
  const auto isNewFileLeft = [this](const File& file) {
    return _private->look(file.after).has_value();
  };
  if (_private->look(kJournal)) {
    if (!mayFinish) throw Refused("{}", noteOfCutShort(_folder.path()));
    finishCutShort();
  } else if (_private->look(kDone)) {
    _note = "an earlier build was cut short after it had replaced all files";
  } else if (std::ranges::any_of(targetsOf(_files), isNewFileLeft)) {
    _note = "an earlier build was cut short and changed nothing";
  }
  removeFiles();
}

void Replacement::finishCutShort() {
  try {
    const Files files = readJournal();
    replaceFiles(files);
    _note = "a replacement was cut short; it is finished now:";
    for (const File& file : targetsOf(files)) _note += ' ' + _folder.pathOf(file.name);
  } catch (const std::runtime_error& failure) {
    throw CutShortFailure(
        "a replacement was cut short and cannot be finished: {}; remove the cause and build again, "
        "or put the right ones of the old and new files in {} in place and remove that folder",
        failure.what(), _private->path());
  }
}

bool Replacement::isUnchanged() const {
  return std::ranges::all_of(targetsOf(_files), [this](const File& file) {
    return file.found && _folder.readFile(file.name) == _private->readFile(file.after);
  });
}

void Replacement::replace() {
  for (const File& file : _files) prepare(file);
  // Made before memory may be short.
  const std::exception_ptr cutShort = std::make_exception_ptr(CutShortFailure(
      "the replacement failed and the old files could not be put back: it is cut short, and the "
      "databases may be a mixture of old and new ones; the next build finishes it"));
  try {
    writeJournal();
    replaceFiles(_files);
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

// Links the old file into the private folder. Gives a new file its owner and mode and writes it to
// disk.
void Replacement::prepare(const File& file) const {
  if (file.found) _folder.linkTo(file.name, *_private, file.before);
  const auto before = _private->look(file.before);
  const bool isLinked = !file.found || isSameFile(*file.found, before.value());
  if (!file.mode) return;
  const std::string path = _private->pathOf(file.after);
  const Descriptor fresh = _private->openFile(file.after, O_RDONLY);
  if (file.found)
    copyOwnerAndMode(*file.found, fresh, path);
  else
    throwErrnoUnless(fchmod(fresh.number(), *file.mode) == 0, path);
  throwErrnoUnless(fsync(fresh.number()) == 0, path);
  requireKnown(file, isLinked);
}

// The head, the three targets, whether the old files are kept, the end.
std::string Replacement::journalOf(const Files& files) {
  return fmt::format("badgemint-admin replaces:\n{}\n{}\n{}\n{}\nend", files[kAccessPart].name,
                     files[kIdentPart].name, files[kCardSetsPart].name,
                     files.size() > kSiteParts ? kJournalKeeps : "");
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
  const bool hasNames = std::ranges::none_of(targets, &std::string::empty);
  Files files = hasNames ? filesOf(targets, keeps == kJournalKeeps) : Files(kSiteParts);
  if (journalOf(files) != journal) throw Refused("its journal is invalid");
  return files;
}

void Replacement::replaceFiles(const Files& files) const {
  for (const File& kept : std::span(files).subspan(kSiteParts))
    if (_private->look(kept.after)) put(kept.after, kept.name);
  _folder.sync();  // The names of the old files come before anything is replaced.
  for (const File& target : targetsOf(files)) requireKnown(target);
  for (const File& target : targetsOf(files)) {
    requireKnown(target);
    if (!isSame(target.name, target.after)) put(target.after, target.name);
  }
  _folder.sync();
}

void Replacement::requireKnown(const File& file, bool isLinked) const {
  const bool isKnown = isSame(file.name, file.after) || isSame(file.name, file.before);
  if (!isKnown || !isLinked || !_private->look(file.after))
    throw Refused("{} was replaced by another program meanwhile", _folder.pathOf(file.name));
}

void Replacement::undo() const {
  for (const File& file : _files)
    if (_private->look(file.after) && isSame(file.name, file.after)) put(file.before, file.name);
  _folder.sync();
}

// Whether the file of this name is that version; also when neither is there.
bool Replacement::isSame(const std::string& name, const std::string& version) const {
  const auto found = _folder.look(name);
  const auto file = _private->look(version);
  return found && file ? isSameFile(*found, *file) : !found && !file;
}

// Puts this version in place under the name, or removes the name when there is no such version.
// Moves a second link, so that the version keeps its name in the private folder.
void Replacement::put(const std::string& version, const std::string& name) const {
  if (!_private->look(version)) return _folder.remove(name);
  _private->remove(kLink);
  _private->linkTo(version, *_private, kLink);
  _private->moveTo(kLink, _folder, name);
  _private->remove(kLink);  // Moving a file over itself does nothing.
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
      throw NotDone("{} cannot be removed ({}); remove it", _private->pathOf(name),
                    std::strerror(errno));
  };
  for (const auto& [fresh, old, kept] : kVersions)
    for (const char* const name : {fresh, old, kept}) remove(name);
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
