// What only the whole cards file can show: keys and unique IDs that occur twice, PIN idents without
// their card, escorts that are not holders.
#include <algorithm>
#include <array>
#include <bit>
#include <map>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "admin/check/sitecheck.h"
#include "cardsets/card_functions.h"
#include "inputcards/cardline.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

using Group = std::span<const CardIndexSuspect>;

// "card 15 of holder 3"; a PIN is never part of it.
std::string textOf(const CardIndexEntry& entry) {
  if (entry.type == kPinLine || entry.type == kPinIdentLine)
    return fmt::format("the PIN of holder {}", entry.uniqid);
  if (entry.type != kNoFormatCardLine)
    return fmt::format("card {} of holder {}", entry.cardNumber(), entry.uniqid);
  std::array<char, 2 * sizeof entry.key + 1> digits{};
  bitsToHex(entry.key, digits);
  return fmt::format("card {} of holder {}", digits.data(), entry.uniqid);
}

bool isPin(const CardIndexEntry& entry) {
  return entry.type == kPinLine || entry.type == kPinIdentLine;
}

About aboutOf(const CardIndexEntry& entry) {
  About about{.holder = entry.uniqid};
  if (isPin(entry)) return about;
  about.set = entry.csid;
  if (entry.type != kNoFormatCardLine) {
    about.card = fmt::to_string(entry.cardNumber());
  } else {
    std::array<char, 2 * sizeof entry.key + 1> digits{};
    bitsToHex(entry.key, digits);
    about.card = digits.data();
  }
  return about;
}

// Calls `visit` with each run of suspects that `same` holds for.
template <typename Same, typename Visit>
void forEachGroup(Group sorted, Same same, Visit visit) {
  for (size_t begin = 0, end = 0; begin < sorted.size(); begin = end) {
    for (end = begin + 1; end < sorted.size() && same(sorted[begin], sorted[end]);) ++end;
    visit(sorted.subspan(begin, end - begin));
  }
}

// Finds the escort that the first line of a holder names. A table of our own: half a million
// escorts would take longer in an ordered or a standard one than all the rest of the file.
class EscortTable {
 public:
  static constexpr size_t kNone = SIZE_MAX;

  // `uses` must outlive the table.
  explicit EscortTable(const std::vector<EscortUse>& uses)
      : _uses(uses), _slots(std::bit_ceil(2 * uses.size() + 1)) {
    for (size_t i = 0; i < uses.size(); ++i) {
      uint32_t& slot = _slots[slotOf(uses[i].uniqid)];
      if (slot == 0) slot = static_cast<uint32_t>(i + 1);
    }
  }

  // The position in `uses`, or kNone.
  size_t find(uint32_t uniqid) const { return size_t{_slots[slotOf(uniqid)]} - 1; }

 private:
  // The one of the unique ID, or the free one where it belongs.
  size_t slotOf(uint32_t uniqid) const {
    const size_t mask = _slots.size() - 1;
    size_t slot = (uniqid * uint64_t{0x9E3779B97F4A7C15} >> 32) & mask;
    while (_slots[slot] != 0 && _uses[_slots[slot] - 1].uniqid != uniqid) slot = (slot + 1) & mask;
    return slot;
  }

  const std::vector<EscortUse>& _uses;
  std::vector<uint32_t> _slots;  // Positions from 1; 0 is a free slot.
};

class WholeFileCheck {
 public:
  WholeFileCheck(WholeFile whole, Findings& findings)
      : _whole(std::move(whole)), _findings(findings) {
    std::ranges::sort(_whole.unindexed, {}, &UniqidRange::first);
    // So that a search for the last range before an ID finds all that is before.
    uint32_t last = 0;
    for (UniqidRange& range : _whole.unindexed) last = range.last = std::max(last, range.last);
  }

  int64_t run() {
    checkKeys();
    const int64_t holders = checkUniqids();
    reportErrors();
    reportPairs();
    checkEscorts();
    checkEscortRings();
    return holders;
  }

 private:
  static constexpr int32_t kNoOther = -1;

  // Entries of one line that fail for the same reason: of a block there may be many. Entries are
  // known by their positions in the index, which are in the order of the file.
  struct Clash {
    int32_t first = 0;
    int32_t other = kNoOther;  // That the first one clashes with.
    int64_t count = 0;
  };
  struct Pair {
    int32_t position;
    int32_t other;
  };
  using LineAndCode = std::pair<int32_t, int32_t>;

  const CardIndexEntry& entry(int32_t position) const { return _whole.index.entry(position); }
  const CardIndexEntry& entry(const CardIndexSuspect& suspect) const {
    return entry(suspect.position);
  }
  Place placeOf(const CardIndexEntry& entry) const { return {_whole.file, entry.line, 0}; }

