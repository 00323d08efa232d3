// An array that grows by a fixed step, for the collections of this system: formats, card sets, line
// lists, access levels and the card index.
#ifndef BADGEMINT_SUPPORT_STEPARRAY_H
#define BADGEMINT_SUPPORT_STEPARRAY_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <type_traits>

#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// Makes room for `capacity` slots in place of those there are, which keep what is in them. Null,
// with everything as it was, when there is no memory or a count could not number them.
inline void* resizedSlots(void* slots, int64_t capacity, size_t slotSize) {
  if (capacity > INT32_MAX) return nullptr;
  return std::realloc(slots, slotSize * static_cast<size_t>(capacity));
}

// Owns its slots; of things that are not trivially copyable it holds pointers, which its owner
// deletes. Growth goes through realloc, which moves pages instead of copying them, so that a
// million small steps stay linear.
template <typename T, int32_t Step>
class StepArray {
  static_assert(std::is_trivially_copyable_v<T> && Step > 0);

 public:
  StepArray() = default;
  ~StepArray() { std::free(_slots); }
  StepArray(const StepArray&) = delete;
  StepArray& operator=(const StepArray&) = delete;

  // Makes room for `capacity` elements (0 or more). False when there is no memory.
  [[nodiscard]] bool create(int32_t capacity) { return capacity <= _capacity || resize(capacity); }

  // The slot after the last element, grown into if needed and not yet counted; null when there is
  // no memory, with everything as it was. commit() counts it. It is all zero when it is handed out
  // for the first time and keeps what was put there when it was not committed.
  [[nodiscard]] T* nextSlot() {
    if (!makeRoom()) return nullptr;
    if (_count == _opened) _slots[_opened++] = T{};
    return &_slots[_count];
  }
  void commit() { ++_count; }

  // Appends a copy. False when there is no memory, with everything as it was.
  [[nodiscard]] bool add(const T& element) {
    if (!makeRoom()) return false;
    _slots[_count++] = element;
    _opened = std::max(_opened, _count);
    return true;
  }

  int32_t count() const { return _count; }
  int32_t capacity() const { return _capacity; }

  // i is 0 to count - 1.
  T& operator[](int32_t i) { return _slots[i]; }
  const T& operator[](int32_t i) const { return _slots[i]; }

  // The elements in use; and with them the slot after them that was handed out but not committed.
  std::span<T> elements() { return {_slots, static_cast<size_t>(_count)}; }
  std::span<const T> elements() const { return {_slots, static_cast<size_t>(_count)}; }
  std::span<const T> slots() const { return {_slots, static_cast<size_t>(_opened)}; }

 private:
  // Grows if needed. False when there is no room for one more element all the same.
  bool makeRoom() { return _count < _capacity || resize(int64_t{_capacity} + Step); }

  bool resize(int64_t capacity) {
    void* const moved = resizedSlots(static_cast<void*>(_slots), capacity, sizeof(T));
    if (moved == nullptr) return false;
    _slots = static_cast<T*>(moved);
    _capacity = static_cast<int32_t>(capacity);
    return true;
  }

  T* _slots = nullptr;
  int32_t _count = 0;
  int32_t _opened = 0;  // Slots handed out or filled so far.
  int32_t _capacity = 0;
};

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_STEPARRAY_H
