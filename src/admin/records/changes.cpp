#include "admin/records/changes.h"

#include <algorithm>
#include <array>
#include <bit>
#include <iterator>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "admin/records/wording.h"

namespace badgemint::admin {

namespace {

using enum ChangeKind;

// Of credentials that are sorted.
std::vector<CredentialChange> differences(const std::vector<IdentRecord>& before,
                                          const std::vector<IdentRecord>& now) {
  std::vector<CredentialChange> changes;
  auto old = before.begin(), fresh = now.begin();
  while (old != before.end() || fresh != now.end()) {
    if (fresh == now.end() || (old != before.end() && orderOf(*old) < orderOf(*fresh)))
      changes.push_back({&*old++, nullptr});
    else if (old == before.end() || orderOf(*fresh) < orderOf(*old))
      changes.push_back({nullptr, &*fresh++});
    else
      ++old, ++fresh;
  }
  return changes;
}

// Makes one change of a removed credential and an added one that have the same identity, which the
// function gives; what has none is left alone.
template <typename IdentityOf>
void joinPairs(std::vector<CredentialChange>& changes, IdentityOf identityOf) {
  using Identity = typename std::invoke_result_t<IdentityOf, CredentialChange&>::value_type;
  std::vector<std::pair<Identity, CredentialChange*>> removed, added;
  for (CredentialChange& change : changes) {
    if (change.before != nullptr && change.now != nullptr) continue;
    if (const auto identity = identityOf(change))
      (change.now == nullptr ? removed : added).emplace_back(*identity, &change);
  }
  std::sort(removed.begin(), removed.end());
  std::sort(added.begin(), added.end());
  auto to = added.begin();
  for (const auto& [identity, change] : removed) {
    while (to != added.end() && to->first < identity) ++to;
    if (to != added.end() && to->first == identity)
      change->now = std::exchange(to++->second->now, nullptr);
  }
  std::erase_if(changes, [](const CredentialChange& change) {
    return change.before == nullptr && change.now == nullptr;
  });
}

// A field that has changed.
struct Difference {
  std::string name, before, now;
  bool isNumber = true;
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
        differences.push_back({field.name, valueText(field, old[i], withPins),
                               valueText(field, fresh[i], withPins),
                               field.kind != kTime && field.kind != kPin});
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

// Whether it is a card whose key alone is another.
bool isKeyOfCard(const CredentialChange& change) {
  return change.kind() == kChanged && change.before->cardsetcode == change.now->cardsetcode &&
         !isPinEntry(*change.before);
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
    for (const auto& [name, before, now, isNumber] : differencesOf(change, _form.withPins))
      if (before != now)
        add("{}{}: {} -> {}", std::exchange(separator, ", "), name, before, now);
      else  // A PIN that is not shown.
        add("{}{}", std::exchange(separator, ", "), name);
  }

  void addText(const CredentialChange& change) {
    const auto& [before, now] = change;
    const ChangeKind kind = change.kind();
    const std::string name = credentialText(change.record(), siteOf(change), _form.withPins);
    add("holder {}: {}", change.uniqid(), name);
    if (isKeyOfCard(change)) {
      add(": key {} -> {}", keyText(before->cardnumber), keyText(now->cardnumber));
      for (const auto& value : differencesOf(before->cardsetcode, _before, _now))
        add(", {0}={1} -> {0}={2}", value.name, value.before, value.now);
    } else {
      add(" {}", nameOf(kind));
      if (kind == kMoved) add(" to holder {}", now->uniqid);
      const std::string newName =
          change.isReplaced() ? credentialText(*now, _now, _form.withPins) : name;
      if (newName != name) add(", now {}", newName);
    }
    if (kind != kDeleted && now != nullptr && now->deleted != 0) add(", deleted");
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
    object.add("holder", change.uniqid()).add("change", nameOf(change.kind()));
    if (change.kind() == kMoved) object.add("to", change.now->uniqid);
    addCredential(object, change.record(), siteOf(change), _form.withPins);
    if (change.isReplaced()) {
      addCredential(now, *change.now, _now, _form.withPins);
      object.add("new", now);
    }
    if (isKeyOfCard(change))
      object.addEach("site_values", differencesOf(change.before->cardsetcode, _before, _now),
                     addTo);
    return object;
  }

  const Site& siteOf(const CredentialChange& change) const {
    return change.before != nullptr ? _before : _now;
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

bool CredentialChange::isReplaced() const {
  return before != nullptr && now != nullptr &&
         (before->cardsetcode != now->cardsetcode || before->cardnumber != now->cardnumber);
}

ChangeKind CredentialChange::kind() const {
  if (before == nullptr) return kAdded;
  if (now == nullptr) return kRemoved;
  if (before->uniqid != now->uniqid) return kMoved;
  if (isReplaced()) return kChanged;
  return now->deleted != 0 ? kDeleted : kRestored;
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
  const auto keyOf = [](const CredentialChange& change) {  // Two words are compared sooner.
    return std::bit_cast<PatternWords>(change.record().cardnumber);
  };
  joinPairs(changes.credentials, [keyOf](const auto& change) {
    return std::optional(std::pair(change.uniqid(), keyOf(change)));
  });
  joinPairs(changes.credentials,
            [keyOf](const auto& change) { return std::optional(keyOf(change)); });
  joinPairs(changes.credentials, [](const auto& change) {  // A holder's PIN, whatever its digits.
    const auto& [key, uniqid, code, deleted] = change.record();
    return isPinEntry(change.record()) ? std::optional(std::pair(uniqid, code)) : std::nullopt;
  });
  return changes;
}

void joinChangedKeys(Changes& changes, const Site& before, const Site& now) {
  using Card = std::tuple<uint32_t, uint32_t, int64_t>;  // Unique ID, card set, number.
  joinPairs(changes.credentials, [&](const auto& change) -> std::optional<Card> {
    const IdentRecord& record = change.record();
    const auto number = (change.before != nullptr ? before : now).cardNumberOf(record);
    return number ? std::optional(Card{record.uniqid, record.cardsetcode, *number}) : std::nullopt;
  });
}

void printChanges(const Changes& changes, const Site& before, const Site& now, ChangeForm form,
                  Console& console) {
  ChangePrinter(before, now, form, console).print(changes);
}

}  // namespace badgemint::admin
