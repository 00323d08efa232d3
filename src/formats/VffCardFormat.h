// Card formats whose layout carries only the card number beside fixed and parity bits: 17 records
// of 144 characters, two bytes a character, without separators.
#ifndef BADGEMINT_FORMATS_VFFCARDFORMAT_H
#define BADGEMINT_FORMATS_VFFCARDFORMAT_H

#include <array>
#include <cstdint>

#include "formats/CardFormat.h"

namespace badgemint {

// In the output mask '*' stands for the card number, and letters mean nothing.
class VffCardFormat : public CardFormat {
 public:
  // kVffOpenFailed, with a message; the code of readFormatLine; kVffReadFailed, with a message,
  // when the file gives a bit count outside 0 to 144 or a card number field outside 1 to 8. What
  // follows the last record is not read.
  [[nodiscard]] int32_t loadFormatFile(const char* path) override;

  void printInfo() const override;

  // The value at the card number's positions, whatever the field, read with the direction and type
  // of the field; 0 for an index outside 0 to 7. Always kSuccess.
  int32_t decodeField(const CardPattern& pattern, int32_t field, int64_t& value) const override;

  // The number of positions of the card number, whatever the field.
  int32_t fieldBitCount(int32_t field) const override;

  // Takes "bit count, card number field from 1, direction, type" from record 6: the first two into
  // the format, unless they are out of range, and the others into `definition`.
  void parseFieldDef(FieldDefinition& definition, char* line) override;

  // A record without the white space at its end. kVffReadFailed with a message on a read error, and
  // without one at a '^' and when the file ends; `reportErrors` has no effect.
  [[nodiscard]] int32_t readFormatLine(LineReader& file, FormatLine& record,
                                       bool reportErrors) override;

 private:
  int32_t loadTexts(LineReader& file);
  int32_t loadCardNumberDefinition(const char* path, LineReader& file);
  int32_t loadMasks(LineReader& file);
  int32_t usedParityMasks() const;
  void compile();

  std::array<char, 145> _filename{};
  std::array<char, 31> _version{};
  std::array<char, 31> _dateCreated{};
  std::array<char, 31> _templateID{};
  std::array<char, 145> _fixedFieldDetails{};
  int32_t _checkSum = 0;  // Not verified.

  // As record 6 gives them, in range or not.
  int32_t _bitCount = 0;
  int32_t _cardNumberFieldFromOne = 0;
};

}  // namespace badgemint

#endif  // BADGEMINT_FORMATS_VFFCARDFORMAT_H
