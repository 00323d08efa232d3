// The table of both indexes: entries in memory that find the number of a record in its file
// from the record's key. It is sized once and never grows.
//
// A load appends the entries in file order; sort() then brings them into key order. Only the sorted
// part is searched by halves, what was appended after it one by one.
#ifndef BADGEMINT_CARDDB_SORTEDINDEX_H
#define BADGEMINT_CARDDB_SORTEDINDEX_H

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <type_traits>
#include <utility>

#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// An Entry begins with its key and `uint32_t recno`, has nothing else set when it is fresh, and
// defines the order of keys: static rank(key) gives a value that compares fast with < and ==. No
// two entries have one recno.
template <typename Entry>
class SortedIndex {
  static_assert(std::is_trivially_copyable_v<Entry>);

 public:
  SortedIndex() = default;
  SortedIndex(const SortedIndex&) = delete;
  SortedIndex& operator=(const SortedIndex&) = delete;

  // Makes `capacity` zero entries, none of them in use, in place of what was there. False when
  // there is no memory: the capacity is 0 then.
  [[nodiscard]] bool create(uint32_t capacity) {
    destroy();
    _entries.reset(new (std::nothrow) Entry[capacity]());
    if (_entries != nullptr) _capacity = _room = capacity;
    return _entries != nullptr;
  }

  // Frees the entries.
  void destroy() {
    _entries.reset();
    _capacity = _room = _count = _sorted = 0;
  }

  // Takes all entries out of use; they are zero again.
  void clear() {
    std::fill_n(_entries.get(), _count, Entry{});
    _count = _sorted = 0;
    _room = _capacity;
  }
  // The same, and the index is full: it takes no entry before clear() or create(). For an index
  // whose file could not be loaded: an entry would get the number of another record.
  void close() {
    clear();
    _room = 0;
  }

  uint32_t capacity() const { return _capacity; }
  uint32_t count() const { return _count; }
  bool isFull() const { return _count == _room; }

  std::span<Entry> entries() { return {_entries.get(), _count}; }
  // All entries, those after the ones in use zero.
  std::span<Entry> slots() { return {_entries.get(), _capacity}; }

  // Appends an entry to the unsorted tail. The index must not be full.
  void append(const Entry& entry) { _entries[_count++] = entry; }

  // Brings all entries into the order of their keys, and of recno among equal ones.
  void sort() {
    arrange();
    _sorted = _count;
  }

  // Brings all entries into that order, but does not take them for sorted.
  void arrange() {
    const auto inOrder = [](const Entry& a, const Entry& b) {
      const auto rankA = a.rank(), rankB = b.rank();
      return rankA < rankB || (rankA == rankB && a.recno < b.recno);
    };
    if (!std::is_sorted(begin(), end(), inOrder)) std::sort(begin(), end(), inOrder);
    _sorted = 0;
  }

  // The entry of a key; of several the first in the sorted part, which has the lowest recno, else
  // the first in the tail. Null when there is none.
  template <typename Key>
  Entry* find(const Key& key) {
    const auto rank = Entry::rank(key);
    Entry* const sorted = std::partition_point(
        begin(), sortedEnd(), [&rank](const Entry& entry) { return entry.rank() < rank; });
    if (sorted != sortedEnd() && sorted->rank() == rank) return sorted;
    Entry* const tail = std::find_if(sortedEnd(), end(),
                                     [&rank](const Entry& entry) { return entry.rank() == rank; });
    return tail != end() ? tail : nullptr;
  }

  // Adds a key for the record after the last one: its recno is the entry count, since records are
  // only ever appended. All entries are sorted afterwards. False when the index is full.
  template <typename Key>
  [[nodiscard]] bool insert(const Key& key) {
    if (isFull()) return false;
    append(Entry{key, _count});
    if (_sorted + 1 == _count)
      moveLastToItsPlace();
    else
      arrange();
    _sorted = _count;
    return true;
  }

  // Calls `report` with the first entry of each two neighbours of the sorted part that have one
  // key. Returns how many there were.
  template <typename Report>
  uint32_t countDuplicates(Report report) const {
    uint32_t duplicates = 0;
    for (uint32_t i = 1; i < _sorted; ++i) {
      if (!(_entries[i - 1].rank() == _entries[i].rank())) continue;
      report(_entries[i - 1]);
      ++duplicates;
    }
    return duplicates;
  }

 private:
  // After all sorted entries of its key: its recno is the highest.
  void moveLastToItsPlace() {
    const Entry last = *sortedEnd();
    const auto rank = last.rank();
    Entry* const place = std::partition_point(
        begin(), sortedEnd(), [&rank](const Entry& entry) { return !(rank < entry.rank()); });
    std::move_backward(place, sortedEnd(), end());
    *place = last;
  }

  Entry* begin() { return _entries.get(); }
  Entry* sortedEnd() { return begin() + _sorted; }
  Entry* end() { return begin() + _count; }

  std::unique_ptr<Entry[]> _entries;
  uint32_t _capacity = 0;
  uint32_t _room = 0;  // How many entries may be in use.
  uint32_t _count = 0;
  uint32_t _sorted = 0;  // How many entries at the front are in key order.
};

// The capacity of an index over a file of this size: its records and some to come, or what was
// asked for when that is more than the file has.
inline uint32_t indexCapacity(uint64_t fileSize, size_t recordSize, uint32_t requested) {
  constexpr uint64_t kMargin = 100;
  const uint64_t records = fileSize / recordSize;
  if (records < requested) return requested;
  return static_cast<uint32_t>(std::min<uint64_t>(records + kMargin, UINT32_MAX));
}

}  // namespace badgemint

#endif  // BADGEMINT_CARDDB_SORTEDINDEX_H
