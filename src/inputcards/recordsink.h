// Where the records go that a build makes of the lines of a cards file: to the databases, or to
// whoever wants to know what a build makes of a line.
#ifndef BADGEMINT_INPUTCARDS_RECORDSINK_H
#define BADGEMINT_INPUTCARDS_RECORDSINK_H

#include <cstdint>

#include "carddb/accessrecord.h"
#include "carddb/identrecord.h"

namespace badgemint {

// Receives the records that a line of the cards file makes, in their order.
class RecordSink {
 public:
  // `access` is null for the PIN beside a card ('o'), which has no access record. kSuccess, or the
  // code with which the pass ends.
  [[nodiscard]] virtual int32_t put(const IdentRecord& ident, const AccessRecord* access) = 0;

 protected:
  ~RecordSink() = default;
};

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_RECORDSINK_H
