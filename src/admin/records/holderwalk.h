// Finds the access record of each credential, as a build has put it or as others have left it.
#ifndef BADGEMINT_ADMIN_RECORDS_HOLDERWALK_H
#define BADGEMINT_ADMIN_RECORDS_HOLDERWALK_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "carddb/accessrecord.h"

namespace badgemint::admin {

// A build appends an access record with each credential but a PIN ident: so the next record is
// tried first, and records that stand elsewhere are searched for.
class HolderWalk {
 public:
  // The records stay the caller's.
  explicit HolderWalk(const std::vector<AccessRecord>& records)
      : _records(records), _isTaken(records.size()) {}

  struct Step {
    const AccessRecord* record = nullptr;  // Null when there is none of this unique ID.
    bool isShared = false;                 // All of this unique ID are taken: the last of them.
    bool isBack = false;                   // It stands before one that is taken already.
  };
  Step take(uint32_t uniqid);

  bool isTaken(size_t position) const { return _isTaken[position]; }

 private:
  Step stepTo(size_t position);

  const std::vector<AccessRecord>& _records;
  std::vector<bool> _isTaken;
  size_t _next = 0;  // Behind the last one taken.
  // All positions in the order of unique IDs, when they are needed; and where the positions of an
  // ID begin, how many of them are known to be taken.
  std::vector<size_t> _sorted, _skipped;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_HOLDERWALK_H
