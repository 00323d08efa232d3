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
constexpr int kMaxLine = 100;
constexpr uint16_t kReportingModule = 1;
constexpr uint16_t kReportNoFormatsFile = 21;

// Takes an entry from a line. False when it holds none, which is reported unless the line is blank.
bool parseEntry(char* line, int number, uint32_t& formatID, FormatFileName& fileName) {
  Tokenizer words;
  words.split(line, kWordDelimiters);
  if (words.count() == 0) return false;
  if (words.count() < 2) {
    LOG(kLogError, "line %d: too few args\n", number);
    return false;
  }
  const int64_t id = textToInt64(words.word(0));
  if (id < 0 || id > UINT32_MAX) {
    LOG(kLogError, "line %d: ID out of range", number);  // The message has no newline.
    return false;
  }
  formatID = static_cast<uint32_t>(id);
  copyCut(words.word(1), fileName);
  return true;
}

}  // namespace

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
  for (int number = 1;; ++number) {
    const LineReader::Status status = _file.readLine(kMaxLine);
    if (status == LineReader::Status::kEnd) return kEndOfFile;
    if (status == LineReader::Status::kError) {
      LOG(kLogError, "Error reading formats file\n");
      return kFormatsReadFailed;
    }
    if (parseEntry(_file.line(), number, formatID, fileName)) return kSuccess;
  }
}

int32_t fmtfile::readEntryBaseName(uint32_t& formatID, FormatFileName& fileName) {
  if (const int32_t rc = readEntry(formatID, fileName); rc != kSuccess) return rc;
  if (const char* const slash = std::strrchr(fileName.data(), '/'); slash != nullptr)
    std::memmove(fileName.data(), slash + 1, std::strlen(slash + 1) + 1);
  return kSuccess;
}

}  // namespace badgemint
