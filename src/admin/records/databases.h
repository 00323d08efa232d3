// The records of a site's databases in memory, each file read once from first to last.
#ifndef BADGEMINT_ADMIN_RECORDS_DATABASES_H
#define BADGEMINT_ADMIN_RECORDS_DATABASES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "carddb/accessrecord.h"
#include "carddb/identrecord.h"

namespace badgemint::admin {

// The order of sorted records.
inline auto orderOf(const IdentRecord& record) {
  return std::tie(record.uniqid, record.cardnumber);
}
inline auto orderOf(const AccessRecord& record) {
  return record.uniqid;
}

// In the order of the files until they are sorted: record n of a vector is record n of its file.
// The records may hold anything.
struct Databases {
  std::vector<IdentRecord> idents;
  std::vector<AccessRecord> accesses;
  size_t identRest = 0, accessRest = 0;  // Bytes after the last whole record.

  // Throw std::system_error when the file cannot be opened or read.
  void readIdents(const std::string& name);
  void readAccesses(const std::string& name);

  // Sorts both by unique IDs, and credentials of one holder by their keys. Records that are equal
  // in that keep their order.
  void sort();

  // The number of different unique IDs in the access database, once it is sorted.
  size_t countHolders() const;
};

// Finds the records of a holder by their numbers, which are in the order of the file. The databases
// must outlive it and keep their order.
class HolderIndex {
 public:
  explicit HolderIndex(const Databases& databases);

  std::span<const uint32_t> identsOf(uint32_t uniqid) const;
  std::span<const uint32_t> accessesOf(uint32_t uniqid) const;
  // The unique IDs of holders from the first to the last, of either database.
  std::vector<uint32_t> holdersIn(uint32_t first, uint32_t last) const;

 private:
  const Databases& _databases;
  std::vector<uint32_t> _idents, _accesses;  // Record numbers by unique ID.
};

// Throws Failure (refused) when a file ends within a record.
void requireWholeRecords(const Databases& databases, const std::string& identName,
                         const std::string& accessName);
// The same when a record holds what no database of a site holds.
void requirePlausibleRecords(const Databases& databases, const std::string& identName,
                             const std::string& accessName);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_DATABASES_H
