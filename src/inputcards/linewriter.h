// Pass 2 line by line: every line of the checked file becomes its records, appended in file order.
#ifndef BADGEMINT_INPUTCARDS_LINEWRITER_H
#define BADGEMINT_INPUTCARDS_LINEWRITER_H

#include <cstdint>

#include "carddb/accessfile.h"
#include "carddb/identfile.h"
#include "inputcards/cardrecord.h"
#include "inputcards/sitecards.h"

namespace badgemint {

class LineWriter {
 public:
  // All must outlive the writer. The files are open for appending and buffer what they are given.
  LineWriter(SiteCards& site, IdentFile& identFile, AccessFile& accessFile)
      : _site(site), _identFile(&identFile), _accessFile(&accessFile) {}

  // Only makes the records of a line, the last ones of a block: they are left in `made`.
  LineWriter(SiteCards& site, CardRecord& made) : _site(site), _made(&made) {}

  // kSuccess, or the code with which a build ends here, logged unless pass 1 has logged it.
  [[nodiscard]] int32_t write(InputLine line);

  // Writes out what the files have buffered: both together, so that neither runs far ahead of the
  // other. kSuccess or the code of the file that failed.
  [[nodiscard]] int32_t flush();

  // Ident records so far.
  int64_t credentials() const { return _credentials; }

 private:
  template <typename Pass>
  friend int32_t takeLine(Pass& pass, InputLine line);

  int32_t takeCard(InputLine line);
  int32_t takeNoFormatCard(InputLine line);
  int32_t takePin(InputLine line);
  int32_t takePinIdent(InputLine line);
  int32_t takeMultiCards(InputLine line);
  int32_t writeBlock(const MultiCards& block, int32_t lineNumber);
  int32_t writeHolder(const CardRecord& card);
  int32_t writeIdent(const IdentRecord& record);

  SiteCards& _site;
  IdentFile* const _identFile = nullptr;
  AccessFile* const _accessFile = nullptr;
  CardRecord* const _made = nullptr;  // In place of both files.
  int64_t _credentials = 0;
};

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_LINEWRITER_H
