// What one input line says of a holder: the record that both database records are derived from.
#ifndef BADGEMINT_INPUTCARDS_CARDRECORD_H
#define BADGEMINT_INPUTCARDS_CARDRECORD_H

#include <array>
#include <cstdint>

#include "carddb/accessrecord.h"
#include "carddb/identrecord.h"
#include "formats/bitpattern.h"

namespace badgemint {

struct CardRecord {
  CardPattern cardnumber{};          // Encoded card, raw card bytes, or packed PIN.
  std::array<uint8_t, 4> pincode{};  // Packed PIN of a card holder.
  uint32_t uniqid = 0;
  uint8_t cardsetcode = 0;
  std::array<uint16_t, 8> acclevel{};
  uint32_t starttime = 0;  // Seconds since 1970 UTC; 0 is none.
  uint32_t endtime = 0;
  uint32_t escortid = 0;
  uint8_t bitflds = 0;
  uint8_t elevatoraccess = 0;
  uint8_t outrelaygrpid = 0;
};

// The two records of a holder. Issue level and output group mode are 0 in a build.
IdentRecord identRecordOf(const CardRecord& card);
AccessRecord accessRecordOf(const CardRecord& card);

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_CARDRECORD_H
