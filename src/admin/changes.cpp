#include "admin/changes.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <tuple>

#include "admin/console.h"
#include "carddb/recordfile.h"

namespace badgemint::admin {

namespace {

constexpr uint32_t kHighestCode = kPinIdentCode;
constexpr uint8_t kAllFlags = 0x3F;

bool isPossible(const IdentRecord& record) {
  return record.cardsetcode <= kHighestCode && record.deleted <= 1;
}
bool isPossible(const AccessRecord& record) {
  return record.bitflds <= kAllFlags;
}

template <typename Record>
std::vector<Record> readRecords(const std::string& name) {
  RecordReader reader;
  if (!reader.open(name.c_str())) {
    if (errno == ENOENT) return {};
    throw std::system_error(errno, std::generic_category(), name);
  }
  std::vector<Record> records;
  Record record;
  while (reader.next(record)) {
    if (!isPossible(record)) throw Failure(ExitStatus::kRefused, name + " is no such database");
    records.push_back(record);
  }
  if (reader.failed()) throw std::system_error(errno, std::generic_category(), name);
  if (reader.rest() != 0)
    throw Failure(ExitStatus::kRefused, name + " ends within a record: it is no whole database");
  return records;
}

auto orderOf(const IdentRecord& record) {
  return std::tie(record.uniqid, record.cardnumber);
}
auto orderOf(const AccessRecord& record) {
  return record.uniqid;
}

// Most databases are in order already, as exports are.
template <typename Record>
void sortRecords(std::vector<Record>& records) {
  const auto before = [](const Record& a, const Record& b) { return orderOf(a) < orderOf(b); };
  if (!std::ranges::is_sorted(records, before)) std::ranges::stable_sort(records, before);
}

// The records from `first` on that have its unique ID.
std::span<const AccessRecord> holderAt(const std::vector<AccessRecord>& records, size_t first) {
  size_t end = first;
  while (end < records.size() && records[end].uniqid == records[first].uniqid) ++end;
  return std::span(records).subspan(first, end - first);
}

std::vector<HolderChange> compareHolders(const std::vector<AccessRecord>& before,
                                         const std::vector<AccessRecord>& now) {
  std::vector<HolderChange> changes;
  for (size_t i = 0, j = 0; i < before.size() || j < now.size();) {
    HolderChange change{holderAt(before, i), holderAt(now, j)};
    if (change.before.empty() ||
        (!change.now.empty() && change.now.front().uniqid < change.before.front().uniqid)) {
      change.before = {};
    } else if (change.now.empty() || change.before.front().uniqid < change.now.front().uniqid) {
      change.now = {};
    }
    i += change.before.size();
    j += change.now.size();
    if (!std::ranges::equal(change.before, change.now)) changes.push_back(change);
  }
  return changes;
}

CredentialFate fateOf(const IdentRecord& before, const IdentRecord& now) {
  if (before.cardsetcode != now.cardsetcode) return CredentialFate::kChanged;
  return now.deleted != 0 ? CredentialFate::kDeleted : CredentialFate::kRestored;
}

// Credentials that are on one side only, and those that both have but not the same.
std::vector<CredentialChange> compareCredentials(const std::vector<IdentRecord>& before,
                                                 const std::vector<IdentRecord>& now) {
  std::vector<CredentialChange> changes;
  auto old = before.begin();
  auto fresh = now.begin();
  while (old != before.end() || fresh != now.end()) {
    if (fresh == now.end() || (old != before.end() && orderOf(*old) < orderOf(*fresh))) {
      changes.push_back({CredentialFate::kRemoved, &*old++, nullptr});
    } else if (old == before.end() || orderOf(*fresh) < orderOf(*old)) {
      changes.push_back({CredentialFate::kAdded, nullptr, &*fresh++});
    } else {
      if (*old != *fresh) changes.push_back({fateOf(*old, *fresh), &*old, &*fresh});
      ++old, ++fresh;
    }
  }
  return changes;
}

// What one holder has lost and another has got is one change.
void joinMoves(std::vector<CredentialChange>& changes) {
  std::vector<CredentialChange*> lost;
  for (CredentialChange& change : changes)
    if (change.fate == CredentialFate::kRemoved) lost.push_back(&change);
  const auto key = [](const CredentialChange* change) { return change->before->cardnumber; };
  std::ranges::stable_sort(lost, {}, key);
  for (CredentialChange& change : changes) {
    if (change.fate != CredentialFate::kAdded) continue;
    const CardPattern& wanted = change.now->cardnumber;
    auto from = std::ranges::lower_bound(lost, wanted, {}, key);
    while (from != lost.end() && key(*from) == wanted && (*from)->now != nullptr) ++from;
    if (from == lost.end() || key(*from) != wanted) continue;
    **from = {CredentialFate::kMoved, (*from)->before, change.now};
    change.now = nullptr;
  }
  std::erase_if(changes, [](const CredentialChange& change) {
    return change.before == nullptr && change.now == nullptr;
  });
}

}  // namespace

void Databases::read(const std::string& identName, const std::string& accessName) {
  idents = readRecords<IdentRecord>(identName);
  accesses = readRecords<AccessRecord>(accessName);
  sortRecords(idents);
  sortRecords(accesses);
}

size_t Databases::countHolders() const {
  size_t holders = 0;
  for (size_t i = 0; i < accesses.size(); ++i)
    if (i == 0 || accesses[i].uniqid != accesses[i - 1].uniqid) ++holders;
  return holders;
}

size_t Changes::countHolders(bool before, bool now) const {
  return static_cast<size_t>(std::ranges::count_if(holders, [&](const HolderChange& change) {
    return !change.before.empty() == before && !change.now.empty() == now;
  }));
}

size_t Changes::countCredentials(CredentialFate fate) const {
  return static_cast<size_t>(std::ranges::count(credentials, fate, &CredentialChange::fate));
}

Changes compare(const Databases& before, const Databases& now) {
  Changes changes{compareHolders(before.accesses, now.accesses),
                  compareCredentials(before.idents, now.idents)};
  joinMoves(changes.credentials);
  return changes;
}

}  // namespace badgemint::admin
