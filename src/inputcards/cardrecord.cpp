#include "inputcards/cardrecord.h"

namespace badgemint {

IdentRecord identRecordOf(const CardRecord& card) {
  IdentRecord record;
  record.cardnumber = card.cardnumber;
  record.uniqid = card.uniqid;
  record.cardsetcode = card.cardsetcode;
  return record;
}

AccessRecord accessRecordOf(const CardRecord& card) {
  AccessRecord record;
  record.uniqid = card.uniqid;
  record.pincode = card.pincode;
  record.acclevel = card.acclevel;
  record.starttime = card.starttime;
  record.endtime = card.endtime;
  record.escortid = card.escortid;
  record.bitflds = card.bitflds;
  record.elevatoraccess = card.elevatoraccess;
  record.outrelaygrpid = card.outrelaygrpid;
  return record;
}

}  // namespace badgemint
