// The records of databases in the orders in which they are looked up, while the records themselves
// stay as they stand in their files.
#ifndef BADGEMINT_ADMIN_RECORDS_RECORDORDERS_H
#define BADGEMINT_ADMIN_RECORDS_RECORDORDERS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <span>
#include <vector>

#include "admin/records/databases.h"

namespace badgemint::admin {

using RecordNumbers = std::span<const size_t>;

// The numbers of all records in the order of a member; alike ones in the order of the file. Most
// databases are in the order of their unique IDs already, as exports are.
template <typename Record, typename Member>
std::vector<size_t> orderBy(const std::vector<Record>& records, Member Record::*member) {
  std::vector<size_t> numbers(records.size());
  std::iota(numbers.begin(), numbers.end(), size_t{0});
  const auto before = [&](size_t a, size_t b) { return records[a].*member < records[b].*member; };
  if (!std::ranges::is_sorted(numbers, before)) std::ranges::stable_sort(numbers, before);
  return numbers;
}

// Record numbers; of records alike in what they are ordered by, in the order of the file. The
// databases outlive it.
class RecordOrders {
 public:
  explicit RecordOrders(const Databases& databases);

  RecordNumbers identsByKey() const { return _identsByKey; }
  RecordNumbers identsByUniqid() const { return _identsByUniqid; }
  RecordNumbers accessesByUniqid() const { return _accessesByUniqid; }

  // All that have this key: a part of the order above.
  RecordNumbers identsOf(const CardPattern& key) const;

 private:
  const Databases& _databases;
  std::vector<size_t> _identsByKey, _identsByUniqid, _accessesByUniqid;
};

// The numbers at the front of some that stand for records alike in a member.
template <typename Record, typename Member>
RecordNumbers firstAlike(RecordNumbers numbers, const std::vector<Record>& records,
                         Member Record::*member) {
  size_t count = 0;
  while (count < numbers.size() && records[numbers[count]].*member == records[numbers[0]].*member)
    ++count;
  return numbers.first(count);
}

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_RECORDORDERS_H
