// What differs between two pairs of databases, an old and a new one.
#ifndef BADGEMINT_ADMIN_RECORDS_CHANGES_H
#define BADGEMINT_ADMIN_RECORDS_CHANGES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "admin/records/databases.h"

namespace badgemint::admin {

// A holder whose access records are not the same. Spans of the databases that were compared, empty
// where the holder is not.
struct HolderChange {
  std::span<const AccessRecord> before, now;
  uint32_t uniqid() const { return (before.empty() ? now : before).front().uniqid; }
};

// A PIN in place of another one of the same holder is a change, too.
enum class CredentialFate { kAdded, kRemoved, kMoved, kDeleted, kRestored, kChanged };

// Records of the databases that were compared; null where the credential is not.
struct CredentialChange {
  CredentialFate fate;
  const IdentRecord *before, *now;
  uint32_t uniqid() const { return (before != nullptr ? before : now)->uniqid; }
  // Of one that both have: as a card of another card set, or a PIN of another kind.
  bool isOtherwiseCoded() const { return before->cardsetcode != now->cardsetcode; }
};

// Both in the order of unique IDs: of the old one where there is one.
struct Changes {
  std::vector<HolderChange> holders;
  std::vector<CredentialChange> credentials;

  size_t countHolders(bool before, bool now) const;
  size_t countCredentials(CredentialFate fate) const;
};

// Both are sorted, and outlive the changes.
Changes compare(const Databases& before, const Databases& now);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_CHANGES_H
