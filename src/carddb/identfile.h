// The ident database file: one record for each credential, in the order in which they were
// appended. The build only creates it and appends; programs that maintain an existing file load its
// index and look up, replace, delete and restore cards through it.
#ifndef BADGEMINT_CARDDB_IDENTFILE_H
#define BADGEMINT_CARDDB_IDENTFILE_H

#include <cstdint>

#include "carddb/identrecord.h"
#include "carddb/recordfile.h"

namespace badgemint {

// Results are 0 or negative unless stated. The messages of failures, all at level 25 with the
// file's name; operations have them where they say so:
//   kIdentOpenFailed   "Error opening ident file %s\n"
//   kIdentReadFailed   "Error reading ident file %s\n" (also: the seek before an append failed)
//   kIdentWriteFailed  "Error writing to ident file %s\n"
// The positioned operations, and all that are built on them, open and close the file themselves:
// they close what is open. Appends that are still buffered are written before; should that fail,
// it is the result, with its message.
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

  // Writes what is buffered and closes the file, whatever the result: kIdentReadFailed or
  // kIdentWriteFailed with their messages.
  [[nodiscard]] int32_t closeFile();

  // Appends a record to the open file, or to the closed file, which is opened for it alone.
  // kIdentOpenFailed, kIdentReadFailed (seek) or kIdentWriteFailed (also a part of the record
  // written, which then stays) with their messages.
  [[nodiscard]] int32_t appendRecord(const IdentRecord& record);

  // From now until closeFile(), appendRecord() gathers records in memory and writes them in big
  // pieces; without memory it goes on one by one. The file must be open.
  void startBuffering() { _file.startBuffering(); }
  // Whether the next appendRecord() would write the buffer.
  bool appendBufferFull() const { return _file.bufferFull(); }
  // Writes what is buffered. Results and messages of a failing appendRecord; the records are
  // dropped then.
  [[nodiscard]] int32_t flushAppends();

  // Reads the next record of the open file. kEndOfFile (1), the record unchanged, at the end;
  // kIdentReadFailed, with its message unless the file is not open.
  [[nodiscard]] int32_t readNext(IdentRecord& record);

  // Reads record number `recno`. kNotFound when the file cannot be opened, kShortTransfer when
  // there is no such record; no messages.
  [[nodiscard]] int32_t readRecordAt(IdentRecord& record, uint32_t recno);

  // Overwrites record number `recno`. kNotFound when the file cannot be opened; kShortTransfer,
  // which leaves the file open, when not the whole record could be written; no messages.
  [[nodiscard]] int32_t writeRecordAt(const IdentRecord& record, uint32_t recno);

 private:
  // The result code of an outcome; logs the message of a failure.
  int32_t answer(RecordFile::Outcome outcome) const;
  int32_t reportFailure(RecordFile::Outcome outcome) const;

  RecordFile _file{IdentRecord::kSize};
};

}  // namespace badgemint

#endif  // BADGEMINT_CARDDB_IDENTFILE_H
