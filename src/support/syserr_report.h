// The system error report file: a small ring of fixed-size error records, shared by several
// processes. The file is a 20-byte header and up to 250 records of 64 bytes, the oldest of which is
// overwritten first; all numbers are in the machine's byte order.
//
// A caller opens the file for reading and writing (created empty), takes the lock, reads the
// header, reports its records, and frees the lock, which also closes the file. The lock excludes
// other processes only: threads of one process take turns by themselves, and have the file open
// once, because closing any descriptor of it drops the lock.
//
// Failures are printed to standard output, not logged.
#ifndef BADGEMINT_SUPPORT_SYSERR_REPORT_H
#define BADGEMINT_SUPPORT_SYSERR_REPORT_H

#include <fcntl.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace badgemint {

inline constexpr uint32_t kErrorFileMagic = 4243;
inline constexpr size_t kErrorRecordSize = 64;
inline constexpr uint32_t kErrorFileCapacity = 250;  // Records.

// The header as it stands in the file.
struct ErrorFileHeader {
  uint32_t magic;
  uint32_t recordsize;
  uint32_t lastslot;     // Of the record written last; 250 when there is none yet.
  uint32_t recordcount;  // At most 250.
  uint32_t capacity;
};
static_assert(sizeof(ErrorFileHeader) == 20);

// Waits for the write lock on the first two bytes, which stand for the whole file, and describes it
// in `lock`. False, with "syserr_report: ERROR setting lock (%s)\n", when waiting fails.
[[nodiscard]] bool lockErrorFile(int file, struct flock& lock);

// Frees the lock that lockErrorFile described and closes the file in any case. The result of the
// close: 0, or -1 with errno. Prints "syserr_report: ERROR freeing lock (%s)" when it was not
// freed.
int unlockAndCloseErrorFile(int file, struct flock& lock);

// Reads the header at the current position; what the file is too short for reads as 0. A header of
// another magic is replaced in `header` and written fresh at the position after the read: at the
// start of an empty file. False, with "syserr_report: ERROR reading header (%s)" or the message of
// the fresh header, when reading or writing fails.
[[nodiscard]] bool readErrorFileHeader(int file, ErrorFileHeader& header);

// Writes the header of a ring without records at the current position. False, with "syserr_report:
// ERROR writing initial header (%s)", when that fails.
[[nodiscard]] bool writeFreshErrorFileHeader(int file, ErrorFileHeader& header);

// Writes a record to the slot after the last one and then the header, which counts it. False, with
// "syserr_report: ERROR writing record (%s)", the header untouched, or with "syserr_report: ERROR
// writing header (%s)", the record counted in `header` though not in the file. A damaged header
// never leads out of the ring: a last slot beyond it goes on at slot 0, a count beyond it is 250.
[[nodiscard]] bool syserr_report(int file, ErrorFileHeader& header,
                                 std::span<const uint8_t, kErrorRecordSize> record);

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_SYSERR_REPORT_H
