#include "admin/records/databases.h"

#include <array>
#include <filesystem>
#include <numeric>
#include <system_error>

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
  const auto order = orderByUniqid(records);
  constexpr size_t kAhead = 16;  // Half the time: the records are all over the memory.
  for (size_t i = 0; i < order.size(); ++i) {
    __builtin_prefetch(order[std::min(i + kAhead, order.size() - 1)]);
    sorted.push_back(*order[i]);
  }
  records = std::move(sorted);
}

// Empty when all are possible.
template <typename Record, typename Test>
std::string whyImpossible(const std::vector<Record>& records, const std::string& name,
                          Test isPossible) {
  const auto found = std::ranges::find_if_not(records, isPossible);
  if (found == records.end()) return "";
  return fmt::format("{} is not such a database: record {} is impossible", name,
                     found - records.begin());
}

// Empty when both are whole.
std::string whyNotWhole(const Databases& databases, const SitePaths& paths) {
  if (databases.identRest == 0 && databases.accessRest == 0) return "";
  return fmt::format("{} ends within a record: it is not a whole database",
                     databases.identRest != 0 ? paths.ident : paths.access);
}

}  // namespace

// Distributes by 11 bits of the unique IDs at a time, the lowest bits first: for a million records
// several times faster than comparing them. Most databases are in that order already.
template <typename Record>
std::vector<const Record*> orderByUniqid(const std::vector<Record>& records) {
  constexpr uint32_t kBits = 11, kBuckets = 1U << kBits;
  struct Entry {
    uint32_t uniqid, number;
  };
  std::vector<Entry> unsorted, sorted(records.size());
  unsorted.reserve(records.size());
  for (const Record& record : records)
    unsorted.push_back({record.uniqid, static_cast<uint32_t>(unsorted.size())});
  const bool isSorted = std::ranges::is_sorted(records, {}, &Record::uniqid);
  for (uint32_t shift = 0; shift < 32 && !isSorted; shift += kBits) {
    const auto bucketOf = [shift](const Entry& entry) {
      return entry.uniqid >> shift & (kBuckets - 1);
    };
    std::array<size_t, kBuckets + 1> starts{};
    for (const Entry& entry : unsorted) ++starts[bucketOf(entry) + 1];
    std::partial_sum(starts.begin(), starts.end(), starts.begin());
    for (const Entry& entry : unsorted) sorted[starts[bucketOf(entry)]++] = entry;
    unsorted.swap(sorted);
  }
  std::vector<const Record*> order;
  order.reserve(records.size());
  for (const Entry& entry : unsorted) order.push_back(&records[entry.number]);
  return order;
}

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

void requireWholeRecords(const Databases& databases, const SitePaths& paths, ExitStatus status) {
  const std::string problem = whyNotWhole(databases, paths);
  if (!problem.empty()) throw Failure(status, problem);
}

std::string whyImpossible(const Databases& databases, const SitePaths& paths) {
  const auto isIdent = [](const IdentRecord& record) {
    return record.cardsetcode <= kPinIdentCode && record.deleted <= 1;
  };
  const auto isAccess = [](const AccessRecord& record) {
    return record.bitflds <= AccessRecord::kAllFlags;
  };
  std::string problem = whyImpossible(databases.idents, paths.ident, isIdent);
  if (problem.empty()) problem = whyImpossible(databases.accesses, paths.access, isAccess);
  return problem.empty() ? whyNotWhole(databases, paths) : problem;
}

template <typename Record, auto Key>
auto RecordWalk<Record, Key>::next(const std::decay_t<decltype(std::declval<Record>().*Key)>& key)
    -> Step {
  if (_next < _records.size() && _records[_next].*Key == key && !_isUsed[_next])
    return use(&_records[_next]);
  const auto keyOf = [](const Record* record) { return record->*Key; };
  if (_ordered.empty()) {
    _ordered = orderByUniqid(_records);
    if constexpr (std::is_same_v<Record, IdentRecord>)
      std::ranges::stable_sort(_ordered, {}, keyOf);
    _skipped.resize(_records.size());
  }
  const auto same = equalElements(_ordered, key, keyOf);
  if (same.empty()) return {};
  uint32_t& skipped = _skipped[static_cast<size_t>(same.data() - _ordered.data())];
  while (skipped < same.size() && isUsed(numberOf(same[skipped]))) ++skipped;
  if (skipped == same.size()) return {same.back(), true, false};
  return use(same[skipped]);
}

template <typename Record, auto Key>
auto RecordWalk<Record, Key>::use(const Record* record) -> Step {
  const size_t number = numberOf(record);
  const bool isEarlier = number < _next;
  _isUsed[number] = true;
  _next = number + 1;
  return {record, false, isEarlier};
}

template class RecordWalk<AccessRecord, &AccessRecord::uniqid>;
template class RecordWalk<IdentRecord, &IdentRecord::cardnumber>;

}  // namespace badgemint::admin
