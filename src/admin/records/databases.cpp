#include "admin/records/databases.h"

#include <array>
#include <filesystem>
#include <numeric>
#include <system_error>

#include "admin/console.h"
#include "admin/files/folder.h"
#include "admin/files/sitepaths.h"
#include "carddb/recordfile.h"

namespace badgemint::admin {

namespace {

// Returns the number of bytes after the last whole record.
template <typename Record>
size_t readRecords(const std::string& name, std::vector<Record>& records) {
  requireRegularFile(name);
  RecordReader reader;
  throwErrnoUnless(reader.open(name.c_str()), name);
  records.clear();
  std::error_code unknownSize;
  if (const auto size = std::filesystem::file_size(name, unknownSize); !unknownSize)
    records.reserve(size / Record::kSize);
  Record record;
  while (reader.next(record)) records.push_back(record);
  throwErrnoUnless(!reader.failed(), name);
  return reader.rest();
}

template <typename Record>
void sortByUniqid(std::vector<Record>& records) {
  if (std::ranges::is_sorted(records, {}, &Record::uniqid)) return;
  std::vector<Record> sorted;
  sorted.reserve(records.size());
  const std::vector<uint32_t> order = orderByUniqid(records);
  constexpr size_t kAhead = 16;  // Half the time: the records are all over the memory.
  for (size_t i = 0; i < order.size(); ++i) {
    __builtin_prefetch(&records[order[std::min(i + kAhead, order.size() - 1)]]);
    sorted.push_back(records[order[i]]);
  }
  records = std::move(sorted);
}

// What databases of a site cannot hold. A build may meet any other file under their names.
bool isImpossible(const IdentRecord& record) {
  return record.cardsetcode > kPinIdentCode || record.deleted > 1;
}
bool isImpossible(const AccessRecord& record) {
  return record.bitflds > AccessRecord::kAllFlags;
}

template <typename Record>
void requirePlausible(const std::vector<Record>& records, const std::string& name) {
  const auto found =
      std::ranges::find_if(records, [](const Record& record) { return isImpossible(record); });
  if (found != records.end())
    throw Failure(ExitStatus::kRefused, "{} is not such a database: record {} is impossible", name,
                  found - records.begin());
}

}  // namespace

// Distributes by 11 bits of the unique IDs at a time, the lowest bits first: for a million records
// several times faster than comparing them. Most databases are in that order already.
template <typename Record>
std::vector<uint32_t> orderByUniqid(const std::vector<Record>& records) {
  std::vector<uint32_t> numbers(records.size());
  std::iota(numbers.begin(), numbers.end(), 0U);
  if (std::ranges::is_sorted(records, {}, &Record::uniqid)) return numbers;
  constexpr uint32_t kBits = 11, kBuckets = 1U << kBits;
  struct NumberedRecord {
    uint32_t uniqid, number;
  };
  std::vector<NumberedRecord> unsorted, sorted(records.size());
  unsorted.reserve(records.size());
  for (const uint32_t number : numbers) unsorted.push_back({records[number].uniqid, number});
  for (uint32_t shift = 0; shift < 32; shift += kBits) {
    const auto bucketOf = [shift](const NumberedRecord& record) {
      return record.uniqid >> shift & (kBuckets - 1);
    };
    std::array<size_t, kBuckets + 1> starts{};
    for (const NumberedRecord& record : unsorted) ++starts[bucketOf(record) + 1];
    std::partial_sum(starts.begin(), starts.end(), starts.begin());
    for (const NumberedRecord& record : unsorted) sorted[starts[bucketOf(record)]++] = record;
    unsorted.swap(sorted);
  }
  std::ranges::transform(unsorted, numbers.begin(), &NumberedRecord::number);
  return numbers;
}
template std::vector<uint32_t> orderByUniqid(const std::vector<IdentRecord>& records);
template std::vector<uint32_t> orderByUniqid(const std::vector<AccessRecord>& records);

void Databases::readIdents(const std::string& name) {
  identRest = readRecords(name, idents);
}

void Databases::readAccesses(const std::string& name) {
  accessRest = readRecords(name, accesses);
}

void Databases::sort() {
  sortByUniqid(accesses);
  sortByUniqid(idents);
  // A holder has hardly ever more than two credentials.
  for (auto first = idents.begin(); first != idents.end();) {
    const auto last = std::find_if(first, idents.end(), [first](const IdentRecord& record) {
      return record.uniqid != first->uniqid;
    });
    if (last - first > 1) std::ranges::sort(first, last, {}, orderOf);
    first = last;
  }
}

Holder Databases::holder(uint32_t uniqid) const {
  return {uniqid, equalElements(accesses, uniqid, &AccessRecord::uniqid),
          equalElements(idents, uniqid, &IdentRecord::uniqid)};
}

size_t Databases::countHolders() const {
  size_t holders = 0;
  forEachHolder([&](const Holder& holder) { holders += holder.accesses.empty() ? 0 : 1; });
  return holders;
}

void requireWholeRecords(const Databases& databases, const std::string& identName,
                         const std::string& accessName) {
  if (databases.identRest != 0 || databases.accessRest != 0)
    throw Failure(ExitStatus::kRefused, "{} ends within a record: it is not a whole database",
                  databases.identRest != 0 ? identName : accessName);
}

void requirePlausibleRecords(const Databases& databases, const std::string& identName,
                             const std::string& accessName) {
  requirePlausible(databases.idents, identName);
  requirePlausible(databases.accesses, accessName);
  requireWholeRecords(databases, identName, accessName);
}

template <typename Record, auto Key>
auto RecordWalk<Record, Key>::next(const std::decay_t<decltype(std::declval<Record>().*Key)>& key)
    -> Step {
  if (_next < _records.size() && _records[_next].*Key == key && !_isUsed[_next]) return use(_next);
  const auto keyAt = [this](uint32_t number) { return _records[number].*Key; };
  if (_ordered.empty()) {
    _ordered = orderByUniqid(_records);
    if constexpr (std::is_same_v<Record, IdentRecord>)
      std::ranges::stable_sort(_ordered, {}, keyAt);
    _skipped.resize(_records.size());
  }
  const auto same = equalElements(_ordered, key, keyAt);
  if (same.empty()) return {};
  uint32_t& skipped = _skipped[static_cast<size_t>(same.data() - _ordered.data())];
  while (skipped < same.size() && _isUsed[same[skipped]]) ++skipped;
  if (skipped == same.size()) return {&_records[same.back()], true, false};
  return use(same[skipped]);
}

template <typename Record, auto Key>
auto RecordWalk<Record, Key>::use(size_t number) -> Step {
  const bool isEarlier = number < _next;
  _isUsed[number] = true;
  _next = number + 1;
  return {&_records[number], false, isEarlier};
}

template class RecordWalk<AccessRecord, &AccessRecord::uniqid>;
template class RecordWalk<IdentRecord, &IdentRecord::cardnumber>;

}  // namespace badgemint::admin
