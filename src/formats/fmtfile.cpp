#include "formats/fmtfile.h"

#include <cstring>

#include "support/fieldscanner.h"
#include "support/log.h"
#include "support/masterconfiguration.h"
#include "support/result.h"
#include "support/textutil.h"
#include "support/tokenizer.h"

namespace badgemint {
namespace {

constexpr char kLogModule[] = "fmtfile";
constexpr uint16_t kReportingModule = 1;
constexpr uint16_t kReportNoFormatsFile = 21;

// Takes an entry from a line. False when it holds none, which is reported unless the line is blank.
bool parseEntry(char* line, int number, FormatsEntry& entry) {
  Tokenizer words;
  words.split(line, kWordDelimiters);
  const FormatsLineKind kind = readFormatsLine(words, entry);
  if (kind == FormatsLineKind::kTooFewWords) LOG(kLogError, "line %d: too few args\n", number);
  if (kind == FormatsLineKind::kIdOutOfRange)
    LOG(kLogError, "line %d: ID out of range", number);  // The message has no newline.
  return kind == FormatsLineKind::kEntry;
}

}  // namespace

FormatsLineKind readFormatsLine(const Tokenizer& words, FormatsEntry& entry) {
  if (words.count() == 0) return FormatsLineKind::kBlank;
  if (words.count() < 2) return FormatsLineKind::kTooFewWords;
  const int64_t id = textToInt64(words.word(0));
  if (id < 0 || id > UINT32_MAX) return FormatsLineKind::kIdOutOfRange;
  entry.formatID = static_cast<uint32_t>(id);
  copyCut(words.word(1), entry.fileName);
  return FormatsLineKind::kEntry;
}

void cutToBaseName(FormatFileName& fileName) {
  if (const char* const slash = std::strrchr(fileName.data(), '/'); slash != nullptr)
    std::memmove(fileName.data(), slash + 1, std::strlen(slash + 1) + 1);
}

int32_t fmtfile::open(const char* path) {
  if (_file.open(path)) return kSuccess;
  LOG(kLogError, "Error opening formats file %s\n", path);
  return kFormatsOpenFailed;
}

int32_t fmtfile::openFromConfiguration(MasterConfiguration& configuration) {
  if (configuration.openEntryFile("fmts", _file)) return kSuccess;
  reportSystemError(kReportingModule, kReportNoFormatsFile);
  return kFormatsOpenFailed;
}

int32_t fmtfile::readEntry(uint32_t& formatID, FormatFileName& fileName) {
  if (!_file.isOpen()) return kFormatsReadFailed;
  FormatsEntry entry;
  for (int number = 1;; ++number) {
    const LineReader::Status status = _file.readLine(kMaxFormatsLine);
    if (status == LineReader::Status::kEnd) return kEndOfFile;
    if (status == LineReader::Status::kError) {
      LOG(kLogError, "Error reading formats file\n");
      return kFormatsReadFailed;
    }
    if (!parseEntry(_file.line(), number, entry)) continue;
    formatID = entry.formatID;
    fileName = entry.fileName;
    return kSuccess;
  }
}

int32_t fmtfile::readEntryBaseName(uint32_t& formatID, FormatFileName& fileName) {
  if (const int32_t rc = readEntry(formatID, fileName); rc != kSuccess) return rc;
  cutToBaseName(fileName);
  return kSuccess;
}

}  // namespace badgemint