  // `code` or `rule`, whichever it has, says what the finding is.
  template <typename... Args>
  void report(const CardIndexEntry& entry, int32_t code, std::string_view rule,
              fmt::format_string<Args...> format, Args&&... args) const {
    Finding finding{.place = placeOf(entry), .code = code, .rule = rule, .about = aboutOf(entry)};
    if (code == kDuplicateCardKey && (_whole.withPins || !isPin(entry)))
      finding.about.key = keyText(entry.key);
    _findings.add(std::move(finding), format, fmt::make_format_args(args...));
  }
  template <typename... Args>
  void warn(const EscortUse& use, fmt::format_string<Args...> format, Args&&... args) const {
    const Place place{_whole.file, use.line, use.column};
    _findings.add({.place = place, .rule = "escort", .about = {.holder = use.uniqid}}, format,
                  fmt::make_format_args(args...));
  }

  void addError(int32_t code, int32_t position, int32_t other) {
    Clash& clash = _errors[{entry(position).line, code}];
    if (clash.count++ == 0 || position < clash.first) {
      clash.first = position;
      clash.other = other;
    }
  }

  void checkKeys() {
    CardIndexSuspects suspects;
    if (!_whole.index.collectByKey(suspects)) throw std::bad_alloc();
    const CardIndexEntry* smallest = nullptr;  // The second entry of the smallest key.
    forEachGroup(
        suspects.elements(),
        [this](const CardIndexSuspect& a, const CardIndexSuspect& b) {
          return entry(a).key == entry(b).key;
        },
        [&](Group group) {
          const CardIndexEntry& first = entry(group[0]);
          for (const CardIndexSuspect& suspect : group.subspan(1)) {
            addError(kDuplicateCardKey, suspect.position, group[0].position);
            if (entry(suspect).uniqid == first.uniqid) _repeated.insert(suspect.position);
          }
          if (group.size() > 1 && (smallest == nullptr || first.key < smallest->key))
            smallest = &entry(group[1]);
        });
    if (smallest != nullptr) _findings.setVerdict(kDuplicateCardKey, placeOf(*smallest));
  }

  int64_t checkUniqids() {
    CardIndexSuspects suspects;
    if (!_whole.index.collectByUniqid(suspects)) throw std::bad_alloc();
    int64_t holders = _whole.index.count();
    forEachGroup(
        suspects.elements(),
        [](const CardIndexSuspect& a, const CardIndexSuspect& b) { return a.order == b.order; },
        [&](Group group) {
          holders -= static_cast<int64_t>(group.size()) - 1;
          group.size() == 1 ? checkLoneUniqid(group[0].position) : checkSharedUniqid(group);
        });
    return holders;
  }

  void checkLoneUniqid(int32_t position) {
    const CardIndexEntry& pin = entry(position);
    if (pin.type != kPinIdentLine || isUnindexed(pin.uniqid)) return;
    if (pin.uniqid == lowestUniqid()) {
      _pairs.push_back({position, kNoOther});
      return;
    }
    addError(kUnpairedPinIdent, position, kNoOther);
    _findings.setVerdict(kUnpairedPinIdent, placeOf(pin));
  }

  void checkSharedUniqid(Group group) {
    int32_t lastPin = kNoOther;
    int32_t lastCard = kNoOther;
    for (size_t i = 0; i < group.size(); ++i) {
      const int32_t position = group[i].position;
      int32_t& alike = entry(position).type == kPinIdentLine ? lastPin : lastCard;
      const bool isRepeated = _repeated.contains(position);
      if (i > 0 && !CardIndex::mayShareUniqid(entry(group[i - 1]), entry(position))) {
        _findings.setVerdict(kDuplicateUniqueId, placeOf(entry(position)));
        if (!isRepeated) addError(kDuplicateUniqueId, position, group[0].position);
      } else if (alike != kNoOther && !isRepeated) {
        _pairs.push_back({position, alike});
      }
      alike = position;
    }
  }

  uint32_t lowestUniqid() {
    if (!_lowest) {
      uint32_t lowest = _whole.unindexed.empty() ? UINT32_MAX : _whole.unindexed[0].first;
      for (int32_t i = 0; i < _whole.index.count(); ++i) lowest = std::min(lowest, entry(i).uniqid);
      _lowest = lowest;
    }
    return *_lowest;
  }

  bool isUnindexed(uint32_t uniqid) const {
    const auto after = std::ranges::upper_bound(_whole.unindexed, uniqid, {}, &UniqidRange::first);
    return after != _whole.unindexed.begin() && std::prev(after)->last >= uniqid;
  }

  // In the order of the lines, as the findings of one code are kept.
  void reportErrors() const {
    for (const auto& [lineAndCode, clash] : _errors) reportError(lineAndCode.second, clash);
  }

