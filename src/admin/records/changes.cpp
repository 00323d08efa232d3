#include "admin/records/changes.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <type_traits>
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

// Makes one change of a removed credential and an added one for which `identityOf` gives the same
// value; what has none is left alone.
template <typename IdentityOf>
void joinPairs(std::vector<CredentialChange>& changes, CredentialChange::Kind kind,
               IdentityOf identityOf) {
  using Identity = typename std::invoke_result_t<IdentityOf, const IdentRecord&>::value_type;
  std::vector<std::pair<Identity, CredentialChange*>> removed, added;
  for (CredentialChange& change : changes) {
    if (change.kind != kRemoved && change.kind != kAdded) continue;
    const bool isRemoved = change.kind == kRemoved;
    if (const auto identity = identityOf(isRemoved ? *change.before : *change.now))
      (isRemoved ? removed : added).emplace_back(*identity, &change);
  }
  std::sort(removed.begin(), removed.end());
  std::sort(added.begin(), added.end());
  for (auto from = removed.begin(), to = added.begin();
       from != removed.end() && to != added.end();) {
    if (from->first < to->first) {
      ++from;
    } else if (to->first < from->first) {
      ++to;
    } else {
      *from->second = {kind, from->second->before, to->second->now};
      to->second->now = nullptr;
      ++from, ++to;
    }
  }
  std::erase_if(changes, [](const CredentialChange& change) {
    return change.before == nullptr && change.now == nullptr;
  });
}

std::optional<KeyRank> keyOf(const IdentRecord& record) {
  return IdentIndexEntry::rank(record.cardnumber);
}

// A holder's PIN, whatever its digits are.
std::optional<std::pair<uint32_t, uint32_t>> pinOf(const IdentRecord& record) {
  if (record.cardsetcode != kPinOnlyCode && record.cardsetcode != kPinIdentCode)
    return std::nullopt;
  return std::pair(record.uniqid, record.cardsetcode);
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
  joinPairs(changes.credentials, kMoved, keyOf);
  joinPairs(changes.credentials, kChanged, pinOf);
  return changes;
}

void printChanges(const Changes& changes, const Site& before, const Site& now, bool withPins,
                  Console& console) {
  ChangePrinter(before, now, withPins, console).print(changes);
}

}  // namespace badgemint::admin
