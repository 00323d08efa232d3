// What the tests of the card databases share: keys, records and whole files of them.
#ifndef BADGEMINT_TESTS_CARDDB_DATABASES_H
#define BADGEMINT_TESTS_CARDDB_DATABASES_H

#include <cstdio>
#include <string>
#include <vector>

#include "carddb/accessrecord.h"
#include "carddb/identrecord.h"
#include "support/testfiles.h"

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

// A record whose every byte but uniqid and flags counts up from `value`.
inline AccessRecord access(uint32_t uniqid, uint8_t value = 0) {
  RecordImage<AccessRecord> image;
  for (uint8_t& byte : image) byte = value++;
  AccessRecord record = decodeRecord<AccessRecord>(image);
  record.uniqid = uniqid;
  record.bitflds = 0;
  return record;
}

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
  char digits[4];
  for (const uint8_t byte : bytes) {
    std::snprintf(digits, sizeof digits, "%02X ", byte);
    text += digits;
  }
  return text;
}

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_CARDDB_DATABASES_H
