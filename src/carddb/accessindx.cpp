#include "carddb/accessindx.h"

#include "carddb/accessrecord.h"
#include "carddb/recordfile.h"
#include "support/log.h"
#include "support/result.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "accessindx";

constexpr uint32_t kLoggedStep = 1000;

}  // namespace

static_assert(sizeof(AccessIndexEntry) == 40);

bool AccessIndex::create(uint32_t capacity) {
  LOG(kLogRecord, "creating access index\n");
  if (!_table.create(capacity)) return false;
  LOG(kLogRecord, "initializing access index\n");
  for (size_t i = 0; i < capacity; i += kLoggedStep)
    LOG(kLogRecord, "initialized record %d\n", static_cast<int32_t>(i));
  LOG(kLogRecord, "access index initialized\n");
  return true;
}

int32_t AccessIndex::loadFromFile(const char* path) {
  RecordReader records;
  _table.close();
  if (!records.open(path)) {
    LOG(kLogError, "Error opening access file %s\n", path);
    return kAccessOpenFailed;
  }
  _table.clear();
  for (AccessRecord record; !_table.isFull() && records.next(record);) {
    _table.append({record.uniqid, count()});
    if (count() % kLoggedStep == 0) LOG(kLogRecord, "loaded record %d\n", count());
  }
  if (!records.failed()) return kSuccess;
  _table.close();
  LOG(kLogError, "Error reading access file %s\n", path);
  return kAccessReadFailed;
}

int32_t AccessIndex::findRecno(uint32_t uniqid) {
  const AccessIndexEntry* const entry = find(uniqid);
  return entry != nullptr ? static_cast<int32_t>(entry->recno) : kNotFound;
}

int32_t AccessIndex::insert(uint32_t uniqid) {
  return _table.insert(uniqid) ? kSuccess : kIndexFull;
}

uint32_t AccessIndex::countDuplicates() const {
  return _table.countDuplicates([](const AccessIndexEntry& entry) {
    LOG(kLogDuplicate, "duplicate records for %u \n", entry.uniqid);
  });
}

void AccessIndex::printEntrySize() {
  LOG(kLogSummary, "size of access index rec is %u\n",
      static_cast<uint32_t>(sizeof(AccessIndexEntry)));
}

int32_t AccessIndex::setState(AccessIndexEntry& entry, int32_t flag) {
  entry.state.value = flag != 0 ? 2 : 1;
  return kSuccess;
}

AccessIndexEntry* AccessIndex::first() {
  _cursor = 0;
  return entryAtCursor();
}

AccessIndexEntry* AccessIndex::next() {
  if (_cursor < capacity()) ++_cursor;
  return entryAtCursor();
}

AccessIndexEntry* AccessIndex::entryAtCursor() {
  if (_cursor >= capacity()) return nullptr;
  AccessIndexEntry& entry = _table.slots()[_cursor];
  return entry.isEmpty() ? nullptr : &entry;
}

}  // namespace badgemint
