// The input cards loader: reads a site's input cards file twice. The first pass checks every line
// and looks for duplicates over the whole file; the second writes the two databases and the card
// sets file. Nothing is written before everything is known to be right.
#ifndef BADGEMINT_INPUTCARDS_INPUTCARDS_H
#define BADGEMINT_INPUTCARDS_INPUTCARDS_H

#include <cstdint>
#include <memory>

#include "carddb/accessfile.h"
#include "carddb/identfile.h"
#include "inputcards/inputfile.h"
#include "inputcards/sitecards.h"

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
  template <typename Take, typename Finish>
  int32_t readInput(Take take, Finish finish);
  int32_t openDatabases();
  int32_t writeDatabases();
  int32_t closeDatabases();

  InputFile _input;
  std::unique_ptr<char[]> _identName;
  std::unique_ptr<char[]> _accessName;
  std::unique_ptr<char[]> _cardSetsName;
  std::unique_ptr<IdentFile> _identFile;
  std::unique_ptr<AccessFile> _accessFile;
  SiteCards _site;
  int64_t _credentials = 0;  // As pass 1 has counted them.
  bool _initialised;
};

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_INPUTCARDS_H
