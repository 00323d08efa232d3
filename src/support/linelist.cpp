#include "support/linelist.h"

#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

LineList::LineList(uint32_t ownerId, int32_t capacity) : _ownerId(ownerId) {
  if (!_lines.create(capacity)) reportNoMemory("_lines");
}

LineList::~LineList() {
  for (char* const line : _lines.elements()) delete[] line;
}

int32_t LineList::add(const char* text) {
  char** const slot = _lines.nextSlot();
  if (slot == nullptr) return reportNoMemory("_lines");
  *slot = copyText(text).release();
  if (*slot == nullptr) return reportNoMemory("line");
  _lines.commit();
  return count() - 1;
}

const char* LineList::get(int32_t i) const {
  return i >= 0 && i < count() ? _lines[i] : nullptr;
}

int32_t LineList::reportNoMemory(const char* what) const {
  reportSystemError(static_cast<uint16_t>(_ownerId), kReportOutOfMemory, what);
  return kOutOfMemory;
}

}  // namespace badgemint
