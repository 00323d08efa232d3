// Card formats as plain text: a header of site facts, eight field definitions, and ten masks for
// 48, 96 or 144 positions, one item a line.
#ifndef BADGEMINT_FORMATS_CDFCARDFORMAT_H
#define BADGEMINT_FORMATS_CDFCARDFORMAT_H

#include <array>
#include <cstdint>
#include <initializer_list>

#include "formats/CardFormat.h"

namespace badgemint {

// Also reads every file that has the same lines in another form: a derived class replaces
// openFormatFile and readFormatLine. The header facts but for the card number field and the number
// of parity bits are only stored and printed.
class CdfCardFormat : public CardFormat {
 public:
  // Messages at level 25 as CdfCardFormat. A date out of range is reported and nothing more.
  // kFormatFileOpenFailed; kBadCardNumberField when line 8 is not A to H; the code of
  // readFormatLine. The file may end after line 30 (48 positions) or line 40 (96), and what follows
  // line 50 (144) is not read. More than eight parity bits count as eight.
  [[nodiscard]] int32_t loadFormatFile(const char* path) override;

  void printInfo() const override;

  // Label, minimum, maximum, direction and type, between commas; what is missing at the end is 0. A
  // line that is empty or begins with a blank clears the definition.
  void parseFieldDef(FieldDefinition& definition, char* line) override;

  // The words of such a line, which is taken apart: what stands between commas and is not empty,
  // then empty texts.
  using FieldWords = std::array<const char*, 5>;
  static FieldWords fieldWords(char* line);

  // A line of at most 100 characters; of a longer one the rest is the next line. kCdfReadFailed at
  // the end of the file, then with a message only if `reportErrors`, and on a read error.
  [[nodiscard]] int32_t readFormatLine(LineReader& file, FormatLine& line,
                                       bool reportErrors) override;

  // Opens the file; false, with a message, when it cannot be opened.
  [[nodiscard]] virtual bool openFormatFile(const char* path, LineReader& file);

 protected:
  static constexpr int kMaxLine = 100;

  // Removes a newline or carriage return at the end, and then one more.
  static void stripLineEnd(char* line);

  // Set by a readFormatLine that failed for another reason than the end of the file, which no
  // optional line excuses.
  bool _broken = false;

 private:
  static constexpr int kMaskCount = 2 + kParityMaskCount;
  static constexpr size_t kPositionsPerLine = 48;

  int32_t loadHeader(const char* path, LineReader& file);
  int32_t loadNumbers(LineReader& file, std::initializer_list<int32_t*> numbers);
  void completeDate(const char* path);
  int32_t loadCardNumberField(const char* path, LineReader& file);
  int32_t loadErrorDetectionField(LineReader& file);
  int32_t loadFieldDefs(LineReader& file);
  int32_t loadMasks(LineReader& file, size_t position, int first);
  int32_t loadWiderMasks(const char* path, LineReader& file);
  BitMask& maskAt(int i);
  void storeMask(int i, size_t position, const FormatLine& line);
  void compile();

  struct Date {
    int32_t month = 0;
    int32_t day = 0;
    int32_t year = 0;
  };

  std::array<char, 36> _customerName{};
  Date _creationDate;
  int32_t _formatRevision = 0;
  int32_t _customerNumber = 0;
  int32_t _numberActiveFields = 0;
  int32_t _offset = 0;
  int32_t _cardStyleFlag = 0;
  int32_t _errorDetectionField = 0;  // -1 for none.
};

}  // namespace badgemint

#endif  // BADGEMINT_FORMATS_CDFCARDFORMAT_H
