#include "admin/records/changes.h"

#include <algorithm>

#include "carddb/identindx.h"

namespace badgemint::admin {

namespace {

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

// For what has become part of another change.
constexpr CredentialChange kNoChange{CredentialFate::kAdded, nullptr, nullptr};

void dropNoChanges(std::vector<CredentialChange>& changes) {
  std::erase_if(changes, [](const CredentialChange& change) {
    return change.before == nullptr && change.now == nullptr;
  });
}

// A change to be found by its key; the words of a key compare faster than its bytes.
struct KeyedChange {
  KeyRank key;
  CredentialChange* change;
  bool operator<(const KeyedChange& other) const {
    return key < other.key || (key == other.key && change < other.change);
  }
};

std::vector<KeyedChange> inOrderOfKeys(std::vector<CredentialChange>& changes,
                                       CredentialFate fate) {
  std::vector<KeyedChange> chosen;
  for (CredentialChange& change : changes) {
    if (change.fate != fate) continue;
    const IdentRecord* const record = change.before != nullptr ? change.before : change.now;
    chosen.push_back({IdentIndexEntry::rank(record->cardnumber), &change});
  }
  std::sort(chosen.begin(), chosen.end());
  return chosen;
}

// What one holder has lost and another has got is one change.
void joinMoves(std::vector<CredentialChange>& changes) {
  const std::vector<KeyedChange> lost = inOrderOfKeys(changes, CredentialFate::kRemoved);
  const std::vector<KeyedChange> got = inOrderOfKeys(changes, CredentialFate::kAdded);
  for (auto from = lost.begin(), to = got.begin(); from != lost.end() && to != got.end();) {
    if (from->key < to->key) {
      ++from;
    } else if (to->key < from->key) {
      ++to;
    } else {
      *from->change = {CredentialFate::kMoved, from->change->before, to->change->now};
      *to->change = kNoChange;
      ++from, ++to;
    }
  }
  dropNoChanges(changes);
}

// A PIN that gives way to another one is one change, too.
void joinPins(std::vector<CredentialChange>& changes) {
  for (auto first = changes.begin(); first != changes.end();) {
    const auto end = std::find_if(
        first, changes.end(),
        [uniqid = first->uniqid()](const auto& change) { return change.uniqid() != uniqid; });
    for (const uint32_t code : {kPinOnlyCode, kPinIdentCode}) {
      auto fresh = first;
      for (auto old = first; old != end; ++old) {
        if (old->fate != CredentialFate::kRemoved || old->before->cardsetcode != code) continue;
        fresh = std::find_if(fresh, end, [code](const auto& change) {
          return change.fate == CredentialFate::kAdded && change.now->cardsetcode == code;
        });
        if (fresh == end) break;
        *old = {CredentialFate::kChanged, old->before, fresh->now};
        *fresh++ = kNoChange;
      }
    }
    first = end;
  }
  dropNoChanges(changes);
}

}  // namespace

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
  joinPins(changes.credentials);
  return changes;
}

}  // namespace badgemint::admin
