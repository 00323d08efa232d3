#include "admin/records/changes.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "admin/records/wording.h"
#include "carddb/identindx.h"

namespace badgemint::admin {

namespace {

using enum ChangeKind;

ChangeKind kindOf(const IdentRecord& before, const IdentRecord& now) {
  if (before.uniqid != now.uniqid) return kMoved;
  if (before.cardsetcode != now.cardsetcode || before.cardnumber != now.cardnumber) return kChanged;
  return now.deleted != 0 ? kDeleted : kRestored;
}

// Of credentials that are sorted.
std::vector<CredentialChange> differences(const std::vector<IdentRecord>& before,
                                          const std::vector<IdentRecord>& now) {
  std::vector<CredentialChange> changes;
  auto old = before.begin(), fresh = now.begin();
  while (old != before.end() || fresh != now.end()) {
    if (fresh == now.end() || (old != before.end() && orderOf(*old) < orderOf(*fresh)))
      changes.push_back({kRemoved, &*old++, nullptr});
    else if (old == before.end() || orderOf(*fresh) < orderOf(*old))
      changes.push_back({kAdded, nullptr, &*fresh++});
    else
      ++old, ++fresh;
  }
  return changes;
}

// Makes one change of a removed credential and an added one that have the same identity; what has
// none is left alone. The functions give the identity of a record.
template <typename OldIdentity, typename NewIdentity>
void joinPairs(std::vector<CredentialChange>& changes, OldIdentity oldIdentity,
               NewIdentity newIdentity) {
  using Key = typename std::invoke_result_t<OldIdentity, const IdentRecord&>::value_type;
  std::vector<std::pair<Key, CredentialChange*>> removed, added;
  for (CredentialChange& change : changes) {
    const bool isRemoved = change.kind == kRemoved;
    if (!isRemoved && change.kind != kAdded) continue;
    if (const auto identity = isRemoved ? oldIdentity(*change.before) : newIdentity(*change.now))
      (isRemoved ? removed : added).emplace_back(*identity, &change);
  }
  std::sort(removed.begin(), removed.end());
  std::sort(added.begin(), added.end());
  auto to = added.begin();
  for (const auto& [identity, change] : removed) {
    while (to != added.end() && to->first < identity) ++to;
    if (to == added.end() || identity < to->first) continue;
    const IdentRecord* const now = std::exchange(to++->second->now, nullptr);
    *change = {kindOf(*change->before, *now), change->before, now};
  }
  std::erase_if(changes, [](const CredentialChange& change) {
    return change.before == nullptr && change.now == nullptr;
  });
}

std::optional<std::pair<uint32_t, KeyRank>> identityOfHoldersKey(const IdentRecord& record) {
  return std::pair(record.uniqid, IdentIndexEntry::rank(record.cardnumber));
}

std::optional<KeyRank> identityOfKey(const IdentRecord& record) {
  return IdentIndexEntry::rank(record.cardnumber);
}

// A holder's card.
using Card = std::tuple<uint32_t, uint32_t, int64_t>;  // Unique ID, card set, number.

// A holder's PIN, whatever its digits are.
std::optional<std::pair<uint32_t, uint32_t>> identityOfPin(const IdentRecord& record) {
  if (!isPinEntry(record)) return std::nullopt;
  return std::pair(record.uniqid, record.cardsetcode);
}

// A field that has changed.
struct Difference {
  std::string name;
  std::string before, now;
  bool isNumber = true;
  bool isHidden = false;
};

// Of the access records of a holder.
std::vector<Difference> differencesOf(const HolderChange& change, bool withPins) {
  using enum AccessField::Kind;
  const auto& [old, fresh] = change;
  std::vector<Difference> differences;
  if (old.size() != fresh.size())
    differences.push_back(
        {"access records", std::to_string(old.size()), std::to_string(fresh.size())});
  for (size_t i = 0; i < std::min(old.size(), fresh.size()); ++i)
    for (const AccessField& field : accessFields())
      if (field.valueOf(old[i]) != field.valueOf(fresh[i]))
        differences.push_back(
            {field.name, valueText(field, old[i], withPins), valueText(field, fresh[i], withPins),
             field.kind != kTime && field.kind != kPin, field.kind == kPin && !withPins});
  return differences;
}

// Of a card set, by the letters of its values.
std::vector<Difference> differencesOf(uint32_t csid, const Site& before, const Site& now) {
  const cardset* const old = before.sets().getCardSet(csid);
  const cardset* const fresh = now.sets().getCardSet(csid);
  std::vector<Difference> differences;
  for (int32_t field = 0; field < kCardSetFields && old != nullptr && fresh != nullptr; ++field)
    if (old->value(field) != fresh->value(field))
      differences.push_back({std::string(1, static_cast<char>('A' + field)),
                             std::to_string(old->value(field)),
                             std::to_string(fresh->value(field))});
  return differences;
}

void addTo(JsonObject& object, const Difference& difference) {
  object.add("field", difference.name);
  if (difference.isNumber)
    object.add("old", std::stoll(difference.before)).add("new", std::stoll(difference.now));
  else
    object.add("old", difference.before).add("new", difference.now);
}

bool isSameCode(const CredentialChange& change) {
  return change.before->cardsetcode == change.now->cardsetcode;
}
bool isKeyOfCard(const CredentialChange& change) {
  return change.kind == kChanged && isSameCode(change) && !isPinEntry(*change.before);
}

// Prints lines, each made in one text: there may be a million of them.
class ChangePrinter {
 public:
  ChangePrinter(const Site& before, const Site& now, ChangeForm form, Console& console)
      : _before(before), _now(now), _form(form), _console(console) {}

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
  }

