#include "admin/records/holders.h"

namespace badgemint::admin {

AccessWalk::Step AccessWalk::next(uint32_t uniqid) {
  if (_next < _records.size() && _records[_next].uniqid == uniqid && !_isUsed[_next])
    return use(_next);
  if (_ordered.empty()) {
    _ordered = orderByUniqid(_records);
    _skipped.resize(_records.size());
  }
  const auto uniqidAt = [this](uint32_t number) { return _records[number].uniqid; };
  const auto same = std::ranges::equal_range(_ordered, uniqid, {}, uniqidAt);
  if (same.empty()) return {};
  uint32_t& skipped = _skipped[static_cast<size_t>(same.begin() - _ordered.begin())];
  while (skipped < same.size() && _isUsed[same[skipped]]) ++skipped;
  if (skipped == same.size()) return {&_records[same.back()], true, false};
  return use(same[skipped]);
}

AccessWalk::Step AccessWalk::use(size_t number) {
  const bool isEarlier = number < _next;
  _isUsed[number] = true;
  _next = number + 1;
  return {&_records[number], false, isEarlier};
}

}  // namespace badgemint::admin
