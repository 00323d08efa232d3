#include "admin/records/changes.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "admin/records/holders.h"
#include "admin/records/wording.h"
#include "carddb/identindx.h"

namespace badgemint::admin {

namespace {

using enum CredentialChange::Kind;

CredentialChange::Kind kindOf(const IdentRecord& before, const IdentRecord& now) {
  if (before.cardsetcode != now.cardsetcode) return kChanged;
  return now.deleted != 0 ? kDeleted : kRestored;
}

// Credentials of one holder, in the order of their keys.
void compareCredentials(std::span<const IdentRecord> before, std::span<const IdentRecord> now,
                        std::vector<CredentialChange>& changes) {
  auto old = before.begin();
  auto fresh = now.begin();
  while (old != before.end() || fresh != now.end()) {
    const bool isOldOnly =
        fresh == now.end() || (old != before.end() && old->cardnumber < fresh->cardnumber);
    const bool isNewOnly =
        old == before.end() || (fresh != now.end() && fresh->cardnumber < old->cardnumber);
    if (isOldOnly) {
      changes.push_back({kRemoved, &*old++, nullptr});
    } else if (isNewOnly) {
      changes.push_back({kAdded, nullptr, &*fresh++});
    } else {
      if (*old != *fresh) changes.push_back({kindOf(*old, *fresh), &*old, &*fresh});
      ++old, ++fresh;
    }
  }
}

// Takes the place of a change that has become part of another one.
constexpr CredentialChange kNoChange{kAdded, nullptr, nullptr};

void eraseNoChanges(std::vector<CredentialChange>& changes) {
  std::erase_if(changes, [](const CredentialChange& change) {
    return change.before == nullptr && change.now == nullptr;
  });
}

struct KeyedChange {
  KeyRank key;
  CredentialChange* change;
  bool operator<(const KeyedChange& other) const {
    return key < other.key || (key == other.key && change < other.change);
  }
};

std::vector<KeyedChange> sortedByKey(std::vector<CredentialChange>& changes,
                                     CredentialChange::Kind kind) {
  std::vector<KeyedChange> keyed;
  for (CredentialChange& change : changes) {
    if (change.kind != kind) continue;
    const IdentRecord* const record = change.before != nullptr ? change.before : change.now;
    keyed.push_back({IdentIndexEntry::rank(record->cardnumber), &change});
  }
  std::sort(keyed.begin(), keyed.end());
  return keyed;
}

// What one holder has lost and another has got is one change.
void joinMoves(std::vector<CredentialChange>& changes) {
  const std::vector<KeyedChange> lost = sortedByKey(changes, kRemoved);
  const std::vector<KeyedChange> got = sortedByKey(changes, kAdded);
  for (auto from = lost.begin(), to = got.begin(); from != lost.end() && to != got.end();) {
    if (from->key < to->key) {
      ++from;
    } else if (to->key < from->key) {
      ++to;
    } else {
      *from->change = {kMoved, from->change->before, to->change->now};
      *to->change = kNoChange;
      ++from, ++to;
    }
  }
  eraseNoChanges(changes);
}

// One PIN in place of another of the same holder is one change, too.
void joinPins(std::vector<CredentialChange>& changes) {
  for (auto first = changes.begin(); first != changes.end();) {
    const auto last = std::find_if(first, changes.end(), [&](const CredentialChange& change) {
      return change.uniqid() != first->uniqid();
    });
    for (const uint32_t code : {kPinOnlyCode, kPinIdentCode}) {
      auto added = first;
      for (auto removed = first; removed != last; ++removed) {
        if (removed->kind != kRemoved || removed->before->cardsetcode != code) continue;
        added = std::find_if(added, last, [code](const CredentialChange& change) {
          return change.kind == kAdded && change.now != nullptr && change.now->cardsetcode == code;
        });
        if (added == last) break;
        *removed = {kChanged, removed->before, added->now};
        *added++ = kNoChange;
      }
    }
    first = last;
  }
  eraseNoChanges(changes);
}

// Writes lines of text through a buffer of its own: there may be a million of them.
class ChangePrinter {
 public:
  ChangePrinter(const Site& before, const Site& now, bool withPins, Console& console)
      : _before(before), _now(now), _withPins(withPins), _console(console) {}

  void print(const Changes& changes) {
    auto credential = changes.credentials.begin();
    const auto printCredentialsBefore = [&](uint64_t uniqid) {
      for (; credential != changes.credentials.end() && credential->uniqid() < uniqid; ++credential)
        print(*credential);
    };
    for (const HolderChange& holder : changes.holders) {
      printCredentialsBefore(holder.uniqid());
      print(holder);
    }
    printCredentialsBefore(UINT64_MAX);
    flush();
  }

