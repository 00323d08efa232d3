#include "admin/records/holderwalk.h"

#include <algorithm>
#include <span>

#include "admin/records/recordorders.h"

namespace badgemint::admin {

HolderWalk::Step HolderWalk::take(uint32_t uniqid) {
  if (_next < _records.size() && _records[_next].uniqid == uniqid && !_isTaken[_next])
    return stepTo(_next);
  if (_sorted.empty()) {
    _sorted = orderBy(_records, &AccessRecord::uniqid);
    _skipped.resize(_records.size());
  }
  const auto idAt = [this](size_t position) { return _records[position].uniqid; };
  const auto first = std::ranges::lower_bound(_sorted, uniqid, {}, idAt);
  const std::span found(first, std::ranges::upper_bound(first, _sorted.end(), uniqid, {}, idAt));
  if (found.empty()) return {};
  size_t& skipped = _skipped[static_cast<size_t>(first - _sorted.begin())];
  while (skipped < found.size() && _isTaken[found[skipped]]) ++skipped;
  if (skipped == found.size()) return {&_records[found.back()], true, false};
  return stepTo(found[skipped]);
}

HolderWalk::Step HolderWalk::stepTo(size_t position) {
  const bool isBack = position < _next;
  _isTaken[position] = true;
  _next = position + 1;
  return {&_records[position], false, isBack};
}

}  // namespace badgemint::admin
