#include "admin/check/wholefile.h"

#include <algorithm>
#include <array>
#include <map>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "cardsets/card_functions.h"
#include "inputcards/cardline.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

using Group = std::span<const CardIndexSuspect>;

bool isPinKey(const CardIndexEntry& entry) {
  return entry.type == kPinLine || entry.type == kPinIdentLine;
}

std::string nameOf(const CardIndexEntry& entry) {
  if (isPinKey(entry)) return "the PIN";
  if (entry.type != kNoFormatCardLine) return "card " + std::to_string(entry.cardNumber());
  std::array<char, 2 * sizeof entry.key + 1> digits{};
  bitsToHex(entry.key, digits);
  return std::string("card ") + digits.data();
}

std::string ofHolder(const CardIndexEntry& entry) {
  return nameOf(entry) + " of holder " + std::to_string(entry.uniqid);
}

class WholeFileCheck {
 public:
  WholeFileCheck(WholeFile whole, Findings& findings)
      : _whole(std::move(whole)), _findings(findings) {
    std::ranges::sort(_whole.unindexed, {}, &UniqidRange::first);
    uint32_t reached =
        0;  // So that a search for the last range before an ID finds all that is before.
    for (UniqidRange& range : _whole.unindexed)
      reached = range.last = std::max(reached, range.last);
  }

  int64_t run() {
    checkKeys();
    const int64_t holders = checkUniqids();
    tellErrors();
    tellPairs();
    checkEscorts();
    return holders;
  }

 private:
  // Errors of one code in one line, of which a block may give many.
  using Cause = std::pair<int32_t, int32_t>;  // Line, code.
  struct Cards {
    const CardIndexEntry* first = nullptr;
    int64_t count = 0;
    int32_t otherLine = 0;  // That the first one clashes with.
    bool hasMoreLines = false;
  };
  struct Pair {
    const CardIndexEntry* entry;
    const char* why;
    int32_t otherLine;
  };

  const CardIndexEntry& entryOf(const CardIndexSuspect& suspect) const {
    return _whole.index.entry(suspect.position);
  }

  // Calls `take` with each run of suspects that `same` holds for.
  template <typename Same, typename Take>
  static void forEachGroup(Group sorted, Same same, Take take) {
    for (size_t begin = 0, end = 0; begin < sorted.size(); begin = end) {
      for (end = begin + 1; end < sorted.size() && same(sorted[begin], sorted[end]);) ++end;
      take(sorted.subspan(begin, end - begin));
    }
  }

  void addError(int32_t code, const CardIndexEntry& entry, int32_t otherLine) {
    Cards& cards = _errors[{entry.line, code}];
    cards.hasMoreLines |= cards.count > 0 && cards.otherLine != otherLine;
    if (cards.count++ > 0 && cards.first < &entry) return;  // In the order of the file.
    cards.first = &entry;
    cards.otherLine = otherLine;
  }