 private:
  void print(const HolderChange& change) {
    add("holder {}: ", change.uniqid());
    if (change.before.empty()) return endLine("added");
    if (change.now.empty()) return endLine("removed");
    add("changed: ");
    const char* separator = "";
    if (change.before.size() != change.now.size()) {
      add("access records: {} -> {}", change.before.size(), change.now.size());
      separator = ", ";
    }
    for (size_t i = 0; i < std::min(change.before.size(), change.now.size()); ++i)
      for (const AccessField& field : accessFields()) {
        if (field.valueOf(change.before[i]) == field.valueOf(change.now[i])) continue;
        add("{}{}", std::exchange(separator, ", "), field.name);
        addValues(field, change.before[i], change.now[i]);
      }
    endLine("");
  }

  void addValues(const AccessField& field, const AccessRecord& before, const AccessRecord& now) {
    if (field.kind == AccessField::Kind::kPin && !_withPins) return;
    add(": {} -> {}", valueText(field, before, _withPins), valueText(field, now, _withPins));
  }

  void print(const CredentialChange& change) {
    add("holder {}: ", change.uniqid());
    const bool hasNewCode = change.before != nullptr && change.now != nullptr &&
                            change.before->cardsetcode != change.now->cardsetcode;
    switch (change.kind) {
      case kAdded:
        add("{} added", newText(change));
        break;
      case kRemoved:
        add("{} removed", oldText(change));
        break;
      case kMoved:
        add("{} moved to holder {}", oldText(change), change.now->uniqid);
        if (hasNewCode) add(" as {}", newText(change));
        break;
      case kChanged:
        if (hasNewCode || _withPins)
          add("{} -> {}", oldText(change), newText(change));
        else
          add("PIN changed");
        break;
      case kDeleted:
      case kRestored:
        add("{}", oldText(change));
    }
    addDeletion(change);
    endLine("");
  }

  // Added, moved and changed credentials may have the mark of deletion as well.
  void addDeletion(const CredentialChange& change) {
    const uint32_t before = change.before == nullptr ? 0 : change.before->deleted;
    const uint32_t now = change.now == nullptr ? before : change.now->deleted;
    if (before == now) return;
    add("{}", change.kind == kDeleted || change.kind == kRestored ? " " : ", ");
    if (before != 0 && now != 0)
      add("mark of deletion {} -> {}", before, now);
    else
      add("{}", now != 0 ? "deleted" : "restored");
  }

  std::string oldText(const CredentialChange& change) const {
    return credentialText(*change.before, _before, _withPins);
  }
  std::string newText(const CredentialChange& change) const {
    return credentialText(*change.now, _now, _withPins);
  }

  template <typename... Args>
  void add(fmt::format_string<Args...> format, Args&&... args) {
    fmt::format_to(std::back_inserter(_text), format, std::forward<Args>(args)...);
  }
  void endLine(const char* end) {
    add("{}\n", end);
    if (_text.size() >= kBlockSize) flush();
  }
  void flush() {
    _console.output().write(_text.data(), static_cast<std::streamsize>(_text.size()));
    _text.clear();
  }

  static constexpr size_t kBlockSize = size_t{64} * 1024;

  const Site &_before, &_now;
  const bool _withPins;
  Console& _console;
  fmt::memory_buffer _text;
};

}  // namespace

size_t Changes::countHolders(bool before, bool now) const {
  return static_cast<size_t>(std::ranges::count_if(holders, [&](const HolderChange& change) {
    return !change.before.empty() == before && !change.now.empty() == now;
  }));
}

size_t Changes::countCredentials(CredentialChange::Kind kind) const {
  return static_cast<size_t>(std::ranges::count(credentials, kind, &CredentialChange::kind));
}

Changes compare(const Databases& before, const Databases& now) {
  Changes changes;
  forEachUniqid(before.accesses, now.accesses, [&](uint32_t, auto old, auto fresh) {
    if (!std::ranges::equal(old, fresh)) changes.holders.push_back({old, fresh});
  });
  forEachUniqid(before.idents, now.idents, [&](uint32_t, auto old, auto fresh) {
    compareCredentials(old, fresh, changes.credentials);
  });
  joinMoves(changes.credentials);
  joinPins(changes.credentials);
  return changes;
}

void printChanges(const Changes& changes, const Site& before, const Site& now, bool withPins,
                  Console& console) {
  ChangePrinter(before, now, withPins, console).print(changes);
}

}  // namespace badgemint::admin
