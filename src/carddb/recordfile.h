// A file of fixed-size records without header, trailer or padding: record n lies at n times the
// record size. The databases are such files; they share this mechanism, which says neutrally how
// an operation went and leaves codes and messages to them.
#ifndef BADGEMINT_CARDDB_RECORDFILE_H
#define BADGEMINT_CARDDB_RECORDFILE_H

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>

#include "carddb/recordlayout.h"
#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// Owns the descriptor and a copy of the path. Every span that is handed in holds exactly one
// record, unless stated.
class RecordFile {
 public:
  enum class Outcome {
    kDone,
    kOpenFailed,
    kSeekFailed,
    kReadFailed,
    kShortRead,    // The end of the file, also in the middle of a record.
    kWriteFailed,  // Also: a write that took only a part, and a failing close.
  };

  explicit RecordFile(size_t recordSize) : _recordSize(recordSize) {}
  ~RecordFile() { static_cast<void>(close()); }
  RecordFile(const RecordFile&) = delete;
  RecordFile& operator=(const RecordFile&) = delete;

  // Keeps a copy of the path for the next open. False when there is no memory: no path is set then.
  [[nodiscard]] bool setName(const char* name);
  // The path; "" when none is set.
  const char* name() const { return _name == nullptr ? "" : _name.get(); }

  bool isOpen() const { return _descriptor != kClosed; }

  // Opens the path with these open(2) flags; `mode` counts when they create the file. Closes first
  // what is open, and opens nothing when that fails.
  [[nodiscard]] Outcome open(int flags, mode_t mode = 0);

  // The file is closed whatever the outcome. Done at once when it is closed already.
  [[nodiscard]] Outcome close();

  // Appends a record of the file's size with one write at the end of the file. A closed file is
  // opened for this one append. A file that ends within a record has no place for it: kSeekFailed.
  // When writing fails the file is cut to where it ended before, as far as it can be cut: a part of
  // a record would put all later ones out of step.
  [[nodiscard]] Outcome append(std::span<const uint8_t> record);

  // Appends any number of records to the open file, in as many writes as it takes, until no more
  // can be written. Returns how many bytes that were, a part of a record included: a caller who
  // wants all or nothing removes them again. 0 when the file ends within a record.
  [[nodiscard]] size_t appendMany(std::span<const uint8_t> records);
  // Removes so many bytes from the end of the open file, or all when there are no more.
  [[nodiscard]] Outcome removeLast(size_t bytes);

  // Reads from now on in blocks, each from the record asked for onwards, until the open file is
  // closed; nobody writes to it meanwhile. Without memory for a block, and on a closed file, reads
  // go on being made one by one.
  void startReadingAhead();
  bool readsAhead() const { return _block != nullptr; }

  // Transfers at the position of the open descriptor, which is after the last record transferred.
  [[nodiscard]] Outcome readNext(std::span<uint8_t> record);
  // The same at record number `recno`.
  [[nodiscard]] Outcome readAt(uint32_t recno, std::span<uint8_t> record);
  [[nodiscard]] Outcome writeAt(uint32_t recno, std::span<const uint8_t> record);

 private:
  static constexpr int kClosed = -1;

  // Goes to the end of the file, which is stored in `end`. False when that is within a record.
  [[nodiscard]] bool seekEnd(off_t& end) const;
  [[nodiscard]] Outcome appendOpen(std::span<const uint8_t> record, off_t& end);
  [[nodiscard]] Outcome seekRecord(uint32_t recno);
  [[nodiscard]] Outcome readAhead(std::span<uint8_t> record);
  [[nodiscard]] Outcome fillBlock();

  const size_t _recordSize;
  int _descriptor = kClosed;
  std::unique_ptr<char[]> _name;

  // Small, so that records in no order cost little more than a read each.
  static constexpr size_t kBlockSize = size_t{8} * 1024;
  std::unique_ptr<uint8_t[]> _block;  // Null while reads are made one by one.
  uint64_t _blockStart = 0;           // The number of the first record in it.
  uint64_t _blockCount = 0;
  uint64_t _nextRecord = 0;  // What readNext reads from the block.
};

// Reads the whole records of a file from first to last, in big blocks.
class RecordReader {
 public:
  RecordReader() = default;
  ~RecordReader();
  RecordReader(const RecordReader&) = delete;
  RecordReader& operator=(const RecordReader&) = delete;

  // Opens the file. Once for each reader.
  [[nodiscard]] bool open(const char* path);

  // The next record. False at the end of the file, where a part of a record does not count, and
  // after a read error.
  template <typename Record>
  [[nodiscard]] bool next(Record& record) {
    if (_end - _next < Record::kSize && !fill(Record::kSize)) return false;
    record = decodeRecord<Record>(std::span(_block).subspan(_next).template first<Record::kSize>());
    _next += Record::kSize;
    return true;
  }

  // Whether a read error ended the records.
  bool failed() const { return _failed; }
  // The bytes after the last whole record, once next() has found no more.
  size_t rest() const { return _end - _next; }

 private:
  // Reads until a record of this size is there. False when none comes.
  bool fill(size_t recordSize);

  static constexpr size_t kBlockSize = size_t{64} * 1024;

  int _descriptor = -1;
  bool _failed = false;
  size_t _next = 0;
  size_t _end = 0;
  std::array<uint8_t, kBlockSize> _block;
};

}  // namespace badgemint

#endif  // BADGEMINT_CARDDB_RECORDFILE_H
