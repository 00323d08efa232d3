// Replaces the three files of a site, all of them or none, also when the program is killed or the
// power fails halfway.
//
// New files are built in a private folder beside those they replace. There they keep a name, and so
// do the old files, until all is done. A journal that is on disk before anything is replaced says
// what is to be done. So the next build can finish a replacement that was cut short: a target that
// is still the old file gets the new one.
#ifndef BADGEMINT_ADMIN_FILES_REPLACEMENT_H
#define BADGEMINT_ADMIN_FILES_REPLACEMENT_H

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "admin/files/folder.h"

namespace badgemint::admin {

inline constexpr char kPrivateFolder[] = ".badgemint-admin";
inline constexpr char kKeptSuffix[] = ".old";

// The files in the order in which they are replaced: a card is known only once there is a holder.
enum SitePart : size_t { kAccessPart, kIdentPart, kCardSetsPart, kSiteParts };
using PartPaths = std::array<std::string, kSiteParts>;

// What other verbs report before they read databases in this folder: a replacement that is under
// way or was cut short. Empty for none.
std::string noteOfCutShort(const std::string& folder);

// The files may be a mixture of old and new ones. The text says so, and the remedy.
class CutShortFailure : public NotDone {
 public:
  using NotDone::NotDone;
};

// The right of one build to replace the files of a folder, and the private folder that it builds
// in. Whoever builds must finish the new files before replace().
class Replacement {
 public:
  // Locks the folder of the targets until the object is destroyed, and finishes a replacement that
  // was cut short there. Throws CutShortFailure when that cannot be done safely; Failure (refused)
  // when it must not be done, when the targets are not in one folder, when another build has the
  // lock, when the private folder is not this user's own, and when a target, or with `keep` the
  // name for the old file, is neither a regular file nor missing; std::system_error.
  Replacement(const PartPaths& targets, bool keep, bool mayFinish);
  // Removes the private folder if cleanUp() was not called; not what was cut short.
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // What an earlier build left, and what was done about it; empty for nothing.
  const std::string& note() const { return _note; }

  const Folder& privateFolder() const { return *_private; }
  // Where to build the new file.
  std::string stagedPath(SitePart part) const { return _private->pathOf(_files[part].after); }
  // Whether there is a file that the new one is to replace.
  bool hasTarget(SitePart part) const { return _files[part].found.has_value(); }

  // Whether each new file has the same bytes as the file that it is to replace.
  bool isUnchanged() const;

  // Replaces the targets with the new files, which get owner, group and mode of those they replace
  // as far as this user may set them. If they are to be kept, the old files get names with
  // kKeptSuffix before that. On failure the old files are back in place, and Failure or
  // std::system_error is thrown; CutShortFailure when they could not be put back.
  void replace();

  // Removes the private folder, and returns what could not be removed, in words.
  std::vector<std::string> cleanUp();

 private:
  // A name in the site's folder: a target, or the name under which an old file is kept. `before`
  // and `after` are the names, in the private folder, of the file that had it and of the one that
  // gets it. All are made beforehand: undoing a replacement needs no memory.
  struct File {
    std::string name, before, after;
    std::optional<mode_t> mode = {};        // Of a new file that replaces none; not of a kept one.
    std::optional<struct stat> found = {};  // What had the name when the build began.
  };
  // The targets in the order of SitePart, then the names for old files, if they are kept.
  using Files = std::vector<File>;
  static std::span<const File> targetsOf(const Files& files) {
    return std::span(files).first(kSiteParts);
  }

  Replacement(const PartPaths& targets, bool keep);
  static Files filesOf(const PartPaths& targets, bool keep);
  static std::string journalOf(const Files& files);
  void openPrivateFolder();
  void recover(bool mayFinish);
  void finishCutShort();
  void prepare(const File& file) const;
  void writeJournal() const;
  Files readJournal() const;
  void replaceFiles(const Files& files) const;
  void requireKnown(const File& file, bool isLinked = true) const;
  void undo() const;
  bool isSame(const std::string& name, const std::string& version) const;
  void put(const std::string& version, const std::string& name) const;
  void removeFiles() const;

  const Folder _folder;
  Files _files;
  std::optional<Folder> _private;
  std::string _note;
  bool _mustCleanUp = false;  // Not what is another's, or what a later build has to finish.
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_FILES_REPLACEMENT_H
