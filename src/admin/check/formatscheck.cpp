#include "admin/check/sitecheck.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "admin/check/oddtext.h"
#include "admin/files/folder.h"
#include "formats/fmtfile.h"
#include "support/linereader.h"
#include "support/result.h"
#include "support/tokenizer.h"

namespace badgemint::admin {
namespace {

constexpr LineField kFormatId = {"format ID", FieldKind::kNumber, UINT32_MAX};

// Reads the formats file and then loads what it lists: so the findings come in the order of the
// files, and the verdict is still that of the first thing that a build meets.
class FormatsCheck {
 public:
  FormatsCheck(const std::string& formatsFile, CardFormatSet& formats, Findings& findings)
      : _formatsFile(formatsFile),
        _formats(formats),
        _findings(findings),
        _file(findings.addFile(formatsFile)) {}

  CheckedFormats run() {
    const auto [result, place] = readFile();
    for (CheckedFormat& entry : _checked.formats) load(entry);
    _findings.setVerdict(result, place);
    return std::move(_checked);
  }

 private:
  // Returns how a build would end after the last entry.
  Verdict readFile() {
    requireRegularFile(_formatsFile);
    if (!_reader.open(_formatsFile.c_str())) return failToRead(kFormatsOpenFailed, 0);
    while (_reader.readLine(kMaxFormatsLine) == LineReader::Status::kLine) {
      if (isUtf16(_reader)) {
        _findings.warn({_file, 1, 0}, "text", kUtf16Text);
        return {};  // A build finds no format in it.
      }
      checkLine();
    }
    const int64_t line = _reader.lineNumber();
    if (_reader.failed()) return failToRead(kFormatsReadFailed, line + 1);
    if (!_reader.endedLine()) _findings.warn({_file, line, 0}, "text", kNoNewlineText);
    return {};
  }

  Verdict failToRead(int32_t result, int64_t line) {
    _findings.error({_file, line, 0}, result, "cannot be read: {}", std::strerror(errno));
    _checked.complete = false;
    return {result, {_file, line, 0}};
  }

  void checkLine() {
    const bool isMark = isMergeMark({_reader.line(), _reader.length()});
    const std::optional<OddText> odd = findOddText(_reader, true);
    Tokenizer words;
    words.split(_reader.line(), kWordDelimiters);
    FormatsEntry read;
    const FormatsLineKind kind = readFormatsLine(words, read);
    const bool isFormat = kind == FormatsLineKind::kEntry && addEntry(words, read, isMark);
    if (isMark) return;
    if (odd) return _findings.warn(at(_reader.line() + odd->offset), "text", "{}", odd->effect);
    const bool isTooShort = kind == FormatsLineKind::kTooFewWords;
    if (isTooShort || kind == FormatsLineKind::kIdOutOfRange)
      _findings.warn(at(words.word(0)), "format-id", "{}: the line is skipped",
                     isTooShort ? "no file name" : "the format ID is not 1 to 4294967295");
    if (!isFormat) return;
    checkId(words.word(0), _checked.formats.back());
    checkName(words.word(1), _checked.formats.back(), read.fileName.data());
  }

  // False, with an error, when a build cannot load such a file: it may be a cards file, and the
  // word a PIN.
  bool addEntry(const Tokenizer& words, const FormatsEntry& read, bool isMark) {
    FormatFileName base = read.fileName;
    cutToBaseName(base);
    CheckedFormat& entry = _checked.formats.emplace_back();
    entry.id = read.formatID;
    entry.fileName = base.data();
    entry.line = _reader.lineNumber();
    if (CardFormatSet::isFormatFile(base.data())) return true;
    const bool mayBePin = std::ranges::any_of(entry.fileName, isDigit);
    entry.error = isMark
                      ? _mergeMarks.report(_findings, {_file, entry.line, 0}, kFormatNotAdded)
                      : _findings.error(
                            at(words.word(1)), kFormatNotAdded,
                            "{} is not a format file: its name does not contain .cdf, .eff or .vff",
                            mayBePin ? "the second word" : inQuotes(entry.fileName));
    return false;
  }

