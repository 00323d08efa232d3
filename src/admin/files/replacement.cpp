#include "admin/files/replacement.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <sstream>
#include <utility>

#include "admin/console.h"

namespace badgemint::admin {

namespace {

// The entries of the private place: the files by what they are and which part, the journal, and the
// name under which a link waits to be moved over a target.
constexpr std::array<const char*, kSiteParts.size()> kSuffixes = {".access", ".ident", ".cardsets"};
constexpr char kNew[] = "new";
constexpr char kOld[] = "old";
constexpr char kTried[] = "tried";
constexpr char kJournal[] = "journal";
constexpr char kUnfinishedJournal[] = "journal.new";
constexpr char kMover[] = "mover";

constexpr char kJournalHead[] = "badgemint-admin replaces:";
constexpr char kJournalKeeps[] = "and keeps the old files";
constexpr char kJournalEnd[] = "end";

std::string entryOf(const char* kind, SitePart part) {
  return std::string(kind) + kSuffixes[part];
}

// One replacement, of this run or of one that was cut short.
struct Exchange {
  const Folder& folder;
  const Folder& place;
  PartNames targets;
  bool keep = false;

  bool targetIs(const char* kind, SitePart part) const {
    const auto target = folder.look(targets[part]);
    const auto file = place.look(entryOf(kind, part));
    return target && file ? isSameFile(*target, *file) : kind == kOld && !target && !file;
  }

  // A link of its own is moved, so that the file keeps its name in the private place.
  void moveIn(const char* kind, SitePart part, const std::string& name) const {
    place.remove(kMover);
    place.linkTo(entryOf(kind, part), place, kMover);
    place.moveTo(kMover, folder, name);
    place.remove(kMover);  // Moving a file over itself does nothing.
  }

  void finish() const {
    for (const SitePart part : kSiteParts) {
      if (targetIs(kNew, part)) continue;
      if (!targetIs(kOld, part))
        throw Failure(ExitStatus::kRefused,
                      folder.pathOf(targets[part]) + " was replaced by somebody else meanwhile");
      moveIn(kNew, part, targets[part]);
    }
    folder.sync();
  }

  void undo() const {
    for (const SitePart part : kSiteParts) {
      if (!targetIs(kNew, part)) continue;
      if (place.look(entryOf(kOld, part))) {
        moveIn(kOld, part, targets[part]);
      } else {
        folder.remove(targets[part]);
      }
    }
    folder.sync();
  }

  void keepOld() const {
    for (const SitePart part : kSiteParts)
      if (keep && place.look(entryOf(kOld, part))) moveIn(kOld, part, targets[part] + ".old");
  }

