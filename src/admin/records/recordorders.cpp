#include "admin/records/recordorders.h"

#include <algorithm>

namespace badgemint::admin {

RecordOrders::RecordOrders(const Databases& databases)
    : _databases(databases),
      _identsByKey(orderBy(databases.idents, &IdentRecord::cardnumber)),
      _identsByUniqid(orderBy(databases.idents, &IdentRecord::uniqid)),
      _accessesByUniqid(orderBy(databases.accesses, &AccessRecord::uniqid)) {}

RecordNumbers RecordOrders::identsOf(const CardPattern& key) const {
  const auto first = std::ranges::lower_bound(
      _identsByKey, key, {},
      [this](size_t n) -> const CardPattern& { return _databases.idents[n].cardnumber; });
  const RecordNumbers rest(first, _identsByKey.end());
  if (rest.empty() || _databases.idents[rest[0]].cardnumber != key) return {};
  return firstAlike(rest, _databases.idents, &IdentRecord::cardnumber);
}

}  // namespace badgemint::admin
