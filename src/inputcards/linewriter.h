// Pass 2 line by line: every line of the checked file becomes its records, appended in file order.
#ifndef BADGEMINT_INPUTCARDS_LINEWRITER_H
#define BADGEMINT_INPUTCARDS_LINEWRITER_H

#include <cstdint>

#include "carddb/accessfile.h"
#include "carddb/identfile.h"
#include "inputcards/recordsink.h"
#include "inputcards/sitecards.h"

namespace badgemint {

// The databases. The files are open for appending and buffer what they are given; they outlive it.
class DatabaseSink final : public RecordSink {
 public:
  DatabaseSink(IdentFile& identFile, AccessFile& accessFile)
      : _identFile(identFile), _accessFile(accessFile) {}

  // kSuccess or the code of the file that failed.
  [[nodiscard]] int32_t put(const IdentRecord& ident, const AccessRecord* access) override;

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

class LineWriter {
 public:
  // Both must outlive the writer.
  LineWriter(SiteCards& site, RecordSink& records) : _site(site), _records(records) {}

  // kSuccess, or the code with which a build ends here, logged unless pass 1 has logged it.
  [[nodiscard]] int32_t write(InputLine line);

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
  RecordSink& _records;
};

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_LINEWRITER_H
