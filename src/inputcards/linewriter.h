// Pass 2 line by line: every line of the checked file becomes its records, appended in file order.
#ifndef BADGEMINT_INPUTCARDS_LINEWRITER_H
#define BADGEMINT_INPUTCARDS_LINEWRITER_H

#include <cstdint>

#include "carddb/accessfile.h"
#include "carddb/identfile.h"
#include "inputcards/cardrecord.h"
#include "inputcards/sitecards.h"

namespace badgemint {

// The databases. The files are open for appending and buffer what they are given; they outlive it.
class DatabaseOutput {
 public:
  DatabaseOutput(IdentFile& identFile, AccessFile& accessFile)
      : _identFile(identFile), _accessFile(accessFile) {}

  // An ident record alone, and both records of a credential that has an access record. kSuccess or
  // the code of the file that failed.
  [[nodiscard]] int32_t put(const IdentRecord& record);
  [[nodiscard]] int32_t put(const CardRecord& card);

  // Writes out what the files have buffered: both together, so that neither runs far ahead of the
  // other. kSuccess or the code of the file that failed.
  [[nodiscard]] int32_t flush();

  // Ident records so far.
  int64_t credentials() const { return _credentials; }

 private:
  IdentFile& _identFile;
  AccessFile& _accessFile;
  int64_t _credentials = 0;
};

// In place of the databases, for those who want to know what a build makes of a line: keeps the
// last records.
class LastRecords {
 public:
  [[nodiscard]] int32_t put(const IdentRecord& record) {
    _card.ident = record;
    return kSuccess;
  }
  [[nodiscard]] int32_t put(const CardRecord& card) {
    _card = card;
    return kSuccess;
  }
  const CardRecord& card() const { return _card; }

 private:
  CardRecord _card;
};

template <typename Output>
class LineWriter {
 public:
  // Both must outlive the writer.
  LineWriter(SiteCards& site, Output& output) : _site(site), _output(output) {}

  // kSuccess, or the code with which a build ends here, logged unless pass 1 has logged it.
  [[nodiscard]] int32_t write(InputLine line) { return takeLine(*this, line); }

 private:
  template <typename Pass>
  friend int32_t takeLine(Pass& pass, InputLine line);

  int32_t takeCard(InputLine line);
  int32_t takeNoFormatCard(InputLine line);
  int32_t takePin(InputLine line);
  int32_t takePinIdent(InputLine line);
  int32_t takeMultiCards(InputLine line);
  int32_t writeBlock(const MultiCards& block, int32_t lineNumber);

  SiteCards& _site;
  Output& _output;
};

extern template class LineWriter<DatabaseOutput>;
extern template class LineWriter<LastRecords>;

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_LINEWRITER_H