  void reportError(int32_t code, const Clash& clash) const {
    const CardIndexEntry& first = entry(clash.first);
    if (clash.other == kNoOther) {
      report(first, code, {},
             "the PIN of holder {0} has no card: no 'c', 'd' or 'n' line is of holder {0}",
             first.uniqid);
      return;
    }
    const char* const what = code == kDuplicateCardKey ? "key" : "unique ID";
    const CardIndexEntry& other = entry(clash.other);
    if (clash.count == 1)
      report(first, code, {}, "{} has the {} of {} in line {}", textOf(first), what, textOf(other),
             other.line);
    else
      report(first, code, {}, "{} has the {} of {} in line {}, and {} more of the block repeat one",
             textOf(first), what, textOf(other), other.line, clash.count - 1);
  }

  // Entries of one unique ID that a build accepts by chance. Of a block only the first.
  void reportPairs() {
    std::ranges::sort(_pairs, {}, &Pair::position);
    int32_t reportedLine = 0;
    for (const auto& [position, other] : _pairs) {
      const CardIndexEntry& second = entry(position);
      if (std::exchange(reportedLine, second.line) == second.line ||
          std::ranges::binary_search(_whole.misread, second.line))
        continue;
      if (other == kNoOther)
        report(second, 0, "pair",
               "{} has no card: a build accepts it only because no unique ID is smaller",
               textOf(second));
      else
        report(second, 0, "pair",
               "{} is the second {} of its holder: a build accepts it only because a {} "
               "stands between it and line {}",
               textOf(second), second.type == kPinIdentLine ? "PIN" : "card",
               second.type == kPinIdentLine ? "card" : "PIN", entry(other).line);
    }
  }

  void checkEscorts() const {
    std::unordered_set<uint32_t> missing;
    for (const EscortUse& use : _whole.escorts) missing.insert(use.escort);
    for (const SlippedEscort& use : _whole.slippedEscorts) missing.insert(use.escort);
    for (int32_t i = 0; i < _whole.index.count() && !missing.empty(); ++i)
      missing.erase(entry(i).uniqid);
    if (missing.empty()) return;
    std::erase_if(missing, [this](uint32_t escort) { return isUnindexed(escort); });
    for (const auto& [escort, finding] : _whole.slippedEscorts)
      if (missing.contains(escort))
        _findings.addRemark(finding, fmt::format("escort {}", escort), " (no such holder)");
    for (const EscortUse& use : _whole.escorts)
      if (missing.contains(use.escort))
        warn(use,
             "escort {} does not exist: doors that need an escort never open for holder "
             "{}",
             use.escort, use.uniqid);
  }

  // Holders who escort each other in a ring, of one or more: one finding a ring, at its last line.
  void checkEscortRings() const {
    const std::vector<EscortUse>& uses = _whole.escorts;
    const EscortTable table(uses);
    std::vector<uint32_t> walks(uses.size());  // The walk that came by; they count from 1.
    std::vector<EscortUse> rings;
    for (uint32_t walk = 1; walk <= uses.size(); ++walk) {
      size_t at = walk - 1;
      for (; at != EscortTable::kNone && walks[at] == 0; at = table.find(uses[at].escort))
        walks[at] = walk;
      if (at != EscortTable::kNone && walks[at] == walk) rings.push_back(lastOfRing(table, at));
    }
    std::ranges::sort(rings, {}, &EscortUse::line);
    for (const EscortUse& use : rings) reportRing(use);
  }

  EscortUse lastOfRing(const EscortTable& table, size_t first) const {
    EscortUse last = _whole.escorts[first];
    for (size_t at = table.find(last.escort); at != first;) {
      const EscortUse& use = _whole.escorts[at];
      if (use.line > last.line) last = use;
      at = table.find(use.escort);
    }
    return last;
  }

  void reportRing(const EscortUse& use) const {
    if (use.escort == use.uniqid)
      warn(use, "holder {} is his own escort: doors that need an escort never open for him",
           use.uniqid);
    else
      warn(use,
           "holder {} and escort {} wait for each other, directly or through others: "
           "doors that need an escort never open for them",
           use.uniqid, use.escort);
  }

  WholeFile _whole;
  Findings& _findings;
  std::map<LineAndCode, Clash> _errors;
  std::vector<Pair> _pairs;
  std::unordered_set<int32_t> _repeated;  // Entries that repeat a key and its unique ID.
  std::optional<uint32_t> _lowest;
};

}  // namespace

int64_t checkWholeFile(WholeFile whole, Findings& findings) {
  return WholeFileCheck(std::move(whole), findings).run();
}

}  // namespace badgemint::admin
