// What holds for the records of databases that a build has made, whoever has maintained them since.
#ifndef BADGEMINT_ADMIN_RECORDS_RECORDRULES_H
#define BADGEMINT_ADMIN_RECORDS_RECORDRULES_H

#include "admin/records/databases.h"
#include "admin/records/recordfaults.h"
#include "admin/records/recordorders.h"
#include "admin/records/site.h"

namespace badgemint::admin {

// Adds what does not hold. `site` has its formats and card sets.
void judgeRecords(const Databases& databases, const RecordOrders& orders, const Site& site,
                  RecordFaults& faults);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_RECORDRULES_H
