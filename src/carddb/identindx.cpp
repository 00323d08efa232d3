#include "carddb/identindx.h"

#include <cstdio>
#include <cstring>

#include "carddb/identrecord.h"
#include "carddb/recordfile.h"
#include "support/log.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "identindx";

constexpr uint16_t kReportArea = 1;
constexpr uint16_t kReportNoRecordTable = 1025;

constexpr uint32_t kLoggedStep = 1000;

}  // namespace

static_assert(sizeof(IdentIndexEntry) == 36);

// One record of the file while the pairs are sought. `position` is where in the ordered table a
// lookup of the record's key ends: at the lowest recno of that key. So no pair costs a search.
struct IdentIndex::HolderRow {
  uint64_t order;  // uniqid, then recno in the low half.
  uint32_t position;

  uint32_t uniqid() const { return static_cast<uint32_t>(order >> 32); }
  bool operator<(const HolderRow& other) const { return order < other.order; }
};

bool IdentIndex::create(uint32_t capacity) {
  if (!_table.create(capacity)) return false;
  for (size_t i = 0; i < capacity; i += kLoggedStep)
    LOG(kLogRecord, "initialize ident indx record %d\n", static_cast<int32_t>(i));
  return true;
}

int32_t IdentIndex::buildFromFile(const char* path) {
  _table.clear();
  if (loadAndPair(path)) return 1;
  _table.close();
  return 0;
}

bool IdentIndex::loadAndPair(const char* path) {
  RecordReader records;
  if (!records.open(path)) {
    std::printf("error loading %s\n", path);
    return false;
  }
  LOG(kLogProgress, "creating idrecs\n");
  const std::unique_ptr<HolderRow[]> idrecs(new (std::nothrow) HolderRow[capacity()]);
  if (idrecs == nullptr) {
    LOG(kLogProgress, "unable to create idrecs\n");
    reportSystemError(kReportArea, kReportNoRecordTable);
    return false;
  }
  LOG(kLogProgress, "idrecs created\n");
  if (!load(records, idrecs.get())) {
    LOG(kLogProgress, "unable to load indexes\n");
    return false;
  }
  LOG(kLogProgress, "indexs loaded\n");
  locateKeys(idrecs.get());
  std::sort(idrecs.get(), idrecs.get() + count());
  LOG(kLogProgress, "idrecs sorted\n");
  pairHolders(idrecs.get());
  LOG(kLogProgress, "deleting idrecs\n");
  return true;
}

bool IdentIndex::load(RecordReader& records, HolderRow* idrecs) {
  for (IdentRecord record; !_table.isFull() && records.next(record);) {
    const uint32_t recno = count();
    idrecs[recno] = {uint64_t{record.uniqid} << 32 | recno, 0};
    _table.append({record.cardnumber, recno});
    if (count() % kLoggedStep == 0) LOG(kLogRecord, "record %d written \n", count());
  }
  return !records.failed();
}

// The rows are still in file order here: row n is record n.
void IdentIndex::locateKeys(HolderRow* idrecs) {
  _table.arrange();
  const auto entries = _table.entries();
  uint32_t first = 0;
  for (uint32_t i = 0; i < count(); ++i) {
    if (entries[i].key != entries[first].key) first = i;
    idrecs[entries[i].recno].position = first;
  }
}

// Each two neighbours in turn: of three records of one holder the middle one ends up naming the
// last.
void IdentIndex::pairHolders(const HolderRow* idrecs) {
  const auto entries = _table.entries();
  for (uint32_t i = 1; i < count(); ++i) {
    const HolderRow &previous = idrecs[i - 1], &row = idrecs[i];
    if (previous.uniqid() == row.uniqid()) {
      LOG(kLogProgress, "uniqid=%u has both card and pin ident records\n", row.uniqid());
      entries[previous.position].pairedcard = entries[row.position].key;
      entries[row.position].pairedcard = entries[previous.position].key;
    }
    if (i % kLoggedStep == 0) LOG(kLogRecord, "processed idrecs record %d\n", i);
  }
}

int32_t IdentIndex::findRecno(const CardPattern& key) {
  const IdentIndexEntry* const entry = find(key);
  return entry != nullptr ? static_cast<int32_t>(entry->recno) : kNotFound;
}

int32_t IdentIndex::insert(const CardPattern& key) {
  return _table.insert(key) ? kSuccess : kIndexFull;
}

uint32_t IdentIndex::countDuplicates() const {
  return _table.countDuplicates([](const IdentIndexEntry& entry) {
    LOG(kLogDuplicate, "duplicate records for :");
    if (theLogger == nullptr) return;
    theLogger->dumpHex(kLogRecord, entry.key);  // At level 3 alone the labels run on in one line.
    theLogger->write(kLogRecord, "\n");
  });
}

void IdentIndex::printEntrySize() {
  LOG(kLogSize, "ident index record size = %u \n", static_cast<uint32_t>(sizeof(IdentIndexEntry)));
}

}  // namespace badgemint
