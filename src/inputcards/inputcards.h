// The input cards loader: reads a site's input cards file twice. The first pass checks every line
// and looks for duplicates over the whole file; the second writes the two databases and the card
// sets file. Nothing is written before everything is known to be right.
#ifndef BADGEMINT_INPUTCARDS_INPUTCARDS_H
#define BADGEMINT_INPUTCARDS_INPUTCARDS_H

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>

#include "carddb/accessfile.h"
#include "carddb/identfile.h"
#include "cardsets/card_functions.h"
#include "cardsets/cardsets.h"
#include "formats/CardFormatSet.h"
#include "inputcards/cardindex.h"
#include "inputcards/cardline.h"
#include "inputcards/cardrecord.h"
#include "inputcards/inputfile.h"

namespace badgemint {

// Owns what a build needs between the command line and the database files. Call in this order:
// construct, isInitialised, loadFormats, pass1 if that gave 0 or 1, pass2 if pass 1 gave 0.
// Messages go to the log under `inputcards` and the modules below; a line's number is its place in
// the file, counted from 1 over all lines.
class InputCards {
 public:
  // Copies the four paths, which are already joined to the base directory. What there is no memory
  // for is logged and leaves the loader uninitialised.
  InputCards(const char* inputName, const char* identName, const char* accessName,
             const char* cardSetsName);
  InputCards(const InputCards&) = delete;
  InputCards& operator=(const InputCards&) = delete;

  bool isInitialised() const { return _initialised; }

  // Loads every format that the formats file names. kSuccess or the code of what failed.
  [[nodiscard]] int32_t loadFormats(const char* baseDirectory, const char* formatsName);

  // Checks the file. kSuccess; kInputOpenFailed; kInputReadFailed, also for a file that cannot be
  // read twice or that changes (see InputFile); kOutOfMemory, kCardIndexNotInitialised; the code of
  // the first wrong line, with a message that names it; or a duplicate check's.
  [[nodiscard]] int32_t pass1();

  // Writes the databases and the card sets file, and gives the databases to their owner only (mode
  // 0600). kSuccess; kInputOpenFailed; kInputReadFailed, also when the file is not what pass 1 has
  // checked; the code of the first line that failed, or of what failed to open, to be written or to
  // be closed. On failure the records written so far stay in the files.
  [[nodiscard]] int32_t pass2();

 private:
  // Takes one line (changed in place where words are split) and returns kSuccess or the code that
  // ends the pass.
  using Handler = int32_t (InputCards::*)(char* line);
  struct LineType {
    char letter;
    Handler check;  // Pass 1.
    Handler write;  // Pass 2.
  };
  static const LineType kLineTypes[];

  // A 'd' line's block, checked and ready to be encoded card by card.
  struct MultiCards {
    uint32_t csid;
    uint32_t fmtid;
    const CardEncoder* encoder;
    int64_t firstCard;
    int64_t count;  // 0 or less: an empty block.
    uint32_t firstUniqid;
    int32_t accessLevel;
  };

  int32_t readInput(Handler LineType::*pass);
  int32_t readLines(Handler LineType::*pass);
  int32_t handleLine(char* line, Handler LineType::*pass);

  // Both passes.
  int32_t ignoreLine(char* line);
  int32_t defineCardSet(char* line);
  int32_t checkCardSetId(int32_t csid) const;
  int32_t encodeCard(int32_t csid, const SaturatedInt64& number, CardPattern& pattern);
  int32_t prepareMultiCards(char* line, MultiCards& block);
  int32_t checkMultiCardsWords(const MultiCardsLine& words) const;
  int32_t reportCardNumber(int32_t result) const;
  static CardPattern packedPin(std::string_view pin);

  // Pass 1.
  int32_t checkCard(char* line);
  int32_t checkNoFormatCard(char* line);
  int32_t checkPin(char* line);
  int32_t checkPinIdent(char* line);
  int32_t indexPin(const char* line);
  int32_t checkMultiCards(char* line);
  int32_t indexMultiCards(const MultiCards& block);
  int32_t reportPin(int32_t result) const;

  // Pass 2.
  int32_t openDatabases();
  int32_t flushDatabases();
  int32_t closeDatabases();
  int32_t writeCard(char* line);
  int32_t writeNoFormatCard(char* line);
  int32_t writePin(char* line);
  int32_t writePinIdent(char* line);
  int32_t writeMultiCards(char* line);
  int32_t writeBlock(const MultiCards& block);
  int32_t writeHolder(const CardRecord& card);
  int32_t writeIdent(const IdentRecord& record);

  InputFile _input;
  std::unique_ptr<char[]> _identName;
  std::unique_ptr<char[]> _accessName;
  std::unique_ptr<char[]> _cardSetsName;
  std::unique_ptr<IdentFile> _identFile;
  std::unique_ptr<AccessFile> _accessFile;
  std::unique_ptr<CardFormatSet> _formats;
  std::unique_ptr<cardsets> _cardSets;
  std::array<CardEncoder, kLastCardSetId + 1> _encoders;  // By card set ID, when first used.
  CardIndex* _index = nullptr;                            // Only during pass 1, which owns it.
  int32_t _lineNumber = 0;
  int64_t _credentialsChecked = 0;  // By pass 1.
  int64_t _credentialsWritten = 0;  // By pass 2.
  bool _initialised;
};

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_INPUTCARDS_H
