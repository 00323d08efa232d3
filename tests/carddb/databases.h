// What the tests of the card databases share: records as texts, and the commands of the transcripts
// that use and maintain a pair of databases.
#ifndef BADGEMINT_TESTS_CARDDB_DATABASES_H
#define BADGEMINT_TESTS_CARDDB_DATABASES_H

#include <fcntl.h>

#include <cerrno>
#include <string>

#include "carddb/accessfile.h"
#include "carddb/identfile.h"
#include "support/masterconfiguration.h"
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

// What both kinds of files do; `kind` is "ident" or "access".
template <typename File, typename Record>
void addFileCommands(Commands& on, const std::string& kind, File& file, const char* plural,
                     Record (*recordOf)(const Step&, size_t)) {
  on[plural] = [=](Step& c) { writeRecords(c, recordOf); };
  on[kind + "-name"] = [&](Step& c) { c.out << file.setFileName(c.name(0)); };
  on[kind + "-open"] = [&](Step& c) {
    c.out << file.openFile(c.text == "new" ? O_RDWR | O_CREAT | O_TRUNC : O_RDWR);
  };
  on[kind + "-close"] = [&](Step& c) { c.out << file.closeFile(); };
  on[kind + "-buffer"] = [&](Step&) { file.startBuffering(); };
  on[kind + "-flush"] = [&](Step& c) { c.out << file.flushAppends(); };
  // Appends N records and tells the last result, whether the buffer is full, and the file's size.
  on[kind + "-append"] = [&file, recordOf, kind](Step& c) {
    int32_t result = 0;
    for (int64_t i = 0; i < std::max<int64_t>(1, c.number(0)); ++i)
      result = file.appendRecord(recordOf(c, 1));
    c.out << result << (file.appendBufferFull() ? " full " : " ");
    if (std::filesystem::is_regular_file(kind)) c.out << std::filesystem::file_size(kind);
  };
  const auto print = [](Step& c, int32_t result, const Record& record) {
    c.out << result << ' ' << (record == Record{} ? "empty" : hexLines(bytesOf(record)));
  };
  on[kind + "-next"] = [&file, print](Step& c) {
    Record record;
    const int32_t result = file.readNext(record);
    print(c, result, record);
  };
  on[kind + "-read"] = [&file, print](Step& c) {
    Record record;
    const int32_t result = file.readRecordAt(record, c.as<uint32_t>(0));
    print(c, result, record);
  };
  on[kind + "-write"] = [&file, recordOf](Step& c) {
    c.out << file.writeRecordAt(recordOf(c, 1), c.as<uint32_t>(0));
  };
  on[kind + "-load"] = [&file](Step& c) {
    c.out << file.loadIndex(c.name(0), c.as<uint32_t>(1));
    if (file.index() != nullptr)
      c.out << ' ' << file.index()->count() << '/' << file.index()->capacity();
  };
  on[kind + "-configure"] = [&file](Step& c) {
    MasterConfiguration configuration(0, c.name(0));
    errno = EINVAL;
    const bool loaded = file.loadIndexFromConfig(configuration);
    c.out << loaded << (loaded ? "" : errno == 0 ? " without an error" : " with an error");
  };
}

// The operations of the ident file.
inline void addIdentCommands(Commands& on, IdentFile& file) {
  addFileCommands(on, "ident", file, "idents", identOf);
  on["find-card"] = [&](Step& c) {
    IdentRecord record;
    uint32_t recno = 0;
    const int32_t result = file.findCard(keyOf(c.word(0)), record, recno);
    c.out << result;
    if (result == 0) c.out << " at " << recno << ": " << hexLines(bytesOf(record));
  };
  on["verify-card"] = [&](Step& c) {
    uint32_t uniqid = 0, deleted = 0;
    c.out << file.verifyCard(keyOf(c.word(0)), uniqid, deleted);
    c.out << ' ' << uniqid << ' ' << deleted;
  };
  on["add-card"] = [&](Step& c) { c.out << file.addOrReplace(identOf(c, 0)); };
  on["add-key"] = [&](Step& c) { c.out << file.addIndexKey(keyOf(c.word(0))); };
  const auto mark = [&](int32_t (IdentFile::*set)(const CardPattern&, uint32_t&)) {
    return [&file, set](Step& c) {
      uint32_t uniqid = 0;
      c.out << (file.*set)(keyOf(c.word(0)), uniqid);
      c.out << ' ' << uniqid;
    };
  };
  on["delete-card"] = mark(&IdentFile::setCardDeleted);
  on["restore-card"] = mark(&IdentFile::setCardUndeleted);
  on["paired-card"] = [&](Step& c) {
    CardPattern paired{};
    c.out << file.getPairedCard(keyOf(c.word(0)), paired);
    c.out << ' ' << hexLines(paired);
  };
  on["pair-card"] = [&](Step& c) {
    c.out << file.setPairedCard(keyOf(c.word(0)), keyOf(c.word(1)));
  };
}

// The operations of the access file.
inline void addAccessCommands(Commands& on, AccessFile& file) {
  addFileCommands(on, "access", file, "accesses", accessOf);
  on["find-access"] = [&](Step& c) {
    AccessRecord record;
    uint32_t recno = 0;
    const int32_t result = file.findAccess(c.as<uint32_t>(0), record, recno);
    c.out << result;
    if (result == 0) c.out << " at " << recno << ": " << hexLines(bytesOf(record));
  };
  on["access-read-ahead"] = [&](Step&) { file.startReadingAhead(); };
  on["put-access"] = [&](Step& c) { c.out << file.putAccess(accessOf(c, 0)); };
  on["update-validity"] = [&](Step& c) { c.out << file.updateAccessTimes(accessOf(c, 0)); };
  // Unique ID, value, flag 2, whether to keep the validity.
  on["merge-access"] = [&](Step& c) {
    AccessRecord record = accessOf(c, 0);
    record.setFlag(2, c.as<int32_t>(2));
    c.out << file.mergeAccess(record, c.number(3) != 0) << ' ';
    AccessIndexEntry* const entry = file.index() ? file.index()->find(record.uniqid) : nullptr;
    if (entry != nullptr) c.out << "state " << entry->state.value << ' ';
    c.out << hexLines(bytesOf(record));
  };
  on["set-flag3"] = [&](Step& c) { c.out << file.setFlag3(c.as<uint32_t>(0)); };
  on["clear-flag3"] = [&](Step& c) { c.out << file.clearFlag3(c.as<uint32_t>(0)); };
}

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_CARDDB_DATABASES_H
