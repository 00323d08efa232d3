// Whether databases hold the records that a build of a cards file would make, in whatever order.
#ifndef BADGEMINT_ADMIN_RECORDS_STATEDRECORDS_H
#define BADGEMINT_ADMIN_RECORDS_STATEDRECORDS_H

#include "admin/records/databases.h"
#include "admin/records/recordfaults.h"
#include "admin/records/recordorders.h"
#include "admin/records/site.h"

namespace badgemint::admin {

// Adds what a build of the cards file, which is known to go well, would make otherwise. `stored`
// has the card sets of the card sets file.
void compareWithCards(const VerifyOptions& options, const Databases& databases,
                      const RecordOrders& orders, const Site& stored, RecordFaults& faults);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_STATEDRECORDS_H
