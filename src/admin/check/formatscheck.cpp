#include "admin/check/formatscheck.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <new>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "admin/check/formatfile.h"
#include "admin/check/word.h"
#include "admin/files/folder.h"
#include "admin/files/sitepaths.h"
#include "formats/fmtfile.h"
#include "support/fieldscanner.h"
#include "support/linereader.h"
#include "support/result.h"
#include "support/tokenizer.h"

namespace badgemint::admin {
namespace {

constexpr LineField kFormatId = {"format ID", FieldKind::kNumber, UINT32_MAX};

struct LoadError {
  Place place;
  int32_t code;
  std::string text;
};

std::string longLineRemark(const FormatFile& file) {
  const FormatFile::Line* const line = file.firstLongLine();
  return line == nullptr ? ""
                         : fmt::format("; line {} is longer than 100 characters and counts as two",
                                       line->number);
}

void addDefinitionErrors(const FormatFile& file, std::vector<LoadError>& errors) {
  if (file.lines().size() <= FormatFile::kDefinitionRecord) return;
  FieldScanner scanner(file.lines()[FormatFile::kDefinitionRecord].text.c_str());
  const Place place = file.placeOf(FormatFile::kDefinitionRecord, 0);
  const int32_t bits = scanner.nextInt();
  const int32_t field = scanner.nextInt();
  if (bits < 0 || bits > BitPattern::kPositions)
    errors.push_back({place, kVffReadFailed, fmt::format("bit count {} is not 0 to 144", bits)});
  if (field < 1 || field > kFieldCount)
    errors.push_back(
        {place, kVffReadFailed, fmt::format("card number field {} is not 1 to 8", field)});
}

// Of a file that ends where its format cannot.
std::string endText(const FormatFile& file) {
  const std::string& unfinished = file.unfinished();
  if (file.systemError() != 0)
    return fmt::format("cannot be read: {}", std::strerror(file.systemError()));
  if (unfinished.ends_with('^')) return "\"^\" marks an error: the file is not read beyond it";
  if (unfinished.size() > FormatFile::kLongestLine)
    return "more than 100 characters without \"~\" at the end of the line";
  if (file.isVff()) return "the file ends here; a VFF file has 17 records of 144 characters";
  return fmt::format("the file ends here; {} {} file has 30, 40 or 50 lines, empty ones included{}",
                     file.kind() == FormatKind::kCdf ? "a" : "an", kindName(file.kind()),
                     longLineRemark(file));
}

LoadError endError(const FormatFile& file) {
  constexpr std::array kCodes = {kCdfReadFailed, kEffReadFailed, kVffReadFailed};
  Place place = file.end();
  if (file.systemError() != 0 && file.lines().empty()) place.line = 0;
  if (file.unfinished().ends_with('^'))
    place.column = static_cast<int64_t>(file.unfinished().size());
  return {place, kCodes.at(static_cast<size_t>(file.kind())), endText(file)};
}

// Why the file, which can be opened, did not load; at least one error.
std::vector<LoadError> loadErrors(const FormatFile& file, int32_t result) {
  if (const auto misread = file.findMisread(); misread)
    return {{misread->place, result, misread->text}};
  std::vector<LoadError> errors;
  constexpr size_t kItem = FormatFile::kCardNumberFieldLine;
  if (result == kBadCardNumberField && file.lines().size() > kItem)
    errors.push_back(
        {file.placeOf(kItem, 0), result,
         fmt::format("card number field {} is not A to H{}",
                     shownLetters(file.lines()[kItem].text.substr(0, 1)), longLineRemark(file))});
  if (file.isVff()) addDefinitionErrors(file, errors);
  if (!file.isWhole()) errors.push_back(endError(file));
  if (errors.empty())
    errors.push_back({file.place(), result, "cannot be loaded, although it can be read now"});
  if (file.firstLongLine() != nullptr) errors.resize(1);  // It causes the others.
  return errors;
}

// Loads a format and checks its file, number `number` among the findings. `openRemark` is added to
// the message when the file cannot be opened.
void loadChecked(CardFormat& format, const std::string& path, int number,
                 const std::string& openRemark, CheckedFormat& checked, Findings& findings) {
  requireRegularFile(path);
  const int32_t result = format.loadFormatFile(path.c_str());
  const FormatFile file(path, format, number);
  if (result >= 0) {
    checked.format = &format;
    if (file.isWhole()) return checkFormatFile(file, format, findings);
    if (file.systemError() == 0) return;
    throw std::system_error(file.systemError(), std::generic_category(), path);
  }
  std::vector<LoadError> errors = {{file.place(), result, ""}};
  if (file.isOpened())
    errors = loadErrors(file, result);
  else
    errors[0].text =
        fmt::format("cannot be opened: {}{}", std::strerror(file.systemError()), openRemark);
  for (const auto& [place, code, text] : errors)
    checked.error = findings.error(place, code, "{}", text);
  Place line = errors.front().place;
  line.column = 0;
  findings.setVerdict(result, line);
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
    const auto [result, place] = readFormatsFile();
    for (Entry& entry : _entries) load(entry);
    _findings.setVerdict(result, place);
    return std::move(_checked);
  }

