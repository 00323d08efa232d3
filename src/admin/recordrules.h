// What holds for the records of databases that a build has made, whoever has maintained them since.
#ifndef BADGEMINT_ADMIN_RECORDRULES_H
#define BADGEMINT_ADMIN_RECORDRULES_H

#include "admin/cardsite.h"
#include "admin/databases.h"
#include "admin/recordfaults.h"
#include "admin/recordorders.h"

namespace badgemint::admin {

// Adds what does not hold. `site` has its formats and card sets.
void judgeRecords(const Databases& databases, const RecordOrders& orders, const CardSite& site,
                  RecordFaults& faults);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDRULES_H
