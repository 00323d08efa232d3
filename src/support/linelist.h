// A list of text lines that owns its copies.
#ifndef BADGEMINT_SUPPORT_LINELIST_H
#define BADGEMINT_SUPPORT_LINELIST_H

#include <cstdint>

#include "support/steparray.h"

namespace badgemint {

class LineList {
 public:
  static constexpr int32_t kGrowthStep = 10;

  // Makes room for `capacity` lines (0 or more). `ownerId` identifies the owning module; its low 16
  // bits go to the error report hook with kReportOutOfMemory when there is no memory, after which
  // the list is empty and can still be added to.
  LineList(uint32_t ownerId, int32_t capacity);
  ~LineList();
  LineList(const LineList&) = delete;
  LineList& operator=(const LineList&) = delete;

  // Appends a copy of `text` and returns its index; kOutOfMemory, reported to the hook, when there
  // is no memory.
  [[nodiscard]] int32_t add(const char* text);

  // The i-th line, owned by the list; null when there is none.
  const char* get(int32_t i) const;

  int32_t count() const { return _lines.count(); }
  int32_t capacity() const { return _lines.capacity(); }

 private:
  int32_t reportNoMemory(const char* what) const;

  uint32_t _ownerId;
  StepArray<char*, kGrowthStep> _lines;
};

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_LINELIST_H
