#include "admin/records/holders.h"

namespace badgemint::admin {

AccessWalk::Step AccessWalk::next(uint32_t uniqid) {
  if (_next < _records.size() && _records[_next].uniqid == uniqid && !_isUsed[_next])
    return use(_next);
  if (_ordered.empty()) _ordered = orderByUniqid(_records);
  const auto uniqidAt = [this](uint32_t number) { return _records[number].uniqid; };
  const auto same = std::ranges::equal_range(_ordered, uniqid, {}, uniqidAt);
  if (same.empty()) return {};
  const auto unused =
      std::ranges::find_if(same, [this](uint32_t number) { return !_isUsed[number]; });
  if (unused == same.end()) return {&_records[same.back()], true, false};
  return use(*unused);
}

AccessWalk::Step AccessWalk::use(size_t number) {
  const bool isEarlier = number < _next;
  _isUsed[number] = true;
  _next = number + 1;
  return {&_records[number], false, isEarlier};
}

}  // namespace badgemint::admin
