// The ident index: finds the record of a card key in the ident database, and links the two records
// of a holder who has both a card and a PIN. It lives in memory only.
#ifndef BADGEMINT_CARDDB_IDENTINDX_H
#define BADGEMINT_CARDDB_IDENTINDX_H

#include <cstddef>
#include <cstdint>

#include "carddb/recordfile.h"
#include "carddb/sortedindex.h"
#include "formats/bitpattern.h"
#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// A card key as two numbers: the order of its 16 unsigned bytes in two comparisons.
struct KeyRank {
  uint64_t high;
  uint64_t low;

  bool operator==(const KeyRank&) const = default;
  bool operator<(const KeyRank& other) const {
    return high != other.high ? high < other.high : low < other.low;
  }
};

struct IdentIndexEntry {
  CardPattern key{};  // The record's cardnumber.
  uint32_t recno = 0;
  CardPattern pairedcard{};  // The cardnumber of the holder's other record; zero: none.

  static KeyRank rank(const CardPattern& key) {
    KeyRank rank{};
    for (size_t i = 0; i < 8; ++i) rank.high = rank.high << 8 | key[i];
    for (size_t i = 8; i < 16; ++i) rank.low = rank.low << 8 | key[i];
    return rank;
  }
  KeyRank rank() const { return rank(key); }
};

class IdentIndex {
 public:
  // Makes `capacity` empty entries in place of what was there. Logs "initialize ident indx record
  // %d\n" (level 100) for every thousandth one, the first included. False when there is no memory.
  [[nodiscard]] bool create(uint32_t capacity);
  // Frees the entries.
  void destroy() { _table.destroy(); }

  uint32_t capacity() const { return _table.capacity(); }
  uint32_t count() const { return _table.count(); }

  // Loads the keys of an ident database and pairs neighbours among the records of one holder; the
  // index is not sorted yet. Records beyond the capacity are left out, and so is a part of a record
  // at the end. Logs its steps at level 20, every thousandth record at level 100, and each pair:
  // "uniqid=%u has both card and pin ident records\n" (level 20). Returns 1, or 0 with an empty
  // index that takes no entry, when
  // - the file cannot be opened: "error loading %s\n" on standard output;
  // - there is no memory: "unable to create idrecs\n" (level 20);
  // - it cannot be read: "unable to load indexes\n" (level 20).
  [[nodiscard]] int32_t buildFromFile(const char* path);

  void sort() { _table.sort(); }

  // The entry of a card key, owned by the index and valid until it changes; of several the one with
  // the lowest recno. Null when there is none. Halves the sorted entries, scans the others.
  IdentIndexEntry* find(const CardPattern& key) { return _table.find(key); }
  // Its recno, or -1.
  int32_t findRecno(const CardPattern& key);

  // Adds the key of a record that was appended to the file: its recno is the entry count. The index
  // is sorted afterwards. 0, or kIndexFull and nothing changed.
  [[nodiscard]] int32_t insert(const CardPattern& key);

  // The number of neighbours with one key in the sorted index; logs for each "duplicate records for
  // :" (level 3) and the key in hex with a newline (level 100). 0 while the index is not sorted.
  uint32_t countDuplicates() const;

  // Logs "ident index record size = %u \n" (level 4).
  static void printEntrySize();

 private:
  struct HolderRow;

  [[nodiscard]] bool loadAndPair(const char* path);
  [[nodiscard]] bool load(RecordReader& records, HolderRow* idrecs);
  void locateKeys(HolderRow* idrecs);
  void pairHolders(const HolderRow* idrecs);

  SortedIndex<IdentIndexEntry> _table;
};

}  // namespace badgemint

#endif  // BADGEMINT_CARDDB_IDENTINDX_H
