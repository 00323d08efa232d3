#include "admin/check/formatscheck.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <new>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "admin/check/formatrules.h"
#include "admin/check/formattext.h"
#include "formats/fmtfile.h"
#include "support/fieldscanner.h"
#include "support/linereader.h"
#include "support/result.h"
#include "support/tokenizer.h"

namespace badgemint::admin {
namespace {

constexpr char kNoFormatFile[] = "no format file: its name holds no .cdf, .eff or .vff";

std::string unopened(int error) {
  return std::string("cannot be opened: ") + std::strerror(error);
}

bool isAnotherFile(const char* one, const char* other) {
  struct stat first {};
  struct stat second {};
  if (stat(one, &first) != 0 || stat(other, &second) != 0) return false;
  return std::pair(first.st_dev, first.st_ino) != std::pair(second.st_dev, second.st_ino);
}

// What keeps a word from being an ID; empty when nothing does.
std::string flawOfId(const char* word, uint32_t id) {
  SaturatedInt64 number{};
  const std::string_view digits = *word == '+' || *word == '-' ? word + 1 : word;
  if (!digitsToInt64(digits, number))
    return "format ID " + quoted(word) + " is not a number: it is read as " + std::to_string(id);
  return id == 0 ? "format ID 0: IDs begin with 1" : "";
}

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
    readFormatsFile();
    for (Entry& entry : _entries) load(entry);
    _findings.setVerdict(_readResult, _readPlace);
    return std::move(_checked);
  }

 private:
  struct Entry {
    CheckedFormat checked;
    std::string written;           // The name with its folder.
    CardFormat* format = nullptr;  // Null for a file of unknown kind.
    Place name;
    int64_t firstLine = 0;  // That has this ID.
    std::string flaw;       // Of its line, which explains why there is no such file.
  };
  struct File {
    int number;  // Among the findings.
    size_t error = Findings::kNotKept;
  };
  // One line of the formats file, or one piece of a line that is too long.
  struct Line {
    std::string raw;
    char* text;  // Split in place.
    int64_t number;
    int64_t bytesBefore;
    Tokenizer words;
  };

  void readFormatsFile();
  void failToRead(int32_t result, Place place, const char* what, int error);
  void takeLine(LineReader& reader);
  bool takeEntry(const Line& line, const FormatsEntry& entry, const std::string& flaw);
  void checkEntry(const Line& line, const Entry& entry);
  std::string flawOfText(const Line& line, Place& place) const;
  void load(const Entry& entry);
  Place explain(const Entry& entry, int32_t result, const FormatText& text);

  Place at(const Line& line, size_t offset) const {
    return {_file, line.number, line.bytesBefore + static_cast<int64_t>(offset) + 1};
  }
  static bool isMissing(const Entry& entry) {
    struct stat status {};
    return stat(entry.checked.fileName.c_str(), &status) != 0;
  }
  static size_t offsetOf(const Line& line, uint32_t word) {
    return static_cast<size_t>(line.words.word(word) - line.text);
  }
  Place wordPlace(const Line& line, uint32_t word) const { return at(line, offsetOf(line, word)); }
  void warnOfId(const Line& line, const std::string& text) {
    _findings.warning(wordPlace(line, 0), "format-id", text);
  }

  const std::string& _formatsFile;
  CardFormatSet& _formats;
  Findings& _findings;
  int _file;
  int32_t _readResult = kSuccess;
  Place _readPlace;
  int64_t _toldLine = 0;  // The last one of which all pieces behind the first are told.
  std::vector<Entry> _entries;
  std::map<uint32_t, int64_t> _firstLines;  // Of the IDs.
  std::map<std::string, File> _files;       // The format files by their names.
  CheckedFormats _checked;
};

void FormatsCheck::failToRead(int32_t result, Place place, const char* what, int error) {
  _findings.error(place, result, std::string(what) + ": " + std::strerror(error));
  _checked.complete = false;
  _readResult = result;
  _readPlace = place;
}