  void checkKeys() {
    CardIndexSuspects suspects;
    if (!_whole.index.collectByKey(suspects)) throw std::bad_alloc();
    const CardIndexEntry* smallest = nullptr;  // The second entry of the smallest key.
    forEachGroup(
        suspects.elements(),
        [this](const CardIndexSuspect& a, const CardIndexSuspect& b) {
          return entryOf(a).key == entryOf(b).key;
        },
        [&](Group group) {
          const CardIndexEntry& first = entryOf(group[0]);
          for (const CardIndexSuspect& suspect : group.subspan(1)) {
            const CardIndexEntry& entry = entryOf(suspect);
            addError(kDuplicateCardKey, entry, first.line);
            if (entry.uniqid == first.uniqid) _repeated[suspect.position] = true;
          }
          if (group.size() > 1 && (smallest == nullptr || first.key < smallest->key))
            smallest = &entryOf(group[1]);
        });
    if (smallest != nullptr) _findings.setVerdict(kDuplicateCardKey, placeOf(smallest->line));
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
          group.size() == 1 ? checkLoneUniqid(entryOf(group[0])) : checkSharedUniqid(group);
        });
    return holders;
  }

  void checkLoneUniqid(const CardIndexEntry& entry) {
    if (entry.type != kPinIdentLine || isUnindexed(entry.uniqid)) return;
    if (entry.uniqid == lowestUniqid()) {
      _pairs.push_back(
          {&entry, "without a card it passes only because no unique ID is smaller", 0});
      return;
    }
    addError(kUnpairedPinIdent, entry, 0);
    _findings.setVerdict(kUnpairedPinIdent, placeOf(entry.line));
  }

  void checkSharedUniqid(Group group) {
    const int32_t firstLine = entryOf(group[0]).line;
    const CardIndexEntry* lastPin = nullptr;
    const CardIndexEntry* lastCard = nullptr;
    for (size_t i = 0; i < group.size(); ++i) {
      const CardIndexEntry& entry = entryOf(group[i]);
      const bool isPin = entry.type == kPinIdentLine;
      const CardIndexEntry*& like = isPin ? lastPin : lastCard;
      if (i > 0 && !CardIndex::mayShareUniqid(entryOf(group[i - 1]), entry)) {
        _findings.setVerdict(kDuplicateUniqueId, placeOf(entry.line));
        if (!_repeated.contains(group[i].position)) addError(kDuplicateUniqueId, entry, firstLine);
      } else if (like != nullptr && !_repeated.contains(group[i].position)) {
        _pairs.push_back({&entry,
                          isPin ? "two PINs of one holder pass only because a card stands between"
                                : "two cards of one holder pass only because a PIN stands between",
                          like->line});
      }
      like = &entry;
    }
  }

  uint32_t lowestUniqid() {
    if (!_lowest) {
      uint32_t lowest = _whole.unindexed.empty() ? UINT32_MAX : _whole.unindexed[0].first;
      for (int32_t i = 0; i < _whole.index.count(); ++i)
        lowest = std::min(lowest, _whole.index.entry(i).uniqid);
      _lowest = lowest;
    }
    return *_lowest;
  }

  bool isUnindexed(uint32_t uniqid) const {
    const auto behind = std::ranges::upper_bound(_whole.unindexed, uniqid, {}, &UniqidRange::first);
    return behind != _whole.unindexed.begin() && std::prev(behind)->last >= uniqid;
  }

  // Findings of one code in the order of the lines, as they are kept.
  void tellErrors() {
    for (const auto& [cause, cards] : _errors) {
      const auto [line, code] = cause;
      std::string text = ofHolder(*cards.first);
      if (cards.count > 1) text += " and " + std::to_string(cards.count - 1) + " more of the block";
      const std::string other =
          std::to_string(cards.otherLine) + (cards.hasMoreLines ? " and of others" : "");
      const bool one = cards.count == 1;
      switch (code) {
        case kDuplicateCardKey:
          text += (one ? " has the key of line " : " have keys of line ") + other;
          break;
        case kDuplicateUniqueId:
          text += (one ? " has the unique ID of line " : " have unique IDs of line ") + other;
          break;
        default:
          text += " has no card: no 'c', 'd' or 'n' line is of this holder";
      }
      _findings.error(placeOf(line), code, text);
    }
  }

  // Of a block only the first.
  void tellPairs() {
    std::ranges::sort(_pairs, {}, &Pair::entry);
    int32_t told = 0;
    for (const Pair& pair : _pairs) {
      if (pair.entry->line == told) continue;
      told = pair.entry->line;
      if (std::ranges::binary_search(_whole.misread, told)) continue;
      std::string text = ofHolder(*pair.entry) + ": " + pair.why;
      if (pair.otherLine > 0) text += " (line " + std::to_string(pair.otherLine) + ")";
      _findings.warning(placeOf(told), "pair", text);
    }
  }

  void checkEscorts() {
    std::unordered_set<uint32_t> missing;
    for (const EscortUse& use : _whole.escorts) missing.insert(use.escort);
    for (int32_t i = 0; i < _whole.index.count() && !missing.empty(); ++i)
      missing.erase(_whole.index.entry(i).uniqid);
    if (missing.empty()) return;
    for (const EscortUse& use : _whole.escorts) {
      if (!missing.contains(use.escort) || isUnindexed(use.escort)) continue;
      _findings.warning({_whole.file, use.line, use.column}, "escort",
                        "escort " + std::to_string(use.escort) + " of holder " +
                            std::to_string(use.uniqid) + " is no holder of this file");
    }
  }

  Place placeOf(int32_t line) const { return {_whole.file, line, 0}; }

  WholeFile _whole;
  Findings& _findings;
  std::map<Cause, Cards> _errors;
  std::vector<Pair> _pairs;
  std::unordered_map<int32_t, bool> _repeated;  // Entries that repeat a key and its unique ID.
  std::optional<uint32_t> _lowest;
};

}  // namespace

int64_t checkWholeFile(WholeFile whole, Findings& findings) {
  return WholeFileCheck(std::move(whole), findings).run();
}

}  // namespace badgemint::admin
