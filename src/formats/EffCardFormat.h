// Card formats with the lines of a CDF file in an encoded form: two bytes a character, '~' at the
// end of a line, and '^' as an error marker.
#ifndef BADGEMINT_FORMATS_EFFCARDFORMAT_H
#define BADGEMINT_FORMATS_EFFCARDFORMAT_H

#include <cstdint>

#include "formats/CdfCardFormat.h"

namespace badgemint {

// Everything but the two operations here is CdfCardFormat's, its messages and their module
// included.
class EffCardFormat : public CdfCardFormat {
 public:
  // A line of at most 100 characters before its '~'. kEffReadFailed at the end of the file and at a
  // '^', without a message, and on a read error or a longer line, with one; `reportErrors` has no
  // effect.
  [[nodiscard]] int32_t readFormatLine(LineReader& file, FormatLine& line,
                                       bool reportErrors) override;

  [[nodiscard]] bool openFormatFile(const char* path, LineReader& file) override;

 private:
  bool readToMarker(LineReader& file, FormatLine& line);
};

}  // namespace badgemint

#endif  // BADGEMINT_FORMATS_EFFCARDFORMAT_H
