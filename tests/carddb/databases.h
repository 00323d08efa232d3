// The commands of the transcripts that write databases.
#ifndef BADGEMINT_TESTS_CARDDB_DATABASES_H
#define BADGEMINT_TESTS_CARDDB_DATABASES_H

#include <string>

#include "carddb/accessrecord.h"
#include "carddb/identrecord.h"
#include "support/script.h"
#include "support/testfiles.h"

namespace badgemint {

// A key by its first digits in hexadecimal.
inline CardPattern keyOf(std::string digits) {
  digits.resize(32, '0');
  CardPattern key{};
  for (size_t i = 0; i < key.size(); ++i)
    key[i] = static_cast<uint8_t>(std::stoi(digits.substr(2 * i, 2), nullptr, 16));
  return key;
}

// Words from `i` on: key, unique ID, card set (1), deleted (0).
inline IdentRecord identOf(const Step& c, size_t i) {
  return {keyOf(c.word(i)), c.as<uint32_t>(i + 1),
          c.words.size() > i + 2 ? c.as<uint32_t>(i + 2) : 1, c.as<uint32_t>(i + 3)};
}

// Words from `i` on: unique ID and the value from which every other byte but the flags counts up.
inline AccessRecord accessOf(const Step& c, size_t i) {
  RecordImage<AccessRecord> image;
  for (uint8_t value = c.as<uint8_t>(i + 1); uint8_t & byte : image) byte = value++;
  AccessRecord record = decodeRecord<AccessRecord>(image);
  record.uniqid = c.as<uint32_t>(i);
  record.bitflds = 0;
  return record;
}

template <typename Record>
std::string bytesOf(const Record& record) {
  const auto image = encodeRecord(record);
  return {image.begin(), image.end()};
}

// "idents FILE" or "accesses FILE" writes a file of the records of its input, a
// last word "xN" repeats one with N unique IDs in a row.
template <typename Record>
void writeRecords(Step& c, Record (*recordOf)(const Step&, size_t)) {
  std::istringstream lines(c.input);
  std::string bytes;
  for (std::string line; std::getline(lines, line);) {
    Step row;
    std::istringstream words(line);
    int64_t times = 1;
    for (std::string word; words >> word;)
      word[0] == 'x' ? times = std::stoi(word.substr(1)) : (row.words.push_back(word), 0);
    Record record = recordOf(row, 0);
    for (; times > 0; --times, ++record.uniqid) bytes += bytesOf(record);
  }
  std::ofstream(c.word(0)) << bytes;
}

inline void addRecordCommands(Commands& on) {
  on["idents"] = [](Step& c) { writeRecords(c, identOf); };
  on["accesses"] = [](Step& c) { writeRecords(c, accessOf); };
}

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_CARDDB_DATABASES_H