 private:
  // One line of the formats file, or one piece of a line that is too long.
  struct Line {
    std::string raw;
    char* text;  // Split in place.
    int64_t number;
    int64_t bytesBefore;
    Tokenizer words;
  };
  struct Entry {
    CheckedFormat checked;
    std::string written;           // The name with its folder.
    CardFormat* format = nullptr;  // Null for a file of unknown kind.
  };

  Verdict readFormatsFile();
  Verdict failToRead(int32_t result, Place place, const char* what);
  void checkLine(LineReader& reader);
  bool addEntry(const Line& line, const FormatsEntry& read);
  size_t reportNotAFormat(const Line& line, std::string_view name);
  bool checkText(const Line& line);
  bool checkHidden(const Line& line);
  void checkId(const Line& line, const CheckedFormat& checked);
  void checkNames(const Line& line, const Entry& entry);
  void load(const Entry& entry);

  Place placeOf(const Line& line, size_t offset) const {
    return {_file, line.number, line.bytesBefore + static_cast<int64_t>(offset) + 1};
  }
  static size_t offsetOf(const Line& line, uint32_t word) {
    return static_cast<size_t>(line.words.word(word) - line.text);
  }
  static size_t endOf(const Line& line, uint32_t word) {
    return offsetOf(line, word) + std::strlen(line.words.word(word));
  }
  Place wordPlace(const Line& line, uint32_t word) const {
    return placeOf(line, offsetOf(line, word));
  }

