// Pass 2 line by line: every line of the checked file becomes its records.
#ifndef BADGEMINT_INPUTCARDS_LINEWRITER_H
#define BADGEMINT_INPUTCARDS_LINEWRITER_H

#include <cstdint>

#include "inputcards/recordsink.h"
#include "inputcards/sitecards.h"

namespace badgemint {

// Splits each line and hands its records to a sink.
class LineWriter {
 public:
  // Both must outlive the writer.
  LineWriter(SiteCards& site, RecordSink& records) : _site(site), _records(records) {}

  // kSuccess, or the code with which a build ends here, logged unless pass 1 has logged it.
  [[nodiscard]] int32_t write(InputLine line);

  // The parts of that for each line type, for SiteCards::dispatch.
  int32_t handleCard(InputLine line);
  int32_t handleNoFormatCard(InputLine line);
  int32_t handlePin(InputLine line);
  int32_t handlePinIdent(InputLine line);
  int32_t handleMultiCards(InputLine line);

 private:
  int32_t writeBlock(const MultiCards& block, int32_t lineNumber);

  SiteCards& _site;
  RecordSink& _records;
};

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_LINEWRITER_H
