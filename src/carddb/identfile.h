// The ident database file: one record for each credential, in the order in which they were
// appended. The build only creates it and appends; programs that maintain an existing file load its
// index and look up, replace, delete and restore cards through it.
#ifndef BADGEMINT_CARDDB_IDENTFILE_H
#define BADGEMINT_CARDDB_IDENTFILE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "carddb/identindx.h"
#include "carddb/identrecord.h"
#include "carddb/recordfile.h"
#include "support/exported.h"
#include "support/result.h"

namespace BADGEMINT_EXPORTED badgemint {

class MasterConfiguration;
class cardsets;

// Results are 0 or negative unless stated. The messages of failures, all at level 25 with the
// file's name; operations have them where they say so:
//   kIdentOpenFailed   "Error opening ident file %s\n"
//   kIdentReadFailed   "Error reading ident file %s\n" (also: an append found no end of a record)
//   kIdentWriteFailed  "Error writing to ident file %s\n"
// The positioned operations, and all that are built on them, open and close the file themselves:
// they close what is open; should that fail, it is the result, with its message.
class IdentFile {
 public:
  IdentFile() = default;
  // Closes the file as closeFile() does, and frees the index.
  ~IdentFile() { static_cast<void>(closeFile()); }
  IdentFile(const IdentFile&) = delete;
  IdentFile& operator=(const IdentFile&) = delete;

  // Keeps a copy of the name. kOutOfMemory with "Not enough memory to create ident filename\n"
  // (level 25), and no name.
  [[nodiscard]] int32_t setFileName(const char* name);

  // Opens the file with these open(2) flags, closing first what is open; a file that they create
  // gets the mode 0666 less the umask. kIdentOpenFailed with its message.
  [[nodiscard]] int32_t openFile(int flags);

  // Closes the file, whatever the result: kIdentWriteFailed with its message.
  [[nodiscard]] int32_t closeFile();

  // Appends a record to the open file, or to the closed file, which is opened for it alone.
  // kIdentOpenFailed, kIdentReadFailed when the end cannot be sought or lies within a record, which
  // would put the new one out of step; kIdentWriteFailed; with their messages. The file then ends
  // where it ended before, as far as it can be truncated.
  [[nodiscard]] int32_t appendRecord(const IdentRecord& record);

  // Appends any number of records, as they stand in the file, to the open file: in few writes, and
  // without a message. Returns how many bytes could be written; when that is not all of them, the
  // caller removes them again.
  [[nodiscard]] size_t appendMany(std::span<const uint8_t> records) {
    return _file.appendMany(records);
  }
  // Removes so many bytes from the end of the open file. kIdentReadFailed (seek) or
  // kIdentWriteFailed with their messages.
  [[nodiscard]] int32_t removeLast(size_t bytes);

  // From now until closeFile(), readNext() reads the file in blocks. The file must be open, from
  // its first record on, and nobody may write to it.
  void startReadingAhead() { _file.startReadingAhead(); }

  // Reads the next record of the open file. kEndOfFile (1), the record unchanged, at the end;
  // kIdentReadFailed, with its message unless the file is not open.
  [[nodiscard]] int32_t readNext(IdentRecord& record);

  // Reads record number `recno`. kNotFound when the file cannot be opened, kShortTransfer when
  // there is no such record; no messages.
  [[nodiscard]] int32_t readRecordAt(IdentRecord& record, uint32_t recno);

  // Overwrites record number `recno`. kNotFound when the file cannot be opened; kShortTransfer,
  // which leaves the file open, when not the whole record could be written; no messages.
  [[nodiscard]] int32_t writeRecordAt(const IdentRecord& record, uint32_t recno);

