// What only the whole cards file can show: keys and unique IDs that occur twice, PIN idents without
// their card, escorts that are not holders.
#include <new>
#include <tuple>
#include <unordered_set>

#include "admin/check/cardscheck.h"
#include "cardsets/card_functions.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

using Group = std::span<const CardIndexSuspect>;

bool isPinOnly(const CardIndexEntry& entry) {
  return entry.type == kPinLine || entry.type == kPinIdentLine;
}

About aboutOf(const CardIndexEntry& entry) {
  About about{.holder = entry.uniqid, .set = entry.csid, .isHex = entry.type == kNoFormatCardLine};
  if (about.isHex) {
    char digits[2 * sizeof entry.key + 1];
    bitsToHex(entry.key, digits);
    about.card = digits;
  } else if (!isPinOnly(entry)) {
    about.card = fmt::to_string(entry.cardNumber());
  }
  return about;
}

// Entries are known by their positions in the index, which are in the order of the file.
class WholeFileCheck {
 public:
  explicit WholeFileCheck(CardsCheck& check) : _check(check), _index(check.index) {
    if (!check.unindexed.empty()) _lowest = check.unindexed.begin()->first;
    // Extends each range to the highest end so far: then only the last range that begins at or
    // before an ID matters.
    for (uint32_t highest = 0; auto& [first, last] : check.unindexed)
      highest = last = std::max(highest, last);
    for (const EscortUse& use : check.escorts) _escorts[use.escort];
    // Sites have few escorts: to look for them among the holders needs no sorted holders.
    for (int32_t i = 0; i < _index.count(); ++i) {
      const uint32_t uniqid = entry(i).uniqid;
      _lowest = std::min(_lowest, uniqid);
      if (const auto escort = _escorts.find(uniqid); escort != _escorts.end())
        escort->second = true;
    }
  }

  int64_t run() {
    checkKeys();
    const int64_t holders = checkUniqids();
    reportConflicts();
    checkEscorts();
    return holders;
  }

 private:
  static constexpr int32_t kPair = 0;
  // Arguments: both names, the line of the other entry, the unique ID.
  using Text =
      fmt::format_string<const std::string&, const std::string&, const int32_t&, const uint32_t&>;

  // A duplicate or a missing partner; without another entry `other` is the entry itself.
  struct Conflict {
    int32_t code;  // The result of a build; kPair for what it accepts by chance.
    int32_t position;
    int32_t other;
    Text text;
  };

  const CardIndexEntry& entry(int32_t position) const { return _index.entry(position); }
  Place placeOf(const CardIndexEntry& entry) const { return {_check.file, entry.line, 0}; }

  bool isUnindexed(uint32_t uniqid) const {
    const auto after = _check.unindexed.upper_bound(uniqid);
    return after != _check.unindexed.begin() && std::prev(after)->second >= uniqid;
  }
  bool isHolder(uint32_t escort) const { return _escorts.at(escort) || isUnindexed(escort); }

  void checkKeys() {
    CardIndexSuspects suspects;
    if (!_index.collectByKey(suspects)) throw std::bad_alloc();
    int32_t first = -1;                        // Of the entries of one key.
    const CardIndexEntry* smallest = nullptr;  // The second entry of the smallest key.
    for (const CardIndexSuspect& suspect : suspects.elements()) {
      const CardIndexEntry& next = entry(suspect.position);
      if (first < 0 || entry(first).key != next.key) {
        first = suspect.position;
        continue;
      }
      _conflicts.push_back(
          {kDuplicateCardKey, suspect.position, first, "{0} has the key of {1} in line {2}"});
      if (next.uniqid == entry(first).uniqid) _repeated.insert(suspect.position);
      if (smallest == nullptr || next.key < smallest->key) smallest = &next;
    }
    if (smallest != nullptr) _check.findings.setVerdict(kDuplicateCardKey, placeOf(*smallest));
  }

  // Returns how many different ones there are.
  int64_t checkUniqids() {
    int64_t count = _index.count();
    CardIndexSuspects suspects;
    if (!_index.collectByUniqid(suspects)) throw std::bad_alloc();
    for (Group rest = suspects.elements(), group; !rest.empty();
         rest = rest.subspan(group.size())) {
      const auto isOther = [order = rest[0].order](const auto& one) { return one.order != order; };
      group = {rest.begin(), std::ranges::find_if(rest, isOther)};
      count -= static_cast<int64_t>(group.size()) - 1;
      group.size() == 1 ? checkLoneUniqid(group[0].position) : checkSharedUniqid(group);
    }
    return count;
  }

  void checkLoneUniqid(int32_t position) {
    const CardIndexEntry& pin = entry(position);
    if (pin.type != kPinIdentLine || isUnindexed(pin.uniqid)) return;
    if (pin.uniqid == _lowest) {
      _conflicts.push_back(
          {kPair, position, position,
           "{0} has no card: a build accepts it only because no unique ID is smaller"});
    } else {
      _conflicts.push_back({kUnpairedPinIdent, position, position,
                            "{0} has no card: no 'c', 'd' or 'n' line is of holder {3}"});
      _check.findings.setVerdict(kUnpairedPinIdent, placeOf(pin));
    }
  }