  const std::string& _formatsFile;
  CardFormatSet& _formats;
  Findings& _findings;
  int _file;
  std::vector<Entry> _entries;
  std::map<uint32_t, int64_t> _firstLines;            // Of the IDs.
  std::map<std::string, const CheckedFormat> _files;  // What became of each format file.
  CheckedFormats _checked;
  size_t _mergeMark = Findings::kNotKept;  // The error of the first mark of a merge conflict.
};

// How a build would end after the last entry.
Verdict FormatsCheck::readFormatsFile() {
  requireRegularFile(_formatsFile);
  LineReader reader;
  if (!reader.open(_formatsFile.c_str()))
    return failToRead(kFormatsOpenFailed, {_file, 0, 0}, "cannot be opened");
  LineReader::Status status = LineReader::Status::kLine;
  bool isComplete = true;
  while ((status = reader.readLine(kMaxFormatsLine)) == LineReader::Status::kLine) {
    const std::string_view raw(reader.line(), reader.length());
    isComplete = raw.ends_with('\n') || raw.size() == kMaxFormatsLine;
    if (reader.lineNumber() == 1 && isUtf16(raw)) {
      _findings.warn({_file, 1, 0}, "text", kUtf16Text);
      return {};  // A build finds no format in it.
    }
    checkLine(reader);
  }
  const int64_t line = reader.lineNumber();
  if (status == LineReader::Status::kError)
    return failToRead(kFormatsReadFailed, {_file, line > 0 ? line + 1 : 0, 0}, "cannot be read");
  if (!isComplete)
    _findings.warn({_file, line, 0}, "text",
                   "the last line has no newline: the end of the file may be missing");
  return {};
}

Verdict FormatsCheck::failToRead(int32_t result, Place place, const char* what) {
  _findings.error(place, result, "{}: {}", what, std::strerror(errno));
  _checked.complete = false;
  return {result, place};
}

void FormatsCheck::checkLine(LineReader& reader) {
  Line line{.raw = {reader.line(), reader.length()},
            .text = reader.line(),
            .number = reader.lineNumber(),
            .bytesBefore = reader.bytesBefore(),
            .words = {}};
  line.words.split(line.text, kWordDelimiters);
  FormatsEntry entry;
  const FormatsLineKind kind = readFormatsLine(line.words, entry);
  const bool isFormat = kind == FormatsLineKind::kEntry && addEntry(line, entry);
  if (isMergeMark(line.raw) || !checkText(line)) return;
  if (kind == FormatsLineKind::kTooFewWords)
    _findings.warn(wordPlace(line, 0), "format-id", "no file name: the line is skipped");
  if (kind == FormatsLineKind::kIdOutOfRange)
    _findings.warn(wordPlace(line, 0), "format-id",
                   "format ID {} is not 1 to 4294967295: the line is skipped",
                   shown(line.words.word(0), kFormatId));
  if (!isFormat) return;
  checkId(line, _entries.back().checked);
  checkNames(line, _entries.back());
}

// False, with an error, when a build cannot load such a file.
bool FormatsCheck::addEntry(const Line& line, const FormatsEntry& read) {
  FormatFileName base = read.fileName;
  cutToBaseName(base);
  Entry& entry = _entries.emplace_back();
  entry.checked.id = read.formatID;
  entry.checked.fileName = base.data();
  entry.checked.line = line.number;
  entry.written = read.fileName.data();
  _firstLines.try_emplace(read.formatID, line.number);
  if (!CardFormatSet::isFormatFile(base.data())) {
    entry.checked.error = reportNotAFormat(line, base.data());
    return false;
  }
  entry.format = _formats.addFormat(read.formatID, base.data());
  if (entry.format == nullptr) throw std::bad_alloc();
  return true;
}

// The file may be a cards file, and the word a PIN.
size_t FormatsCheck::reportNotAFormat(const Line& line, std::string_view name) {
  if (isMergeMark(line.raw)) {
    if (_mergeMark != Findings::kNotKept)
      _findings.countFurther(_mergeMark, "further marks");
    else
      _mergeMark = _findings.error({_file, line.number, 0}, kFormatNotAdded, kMergeMarkText);
    return _mergeMark;
  }
  const bool mayBePin = std::ranges::any_of(name, isDigit);
  return _findings.error(wordPlace(line, 1), kFormatNotAdded,
                         "{} is not a format file: its name does not contain .cdf, .eff or .vff",
                         mayBePin ? "the second word" : inQuotes(name));
}

// False, with a warning, when the line is not what it seems to be: what the limit and a '#' do.
bool FormatsCheck::checkText(const Line& line) {
  if (line.number == 1 && line.bytesBefore == 0 && line.raw.starts_with("\xEF\xBB\xBF")) {
    _findings.warn(placeOf(line, 0), "text",
                   "a byte order mark makes the first word neither a number nor a comment");
    return false;
  }
  if (line.bytesBefore > 0 && line.words.count() > 0) {
    _findings.warn(placeOf(line, 0), "text",
                   "the line is longer than {} characters: the rest is read as another line",
                   kMaxFormatsLine);
    return false;
  }
  for (uint32_t word = 0; word < std::min(line.words.count(), 2U); ++word) {
    const size_t end = endOf(line, word);
    if (end == line.raw.size() || line.raw[end] != '#') continue;
    _findings.warn(placeOf(line, end), "text",
                   "\"#\" without a blank before it ends only this word: the rest of the line is "
                   "still read");
    return false;
  }
  return checkHidden(line);
}

bool FormatsCheck::checkHidden(const Line& line) {
  const uint32_t count = std::min(line.words.count(), 2U);
  const size_t end = count == 0 ? 0 : endOf(line, count - 1);
  std::optional<HiddenByte> hidden = findHiddenByte(line.raw);
  while (hidden && (line.raw[hidden->offset] & 0x80) != 0 && hidden->offset >= end)
    hidden = findHiddenByte(line.raw, hidden->offset + 1);  // A comment may have such spaces.
  if (hidden) _findings.warn(placeOf(line, hidden->offset), "text", "{}", hidden->effect);
  return !hidden;
}

void FormatsCheck::checkId(const Line& line, const CheckedFormat& checked) {
  const char* const word = line.words.word(0);
  const uint32_t id = checked.id;
  const int64_t firstLine = _firstLines.at(id);
  if (!isNumber(word))
    _findings.warn(wordPlace(line, 0), "format-id",
                   "format ID {} is not a number and is read as {}", shown(word, kFormatId), id);
  else if (id == 0)
    _findings.warn(wordPlace(line, 0), "format-id",
                   "format ID 0 cannot be used by a card set: IDs start at 1");
  else if (firstLine != line.number)
    _findings.warn(wordPlace(line, 0), "format-id",
                   "format ID {} is already used in line {}: this format is never used", id,
                   firstLine);
}

void FormatsCheck::checkNames(const Line& line, const Entry& entry) {
  const std::string& name = entry.checked.fileName;
  struct stat written {
  }, read{};
  if (stat(entry.written.c_str(), &written) == 0 && stat(name.c_str(), &read) == 0 &&
      !isSameFile(written, read))
    _findings.warn(wordPlace(line, 1), "format-id",
                   "the folder is ignored: {} in the current folder is read, which is another file",
                   inQuotes(name));
  const Entry& first =
      *std::ranges::find(_entries, name, [](const Entry& e) { return e.checked.fileName; });
  if (first.checked.id != entry.checked.id)
    _findings.warn(wordPlace(line, 1), "format-id",
                   "{} is already format {} in line {}: cards of both formats have the same keys",
                   inQuotes(name), first.checked.id, first.checked.line);
  if (line.words.count() > 3 && CardFormatSet::isFormatFile(line.words.word(3)))
    _findings.warn(wordPlace(line, 2), "format-id",
                   "only one format per line is read: the second one is ignored");
}

void FormatsCheck::load(const Entry& entry) {
  CheckedFormat& checked = _checked.formats.emplace_back(entry.checked);
  if (entry.format == nullptr)
    return _findings.setVerdict(kFormatNotAdded, {_file, entry.checked.line, 0});
  const std::string& name = checked.fileName;
  if (const auto known = _files.find(name); known != _files.end()) {
    checked.error = known->second.error;
    if (known->second.format != nullptr && entry.format->loadFormatFile(name.c_str()) >= 0)
      checked.format = entry.format;
    return;
  }
  const bool hasFolder = entry.written != name;
  const std::string remark =
      fmt::format("; listed at {}{}", _findings.placeText({_file, checked.line, 0}),
                  hasFolder ? " as " + inQuotes(entry.written) + ", whose folder is ignored" : "");
  loadChecked(*entry.format, name, _findings.addFile(name), remark, checked, _findings);
  _files.emplace(name, checked);
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
    findings.error({file, 0, 0}, kFormatNotAdded,
                   "not a format file: its name does not contain .cdf, .eff or .vff");
    return nullptr;
  }
  CardFormat* const format = formats.addFormat(1, name.c_str());
  if (format == nullptr) throw std::bad_alloc();
  CheckedFormat checked;
  loadChecked(*format, path, file, "", checked, findings);
  return checked.format;
}

}  // namespace badgemint::admin
