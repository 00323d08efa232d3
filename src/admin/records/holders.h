// The one order in which the verbs go through databases: by unique ID, while each record keeps its
// place in its file. And the access record of each credential, where the order of the files says
// which one it is.
#ifndef BADGEMINT_ADMIN_RECORDS_HOLDERS_H
#define BADGEMINT_ADMIN_RECORDS_HOLDERS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <span>
#include <utility>
#include <vector>

#include "carddb/accessrecord.h"

namespace badgemint::admin {

// Goes through two ranges that are in the order of unique IDs. `visit` is called for each unique ID
// with the elements of either range that have it; one of the two may be empty. The functions give
// the unique ID of an element.
template <typename A, typename B, typename UniqidOfA, typename UniqidOfB, typename Visit>
void forEachUniqid(std::span<A> a, std::span<B> b, UniqidOfA uniqidOfA, UniqidOfB uniqidOfB,
                   Visit visit) {
  const auto sameAsFirst = [](auto range, uint32_t uniqid, auto uniqidOf) {
    size_t count = 0;
    while (count < range.size() && uniqidOf(range[count]) == uniqid) ++count;
    return range.first(count);
  };
  while (!a.empty() || !b.empty()) {
    uint32_t uniqid = a.empty() ? uniqidOfB(b[0]) : uniqidOfA(a[0]);
    if (!b.empty()) uniqid = std::min(uniqid, uniqidOfB(b[0]));
    const auto fromA = sameAsFirst(a, uniqid, uniqidOfA);
    const auto fromB = sameAsFirst(b, uniqid, uniqidOfB);
    visit(uniqid, fromA, fromB);
    a = a.subspan(fromA.size());
    b = b.subspan(fromB.size());
  }
}

// The same for two ranges of records, such as both databases once they are sorted, or an old and a
// new one.
template <typename A, typename B, typename Visit>
void forEachUniqid(const std::vector<A>& a, const std::vector<B>& b, Visit visit) {
  const auto uniqidOf = [](const auto& record) { return record.uniqid; };
  forEachUniqid(std::span(a), std::span(b), uniqidOf, uniqidOf, visit);
}

// The elements of a sorted vector for which the projection gives `value`. (The subrange of
// std::ranges::equal_range does not compile with Clang 14 and the library of GCC 12.)
template <typename T, typename Value, typename Projection>
std::span<const T> equalElements(const std::vector<T>& sorted, const Value& value,
                                 Projection projection) {
  const auto first = std::ranges::lower_bound(sorted, value, {}, projection);
  return {first, std::ranges::upper_bound(first, sorted.end(), value, {}, projection)};
}

// Record numbers in the order of unique IDs; of one unique ID in the order of the file.
struct NumberedRecord {
  uint32_t uniqid;
  uint32_t number;
};
std::vector<uint32_t> orderByUniqid(std::vector<NumberedRecord> records);

// Most databases are in that order already.
template <typename Record>
std::vector<uint32_t> orderByUniqid(const std::vector<Record>& records) {
  std::vector<uint32_t> numbers(records.size());
  std::iota(numbers.begin(), numbers.end(), 0U);
  if (std::ranges::is_sorted(records, {}, &Record::uniqid)) return numbers;
  std::vector<NumberedRecord> numbered;
  numbered.reserve(records.size());
  for (const uint32_t number : numbers) numbered.push_back({records[number].uniqid, number});
  return orderByUniqid(std::move(numbered));
}

// Finds the access record of one credential after the other. A build appends an access record with
// each credential but the PIN beside a card, so the next record is tried first; records that stand
// elsewhere are searched for. The records must outlive it.
class AccessWalk {
 public:
  explicit AccessWalk(const std::vector<AccessRecord>& records)
      : _records(records), _isUsed(records.size()) {}

  struct Step {
    const AccessRecord* record = nullptr;  // Null when there is none of this unique ID.
    bool isShared = false;                 // All of this unique ID were used before: the last one.
    bool isEarlier = false;                // It stands before one that was used before.
  };
  Step next(uint32_t uniqid);

  bool isUsed(size_t number) const { return _isUsed[number]; }

 private:
  Step use(size_t number);

  const std::vector<AccessRecord>& _records;
  std::vector<bool> _isUsed;
  size_t _next = 0;  // The number after that of the last one used.
  // All numbers by unique ID, once they are needed; and where those of one unique ID begin, how
  // many of them are known to be used.
  std::vector<uint32_t> _ordered, _skipped;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_HOLDERS_H
