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

}  // namespace

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
