#include "support/syserr_report.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace badgemint {

namespace {

// A short write is followed up, so that errno says why the rest could not be written.
bool writeAll(int file, const void* bytes, size_t size) {
  const auto* next = static_cast<const uint8_t*>(bytes);
  while (size > 0) {
    const ssize_t written = ::write(file, next, size);
    if (written <= 0) return false;
    next += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}

bool writeHeader(int file, const ErrorFileHeader& header) {
  return writeAll(file, &header, sizeof header);
}

bool seek(int file, size_t offset) {
  return ::lseek(file, static_cast<off_t>(offset), SEEK_SET) >= 0;
}

}  // namespace

bool lockErrorFile(int file, struct flock& lock) {
  lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = 0;
  lock.l_len = 2;
  if (::fcntl(file, F_SETLKW, &lock) >= 0) return true;
  std::printf("syserr_report: ERROR setting lock (%s)\n", std::strerror(errno));
  return false;
}

int unlockAndCloseErrorFile(int file, struct flock& lock) {
  lock.l_type = F_UNLCK;
  if (::fcntl(file, F_SETLK, &lock) < 0)
    std::printf("syserr_report: ERROR freeing lock (%s)", std::strerror(errno));
  return ::close(file);
}

bool readErrorFileHeader(int file, ErrorFileHeader& header) {
  header = {};
  if (::read(file, &header, sizeof header) < 0) {
    std::printf("syserr_report: ERROR reading header (%s)", std::strerror(errno));
    return false;
  }
  return header.magic == kErrorFileMagic || writeFreshErrorFileHeader(file, header);
}

bool writeFreshErrorFileHeader(int file, ErrorFileHeader& header) {
  header = {.magic = kErrorFileMagic,
            .recordsize = kErrorRecordSize,
            .lastslot = kErrorFileCapacity,
            .recordcount = 0,
            .capacity = kErrorFileCapacity};
  if (writeHeader(file, header)) return true;
  std::printf("syserr_report: ERROR writing initial header (%s)", std::strerror(errno));
  return false;
}

bool syserr_report(int file, ErrorFileHeader& header,
                   std::span<const uint8_t, kErrorRecordSize> record) {
  const uint32_t slot = header.lastslot < kErrorFileCapacity - 1 ? header.lastslot + 1 : 0;
  if (!seek(file, sizeof header + kErrorRecordSize * slot) ||
      !writeAll(file, record.data(), record.size())) {
    std::printf("syserr_report: ERROR writing record (%s)", std::strerror(errno));
    return false;
  }
  bool written = seek(file, 0);
  if (written) {
    header.recordcount = std::min(header.recordcount, kErrorFileCapacity - 1) + 1;
    header.lastslot = slot;
    written = writeHeader(file, header);
  }
  if (!written) std::printf("syserr_report: ERROR writing header (%s)", std::strerror(errno));
  return written;
}

}  // namespace badgemint
