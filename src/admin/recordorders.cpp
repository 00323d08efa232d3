#include "admin/recordorders.h"

#include <algorithm>
#include <numeric>

namespace badgemint::admin {

namespace {

// Most databases are in the order of their unique IDs already, as exports are.
template <typename Record, typename Member>
std::vector<size_t> orderBy(const std::vector<Record>& records, Member Record::*member) {
  std::vector<size_t> numbers(records.size());
  std::iota(numbers.begin(), numbers.end(), size_t{0});
  const auto before = [&](size_t a, size_t b) { return records[a].*member < records[b].*member; };
  if (!std::ranges::is_sorted(numbers, before)) std::ranges::stable_sort(numbers, before);
  return numbers;
}

template <typename Record, typename Member>
RecordNumbers find(RecordNumbers order, const std::vector<Record>& records, Member Record::*member,
                   const Member& value) {
  const auto first = std::ranges::lower_bound(
      order, value, {}, [&](size_t n) -> const Member& { return records[n].*member; });
  const RecordNumbers rest(first, order.end());
  if (rest.empty() || records[rest[0]].*member != value) return {};
  return firstAlike(rest, records, member);
}

}  // namespace

RecordOrders::RecordOrders(const Databases& databases)
    : _databases(databases),
      _identsByKey(orderBy(databases.idents, &IdentRecord::cardnumber)),
      _identsByUniqid(orderBy(databases.idents, &IdentRecord::uniqid)),
      _accessesByUniqid(orderBy(databases.accesses, &AccessRecord::uniqid)) {}

RecordNumbers RecordOrders::identsOf(const CardPattern& key) const {
  return find(_identsByKey, _databases.idents, &IdentRecord::cardnumber, key);
}

RecordNumbers RecordOrders::accessesOf(uint32_t uniqid) const {
  return find(_accessesByUniqid, _databases.accesses, &AccessRecord::uniqid, uniqid);
}

}  // namespace badgemint::admin
