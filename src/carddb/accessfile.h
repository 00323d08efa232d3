// The access database file: one record for each card holder, in the order in which they were
// appended. The build only creates it and appends; programs that maintain an existing file load its
// index and look up and update holders through it.
#ifndef BADGEMINT_CARDDB_ACCESSFILE_H
#define BADGEMINT_CARDDB_ACCESSFILE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "carddb/accessindx.h"
#include "carddb/accessrecord.h"
#include "carddb/recordfile.h"
#include "support/exported.h"
#include "support/result.h"

namespace BADGEMINT_EXPORTED badgemint {

class AccessLevelSet;
class MasterConfiguration;

// Results are 0 or negative unless stated. The messages of failures, all at level 25 with the
// file's name; operations have them where they say so:
//   kAccessOpenFailed   "Error opening access file %s\n"
//   kAccessReadFailed   "Error reading access file %s\n" (also: an append found no end of a record)
//   kAccessWriteFailed  "Error writing to access file %s\n"
// The positioned operations, and all that are built on them, open and close the file themselves:
// they close what is open (but see startReadingAhead); should that fail, it is the result, with its
// message.
class AccessFile {
 public:
  AccessFile() = default;
  // Closes the file as closeFile() does, and frees the index.
  ~AccessFile() { static_cast<void>(closeFile()); }
  AccessFile(const AccessFile&) = delete;
  AccessFile& operator=(const AccessFile&) = delete;

  // Keeps a copy of the name. kOutOfMemory with "Not enough memory to create access filename\n"
  // (level 25), and no name.
  [[nodiscard]] int32_t setFileName(const char* name);

  // Opens the file with these open(2) flags, closing first what is open; a file that they create
  // gets the mode 0600: it holds PINs. kAccessOpenFailed with its message.
  [[nodiscard]] int32_t openFile(int flags);

  // Closes the file, whatever the result: kAccessWriteFailed with its message.
  [[nodiscard]] int32_t closeFile();

  // Appends a record to the open file, or to the closed file, which is opened for it alone.
  // kAccessOpenFailed, kAccessReadFailed when the end cannot be sought or lies within a record,
  // which would put the new one out of step; kAccessWriteFailed; with their messages. The file then
  // ends where it ended before, as far as it can be truncated.
  [[nodiscard]] int32_t appendRecord(const AccessRecord& record);

  // Appends any number of records, as they stand in the file, to the open file: in few writes, and
  // without a message. Returns how many bytes could be written; when that is not all of them, the
  // caller removes them again.
  [[nodiscard]] size_t appendMany(std::span<const uint8_t> records) {
    return _file.appendMany(records);
  }
  // Removes so many bytes from the end of the open file. kAccessReadFailed (seek) or
  // kAccessWriteFailed with their messages.
  [[nodiscard]] int32_t removeLast(size_t bytes);

  // From now until closeFile(), lookups and reads by number leave the file open and read it in
  // blocks. The file must be open and nobody may write to it.
  void startReadingAhead() { _file.startReadingAhead(); }

  // Reads the next record of the open file. kShortTransfer without a message, the record unchanged,
  // when no whole record could be read for whatever reason.
  [[nodiscard]] int32_t readNext(AccessRecord& record);

  // Reads record number `recno`. kAccessOpenFailed, or kAccessReadFailed when there is no such
  // record, which clears the given one; with their messages.
  [[nodiscard]] int32_t readRecordAt(AccessRecord& record, uint32_t recno);

  // Overwrites record number `recno`. kAccessOpenFailed, or kAccessWriteFailed when not the whole
  // record could be written; no messages.
  [[nodiscard]] int32_t writeRecordAt(const AccessRecord& record, uint32_t recno);

  // Loads the index of this file in place of an earlier one, sized for `requested` records or, when
  // the file has as many, for those of the file and 100 to come. kOutOfMemory, for the index with
  // "Not enough memory to create access index\n" (level 25); kAccessOpenFailed or kAccessReadFailed
  // with their messages. After a failure of AccessIndex::loadFromFile the index is there, empty,
  // and takes no entry; after any other there is none.
  [[nodiscard]] int32_t loadIndex(const char* name, uint32_t requested);
  // The same by name and record count of the configuration's entry "access". Whether that went
  // well; false and errno 0 when there is no such entry.
  [[nodiscard]] bool loadIndexFromConfig(MasterConfiguration& configuration);

  // The index; null before loadIndex(), and after one that failed before there was an index.
  AccessIndex* index() { return _index ? &*_index : nullptr; }

  // Finds a holder through the index and reads the record. kAccessNotFound, also without an index,
  // with "Access record not found for unique id=%u\n" (level 25); results of readRecordAt.
  [[nodiscard]] int32_t findAccess(uint32_t uniqid, AccessRecord& record, uint32_t& recno);
  [[nodiscard]] int32_t findAccess(uint32_t uniqid, AccessRecord& record);

  // Overwrites the holder's record, or appends the record, without adding it to the index, when the
  // index does not hold the holder. Results of writeRecordAt or appendRecord; kAccessNotFound
  // without an index.
  [[nodiscard]] int32_t putAccess(const AccessRecord& record);

  // Changes the validity of a stored record (see AccessRecord::copyValidityFrom) and nothing else.
  // kAccessNotFound after any failure of findAccess; kAccessRecordDiffers when the stored record
  // belongs to another holder; kAccessEntryLost; results of writeRecordAt.
  [[nodiscard]] int32_t updateAccessTimes(const AccessRecord& record);

  // Overwrites the holder's record and sets the state value of the index entry by flag 2, or
  // appends the record of a new holder and adds it to the index. With `keepValidity` the stored
  // validity goes into the given record first. Results of findAccess other than kAccessNotFound
  // (which is logged all the same), of appendRecord, AccessIndex::insert and writeRecordAt;
  // kAccessNotFound without an index; kAccessRecordDiffers, kAccessEntryLost as above.
  [[nodiscard]] int32_t mergeAccess(AccessRecord& record, bool keepValidity);

  // Sets flag 3 of a stored record to 1, or to 0. Results of findAccess and writeRecordAt.
  [[nodiscard]] int32_t setFlag3(uint32_t uniqid);
  [[nodiscard]] int32_t clearFlag3(uint32_t uniqid);

  // Reads the whole file and returns how many access levels its records name that are not in
  // `levels`; logs each: "access level %d not found for usr %u\n" (level 3). The end of the file
  // ends the walk as a failed read, with its message. kAccessOpenFailed with its message.
  [[nodiscard]] int32_t checkAccessLevels(const AccessLevelSet& levels);

 private:
  int32_t writeFlag3(uint32_t uniqid, int32_t value);
  int32_t addHolder(const AccessRecord& record);
  AccessIndexEntry* findEntry(uint32_t uniqid);

  // The result code of an outcome; logs the message of a failure.
  int32_t answer(RecordFile::Outcome outcome) const {
    return outcome == RecordFile::Outcome::kDone ? kSuccess : reportFailure(outcome);
  }
  int32_t reportFailure(RecordFile::Outcome outcome) const;

  RecordFile _file{AccessRecord::kSize};
  std::optional<AccessIndex> _index;
};

}  // namespace badgemint

#endif  // BADGEMINT_CARDDB_ACCESSFILE_H
