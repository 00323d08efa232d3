// The access index: finds the record of a holder in the access database, and keeps a small block of
// run-time state for each holder. It lives in memory only.
#ifndef BADGEMINT_CARDDB_ACCESSINDX_H
#define BADGEMINT_CARDDB_ACCESSINDX_H

#include <array>
#include <cstdint>

#include "carddb/sortedindex.h"
#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// The run-time state of a holder. This system writes `value` alone: 2 when flag 2 of the holder's
// record was set at its last merge, else 1; 0 before the first. The rest belongs to other programs.
struct AccessState {
  std::array<uint32_t, 2> words{};
  std::array<uint8_t, 2> bytes{};
  uint32_t first = 0;
  uint32_t value = 0;
  std::array<uint32_t, 3> more{};
};

struct AccessIndexEntry {
  uint32_t uniqid = 0;
  uint32_t recno = 0;
  AccessState state{};

  static uint32_t rank(uint32_t uniqid) { return uniqid; }
  uint32_t rank() const { return uniqid; }
  bool isEmpty() const { return static_cast<int32_t>(uniqid) <= 0 && recno == 0; }
};

class AccessIndex {
 public:
  // Makes `capacity` empty entries in place of what was there. Logs its steps and every thousandth
  // entry, the first included (level 100). False when there is no memory.
  [[nodiscard]] bool create(uint32_t capacity);
  // Frees the entries.
  void destroy() { _table.destroy(); }

  uint32_t capacity() const { return _table.capacity(); }
  uint32_t count() const { return _table.count(); }

  // Loads the holders of an access database; the index is not sorted yet. Records beyond the
  // capacity are left out, and so is a part of a record at the end. Logs "loaded record %d\n"
  // (level 100) for every thousandth. 0; or kAccessOpenFailed with "Error opening access file
  // %s\n", or kAccessReadFailed with "Error reading access file %s\n" (level 25), and an empty
  // index that takes no entry.
  [[nodiscard]] int32_t loadFromFile(const char* path);

  void sort() { _table.sort(); }

  // The entry of a holder, owned by the index and valid until it changes; of several the one with
  // the lowest recno. Null when there is none. Halves the sorted entries, scans the others.
  AccessIndexEntry* find(uint32_t uniqid) { return _table.find(uniqid); }
  // Its recno, or -1.
  int32_t findRecno(uint32_t uniqid);

  // Adds the holder of a record that was appended to the file: its recno is the entry count. The
  // index is sorted afterwards. 0, or kIndexFull and nothing changed.
  [[nodiscard]] int32_t insert(uint32_t uniqid);

  // The number of neighbours with one uniqid in the sorted index; logs "duplicate records for %u
  // \n" (level 3) for each. 0 while the index is not sorted.
  uint32_t countDuplicates() const;

  // Logs "size of access index rec is %u\n" (level 10).
  static void printEntrySize();

  // Sets the state value of an entry: 2 for a flag other than 0, else 1. Returns 0.
  static int32_t setState(AccessIndexEntry& entry, int32_t flag);

  // The walk over the entries in their order, those after the ones in use included. Null at the
  // end of the table, and at each entry without uniqid (taken as a signed number) and recno.
  AccessIndexEntry* first();
  AccessIndexEntry* next();

 private:
  AccessIndexEntry* entryAtCursor();

  SortedIndex<AccessIndexEntry> _table;
  uint32_t _cursor = 0;
};

}  // namespace badgemint

#endif  // BADGEMINT_CARDDB_ACCESSINDX_H