  // Which target is neither the old nor the new file; empty for none.
  std::string stranger() const {
    for (const SitePart part : kSiteParts)
      if (!place.look(entryOf(kNew, part)) || (!targetIs(kNew, part) && !targetIs(kOld, part)))
        return folder.pathOf(targets[part]);
    return "";
  }
};

void writeJournal(const Exchange& exchange) {
  std::string text = kJournalHead;
  for (const std::string& target : exchange.targets) text += '\n' + target;
  text.append("\n").append(exchange.keep ? kJournalKeeps : "").append("\n").append(kJournalEnd);
  const Folder& place = exchange.place;
  {
    const Descriptor file =
        place.openFile(kUnfinishedJournal, O_WRONLY | O_CREAT | O_TRUNC, S_IRUSR | S_IWUSR);
    const auto size = static_cast<ssize_t>(text.size());
    const ssize_t written = write(file.number(), text.data(), text.size());
    if (written >= 0 && written != size) errno = ENOSPC;
    throwUnless(written == size && fsync(file.number()) == 0, place.pathOf(kUnfinishedJournal));
  }
  place.sync();  // What the journal speaks of comes before it.
  place.moveTo(kUnfinishedJournal, place, kJournal);
  place.sync();
  exchange.folder.sync();
}

std::string contentOf(const Folder& folder, const char* name) {
  const Descriptor file = folder.openFile(name, O_RDONLY);
  std::string text;
  char block[4096];
  ssize_t got = 0;
  while ((got = read(file.number(), block, sizeof block)) > 0)
    text.append(block, static_cast<size_t>(got));
  throwUnless(got == 0, folder.pathOf(name));
  return text;
}

// False when the journal is not one that writeJournal has written.
bool readJournal(Exchange& exchange) {
  std::istringstream text(contentOf(exchange.place, kJournal));
  std::string head, keeps, end;
  std::getline(text, head);
  for (std::string& target : exchange.targets) {
    std::getline(text, target);
    if (target.empty() || target.find('/') != std::string::npos) return false;
  }
  std::getline(text, keeps);
  std::getline(text, end);
  exchange.keep = keeps == kJournalKeeps;
  return head == kJournalHead && end == kJournalEnd;
}

[[noreturn]] void leaveAll(const Exchange& exchange, const std::string& why) {
  throw Failure(ExitStatus::kRefused, "a replacement was cut short and cannot be finished: " + why +
                                          "; nothing is touched. Old and new files are in " +
                                          exchange.place.path() +
                                          ": put the right ones in place, then remove that folder");
}

// Puts the old files back after `failure`.
void takeBack(const Exchange& exchange, const std::string& failure) {
  try {
    exchange.undo();
    exchange.place.remove(kJournal);
    exchange.place.sync();
  } catch (const std::exception& failedToo) {
    throw Failure(ExitStatus::kNotDone,
                  failure + "; the old files could not be put back either (" + failedToo.what() +
                      "): the replacement is cut short, and the next build finishes it");
  }
}

// As far as this user may. Without the group of the old file no group gets its rights.
void giveOwner(const Descriptor& file, const struct stat& old, const std::string& path) {
  struct stat own;
  throwUnless(fstat(file.number(), &own) == 0, path);
  mode_t mode = old.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
  const bool isOwned = own.st_uid == old.st_uid && own.st_gid == old.st_gid;
  if (!isOwned && fchown(file.number(), old.st_uid, old.st_gid) != 0 && own.st_gid != old.st_gid &&
      fchown(file.number(), own.st_uid, old.st_gid) != 0)
    mode &= ~mode_t{S_IRWXG};
  throwUnless(fchmod(file.number(), mode) == 0, path);
}

}  // namespace

std::string noteOfCutShort(const std::string& folder) {
  const std::string place = folder + '/' + kPrivatePlace;
  struct stat status;
  if (lstat((place + '/' + kJournal).c_str(), &status) != 0 &&
      (errno != EACCES || lstat(place.c_str(), &status) != 0))
    return "";
  return "a replacement in " + folder +
         " is under way or was cut short: the databases may be old and new ones; "
         "badgemint-admin build finishes it";
}

Replacement::Replacement(const std::string& folder, PartNames targets, Purpose purpose)
    : _folder(Folder::open(folder)), _targets(std::move(targets)), _purpose(purpose) {
  if (!_folder.lock()) throw Failure(ExitStatus::kRefused, "another build is at work in " + folder);
  if (_folder.look(kPrivatePlace)) {
    openPlace();
    recover();
  }
  lookAtTargets();
  const bool isNewPlace = _folder.makeFolder(kPrivatePlace);
  try {
    openPlace();
  } catch (...) {
    if (isNewPlace) static_cast<void>(_folder.tryRemoveFolder(kPrivatePlace));
    throw;
  }
}

Replacement::~Replacement() {
  try {
    if (!_cutShort) clean();
  } catch (const std::exception&) {  // The next run cleans.
  }
}

// Neither a link nor a folder that somebody else has prepared is gone into.
void Replacement::openPlace() {
  const auto status = _folder.look(kPrivatePlace);
  if (status && S_ISDIR(status->st_mode) && status->st_uid == geteuid() &&
      (status->st_mode & (S_IRWXG | S_IRWXO)) == 0) {
    _place = _folder.openFolder(kPrivatePlace);
    if (isSameFile(*status, _place->status())) return;
  }
  throw Failure(ExitStatus::kRefused, _folder.pathOf(kPrivatePlace) +
                                          " is no private folder of this user: see who made it, "
                                          "then remove it");
}

void Replacement::recover() {
  const bool tries = _purpose == Purpose::kTry;
  if (!_place->look(kJournal)) {
    _note = "a build was cut short before it replaced anything; ";
    _note += tries ? "the next one removes its files" : "its files are removed";
  } else if (tries) {
    _note = "a replacement was cut short; the next build without --dry-run finishes it";
  } else {
    finishCutShort();
  }
  if (!tries) clean();
}

void Replacement::finishCutShort() {
  Exchange exchange{.folder = _folder, .place = *_place, .targets = {}};
  if (!readJournal(exchange)) leaveAll(exchange, "its journal cannot be read");
  if (const std::string name = exchange.stranger(); !name.empty())
    leaveAll(exchange, name + " is neither its old nor its new file");
  exchange.finish();
  exchange.keepOld();
  _note = "a replacement was cut short; it is finished now:";
  for (const std::string& target : exchange.targets) _note += ' ' + _folder.pathOf(target);
}

void Replacement::lookAtTargets() {
  for (const SitePart part : kSiteParts) {
    _old[part] = _folder.look(_targets[part]);
    if (_old[part] && !S_ISREG(_old[part]->st_mode))
      throw Failure(ExitStatus::kRefused,
                    targetPath(part) + " is a link, or no file: it cannot be replaced");
  }
}

std::string Replacement::staged(SitePart part) const {
  return entryOf(_purpose == Purpose::kTry ? kTried : kNew, part);
}

std::string Replacement::stagedPath(SitePart part) const {
  return _place->pathOf(staged(part));
}

std::vector<std::string> Replacement::replace(const PartModes& modes, bool keep) {
  for (const SitePart part : kSiteParts) prepare(part, modes[part]);
  const Exchange exchange{.folder = _folder, .place = *_place, .targets = _targets, .keep = keep};
  try {
    writeJournal(exchange);
    exchange.finish();
  } catch (const std::exception& failed) {
    _cutShort = true;
    takeBack(exchange, failed.what());
    _cutShort = false;
    throw;
  }
  std::vector<std::string> troubles;
  const auto attempt = [&troubles](const char* what, const auto& action) {
    try {
      action();
    } catch (const std::exception& failed) {
      troubles.push_back(std::string(what) + failed.what());
    }
  };
  attempt("an old file is not kept: ", [&] { exchange.keepOld(); });
  attempt("files are left for the next build to remove: ", [this] { clean(); });
  return troubles;
}

// The new file gets its rights and is on disk; the old one gets its second name.
void Replacement::prepare(SitePart part, mode_t mode) {
  const Descriptor file = _place->openFile(staged(part), O_RDONLY);
  if (_old[part]) {
    giveOwner(file, *_old[part], stagedPath(part));
    _folder.linkTo(_targets[part], *_place, entryOf(kOld, part));
  } else {
    throwUnless(fchmod(file.number(), mode) == 0, stagedPath(part));
  }
  throwUnless(fsync(file.number()) == 0, stagedPath(part));
  const auto now = _folder.look(_targets[part]);
  if (now.has_value() != _old[part].has_value() || (now && !isSameFile(*now, *_old[part])))
    throw Failure(ExitStatus::kRefused,
                  targetPath(part) + " was replaced by somebody else meanwhile");
}

void Replacement::clean() {
  if (_purpose == Purpose::kReplace) {
    _place->remove(kJournal);
    _place->sync();  // Without the journal the rest is nothing that anybody needs.
    for (const SitePart part : kSiteParts)
      for (const char* const kind : {kNew, kOld}) _place->remove(entryOf(kind, part));
    _place->remove(kUnfinishedJournal);
    _place->remove(kMover);
  }
  for (const SitePart part : kSiteParts) _place->remove(entryOf(kTried, part));
  throwUnless(_folder.tryRemoveFolder(kPrivatePlace), _place->path());
  _folder.sync();
}

}  // namespace badgemint::admin
