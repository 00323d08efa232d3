// What only the whole cards file can tell: keys and unique IDs that occur twice, PIN idents without
// their card, escorts that are no holders.
#ifndef BADGEMINT_ADMIN_CHECK_WHOLEFILE_H
#define BADGEMINT_ADMIN_CHECK_WHOLEFILE_H

#include <cstdint>
#include <vector>

#include "admin/check/finding.h"
#include "admin/check/holderrules.h"
#include "inputcards/cardindex.h"

namespace badgemint::admin {

// Unique IDs in a row that lines with an error name: they count as partners and as escorts.
struct UniqidRange {
  uint32_t first;
  uint32_t last;
};

struct WholeFile {
  const CardIndex& index;  // Its lines are those of an editor.
  std::vector<UniqidRange> unindexed;
  const std::vector<EscortUse>& escorts;
  const std::vector<int32_t>& misread;  // Lines, in order, that are told of as a whole.
  int file;                             // The cards file.
};

// Sets the verdict where a build gets to the checks of its index at all. Returns the number of
// distinct unique IDs in the index. Throws std::bad_alloc.
int64_t checkWholeFile(WholeFile whole, Findings& findings);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_WHOLEFILE_H