  void checkId(const char* word, const CheckedFormat& entry) {
    const int64_t firstLine = _checked.find(entry.id)->line;
    if (!isNumber(word))
      _findings.warn(at(word), "format-id", "format ID {} is not a number and is read as {}",
                     shown(word, kFormatId), entry.id);
    else if (entry.id == 0)
      _findings.warn(at(word), "format-id",
                     "format ID 0 cannot be used by a card set: IDs start at 1");
    else if (firstLine != entry.line)
      _findings.warn(at(word), "format-id",
                     "format ID {} is already used in line {}: this format is never used", entry.id,
                     firstLine);
  }

  void checkName(const char* word, const CheckedFormat& entry, const char* written) {
    struct stat meant {
    }, read{};
    if (stat(written, &meant) == 0 && stat(entry.fileName.c_str(), &read) == 0 &&
        !isSameFile(meant, read))
      _findings.warn(
          at(word), "format-id",
          "the folder is ignored: {} in the current folder is read, which is another file",
          inQuotes(entry.fileName));
    const CheckedFormat& first = firstOf(entry.fileName);
    if (first.id != entry.id)
      _findings.warn(at(word), "format-id",
                     "{} is already format {} in line {}: cards of both formats have the same keys",
                     inQuotes(entry.fileName), first.id, first.line);
  }

  // The file of another entry is not checked again.
  void load(CheckedFormat& entry) {
    const std::string& name = entry.fileName;
    if (!CardFormatSet::isFormatFile(name.c_str()))
      return _findings.setVerdict(kFormatNotAdded, {_file, entry.line, 0});
    CardFormat* const format = _formats.addFormat(entry.id, name.c_str());
    if (format == nullptr) throw std::bad_alloc();
    const CheckedFormat& first = firstOf(name);
    if (&first == &entry)
      return checkFormatFile(*format, name, _findings.addFile(name), entry, _findings);
    entry.error = first.error;
    if (first.format != nullptr && format->loadFormatFile(name.c_str()) >= 0) entry.format = format;
  }

  // `word` points into the line read last.
  Place at(const char* word) {
    return {_file, _reader.lineNumber(), _reader.bytesBefore() + 1 + (word - _reader.line())};
  }
  const CheckedFormat& firstOf(const std::string& fileName) const {
    return *std::ranges::find(_checked.formats, fileName, &CheckedFormat::fileName);
  }

  const std::string& _formatsFile;
  CardFormatSet& _formats;
  Findings& _findings;
  int _file;
  LineReader _reader;
  CheckedFormats _checked;
  MergeMarks _mergeMarks;
};

}  // namespace

const CheckedFormat* CheckedFormats::find(uint32_t id) const {
  const auto found = std::ranges::find(formats, id, &CheckedFormat::id);
  return found != formats.end() ? &*found : nullptr;
}

CheckedFormats checkFormats(const std::string& formatsFile, CardFormatSet& formats,
                            Findings& findings) {
  return FormatsCheck(formatsFile, formats, findings).run();
}

const CardFormat* checkFormatAlone(const std::string& path, CardFormatSet& formats,
                                   Findings& findings) {
  const int file = findings.addFile(path);
  const std::string name = path.substr(path.rfind('/') + 1);
  if (!CardFormatSet::isFormatFile(name.c_str())) {
    findings.error({file, 0, 0}, kFormatNotAdded,
                   "not a format file: its name does not contain .cdf, .eff or .vff");
    return nullptr;
  }
  CardFormat* const format = formats.addFormat(1, name.c_str());
  if (format == nullptr) throw std::bad_alloc();
  CheckedFormat entry;
  checkFormatFile(*format, path, file, entry, findings);
  return entry.format;
}

}  // namespace badgemint::admin