 private:
  template <typename Change>
  void print(const Change& change) {
    if (_form.json) return _console.printJson(json(change));
    _text.clear();
    addText(change);
    _console.output() << _text << '\n';
  }

  void addText(const HolderChange& change) {
    add("holder {}: {}", change.uniqid(), nameOf(change.kind()));
    if (change.kind() != kChanged) return;
    const char* separator = ": ";
    for (const Difference& difference : differencesOf(change, _form.withPins)) {
      add("{}{}", std::exchange(separator, ", "), difference.name);
      if (!difference.isHidden) add(": {} -> {}", difference.before, difference.now);
    }
  }

  void addText(const CredentialChange& change) {
    add("holder {}: ", change.uniqid());
    if (change.kind == kChanged)
      addReplacement(change);
    else
      add("{} {}", change.kind == kAdded ? newText(change) : oldText(change), nameOf(change.kind));
    if (change.kind == kMoved) add(" to holder {}", change.now->uniqid);
    if (change.kind == kMoved && !isSameCode(change)) add(" as {}", newText(change));
    const uint32_t before = change.before == nullptr ? 0 : change.before->deleted;
    const uint32_t now = change.now == nullptr ? before : change.now->deleted;
    if (before != now && change.kind != kDeleted && change.kind != kRestored)
      add(", {}", nameOf(now != 0 ? kDeleted : kRestored));
  }

  void addReplacement(const CredentialChange& change) {
    const IdentRecord &before = *change.before, &now = *change.now;
    if (isKeyOfCard(change)) {
      add("{}: key {} -> {}", oldText(change), keyText(before.cardnumber), keyText(now.cardnumber));
      for (const auto& value : differencesOf(before.cardsetcode, _before, _now))
        add(", {0}={1} -> {0}={2}", value.name, value.before, value.now);
    } else if (!isSameCode(change) || _form.withPins) {
      add("{} -> {}", oldText(change), newText(change));
    } else {
      add("PIN changed");
    }
  }

  JsonObject json(const HolderChange& change) const {
    JsonObject object;
    object.add("holder", change.uniqid()).add("change", nameOf(change.kind()));
    if (change.kind() == kChanged)
      object.addEach("fields", differencesOf(change, _form.withPins), addTo);
    return object;
  }

  // The credential, and as "new" what it has become.
  JsonObject json(const CredentialChange& change) const {
    JsonObject object, now;
    object.add("holder", change.uniqid()).add("change", nameOf(change.kind));
    if (change.kind == kMoved) object.add("to", change.now->uniqid);
    if (change.before == nullptr) {
      addCredential(object, *change.now, _now, _form.withPins);
      return object;
    }
    addCredential(object, *change.before, _before, _form.withPins);
    if (change.kind == kChanged || (change.kind == kMoved && !isSameCode(change))) {
      addCredential(now, *change.now, _now, _form.withPins);
      object.add("new", now);
    }
    if (isKeyOfCard(change))
      object.addEach("site_values", differencesOf(change.before->cardsetcode, _before, _now),
                     addTo);
    return object;
  }

  std::string oldText(const CredentialChange& change) const {
    return credentialText(*change.before, _before, _form.withPins);
  }
  std::string newText(const CredentialChange& change) const {
    return credentialText(*change.now, _now, _form.withPins);
  }

  template <typename... Args>
  void add(fmt::format_string<Args...> format, Args&&... args) {
    fmt::format_to(std::back_inserter(_text), format, std::forward<Args>(args)...);
  }

  const Site &_before, &_now;
  const ChangeForm _form;
  Console& _console;
  std::string _text;
};

}  // namespace

const char* nameOf(ChangeKind kind) {
  constexpr std::array kNames = {"added", "removed", "moved", "deleted", "restored", "changed"};
  return kNames.at(static_cast<size_t>(kind));
}

size_t Changes::countHolders(ChangeKind kind) const {
  return static_cast<size_t>(std::ranges::count(holders, kind, &HolderChange::kind));
}

size_t Changes::countCredentials(ChangeKind kind) const {
  return static_cast<size_t>(std::ranges::count(credentials, kind, &CredentialChange::kind));
}

Changes compare(const Databases& before, const Databases& now) {
  Changes changes;
  forEachUniqid(before.accesses, now.accesses, [&](uint32_t, auto old, auto fresh) {
    if (!std::ranges::equal(old, fresh)) changes.holders.push_back({old, fresh});
  });
  changes.credentials = differences(before.idents, now.idents);
  joinPairs(changes.credentials, identityOfHoldersKey, identityOfHoldersKey);
  joinPairs(changes.credentials, identityOfKey, identityOfKey);
  joinPairs(changes.credentials, identityOfPin, identityOfPin);
  return changes;
}

void joinChangedKeys(Changes& changes, const Site& before, const Site& now) {
  const auto cardOf = [](const Site& site) {
    return [&site](const IdentRecord& record) -> std::optional<Card> {
      const auto number = site.cardNumberOf(record);
      if (!number) return std::nullopt;
      return Card{record.uniqid, record.cardsetcode, *number};
    };
  };
  joinPairs(changes.credentials, cardOf(before), cardOf(now));
}

void printChanges(const Changes& changes, const Site& before, const Site& now, ChangeForm form,
                  Console& console) {
  ChangePrinter(before, now, form, console).print(changes);
}

}  // namespace badgemint::admin