  void checkSharedUniqid(Group group) {
    std::optional<int32_t> lastPin, lastCard;
    for (size_t i = 0; i < group.size(); ++i) {
      const int32_t position = group[i].position;
      const bool isPin = entry(position).type == kPinIdentLine;
      std::optional<int32_t>& alike = isPin ? lastPin : lastCard;
      const bool isRepeated = _repeated.contains(position);
      if (i > 0 && !CardIndex::mayShareUniqid(entry(group[i - 1].position), entry(position))) {
        _check.findings.setVerdict(kDuplicateUniqueId, placeOf(entry(position)));
        if (!isRepeated)
          _conflicts.push_back({kDuplicateUniqueId, position, group[0].position,
                                "{0} has the unique ID of {1} in line {2}"});
      } else if (alike && !isRepeated) {
        constexpr Text kPin =
            "{0} is the second PIN of its holder: a build accepts it only because a card stands "
            "between it and line {2}";
        constexpr Text kCard =
            "{0} is the second card of its holder: a build accepts it only because a PIN stands "
            "between it and line {2}";
        _conflicts.push_back({kPair, position, *alike, isPin ? kPin : kCard});
      }
      alike = position;
    }
  }

  // In the order of the lines; of a block there may be many, which are one finding.
  void reportConflicts() {
    std::ranges::sort(_conflicts, {},
                      [](const Conflict& one) { return std::tuple(one.code, one.position); });
    std::pair<int32_t, int32_t> last;  // Code and line.
    size_t finding = Findings::kNotKept;
    for (const Conflict& conflict : _conflicts) {
      const int32_t line = entry(conflict.position).line;
      if (std::exchange(last, {conflict.code, line}) == std::pair(conflict.code, line))
        _check.findings.countFurther(finding);
      else if (conflict.code != kPair || !std::ranges::binary_search(_check.unreliableLines, line))
        finding = report(conflict);
      else
        finding = Findings::kNotKept;
    }
  }

  size_t report(const Conflict& conflict) const {
    const CardIndexEntry& first = entry(conflict.position);
    Finding finding{.place = placeOf(first),
                    .code = conflict.code,
                    .rule = conflict.code == kPair ? "pair" : "",
                    .about = aboutOf(first)};
    if (conflict.code == kDuplicateCardKey && (_check.options.withPins || !isPinOnly(first)))
      finding.about.key = keyText(first.key);
    const CardIndexEntry& other = entry(conflict.other);
    const std::string name = finding.about.name(), otherName = aboutOf(other).name();
    return _check.findings.add(finding, conflict.text,
                               fmt::make_format_args(name, otherName, other.line, first.uniqid));
  }

  void checkEscorts() {
    for (const EscortUse& use : _check.escorts)
      if (use.column == 0)
        reportMissingEscort(use);
      else if (closesRing(use))
        warn(use,
             "holder {0} is his own escort, directly or through others: doors that need an escort "
             "never open for him");
      else if (!isHolder(use.escort))
        warn(use, "escort {1} does not exist: doors that need an escort never open for holder {0}");
  }

  void warn(const EscortUse& use, fmt::format_string<const uint32_t&, const uint32_t&> text) const {
    const Place place{_check.file, use.line, use.column};
    _check.findings.add({.place = place, .rule = "escort", .about = {.holder = use.uniqid}}, text,
                        fmt::make_format_args(use.uniqid, use.escort));
  }

  void reportMissingEscort(const EscortUse& use) const {
    Finding* const finding = _check.findings.find(use.finding);
    if (finding == nullptr || isHolder(use.escort)) return;
    const std::string name = fmt::format("escort {}", use.escort);
    finding->text.insert(finding->text.find(name) + name.size(), " (no such holder)");
  }

  // Whether holders escort each other in a ring, of one or more, and this is the last line of it.
  // Only the first line of a holder counts.
  bool closesRing(const EscortUse& use) {
    if (!_escorts.contains(use.uniqid)) return false;  // As most: they escort nobody.
    const auto [own, isFirst] = _lastEscorts.try_emplace(use.uniqid, use.uniqid);
    if (isFirst) own->second = lastEscort(use.escort);
    return isFirst && own->second == use.uniqid;
  }
  // The end of the chain of escorts that begins with this holder.
  uint32_t lastEscort(uint32_t holder) {
    for (;;) {
      const auto at = _lastEscorts.find(holder);
      if (at == _lastEscorts.end() || at->second == holder) return holder;
      const auto next = _lastEscorts.find(at->second);
      if (next != _lastEscorts.end()) at->second = next->second;  // Shortens the next way.
      holder = at->second;
    }
  }

  CardsCheck& _check;
  const CardIndex& _index;
  uint32_t _lowest = UINT32_MAX;                // Of all unique IDs.
  std::unordered_map<uint32_t, bool> _escorts;  // That lines name, and whether the index has them.
  // Of escorts with an escort the last one known, or one on the way to him.
  std::unordered_map<uint32_t, uint32_t> _lastEscorts;
  std::vector<Conflict> _conflicts;
  std::unordered_set<int32_t> _repeated;  // Entries that repeat a key and its unique ID.
};

}  // namespace

int64_t checkWholeFile(CardsCheck& check) {
  return WholeFileCheck(check).run();
}

}  // namespace badgemint::admin
