#include "admin/records/changes.h"

#include <array>
#include <new>

#include "admin/records/wording.h"
#include "inputcards/cardindex.h"

namespace badgemint::admin {

namespace {

using enum ChangeKind;

// Of credentials that are sorted.
std::vector<CredentialChange> differences(const std::vector<IdentRecord>& before,
                                          const std::vector<IdentRecord>& now) {
  std::vector<CredentialChange> changes;
  changes.reserve(before.size() + now.size());
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

// Joins a removed and an added credential of the same identity into one change. Credentials without
// an identity are left alone.
template <typename IdentityOf>
void joinPairs(std::vector<CredentialChange>& changes, IdentityOf identityOf) {
  using Identity = typename std::invoke_result_t<IdentityOf, CredentialChange&>::value_type;
  std::vector<std::pair<Identity, CredentialChange*>> removed, added;
  for (auto* const list : {&removed, &added}) list->reserve(changes.size());
  for (CredentialChange& change : changes) {
    if (change.before != nullptr && change.now != nullptr) continue;
    if (const auto identity = identityOf(change))
      (change.now == nullptr ? removed : added).emplace_back(*identity, &change);
  }
  for (auto* const list : {&removed, &added})
    if (!std::is_sorted(list->begin(), list->end())) std::sort(list->begin(), list->end());
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

// Which changes have a key that another has, too, and few besides. Where all keys have changed,
// this spares sorting them.
std::vector<bool> findSharedKeys(const std::vector<CredentialChange>& changes) {
  CardIndex keys;
  CardIndexSuspects suspects;
  bool isDone = keys.isInitialised();
  for (const CredentialChange& change : changes)
    isDone = isDone && keys.add(change.record().cardnumber, 0, 0, 0, 0, 0) == kSuccess;
  if (!isDone || !keys.collectByKey(suspects)) throw std::bad_alloc();
  std::vector<bool> isShared(changes.size());
  for (const auto& suspect : suspects.elements())
    isShared[static_cast<size_t>(suspect.position)] = true;
  return isShared;
}

// Calls `visit` with the name and both values, as numbers or as texts, of each field that differs
// in the access records of a holder.
template <typename Visit>
void forEachDifference(const HolderChange& change, bool withPins, Visit visit) {
  using enum AccessField::Kind;
  const auto& [old, fresh] = change;
  if (old.size() != fresh.size()) visit("access records", old.size(), fresh.size());
  for (size_t i = 0; i < std::min(old.size(), fresh.size()); ++i)
    for (const AccessField& field : accessFields()) {
      const uint32_t before = field.valueOf(old[i]), now = field.valueOf(fresh[i]);
      if (before == now) continue;
      if (field.kind == kTime)
        visit(field.name, std::string(timeText(before).data()), std::string(timeText(now).data()));
      else if (field.kind == kPin)
        visit(field.name, pinText(old[i], withPins), pinText(fresh[i], withPins));
      else
        visit(field.name, before, now);
    }
}

// The same for the values of a card set, by their letters.
template <typename Visit>
void forEachDifference(uint32_t csid, const Site& before, const Site& now, Visit visit) {
  const cardset* const old = before.sets().getCardSet(csid);
  const cardset* const fresh = now.sets().getCardSet(csid);
  for (int32_t field = 0; field < kCardSetFields && old != nullptr && fresh != nullptr; ++field)
    if (old->value(field) != fresh->value(field))
      visit(std::string(1, static_cast<char>('A' + field)), old->value(field), fresh->value(field));
}

// Appends what forEachDifference() visits.
auto appendTo(std::vector<JsonObject>& objects) {
  return [&objects](const auto& name, const auto& before, const auto& now) {
    objects.push_back(JsonObject().add("field", name).add("old", before).add("new", now));
  };
}

// Whether only the key of a card has changed.
bool isKeyOfCard(const CredentialChange& change) {
  return change.kind() == kChanged && change.before->cardsetcode == change.now->cardsetcode &&
         !isPinEntry(*change.before);
}

// Prints a change in one line.
class ChangePrinter {
 public:
  ChangePrinter(const Site& before, const Site& now, ChangeForm form, Console& console)
      : _before(before), _now(now), _form(form), _console(console) {}

  template <typename Change>
  void print(const Change& change) {
    if (_form.json) return _console.printJson(json(change));
    printText(change);
    _console.output() << '\n';
  }

 private:
  void printText(const HolderChange& change) {
    _console.print("holder {}: {}", uniqidOf(change), nameOf(change.kind()));
    if (change.kind() != kChanged) return;
    const char* separator = ": ";
    forEachDifference(change, _form.withPins,
                      [&](const auto& name, const auto& before, const auto& now) {
                        _console.print("{}{}", std::exchange(separator, ", "), name);
                        if (before != now)
                          _console.print(": {} -> {}", before, now);  // Else a hidden PIN.
                      });
  }

  void printText(const CredentialChange& change) {
    const auto& [before, now] = change;
    const ChangeKind kind = change.kind();
    const std::string name = credentialText(change.record(), siteOf(change), _form.withPins);
    _console.print("holder {}: {}", uniqidOf(change), name);
    if (isKeyOfCard(change)) {
      _console.print(": key {} -> {}", keyText(before->cardnumber), keyText(now->cardnumber));
      forEachDifference(before->cardsetcode, _before, _now,
                        [this](const auto& letter, int64_t old, int64_t fresh) {
                          _console.print(", {0}={1} -> {0}={2}", letter, old, fresh);
                        });
    } else {
      _console.print(" {}", nameOf(kind));
      if (kind == kMoved) _console.print(" to holder {}", now->uniqid);
      const std::string newName =
          change.isReplaced() ? credentialText(*now, _now, _form.withPins) : name;
      if (newName != name) _console.print(", now {}", newName);
    }
    if (kind != kDeleted && now != nullptr && now->deleted != 0) _console.print(", deleted");
  }

  JsonObject json(const HolderChange& change) const {
    JsonObject object;
    std::vector<JsonObject> fields;
    object.add("holder", uniqidOf(change)).add("change", nameOf(change.kind()));
    if (change.kind() != kChanged) return object;
    forEachDifference(change, _form.withPins, appendTo(fields));
    return object.add("fields", fields);
  }

  // The credential, and as "new" what it has become.
  JsonObject json(const CredentialChange& change) const {
    JsonObject object, now;
    std::vector<JsonObject> values;
    object.add("holder", uniqidOf(change)).add("change", nameOf(change.kind()));
    if (change.kind() == kMoved) object.add("to", change.now->uniqid);
    addCredential(object, change.record(), siteOf(change), _form.withPins);
    if (!change.isReplaced()) return object;
    addCredential(now, *change.now, _now, _form.withPins);
    object.add("new", now);
    if (!isKeyOfCard(change)) return object;
    forEachDifference(change.before->cardsetcode, _before, _now, appendTo(values));
    return object.add("site_values", values);
  }

  const Site& siteOf(const CredentialChange& change) const {
    return change.before != nullptr ? _before : _now;
  }

  const Site &_before, &_now;
  const ChangeForm _form;
  Console& _console;
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

Changes compare(const Site& before, const Site& now) {
  Changes changes;
  const auto addHolder = [&](uint32_t, auto old, auto fresh) {
    if (!std::ranges::equal(old, fresh)) changes.holders.push_back({old, fresh});
  };
  forEachUniqid(before.databases().accesses, now.databases().accesses, addHolder);
  changes.credentials = differences(before.databases().idents, now.databases().idents);
  joinPairs(changes.credentials, [](const CredentialChange& change) {
    return std::optional(std::pair(uniqidOf(change), change.record().cardnumber));
  });
  const auto isShared = findSharedKeys(changes.credentials);
  joinPairs(changes.credentials, [&](const CredentialChange& change) {
    const bool mayMatch = isShared[static_cast<size_t>(&change - changes.credentials.data())];
    return mayMatch ? std::optional(change.record().cardnumber) : std::nullopt;
  });
  // The same number with another key, and PINs of any digits.
  using Credential = std::tuple<uint32_t, uint32_t, int64_t>;
  joinPairs(changes.credentials, [&](const CredentialChange& change) -> std::optional<Credential> {
    const auto& [key, uniqid, code, deleted] = change.record();
    if (isPinEntry(change.record())) return Credential{uniqid, code, 0};
    const auto number = (change.before != nullptr ? before : now).cardNumberOf(change.record());
    return number ? std::optional(Credential{uniqid, code, *number}) : std::nullopt;
  });
  return changes;
}

void printChanges(const Changes& changes, const Site& before, const Site& now, ChangeForm form,
                  Console& console) {
  ChangePrinter printer(before, now, form, console);
  forEachUniqid(changes.holders, changes.credentials,
                [&printer](uint32_t, auto holders, auto credentials) {
                  for (const HolderChange& change : holders) printer.print(change);
                  for (const CredentialChange& change : credentials) printer.print(change);
                });
}

}  // namespace badgemint::admin
