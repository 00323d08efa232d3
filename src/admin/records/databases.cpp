#include "admin/records/databases.h"

#include <array>
#include <filesystem>
#include <numeric>
#include <system_error>

#include "carddb/recordfile.h"

namespace badgemint::admin {

// Sorts numbers that have the unique ID in their upper half. Distributes by 11 of its bits at a
// time, the lowest first: for a million records several times faster than comparing.
template <typename Record>
std::vector<const Record*> orderByUniqid(const std::vector<Record>& records) {
  constexpr uint32_t kBits = 11, kBuckets = 1U << kBits;
  std::vector<uint64_t> keys, sorted(records.size());
  keys.reserve(records.size());
  for (const Record& record : records) keys.push_back(uint64_t{record.uniqid} << 32 | keys.size());
  for (uint32_t shift = 32; shift < 64 && !std::ranges::is_sorted(keys); shift += kBits) {
    const auto bucketOf = [shift](uint64_t key) { return key >> shift & (kBuckets - 1); };
    std::array<size_t, kBuckets + 1> starts{};
    for (const uint64_t key : keys) ++starts[bucketOf(key) + 1];
    std::partial_sum(starts.begin(), starts.end(), starts.begin());
    for (const uint64_t key : keys) sorted[starts[bucketOf(key)]++] = key;
    keys.swap(sorted);
  }
  std::vector<const Record*> order;
  order.reserve(records.size());
  for (const uint64_t key : keys) order.push_back(&records[static_cast<uint32_t>(key)]);
  return order;
}
template std::vector<const IdentRecord*> orderByUniqid(const std::vector<IdentRecord>& records);
template std::vector<const AccessRecord*> orderByUniqid(const std::vector<AccessRecord>& records);

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
  for (const Record* const record : orderByUniqid(records)) sorted.push_back(*record);
  records = std::move(sorted);
}

// (The subrange of std::ranges::equal_range does not compile with Clang 14 and the library of GCC
// 12.)
template <typename Record>
std::span<const Record> recordsOf(uint32_t uniqid, const std::vector<Record>& sorted) {
  const auto first = std::ranges::lower_bound(sorted, uniqid, {}, &Record::uniqid);
  return {first, std::ranges::upper_bound(first, sorted.end(), uniqid, {}, &Record::uniqid)};
}

}  // namespace

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
  return {uniqid, recordsOf(uniqid, accesses), recordsOf(uniqid, idents)};
}

std::string whyNotWhole(const Databases& databases, const SitePaths& paths) {
  for (const auto& [rest, path] :
       {std::pair(databases.identRest, paths.ident), std::pair(databases.accessRest, paths.access)})
    if (rest != 0)
      return fmt::format("{} ends within a record: {} bytes follow the last whole one", path, rest);
  return "";
}

std::string whyImpossible(const Databases& databases, const SitePaths& paths) {
  const auto isIdent = [](const IdentRecord& record) {
    return record.cardsetcode <= kPinIdentCode && record.deleted <= 1;
  };
  const auto isAccess = [](const AccessRecord& record) {
    return record.bitflds <= AccessRecord::kAllFlags;
  };
  if (!std::ranges::all_of(databases.idents, isIdent))
    return paths.ident + " is not an ident database";
  if (!std::ranges::all_of(databases.accesses, isAccess))
    return paths.access + " is not an access database";
  return whyNotWhole(databases, paths);
}

}  // namespace badgemint::admin
