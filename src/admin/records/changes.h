// What differs between two pairs of databases, an old and a new one.
#ifndef BADGEMINT_ADMIN_RECORDS_CHANGES_H
#define BADGEMINT_ADMIN_RECORDS_CHANGES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "admin/records/site.h"

namespace badgemint::admin {

enum class ChangeKind {
  kAdded,
  kRemoved,
  kMoved,     // To another holder.
  kDeleted,   // Marked as deleted.
  kRestored,  // No longer marked.
  kChanged,   // Access records; the card set code, a card's key, or one PIN in place of another.
};
// "added", "removed", ...
const char* nameOf(ChangeKind kind);

// A holder whose access records differ. An empty span: the holder is not in that database.
struct HolderChange {
  std::span<const AccessRecord> before, now;
  ChangeKind kind() const {
    if (before.empty()) return ChangeKind::kAdded;
    return now.empty() ? ChangeKind::kRemoved : ChangeKind::kChanged;
  }
};

// A credential that differs between two databases, which must outlive it.
struct CredentialChange {
  const IdentRecord *before, *now;  // Null when the credential is not in that database.
  const IdentRecord& record() const { return before != nullptr ? *before : *now; }
  bool isReplaced() const;  // By another credential: another key, or another card set code.
  ChangeKind kind() const;
};

inline uint32_t uniqidOf(const HolderChange& change) {
  return (change.before.empty() ? change.now : change.before).front().uniqid;
}
inline uint32_t uniqidOf(const CredentialChange& change) {
  return change.record().uniqid;
}

// The differences between two pairs of databases, both lists in the order of (old) unique IDs. They
// point into the databases that were compared, which must outlive them.
struct Changes {
  std::vector<HolderChange> holders;
  std::vector<CredentialChange> credentials;

  bool empty() const { return holders.empty() && credentials.empty(); }
};

// How many of the changes, of holders or of credentials, are of a kind.
size_t countOf(ChangeKind kind, const auto& changes) {
  const auto isOfKind = [kind](const auto& change) { return change.kind() == kind; };
  return static_cast<size_t>(std::ranges::count_if(changes, isOfKind));
}

// The databases of both must be sorted. A card that is removed and one that is added are one change
// when the same holder has both and they have the same number: only the key has changed. Each key
// is read with the formats and card sets of its own site, if it has any.
Changes compare(const Site& before, const Site& now);

// Prints a line for each change, all of one holder together. Cards are named by the formats and
// card sets of the two sites.
struct ChangeForm {
  bool withPins = false;
  bool json = false;
};
void printChanges(const Changes& changes, const Site& before, const Site& now, ChangeForm form,
                  Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_CHANGES_H
