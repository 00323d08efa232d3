// The dump: from the two databases back to an input cards file.
#include <fcntl.h>

#include <cinttypes>

#include "carddb/accessfile.h"
#include "carddb/createfile.h"
#include "carddb/identfile.h"
#include "cardsets/card_functions.h"
#include "cardsets/cardsets.h"
#include "formats/CardFormat.h"
#include "formats/CardFormatSet.h"
#include "formats/loadformats.h"
#include "support/datetime.h"
#include "support/log.h"
#include "support/packeddecimal.h"
#include "support/result.h"
#include "support/textwriter.h"
#include "tools/badgemint.h"
#include "tools/entryrun.h"

namespace badgemint {

namespace {

constexpr const char* kLogModule = kEntryModule;
constexpr int32_t kInitialFormats = 20;

// The digits of a packed PIN. A blank PIN gives "0", so that the fields keep their columns.
template <size_t Digits>
std::string_view pinText(const DigitText<Digits>& pin) {
  return *pin.c_str() == '\0' ? std::string_view("0") : std::string_view(pin.c_str());
}

// Writes the lines of the output: each record of the ident database as the line that it came from.
class DumpWriter {
 public:
  DumpWriter(AccessFile& accessFile, const cardsets& sets, const CardFormatSet& formats,
             TextWriter& output)
      : _accessFile(accessFile), _sets(sets), _formats(formats), _output(output) {}

  // kSuccess; kInvalidCardSet, kFormatNotDefined, kOutputFailed or a code of the access file.
  int32_t writeRecord(const IdentRecord& ident) {
    ++_recordCount;
    LOG(kLogStep, "Dump card#=%" PRId64 "\n", _recordCount);
    switch (ident.cardsetcode) {
      case kPinIdentCode:
        return writePinIdent(ident);
      case kFormatlessCode:
        return writeFormatlessCard(ident);
      case kPinOnlyCode:
        return writePin(ident);
      default:
        return writeCard(ident);
    }
  }

 private:
  // The fields of a line, each after a blank.
  void word(std::string_view text) {
    _output.writeChar(' ');
    _output.write(text);
  }
  void number(int64_t value) {
    _output.writeChar(' ');
    _output.writeInt(value);
  }

  int32_t writePinIdent(const IdentRecord& ident) {
    _output.writeChar('o');
    word(pinText(DigitText<kMaxPinIdentDigits>(ident.cardnumber)));
    number(ident.uniqid);
    return endLine();
  }

  int32_t writePin(const IdentRecord& ident) {
    AccessRecord access;
    if (const int32_t rc = _accessFile.findAccess(ident.uniqid, access); rc < 0) return rc;
    _output.writeChar('p');
    word(pinText(DigitText<kMaxPinIdentDigits>(ident.cardnumber)));
    writeHolder(ident, access);
    return endLine();
  }

  int32_t writeFormatlessCard(const IdentRecord& ident) {
    std::array<char, 2 * sizeof ident.cardnumber + 1> digits;
    bitsToHex(ident.cardnumber, digits);
    LOG(kLogStep, "nofmt cardno=%s\n", digits.data());
    AccessRecord access;
    if (const int32_t rc = _accessFile.findAccess(ident.uniqid, access); rc < 0) return rc;
    _output.write("n 0");
    word(digits.data());
    writeCardHolder(ident, access);
    return endLine();
  }

  // The card set's definition stands before each of its cards: the reader accepts repeated ones.
  int32_t writeCard(const IdentRecord& ident) {
    const auto code = static_cast<int32_t>(ident.cardsetcode);
    const cardset* const set = _sets.getCardSet(ident.cardsetcode);
    if (set == nullptr) {
      LOG(kLogError, "Card set %d not found, card record no=%" PRId64 "\n", code, _recordCount);
      return kInvalidCardSet;
    }
    const CardFormat* const format = _formats.findFormat(set->fmtid);
    if (format == nullptr) {
      LOG(kLogError, "Card format %u not found, card set=%d\n", set->fmtid, code);
      return kFormatNotDefined;
    }
    _output.write(CardSetLine(*set).text());
    const int64_t cardNumber = format->decodeCardNumber(ident.cardnumber);
    AccessRecord access;
    if (const int32_t rc = _accessFile.findAccess(ident.uniqid, access); rc < 0) return rc;
    _output.writeChar('c');
    number(code);
    number(cardNumber);
    writeCardHolder(ident, access);
    return endLine();
  }

