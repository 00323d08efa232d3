// Replaces the three files of a site, all of them or none, also when the program is killed or the
// power fails halfway.
//
// New files are built in a private place, a folder in that of the targets. There they keep a name,
// and so do the old files, until all is done; a journal that is on disk before the first rename
// says that a replacement is under way. So whoever comes next can finish it: a target that is still
// the old file gets the new one.
#ifndef BADGEMINT_ADMIN_FILES_REPLACEMENT_H
#define BADGEMINT_ADMIN_FILES_REPLACEMENT_H

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "admin/files/folder.h"

namespace badgemint::admin {

inline constexpr char kPrivatePlace[] = ".badgemint-admin";

// The files in the order in which they are replaced: a card is known only once there is a holder.
enum SitePart : size_t { kAccessPart, kIdentPart, kCardSetsPart };
inline constexpr std::array kSiteParts = {kAccessPart, kIdentPart, kCardSetsPart};
using PartNames = std::array<std::string, kSiteParts.size()>;
using PartModes = std::array<mode_t, kSiteParts.size()>;

// What other verbs say before they read databases in this folder; empty when there is nothing to
// say.
std::string noteOfCutShort(const std::string& folder);

class Replacement {
 public:
  enum class Purpose { kReplace, kTry };

  // `targets` are names in the folder. Locks the folder until the object goes, and finishes what
  // was cut short there, unless this run is a try. Throws Failure (refused) when another run has
  // the lock, when the private place is not this user's own, when what was cut short cannot be
  // finished safely, and when a target is anything but a file or missing; std::system_error.
  Replacement(const std::string& folder, PartNames targets, Purpose purpose);
  // Removes what is in the private place, and the place; not what was cut short.
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // What was found cut short, and what was done about it; empty when nothing was.
  const std::string& note() const { return _note; }

  // Where to build the new file, and the file that it is to replace.
  std::string stagedPath(SitePart part) const;
  std::string targetPath(SitePart part) const { return _folder.pathOf(_targets[part]); }
  bool isThere(SitePart part) const { return _old[part].has_value(); }

  // Replaces the targets by the files built, which get owner, group and mode of those they replace
  // as far as this user may set them, or else `modes`. With `keep` the old files stay under ".old".
  // On failure the old files are back in place; throws Failure or std::system_error. What went
  // wrong only after the replacement is returned.
  std::vector<std::string> replace(const PartModes& modes, bool keep);

 private:
  void openPlace();
  void recover();
  void finishCutShort();
  void lookAtTargets();
  void prepare(SitePart part, mode_t mode);
  void clean();
  std::string staged(SitePart part) const;

  Folder _folder;
  PartNames _targets;
  Purpose _purpose;
  std::optional<Folder> _place;
  std::array<std::optional<struct stat>, kSiteParts.size()> _old;
  std::string _note;
  bool _cutShort = false;  // The place holds what a later run has to finish.
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_FILES_REPLACEMENT_H
