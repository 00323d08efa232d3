#include "inputcards/cardindex.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cinttypes>
#include <cstring>
#include <memory>
#include <new>
#include <span>

#include "inputcards/cardline.h"
#include "support/log.h"
#include "support/packeddecimal.h"
#include "support/result.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "cardindex";

using Entries = std::span<const CardIndexEntry>;

// A value as the table of bits takes it: neighbours have the same block and differ in `last`.
struct HashedValue {
  uint64_t block;  // Well mixed.
  uint32_t last;   // 0 to 255.
};

// A table of bits, about 16 for each entry, in which every value has its place: two bits of a slot,
// which are set when it is met and once more when it is met again. Values that share a place may be
// equal; values that do not are not. A block has 64 slots in a row, from any slot on, each for four
// neighbours, which get places of their own: a run of neighbours stays in the processor's cache.
class HashBits {
  struct Slot {
    uint32_t met, metAgain;
  };
  static constexpr size_t kBlockSlots = 64;
  static constexpr uint32_t kNeighbours = 4;  // In a slot.

 public:
  static constexpr size_t kBytesPerEntry = sizeof(Slot) / kNeighbours;

  bool create(size_t entries) {
    _starts = entries / kNeighbours + 1;
    _slots.reset(new (std::nothrow) Slot[_starts + kBlockSlots]());
    return _slots != nullptr;
  }

  void mark(HashedValue value) {
    Slot& slot = _slots[indexOf(value)];
    const uint32_t place = placeOf(value);
    if ((slot.met & place) == place) slot.metAgain |= place;
    slot.met |= place;
  }
  bool isMetAgain(HashedValue value) const {
    const uint32_t place = placeOf(value);
    return (_slots[indexOf(value)].metAgain & place) == place;
  }

 private:
  size_t indexOf(HashedValue value) const {
    return static_cast<size_t>((value.block >> 32) * _starts >> 32) + value.last / kNeighbours;
  }
  // The two bits of four neighbours are eight apart, and from the first to the second is an odd
  // number: no two of the eight are the same.
  static uint32_t placeOf(HashedValue value) {
    const uint32_t first = static_cast<uint32_t>(value.block) + 8 * value.last;
    const uint32_t second = first + (static_cast<uint32_t>(value.block >> 8) | 1);
    return uint32_t{1} << (first & 31) | uint32_t{1} << (second & 31);
  }

  size_t _starts = 0;  // Of blocks: all slots but the last ones.
  std::unique_ptr<Slot[]> _slots;
};

// How many entries the machine's memory holds, with the bits of the checks, when a quarter stays
// for everything else: asking the kernel for more may succeed and end in its killing some process.
// Other limits make an allocation fail.
int32_t entriesInMemory() {
  constexpr uint64_t kBytesPerEntry = sizeof(CardIndexEntry) + HashBits::kBytesPerEntry;
  const long pages = sysconf(_SC_PHYS_PAGES);
  if (pages <= 0) return INT32_MAX;
  const uint64_t bytes = static_cast<uint64_t>(pages) * static_cast<uint64_t>(getpagesize());
  return static_cast<int32_t>(std::min<uint64_t>(bytes / 4 * 3 / kBytesPerEntry, INT32_MAX));
}

constexpr uint64_t kMix = 0x9E3779B97F4A7C15;  // Odd, its bits well spread.

// Neighbours differ in the last byte that is not 0: there the numbers of consecutive cards differ.
HashedValue hashOfKey(const CardIndexEntry& entry) {
  const std::array<uint64_t, 3> words = BitPattern::fromCard(entry.key).words;
  const uint64_t front = words[1] != 0 ? words[0] : 0;
  const uint64_t end = words[1] != 0 ? words[1] : words[0];
  const uint64_t trimmed = end >> (std::countr_zero(end | uint64_t{1} << 63) & ~7);
  return {(front * kMix ^ trimmed >> 8) * kMix, static_cast<uint32_t>(trimmed & 255)};
}

