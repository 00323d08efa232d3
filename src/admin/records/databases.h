// The records of a site's databases in memory, each file read once from first to last.
#ifndef BADGEMINT_ADMIN_RECORDS_DATABASES_H
#define BADGEMINT_ADMIN_RECORDS_DATABASES_H

#include <cstddef>
#include <string>
#include <tuple>
#include <vector>

#include "carddb/accessrecord.h"
#include "carddb/identrecord.h"

namespace badgemint::admin {

// How sorted records stand.
inline auto orderOf(const IdentRecord& record) {
  return std::tie(record.uniqid, record.cardnumber);
}
inline auto orderOf(const AccessRecord& record) {
  return record.uniqid;
}

// As they are read, record n stands at n times its size in its file, and holds whatever is there.
struct Databases {
  std::vector<IdentRecord> idents;
  std::vector<AccessRecord> accesses;
  size_t identRest = 0, accessRest = 0;  // Bytes behind the last whole record.

  // Throw std::system_error when the file cannot be opened or read.
  void readIdents(const std::string& name);
  void readAccesses(const std::string& name);

  // Brings both into the order of unique IDs, credentials of one ID into that of their keys.
  // Records alike in that stay as they stood.
  void sort();

  // Distinct unique IDs of the access database, once it is sorted.
  size_t countHolders() const;
};

// Throws Failure (refused) when a file ends within a record.
void demandWhole(const Databases& databases, const std::string& identName,
                 const std::string& accessName);
// The same when it holds records that cannot be.
void demandPossible(const Databases& databases, const std::string& identName,
                    const std::string& accessName);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_DATABASES_H
