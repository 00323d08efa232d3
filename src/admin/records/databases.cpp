#include "admin/records/databases.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "admin/console.h"
#include "admin/files/folder.h"
#include "admin/files/sitepaths.h"
#include "admin/records/holders.h"
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

// Of each holder, who has hardly ever more than two.
void sortCredentialsByKey(std::vector<IdentRecord>& idents) {
  for (auto first = idents.begin(); first != idents.end();) {
    const auto last = std::find_if(first, idents.end(), [first](const IdentRecord& record) {
      return record.uniqid != first->uniqid;
    });
    if (last - first > 1) std::ranges::stable_sort(first, last, {}, &IdentRecord::cardnumber);
    first = last;
  }
}

template <typename Record>
std::span<const uint32_t> recordsOf(uint32_t uniqid, const std::vector<uint32_t>& numbers,
                                    const std::vector<Record>& records) {
  const auto uniqidOf = [&records](uint32_t number) { return records[number].uniqid; };
  return equalElements(numbers, uniqid, uniqidOf);
}

bool isPlausible(const IdentRecord& record) {
  return record.cardsetcode <= kPinIdentCode && record.deleted <= 1;
}
bool isPlausible(const AccessRecord& record) {
  return record.bitflds <= AccessRecord::kAllFlags;
}

template <typename Record>
void requirePlausibleRecords(const std::vector<Record>& records, const std::string& name) {
  const auto isImplausible = [](const Record& record) { return !isPlausible(record); };
  const auto found = std::ranges::find_if(records, isImplausible);
  if (found != records.end())
    throw Failure(ExitStatus::kRefused, "{} is not such a database: record {} is impossible", name,
                  found - records.begin());
}

void requireWholeRecords(size_t rest, const std::string& name) {
  if (rest != 0)
    throw Failure(ExitStatus::kRefused, "{} ends within a record: it is not a whole database",
                  name);
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
  sortCredentialsByKey(idents);
}

size_t Databases::countHolders() const {
  size_t holders = 0;
  for (size_t i = 0; i < accesses.size(); ++i)
    if (i == 0 || accesses[i].uniqid != accesses[i - 1].uniqid) ++holders;
  return holders;
}

HolderIndex::HolderIndex(const Databases& databases)
    : _databases(databases),
      _idents(orderByUniqid(databases.idents)),
      _accesses(orderByUniqid(databases.accesses)) {}

std::span<const uint32_t> HolderIndex::identsOf(uint32_t uniqid) const {
  return recordsOf(uniqid, _idents, _databases.idents);
}

std::span<const uint32_t> HolderIndex::accessesOf(uint32_t uniqid) const {
  return recordsOf(uniqid, _accesses, _databases.accesses);
}

std::vector<uint32_t> HolderIndex::holdersIn(uint32_t first, uint32_t last) const {
  std::vector<uint32_t> holders;
  const auto uniqidIn = [](const auto& records) {
    return [&records](uint32_t number) { return records[number].uniqid; };
  };
  forEachUniqid(std::span(_idents), std::span(_accesses), uniqidIn(_databases.idents),
                uniqidIn(_databases.accesses), [&](uint32_t uniqid, auto&&...) {
                  if (first <= uniqid && uniqid <= last) holders.push_back(uniqid);
                });
  return holders;
}

void requireWholeRecords(const Databases& databases, const std::string& identName,
                         const std::string& accessName) {
  requireWholeRecords(databases.identRest, identName);
  requireWholeRecords(databases.accessRest, accessName);
}

void requirePlausibleRecords(const Databases& databases, const std::string& identName,
                             const std::string& accessName) {
  requirePlausibleRecords(databases.idents, identName);
  requirePlausibleRecords(databases.accesses, accessName);
  requireWholeRecords(databases, identName, accessName);
}

}  // namespace badgemint::admin
