// What the tests of the card databases share: keys, records and whole files of them.
#ifndef BADGEMINT_TESTS_CARDDB_DATABASES_H
#define BADGEMINT_TESTS_CARDDB_DATABASES_H

#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "carddb/accessrecord.h"
#include "carddb/identrecord.h"

namespace badgemint {

inline CardPattern cardKey(int first, int last = 0) {
  CardPattern key{};
  key.front() = static_cast<uint8_t>(first);
  key.back() = static_cast<uint8_t>(last);
  return key;
}

inline IdentRecord ident(int key, uint32_t uniqid, uint32_t cardsetcode = 1) {
  return {cardKey(key), uniqid, cardsetcode, 0};
}

inline AccessRecord access(uint32_t uniqid, uint32_t starttime = 0) {
  AccessRecord record;
  record.uniqid = uniqid;
  record.starttime = starttime;
  return record;
}

// The bytes of a database file of these records.
template <typename Record>
std::string fileOf(const std::vector<Record>& records) {
  std::string bytes;
  for (const Record& record : records)
    for (const uint8_t byte : encodeRecord(record)) bytes += static_cast<char>(byte);
  return bytes;
}

template <typename Bytes>
std::string hex(const Bytes& bytes) {
  std::string text;
  for (const auto byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02X ", static_cast<unsigned char>(byte));
    text += digits;
  }
  return text;
}

// A record so far behind in its file that a limit there leaves room for the log.
inline constexpr uint32_t kFarRecord = 4000;

// While it lives, no file can be written beyond `bytes`: the write that would is short, the next
// fails.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &_old);
    const rlimit limit{bytes, _old.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &_old); }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit _old{};
};

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_CARDDB_DATABASES_H