HashedValue hashOfUniqid(const CardIndexEntry& entry) {
  return {(entry.uniqid >> 8) * kMix, entry.uniqid & 255};
}

using Suspect = CardIndexSuspect;

// Collects the entries whose value may occur twice, and those that `always` asks for: the proof
// that all others differ takes two walks over the index and no sort. The first walk marks each
// value's place and notes the places that are met again; the second picks the entries in those
// places.
template <typename Hash, typename Order, typename Always>
bool collectSuspects(Entries entries, Hash hash, Order order, Always always,
                     CardIndexSuspects& suspects) {
  HashBits bits;
  if (!bits.create(entries.size())) return false;
  for (const CardIndexEntry& entry : entries) bits.mark(hash(entry));
  for (size_t i = 0; i < entries.size(); ++i) {
    if (!bits.isMetAgain(hash(entries[i])) && !always(entries[i])) continue;
    if (!suspects.add({order(entries[i]), static_cast<int32_t>(i)})) return false;
  }
  return true;
}

uint32_t orderOfKey(const CardIndexEntry& entry) {
  const HashedValue value = hashOfKey(entry);
  return static_cast<uint32_t>(value.block >> 32) ^ value.last;
}

int compareKeys(const CardIndexEntry& a, const CardIndexEntry& b) {
  return std::memcmp(a.key.data(), b.key.data(), a.key.size());
}

bool isCard(const CardIndexEntry& entry) {
  return entry.type == kCardLine || entry.type == kMultiCardsLine ||
         entry.type == kNoFormatCardLine;
}

bool isPinIdent(const CardIndexEntry& entry) {
  return entry.type == kPinIdentLine;
}

void reportPin(const char* label, const CardIndexEntry& entry) {
  LOG(kLogError, "%s - pin=%s\n", label, DigitText<2 * sizeof entry.key>(entry.key).c_str());
}

// What only the entry's key contains: the digits of a card without format, or a PIN.
void reportKey(const char* label, const CardIndexEntry& entry) {
  if (entry.type == kNoFormatCardLine) {
    LOG_HEX(kLogError, entry.key, "%s - hexcardno=", label);
  } else if (!isCard(entry)) {
    reportPin(label, entry);
  }
}

// The reports of the two checks differ in their commas.
void reportSameKey(const char* label, const CardIndexEntry& entry) {
  LOG(kLogError, "%s - uniqid=%u, linetype=%c line#=%d csid=%d cardno=%" PRId64 "\n", label,
      entry.uniqid, entry.type, entry.line, entry.csid, entry.cardNumber());
  reportKey(label, entry);
}

void reportUniqid(const char* label, const CardIndexEntry& entry) {
  LOG(kLogError, "%s - uniqid=%u, linetype=%c, line#=%d, csid=%d, cardno=%" PRId64 "\n", label,
      entry.uniqid, entry.type, entry.line, entry.csid, entry.cardNumber());
}

int32_t reportDuplicateKey(const CardIndexEntry& first, const CardIndexEntry& second) {
  LOG(kLogError, "Error - Duplicate hex card number\n");
  reportSameKey("First card info", first);
  reportSameKey("Second card info", second);
  return kDuplicateCardKey;
}

int32_t reportUnpaired(const CardIndexEntry& entry) {
  LOG(kLogError, "Error - Unpaired 'o' line\n");
  reportUniqid("card info", entry);
  reportPin("card info", entry);
  return kUnpairedPinIdent;
}

int32_t reportDuplicateUniqid(const CardIndexEntry& first, const CardIndexEntry& second) {
  LOG(kLogError, "Error - Duplicate unique ID\n");
  reportUniqid("First card info", first);
  reportKey("First card info", first);
  reportUniqid("Second card info", second);
  reportKey("Second card info", second);
  return kDuplicateUniqueId;
}

}  // namespace