  void writeCardHolder(const IdentRecord& ident, const AccessRecord& access) {
    word(pinText(DigitText<kMaxPinDigits>(access.pincode)));
    writeHolder(ident, access);
    number(access.flag(5));
  }

  void writeHolder(const IdentRecord& ident, const AccessRecord& access) {
    number(ident.uniqid);
    for (const uint16_t level : access.acclevel) number(level);
    for (const int32_t bit : {2, 1, 4}) number(access.flag(bit));
    number(access.escortid);
    writeTime(access.starttime);
    writeTime(access.endtime);
    number(access.elevatoraccess);
    number(access.outrelaygrpid);
  }

  void writeTime(uint32_t seconds) {
    const DateAndTime parts = splitDateTime(formatDateTime(seconds).data());
    word(parts.date.data());
    word(parts.time.data());
  }

  int32_t endLine() {
    _output.writeChar('\n');
    return _output.good() ? kSuccess : kOutputFailed;
  }

  AccessFile& _accessFile;
  const cardsets& _sets;
  const CardFormatSet& _formats;
  TextWriter& _output;
  int64_t _recordCount = 0;
};

int32_t writeRecords(IdentFile& identFile, DumpWriter& writer) {
  IdentRecord ident;
  for (;;) {
    const int32_t read = identFile.readNext(ident);
    if (read != kSuccess) return read == kEndOfFile ? kSuccess : read;
    if (const int32_t rc = writer.writeRecord(ident); rc < 0) return rc;
  }
}

int32_t writeOutput(const SiteFiles& files, IdentFile& identFile, AccessFile& accessFile,
                    const cardsets& sets, const CardFormatSet& formats) {
  TextWriter output;
  if (!output.open(files.cards)) {
    LOG(kLogError, "Error opening output cards files %s\n", files.cards);
    return kOutputFailed;
  }
  DumpWriter writer(accessFile, sets, formats, output);
  int32_t result = writeRecords(identFile, writer);
  if (!output.close()) {
    LOG(kLogError, "Error writing output cards file %s\n", files.cards);
    if (result == kSuccess) result = kOutputFailed;
  }
  return result;
}

int32_t runDump(const EntryRun& run, const SiteFiles& files) {
  CardFormatSet formats;
  if (const int32_t rc = formats.create(kInitialFormats); rc < 0) return rc;
  if (const int32_t rc = loadFormats(kLogModule, run.baseDirectory(), files.formats, formats);
      rc < 0)
    return rc;
  cardsets sets;
  if (const int32_t rc = sets.create(cardsets::kInitialCapacity); rc < 0) return rc;
  if (const int32_t rc = sets.load(files.cardSets); rc < 0) return rc;

  const auto identFile = createFile<IdentFile>(kLogModule, files.identDb, "ident file");
  if (identFile == nullptr) return kOutOfMemory;
  const auto accessFile = createFile<AccessFile>(kLogModule, files.accessDb, "access file");
  if (accessFile == nullptr) return kOutOfMemory;
  if (const int32_t rc = accessFile->loadIndex(files.accessDb, 0); rc < 0) return rc;
  if (const int32_t rc = identFile->openFile(O_RDWR); rc < 0) return rc;
  identFile->startReadingAhead();
  if (const int32_t rc = accessFile->openFile(O_RDONLY); rc < 0) return rc;
  accessFile->startReadingAhead();
  return writeOutput(files, *identFile, *accessFile, sets, formats);
}

int32_t dump(EntryRun& run, SiteFiles files) {
  if (const int32_t rc = run.joinNames({{&files.identDb, "ident"},
                                        {&files.accessDb, "access"},
                                        {&files.formats, "formats"},
                                        {&files.cardSets, "cardsets"},
                                        {&files.cards, "output file"}});
      rc < 0)
    return rc;
  run.logStart();
  run.logFiles(files);
  return runDump(run, files);
}

}  // namespace

}  // namespace badgemint

int32_t DumpCardFile(const char* baseDirectory, const char* identDbName, const char* accessDbName,
                     const char* formatsName, const char* cardSetsName, const char* outputName,
                     const char* logName, uint32_t logLevel) {
  using namespace badgemint;
  const SiteFiles names = {outputName, identDbName, accessDbName, formatsName, cardSetsName};
  EntryRun entry("DumpCardFile", baseDirectory, kDatabasePause);
  return entry.run(logName, logLevel, [&](EntryRun& run) { return dump(run, names); });
}