  // Loads the index of this file in place of an earlier one, sized for `requested` records or, when
  // the file has as many, for those of the file and 100 to come. Records of one holder are paired.
  // Logs its steps at level 20. False, without an index unless stated, when
  // - there is no memory for the name (see setFileName), for the index ("ident index allocation
  //   failure\n", level 20) or for the pairing;
  // - the file does not exist: "unable to stat %s\n" (level 20);
  // - the index cannot be filled (see IdentIndex::buildFromFile): it is there then, empty, and
  // takes
  //   no entry: addOrReplace of a new card appends its record and returns kIndexFull.
  [[nodiscard]] bool loadIndex(const char* name, uint32_t requested);
  // The same by name and record count of the configuration's entry "ident"; false and errno 0 when
  // there is none.
  [[nodiscard]] bool loadIndexFromConfig(MasterConfiguration& configuration);

  // The index; null before loadIndex(), and after one that failed before there was an index.
  IdentIndex* index() { return _index ? &*_index : nullptr; }
  // Entries in use and capacity; both 0 without an index.
  void indexStats(uint32_t& count, uint32_t& capacity) const;
  // Adds the key of a record that was appended. kNotFound without an index, kIndexFull.
  [[nodiscard]] int32_t addIndexKey(const CardPattern& cardnumber);

  // Finds a card through the index and reads its record. kCardNotFound, also without an index;
  // kIdentReadFailed; no messages.
  [[nodiscard]] int32_t findCard(const CardPattern& cardnumber, IdentRecord& record,
                                 uint32_t& recno);
  [[nodiscard]] int32_t findCard(const CardPattern& cardnumber, IdentRecord& record);

  // Finds a card through the index and compares it with its record; logs both keys in hex and the
  // holder (level 100). kNotFound: no index, no such card, or its record could not be read;
  // kShortTransfer: the record holds another card. The outputs are set on success only.
  [[nodiscard]] int32_t verifyCard(const CardPattern& cardnumber, uint32_t& uniqid,
                                   uint32_t& deleted);

  // Overwrites the record of this card, or appends the record and adds it to the index, if there is
  // one, when the card is not found. Results of appendRecord, addIndexKey or writeRecordAt;
  // kNotFound when the index led to the record of another card.
  [[nodiscard]] int32_t addOrReplace(const IdentRecord& record);

  // Marks a card deleted, or valid again, and the holder's paired record with it. Stores the holder
  // in `uniqid` as soon as the card is found. Results of findCard and getPairedCard;
  // kIdentWriteFailed without a message; kPairedHolderDiffers when the paired record belongs to
  // another holder.
  [[nodiscard]] int32_t setCardDeleted(const CardPattern& cardnumber, uint32_t& uniqid);
  [[nodiscard]] int32_t setCardUndeleted(const CardPattern& cardnumber, uint32_t& uniqid);

  // The card number of the holder's other record, as the index has it; zero when there is none.
  // kCardNotFound, also without an index.
  [[nodiscard]] int32_t getPairedCard(const CardPattern& cardnumber, CardPattern& paired);
  // Changes it in the index. kNotFound, also without an index.
  [[nodiscard]] int32_t setPairedCard(const CardPattern& cardnumber, const CardPattern& paired);

  // Reads the whole file and returns how many of its records name a card set that is not in `sets`;
  // logs each: "cardset %u not loaded \n" (level 100). A read error ends the count, with its
  // message. kIdentOpenFailed with its message.
  [[nodiscard]] int32_t countUnloadedCardSets(const cardsets& sets);

 private:
  int32_t markCard(const CardPattern& cardnumber, uint32_t deleted, uint32_t& uniqid);
  IdentIndexEntry* findEntry(const CardPattern& cardnumber);

  // The result code of an outcome; logs the message of a failure.
  int32_t answer(RecordFile::Outcome outcome) const {
    return outcome == RecordFile::Outcome::kDone ? kSuccess : reportFailure(outcome);
  }
  int32_t reportFailure(RecordFile::Outcome outcome) const;

  RecordFile _file{IdentRecord::kSize};
  std::optional<IdentIndex> _index;
};

}  // namespace badgemint

#endif  // BADGEMINT_CARDDB_IDENTFILE_H