CardIndex::CardIndex() : _limit(entriesInMemory()), _initialised(_entries.create(kGrowthStep)) {
  if (!_initialised) static_cast<void>(reportNoMemory());
}

int32_t CardIndex::reportNoMemory() {
  LOG(kLogError, "Not enough memory to create card index\n");
  return kOutOfMemory;
}

bool CardIndex::mayShareUniqid(const CardIndexEntry& a, const CardIndexEntry& b) {
  return (isPinIdent(a) && isCard(b)) || (isCard(a) && isPinIdent(b));
}

bool CardIndex::collectByKey(CardIndexSuspects& suspects) const {
  const auto none = [](const CardIndexEntry&) { return false; };
  if (!collectSuspects(_entries.elements(), hashOfKey, orderOfKey, none, suspects)) return false;
  std::ranges::sort(suspects.elements(), [this](const Suspect& a, const Suspect& b) {
    if (a.order != b.order) return a.order < b.order;
    const int order = compareKeys(_entries[a.position], _entries[b.position]);
    return order != 0 ? order < 0 : a.position < b.position;
  });
  return true;
}

bool CardIndex::collectByUniqid(CardIndexSuspects& suspects) const {
  const auto uniqidOf = [](const CardIndexEntry& entry) { return entry.uniqid; };
  if (!collectSuspects(_entries.elements(), hashOfUniqid, uniqidOf, isPinIdent, suspects))
    return false;
  std::ranges::sort(suspects.elements(), [](const Suspect& a, const Suspect& b) {
    return a.order != b.order ? a.order < b.order : a.position < b.position;
  });
  return true;
}

int32_t CardIndex::checkDuplicateKeys() const {
  CardIndexSuspects suspects;
  if (!collectByKey(suspects)) return reportNoMemory();
  const std::span<const Suspect> sorted = suspects.elements();
  const CardIndexEntry* first = nullptr;  // Of the smallest key that occurs twice.
  const CardIndexEntry* second = nullptr;
  for (size_t i = 1; i < sorted.size(); ++i) {
    if (sorted[i - 1].order != sorted[i].order) continue;
    const CardIndexEntry& before = _entries[sorted[i - 1].position];
    const CardIndexEntry& entry = _entries[sorted[i].position];
    if (compareKeys(before, entry) != 0) continue;
    if (first != nullptr && compareKeys(entry, *first) >= 0) continue;
    first = &before;
    second = &entry;
  }
  return first != nullptr ? reportDuplicateKey(*first, *second) : kSuccess;
}

int32_t CardIndex::checkDuplicateUniqueIds() const {
  CardIndexSuspects suspects;
  if (!collectByUniqid(suspects)) return reportNoMemory();
  const std::span<const Suspect> sorted = suspects.elements();
  const Entries entries = _entries.elements();
  const auto isLowest = [entries](const CardIndexEntry& entry) {
    return std::ranges::none_of(
        entries, [&entry](uint32_t id) { return id < entry.uniqid; }, &CardIndexEntry::uniqid);
  };
  for (size_t i = 0; i < sorted.size(); ++i) {
    const CardIndexEntry& entry = _entries[sorted[i].position];
    const bool sharedBefore = i > 0 && sorted[i - 1].order == sorted[i].order;
    const bool sharedBehind = i + 1 < sorted.size() && sorted[i + 1].order == sorted[i].order;
    const bool isUnpaired = isPinIdent(entry) && !sharedBefore && !sharedBehind;
    if (isUnpaired && (i > 0 || !isLowest(entry))) return reportUnpaired(entry);
    if (!sharedBefore) continue;
    const CardIndexEntry& before = _entries[sorted[i - 1].position];
    if (!mayShareUniqid(before, entry)) return reportDuplicateUniqid(before, entry);
  }
  return kSuccess;
}

}  // namespace badgemint
