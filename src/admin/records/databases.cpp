#include "admin/records/databases.h"

#include <algorithm>

#include "admin/console.h"
#include "admin/files/folder.h"
#include "carddb/recordfile.h"

namespace badgemint::admin {

namespace {

constexpr uint32_t kHighestCode = kPinIdentCode;

bool isPossible(const IdentRecord& record) {
  return record.cardsetcode <= kHighestCode && record.deleted <= 1;
}
bool isPossible(const AccessRecord& record) {
  return record.bitflds <= AccessRecord::kAllFlags;
}

template <typename Record>
void demandPossible(const std::vector<Record>& records, const std::string& name) {
  for (const Record& record : records)
    if (!isPossible(record)) throw Failure(ExitStatus::kRefused, name + " is no such database");
}

void demandWhole(size_t rest, const std::string& name) {
  if (rest != 0)
    throw Failure(ExitStatus::kRefused, name + " ends within a record: it is no whole database");
}

// Returns what is left behind the records.
template <typename Record>
size_t readRecords(const std::string& name, std::vector<Record>& records) {
  RecordReader reader;
  throwErrnoUnless(reader.open(name.c_str()), name);
  records.clear();
  Record record;
  while (reader.next(record)) records.push_back(record);
  throwErrnoUnless(!reader.failed(), name);
  return reader.rest();
}

// Most databases are in order already, as exports are.
template <typename Record>
void sortRecords(std::vector<Record>& records) {
  const auto before = [](const Record& a, const Record& b) { return orderOf(a) < orderOf(b); };
  if (!std::ranges::is_sorted(records, before)) std::ranges::stable_sort(records, before);
}

}  // namespace

void Databases::readIdents(const std::string& name) {
  identRest = readRecords(name, idents);
}

void Databases::readAccesses(const std::string& name) {
  accessRest = readRecords(name, accesses);
}

void Databases::sort() {
  sortRecords(idents);
  sortRecords(accesses);
}

size_t Databases::countHolders() const {
  size_t holders = 0;
  for (size_t i = 0; i < accesses.size(); ++i)
    if (i == 0 || accesses[i].uniqid != accesses[i - 1].uniqid) ++holders;
  return holders;
}

void demandWhole(const Databases& databases, const std::string& identName,
                 const std::string& accessName) {
  demandWhole(databases.identRest, identName);
  demandWhole(databases.accessRest, accessName);
}

void demandPossible(const Databases& databases, const std::string& identName,
                    const std::string& accessName) {
  demandPossible(databases.idents, identName);
  demandPossible(databases.accesses, accessName);
  demandWhole(databases, identName, accessName);
}

}  // namespace badgemint::admin
