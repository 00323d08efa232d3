// The verb `diff`: what differs between two pairs of databases, holder by holder.
#include <algorithm>
#include <memory>

#include "admin/records/changes.h"
#include "admin/records/site.h"
#include "admin/records/wording.h"
#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

struct DiffOptions {
  // Formats and card sets to show card numbers with; the databases' names in both folders.
  SitePaths site;
  std::vector<std::string> folders;             // The old one and the new one, or none.
  std::vector<std::string> oldFiles, newFiles;  // Ident and access database, in place of folders.
  bool counts = false;                          // Instead of a line a change.
  bool withPins = false;
};

struct DatabasePair {
  std::string ident, access;
};

// The pair of one side: of its folder, or as an option names it.
DatabasePair pairOf(const DiffOptions& options, size_t side) {
  const std::vector<std::string>& files = side == 0 ? options.oldFiles : options.newFiles;
  if (!files.empty()) return {files.at(0), files.at(1)};
  const std::string folder = options.folders.at(side) + '/';
  return {folder + options.site.ident, folder + options.site.access};
}

void demandTwoSides(const DiffOptions& options) {
  const bool byFolders = options.folders.size() == 2;
  const bool noFiles = options.oldFiles.empty() && options.newFiles.empty();
  const bool byFiles = !options.oldFiles.empty() && !options.newFiles.empty();
  if ((byFolders && noFiles) || (options.folders.empty() && byFiles)) return;
  throw Failure(ExitStatus::kNotDone,
                "two folders are compared, or --old IDENT ACCESS with --new IDENT ACCESS");
}

Databases readPair(const DatabasePair& names, Console& console) {
  tellOfCutShort({names.ident, names.access}, console);
  Databases databases;
  databases.readIdents(names.ident);
  databases.readAccesses(names.access);
  demandWhole(databases, names.ident, names.access);
  databases.sort();
  return databases;
}

// Writes a line for each change, all of one holder together.
class ChangesWriter {
 public:
  ChangesWriter(const Site& site, bool withPins, std::ostream& output)
      : _site(site), _withPins(withPins), _output(output) {}

  void write(const Changes& changes) {
    auto credential = changes.credentials.begin();
    const auto writeCredentialsBelow = [&](uint64_t uniqid) {
      for (; credential != changes.credentials.end() && credential->uniqid() < uniqid; ++credential)
        write(*credential);
    };
    for (const HolderChange& holder : changes.holders) {
      writeCredentialsBelow(holder.uniqid());
      write(holder);
    }
    writeCredentialsBelow(UINT64_MAX);
  }

 private:
  void write(const HolderChange& change) {
    _output << "holder " << change.uniqid() << ": ";
    if (change.before.empty() || change.now.empty()) {
      _output << (change.before.empty() ? "added\n" : "removed\n");
      return;
    }
    _output << "changed: ";
    const char* separator = "";
    if (change.before.size() != change.now.size()) {
      _output << "access records: " << change.before.size() << " -> " << change.now.size();
      separator = ", ";
    }
    for (size_t i = 0; i < std::min(change.before.size(), change.now.size()); ++i)
      for (const AccessField& field : accessFields()) {
        if (field.valueOf(change.before[i]) == field.valueOf(change.now[i])) continue;
        _output << separator << field.name;
        writeValues(field, change.before[i], change.now[i]);
        separator = ", ";
      }
    _output << '\n';
  }

  void writeValues(const AccessField& field, const AccessRecord& before, const AccessRecord& now) {
    if (field.kind == AccessField::Kind::kPin && !_withPins) return;
    _output << ": " << valueText(field, before, _withPins) << " -> "
            << valueText(field, now, _withPins);
  }

  void write(const CredentialChange& change) {
    _output << "holder " << change.uniqid() << ": ";
    const bool isHiddenPin =
        change.fate == CredentialFate::kChanged && !_withPins && !change.isOtherwiseCoded();
    _output << (isHiddenPin ? "PIN changed" : textOf(change));
    writeMarks(change);
    _output << '\n';
  }

  std::string textOf(const CredentialChange& change) const {
    using enum CredentialFate;
    std::string before = change.before == nullptr ? "" : words(*change.before);
    switch (change.fate) {
      case kAdded:
        return words(*change.now) + " added";
      case kRemoved:
        return before + " removed";
      case kMoved:
        return before + " moved to holder " + std::to_string(change.now->uniqid) +
               (change.isOtherwiseCoded() ? " as " + words(*change.now) : "");
      case kChanged:
        return before + " -> " + words(*change.now);
      default:
        return before;
    }
  }

  // Added and moved credentials may bear the mark as well.
  void writeMarks(const CredentialChange& change) {
    const uint32_t before = change.before == nullptr ? 0 : change.before->deleted;
    const uint32_t now = change.now == nullptr ? before : change.now->deleted;
    if (before == now) return;
    const bool isAll =
        change.fate == CredentialFate::kDeleted || change.fate == CredentialFate::kRestored;
    _output << (isAll ? " " : ", ");
    if (before != 0 && now != 0)
      _output << "mark of deletion " << before << " -> " << now;
    else
      _output << (now != 0 ? "deleted" : "restored");
  }

  std::string words(const IdentRecord& record) const {
    return credentialText(record, _site, _withPins);
  }

  const Site& _site;
  bool _withPins;
  std::ostream& _output;
};

void writeCounts(const Changes& changes, std::ostream& output) {
  using enum CredentialFate;
  output << "holders: " << changes.countHolders(false, true) << " added, "
         << changes.countHolders(true, false) << " removed, " << changes.countHolders(true, true)
         << " changed\n"
         << "credentials: " << changes.countCredentials(kAdded) << " added, "
         << changes.countCredentials(kRemoved) << " removed, " << changes.countCredentials(kMoved)
         << " moved, " << changes.countCredentials(kDeleted) << " deleted, "
         << changes.countCredentials(kRestored) << " restored, "
         << changes.countCredentials(kChanged) << " changed\n";
}

ExitStatus diff(const DiffOptions& options, Console& console) {
  demandTwoSides(options);
  const Databases before = readPair(pairOf(options, 0), console);
  const Databases now = readPair(pairOf(options, 1), console);
  const Changes changes = compare(before, now);
  const bool same = changes.holders.empty() && changes.credentials.empty();
  if (options.counts) {
    writeCounts(changes, console.output());
  } else if (!same) {
    Site site;
    tryTo(console, [&] { site.loadFormats(options.site.formats); });
    tryTo(console, [&] { site.loadCardSets(options.site.cardSets, console); });
    ChangesWriter(site, options.withPins, console.output()).write(changes);
  }
  return same ? ExitStatus::kAllWell : ExitStatus::kFound;
}

}  // namespace

Run addDiff(Options options) {
  const auto given = std::make_shared<DiffOptions>();
  options.describe("Tell what differs between old and new databases",
                   "badgemint-admin diff /backup/monday .");
  options.filePair("FOLDERS", "OLD NEW", given->folders,
                   "The folder of the old ones and that of the new");
  options.filePair("--old", "IDENT ACCESS", given->oldFiles,
                   "The old databases, in place of a folder");
  options.filePair("--new", "IDENT ACCESS", given->newFiles, "The new databases");
  options.file("--ident", given->site.ident, "The ident database in both folders");
  options.file("--access", given->site.access, "The access database in both folders");
  options.formatsAndCardSets(given->site);
  options.flag("--stat", given->counts, "Print counts instead of a line for each change");
  options.flag("--with-pins", given->withPins, "Show PINs");
  return [given](Console& console) { return diff(*given, console); };
}

}  // namespace badgemint::admin
