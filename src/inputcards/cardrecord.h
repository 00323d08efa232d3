// What one input line says of a holder: the holder's record in either database.
#ifndef BADGEMINT_INPUTCARDS_CARDRECORD_H
#define BADGEMINT_INPUTCARDS_CARDRECORD_H

#include <cstdint>

#include "carddb/accessrecord.h"
#include "carddb/identrecord.h"

namespace badgemint {

// All zero at first: a build leaves issue level, output group mode and the mark of deletion so.
struct CardRecord {
  IdentRecord ident;
  AccessRecord access;

  // What the two records are joined by.
  void setUniqid(uint32_t uniqid) { ident.uniqid = access.uniqid = uniqid; }
};

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_CARDRECORD_H