void FormatsCheck::readFormatsFile() {
  LineReader reader;
  if (!reader.open(_formatsFile.c_str()))
    return failToRead(kFormatsOpenFailed, {_file, 0, 0}, "cannot be opened", errno);
  LineReader::Status status = LineReader::Status::kLine;
  while ((status = reader.readLine(kMaxFormatsLine)) == LineReader::Status::kLine) takeLine(reader);
  if (status != LineReader::Status::kError) return;
  const int error = errno;
  const int64_t line = reader.lineNumber();
  failToRead(kFormatsReadFailed, {_file, line > 0 ? line + 1 : 0, 0}, "cannot be read", error);
}

void FormatsCheck::takeLine(LineReader& reader) {
  Line line{{reader.line(), reader.length()},
            reader.line(),
            reader.lineNumber(),
            reader.bytesBefore(),
            {}};
  line.words.split(line.text, kWordDelimiters);
  Place place;
  const std::string flaw = flawOfText(line, place);
  FormatsEntry entry;
  const FormatsLineKind kind = readFormatsLine(line.words, entry);
  // One finding for all pieces of a line that is too long, the error when there is one.
  const bool failed = kind == FormatsLineKind::kEntry && !takeEntry(line, entry, flaw);
  const bool isPiece = line.bytesBefore > 0 && line.words.count() > 0;
  const bool isTold = isPiece && _toldLine == line.number;
  if (failed || isPiece) _toldLine = line.number;
  if (failed || isTold) return;
  if (!flaw.empty() && kind == FormatsLineKind::kEntry && isMissing(_entries.back())) {
    _entries.back().flaw = flaw;
    return;
  }
  if (!flaw.empty()) return _findings.warning(place, "text", flaw);
  if (kind == FormatsLineKind::kEntry) return checkEntry(line, _entries.back());
  if (kind == FormatsLineKind::kTooFewWords) warnOfId(line, "no file name: the line is left out");
  if (kind == FormatsLineKind::kIdOutOfRange)
    warnOfId(line, "format ID " + quoted(line.words.word(0)) +
                       " is not 1 to 4294967295: the line is left out");
}

// What an eye does not see, and what the limit and a '#' do behind the reader's back. Empty when
// there is nothing of the kind.
std::string FormatsCheck::flawOfText(const Line& line, Place& place) const {
  place = at(line, 0);
  if (line.number == 1 && line.bytesBefore == 0 && line.raw.starts_with("\xEF\xBB\xBF"))
    return "a byte order mark makes the first word neither a number nor a comment";
  const uint32_t count = std::min(line.words.count(), 2U);
  if (line.bytesBefore > 0 && count > 0)
    return "the line is longer than " + std::to_string(kMaxFormatsLine) +
           " characters: the rest is read as another line";
  size_t end = 0;
  for (uint32_t i = 0; i < count; ++i) {
    end = offsetOf(line, i) + std::strlen(line.words.word(i));
    place = at(line, end);
    if (end < line.raw.size() && line.raw[end] == '#')
      return "\"#\" without a blank before it begins no comment: reading goes on behind the word";
  }
  std::optional<HiddenByte> hidden = findHiddenByte(line.raw);
  while (hidden && (line.raw[hidden->offset] & 0x80) != 0 && hidden->offset >= end)
    hidden = findHiddenByte(line.raw, hidden->offset + 1);  // A comment may have such spaces.
  if (!hidden) return "";
  place = at(line, hidden->offset);
  return hidden->effect;
}

