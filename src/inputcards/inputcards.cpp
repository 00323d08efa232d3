#include "inputcards/inputcards.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <new>

#include "carddb/createfile.h"
#include "formats/loadformats.h"
#include "inputcards/cardindex.h"
#include "inputcards/databasesink.h"
#include "inputcards/linechecker.h"
#include "inputcards/linewriter.h"
#include "support/log.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "inputcards";
constexpr int kCreateFlags = O_WRONLY | O_CREAT | O_TRUNC;
constexpr mode_t kOwnerOnly = 0600;

bool created(bool done, const char* what) {
  if (!done) LOG(kLogError, "Not enough memory to create %s\n", what);
  return done;
}

bool copyName(std::unique_ptr<char[]>& copy, const char* name, const char* what) {
  copy = copyText(name);
  return created(copy != nullptr, what);
}

template <typename File>
bool createDatabase(std::unique_ptr<File>& file, const char* name, const char* what) {
  file = createFile<File>(kLogModule, name, what);
  return file != nullptr;
}

void restrictToOwner(const char* path) {
  if (chmod(path, kOwnerOnly) != 0) LOG(kLogError, "Error restricting %s to its owner\n", path);
}

// Gives line after line to `take` until one fails.
template <typename Take>
int32_t takeLines(LineReader& input, Take take) {
  uint32_t lines = 0;  // Wraps where a signed number must not.
  while (input.readLine(kMaxInputLine) == LineReader::Status::kLine) {
    const InputLine line = {input.line(), static_cast<int32_t>(++lines)};
    if (const int32_t rc = take(line); rc < 0) return rc;
  }
  return kSuccess;
}

// Whether lines that go well are logged.
bool logsLines() {
  return listener(kLogStep) != nullptr || listener(kLogRecord) != nullptr;
}

}  // namespace

InputCards::InputCards(const char* inputName, const char* identName, const char* accessName,
                       const char* cardSetsName)
    : _initialised(created(_input.setName(inputName), "input filename") &&
                   copyName(_identName, identName, "ident filename") &&
                   copyName(_accessName, accessName, "access filename") &&
                   copyName(_cardSetsName, cardSetsName, "card set filename") &&
                   createDatabase(_identFile, identName, "ident file") &&
                   createDatabase(_accessFile, accessName, "access file") &&
                   _site.create() == kSuccess) {}

int32_t InputCards::loadFormats(const char* baseDirectory, const char* formatsName) {
  return badgemint::loadFormats(kLogModule, baseDirectory, formatsName, _site.formats());
}

// `finish` ends what the lines have begun, before anything is said of the input. A file that
// changes while it is read may well have a line that is wrong; that it changes says more.
template <typename Take, typename Finish>
int32_t InputCards::readInput(Take take, Finish finish) {
  int32_t result = takeLines(_input.lines(), take);
  if (const int32_t rc = finish(); rc < 0) result = rc;
  if (result == kSuccess && _input.lines().failed()) {
    LOG(kLogError, "Error reading input cards file\n");
    result = kInputReadFailed;
  }
  if (!_input.lines().failed() && _input.checkUnchanged() < 0) result = kInputReadFailed;
  _input.close();
  return result;
}

int32_t InputCards::pass1() {
  if (const int32_t rc = _input.open(); rc < 0) return rc;
  const std::unique_ptr<CardIndex> index(new (std::nothrow) CardIndex);
  if (!created(index != nullptr, "card index")) return kOutOfMemory;
  if (!index->isInitialised()) return kCardIndexNotInitialised;

  LineChecker checker(_site, *index);
  int32_t result = readInput([&checker](InputLine line) { return checker.check(line); },
                             [] { return kSuccess; });
  if (result < 0) return result;
  _credentials = index->count();

  result = index->checkDuplicateKeys();
  if (result == kSuccess) result = index->checkDuplicateUniqueIds();
  LOG(kLogRun, "Number of cards=%d\n", index->count());
  return result;
}

int32_t InputCards::pass2() {
  if (const int32_t rc = _input.open(); rc < 0) return rc;
  int32_t result = openDatabases();
  if (result == kSuccess) result = writeDatabases();
  if (result < 0) {
    static_cast<void>(closeDatabases());
    return result;
  }
  result = _site.cardSets().writeCardSetsFile(_cardSetsName.get());
  const int32_t closed = closeDatabases();
  restrictToOwner(_identName.get());
  restrictToOwner(_accessName.get());
  return result < 0 ? result : closed;
}

int32_t InputCards::openDatabases() {
  if (const int32_t rc = _identFile->openFile(kCreateFlags); rc < 0) return rc;
  return _accessFile->openFile(kCreateFlags);
}

int32_t InputCards::writeDatabases() {
  DatabaseSink databases(*_identFile, *_accessFile);
  if (!logsLines()) databases.startGathering();
  LineWriter writer(_site, databases);
  const int32_t result = readInput([&writer](InputLine line) { return writer.write(line); },
                                   [&databases] { return databases.flush(); });
  if (result == kSuccess && databases.credentials() != _credentials) return _input.reportChanged();
  return result;
}

int32_t InputCards::closeDatabases() {
  const int32_t identResult = _identFile->closeFile();
  const int32_t accessResult = _accessFile->closeFile();
  return identResult < 0 ? identResult : accessResult;
}

}  // namespace badgemint