// False, with a finding, when the file is none that a build can load.
bool FormatsCheck::takeEntry(const Line& line, const FormatsEntry& entry, const std::string& flaw) {
  FormatFileName base = entry.fileName;
  cutToBaseName(base);
  Entry& taken = _entries.emplace_back();
  taken.checked = {entry.formatID, base.data(), nullptr, line.number, Findings::kNotKept};
  taken.written = entry.fileName.data();
  taken.name = wordPlace(line, 1);
  taken.firstLine = _firstLines.try_emplace(entry.formatID, line.number).first->second;
  if (CardFormatSet::isFormatFile(base.data())) {
    taken.format = _formats.addFormat(entry.formatID, base.data());
    if (taken.format == nullptr) throw std::bad_alloc();
    return true;
  }
  _findings.error(taken.name, kFormatNotAdded,
                  quoted(base.data()) + " is " + kNoFormatFile + (flaw.empty() ? "" : "; " + flaw));
  taken.checked.error = _findings.lastError();
  return false;
}

void FormatsCheck::checkEntry(const Line& line, const Entry& entry) {
  const uint32_t id = entry.checked.id;
  if (const std::string flaw = flawOfId(line.words.word(0), id); !flaw.empty())
    warnOfId(line, flaw);
  else if (entry.firstLine != line.number)
    warnOfId(line, "format ID " + std::to_string(id) + " is that of line " +
                       std::to_string(entry.firstLine) + " already: this format is never used");
  const std::string& name = entry.checked.fileName;
  if (isAnotherFile(entry.written.c_str(), name.c_str()))
    _findings.warning(entry.name, "format-id",
                      "the folder is dropped: " + quoted(name) +
                          " of the current folder is read, and is another file");
  if (line.words.count() > 3 && CardFormatSet::isFormatFile(line.words.word(3)))
    _findings.warning(wordPlace(line, 2), "format-id", "a second format in one line is not read");
}

void FormatsCheck::load(const Entry& entry) {
  _checked.formats.push_back(entry.checked);
  if (entry.format == nullptr)
    return _findings.setVerdict(kFormatNotAdded, {_file, entry.checked.line, 0});
  const std::string& name = entry.checked.fileName;
  const auto [at, isNew] = _files.try_emplace(name);
  File& file = at->second;
  if (isNew) file.number = _findings.addFile(name);
  const int32_t result = entry.format->loadFormatFile(name.c_str());
  if (result >= 0) {
    _checked.formats.back().format = entry.format;
    if (isNew) checkFormatFile(name, *entry.format, file.number, _findings);
    return;
  }
  if (isNew) {
    const FormatText text(name, *entry.format, file.number);
    Place place = explain(entry, result, text);
    place.column = 0;
    _findings.setVerdict(result, place);
    file.error = _findings.lastError();
  }
  _checked.formats.back().error = file.error;
}

Place FormatsCheck::explain(const Entry& entry, int32_t result, const FormatText& text) {
  if (text.isOpened()) return tellFormatErrors(text, result, _findings);
  std::string reason = unopened(text.systemError()) + "; named at " +
                       _findings.placeText({_file, entry.checked.line, 0});
  if (entry.written != entry.checked.fileName)
    reason += " as " + quoted(entry.written) + ", of which the folder is dropped";
  if (!entry.flaw.empty()) reason += "; " + entry.flaw;
  _findings.error(text.file(), result, reason);
  return text.file();
}

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
    findings.error({file, 0, 0}, kFormatNotAdded, kNoFormatFile);
    return nullptr;
  }
  CardFormat* const format = formats.addFormat(1, name.c_str());
  if (format == nullptr) throw std::bad_alloc();
  const int32_t result = format->loadFormatFile(path.c_str());
  if (result >= 0) {
    checkFormatFile(path, *format, file, findings);
    return format;
  }
  const FormatText text(path, *format, file);
  if (text.isOpened())
    tellFormatErrors(text, result, findings);
  else
    findings.error(text.file(), result, unopened(text.systemError()));
  return nullptr;
}

void checkFormatFile(const std::string& path, const CardFormat& format, int file,
                     Findings& findings) {
  const FormatText text(path, format, file);
  if (text.isWhole()) return applyFormatRules(text, format, findings);
  if (text.systemError() != 0)
    throw std::system_error(text.systemError(), std::generic_category(), path);
}

}  // namespace badgemint::admin
