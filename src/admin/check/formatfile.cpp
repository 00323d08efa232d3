#include "admin/check/formatfile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <memory>
#include <optional>
#include <span>

#include "admin/check/word.h"
#include "formats/CdfCardFormat.h"
#include "formats/EffCardFormat.h"
#include "formats/VffCardFormat.h"
#include "support/fieldscanner.h"
#include "support/textutil.h"

namespace badgemint::admin {
namespace {

std::unique_ptr<CardFormat> makeFormat(FormatKind kind) {
  if (kind == FormatKind::kVff) return std::make_unique<VffCardFormat>();
  if (kind == FormatKind::kEff) return std::make_unique<EffCardFormat>();
  return std::make_unique<CdfCardFormat>();
}

// Without the NULs that fill it up.
std::string decoded(const FormatLine& line) {
  std::string text(line.begin(), line.end());
  text.erase(text.find_last_not_of('\0') + 1);
  return text;
}

}  // namespace

FormatKind kindOf(const CardFormat& format) {
  if (dynamic_cast<const VffCardFormat*>(&format) != nullptr) return FormatKind::kVff;
  if (dynamic_cast<const EffCardFormat*>(&format) != nullptr) return FormatKind::kEff;
  return FormatKind::kCdf;
}

const char* kindName(FormatKind kind) {
  constexpr std::array kNames = {"CDF", "EFF", "VFF"};
  return kNames.at(static_cast<size_t>(kind));
}

FormatFile::FormatFile(const std::string& path, const CardFormat& format, int file)
    : _kind(kindOf(format)), _file(file) {
  LineReader reader;
  _isOpened = reader.open(path.c_str());
  if (_isOpened)
    read(reader);
  else
    _systemError = errno;
}

void FormatFile::read(LineReader& reader) {
  const std::unique_ptr<CardFormat> format = makeFormat(_kind);
  const bool isText = _kind == FormatKind::kCdf;
  FormatLine line{};
  while (_lines.size() <= mostLines()) {
    const bool isRead = format->readFormatLine(reader, line, false) >= 0;
    const int error = errno;
    const auto count = static_cast<int64_t>(_lines.size());
    _endLine = (isText ? reader.lineNumber() : count) + 1;
    if (!isRead) {
      if (reader.failed()) _systemError = error;
      if (!isText) _unfinished = line.data();
      return;
    }
    if (isText)
      _lines.push_back({.text = line.data(),
                        .raw = {reader.line(), reader.length()},
                        .number = reader.lineNumber(),
                        .bytesBefore = reader.bytesBefore()});
    else
      _lines.push_back(
          {.text = line.data(), .raw = decoded(line), .number = count + 1, .bytesBefore = 0});
  }
}

Place FormatFile::placeOf(size_t item) const {
  return item < _lines.size() ? Place{_file, _lines[item].number, 0} : place();
}

Place FormatFile::placeOf(size_t item, size_t offset) const {
  Place found = placeOf(item);
  if (found.line > 0) found.column = _lines[item].bytesBefore + static_cast<int64_t>(offset) + 1;
  return found;
}

Place FormatFile::placeInMask(size_t mask, size_t position) const {
  if (isVff()) return placeOf(kFirstMaskRecord + mask, position);
  return placeOf(kFirstMaskLine + position / kPositionsPerLine * kMasks + mask,
                 position % kPositionsPerLine);
}

bool FormatFile::isWhole() const {
  if (_lines.size() >= mostLines()) return true;
  if (isVff() || _systemError != 0 || _unfinished.size() > kLongestLine) return false;
  return _lines.size() == 30 || _lines.size() == 40;
}

const FormatFile::Line* FormatFile::firstLongLine() const {
  const std::span<const Line> lines(_lines.data(), std::min(_lines.size(), mostLines()));
  const auto line = std::ranges::find_if(lines, [](const Line& l) { return l.bytesBefore > 0; });
  return line != lines.end() ? &*line : nullptr;
}

std::optional<FormatFile::Misread> FormatFile::findMisread() const {
  if (_kind != FormatKind::kCdf || _lines.empty()) return {};
  if (isUtf16(_lines.front().raw)) return Misread{placeOf(0), kUtf16Text};
  const auto mark = std::ranges::find_if(_lines, isMergeMark, &Line::raw);
  if (mark == _lines.end()) return {};
  return Misread{placeOf(static_cast<size_t>(mark - _lines.begin())), kMergeMarkText};
}

std::string shownLetters(std::string_view word) {
  return inQuotes(word.substr(0, word.find_first_of("0123456789")));
}

namespace {

constexpr LineField kParityCount = {"number of parity masks", FieldKind::kNumber, kParityMaskCount};
constexpr LineField kBound = {"bound", FieldKind::kNumber, std::numeric_limits<int32_t>::max()};

std::string_view withoutSpace(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  return text;
}

// Whether a text begins with a number that nothing touches. What follows it is ignored.
bool startsWithNumber(std::string_view text) {
  text = withoutSpace(text);
  return isNumber({text.begin(), std::ranges::find_if(text, isSpace)});
}

// The rules of everything but the masks: `field`, `number` and `text`.
class FormatRules {
 public:
  FormatRules(const FormatFile& file, const CardFormat& format, Findings& findings)
      : _file(file), _format(format), _findings(findings) {}

  void check() {
    if (const auto misread = _file.findMisread(); misread)
      return _findings.warn(misread->place, "text", "{}", misread->text);
    checkEnd();
    if (const FormatFile::Line* const line = _file.firstLongLine(); line != nullptr)
      return warnOfLongLine(*line);  // All later lines are read as something else.
    const bool isCountValid = checkParityCount();
    const bool areWidthsMeant =
        areMaskLinesValid() && checkMasks(_file, _format, isCountValid, _findings);
    if (areWidthsMeant) checkCardNumberField();
    if (_file.isVff()) return checkDefinition();
    for (int32_t field = 0; field < kFieldCount; ++field) checkField(field, areWidthsMeant);
  }

 private:
  // The line of a field, and its words: label, minimum, maximum, direction, type.
  struct FieldLine {
    int32_t field;
    size_t item;
    std::string text;
    CdfCardFormat::FieldWords words;
  };

  void checkEnd();
  void warnOfLongLine(const FormatFile::Line& line);
  bool checkParityCount();
  bool areMaskLinesValid();
  bool warnOfHiddenByte(size_t item, size_t from = 0, const std::string& result = "");
  void checkCardNumberField();
  void checkDefinition();
  void checkField(int32_t field, bool areWidthsMeant);
  void checkUndefined(int32_t field, const std::string& text);
  bool checkType(const FieldLine& line);
  void checkBound(const FieldLine& line, size_t word, const char* name);
  void checkWidth(const FieldLine& line);

  const FieldDefinition& definition(int32_t field) const {
    return _format.fieldDefinitions()[static_cast<size_t>(field)];
  }
  std::string nameOf(int32_t field) const {
    const bool isNumber = field == _format.cardNumberField();
    return fmt::format("{}field {:c}{}", isNumber ? "the card number (" : "", 'A' + field,
                       isNumber ? ")" : "");
  }
  Place placeOf(const FieldLine& line, size_t word) const {
    return _file.placeOf(line.item, static_cast<size_t>(line.words[word] - line.text.data()));
  }

  const FormatFile& _file;
  const CardFormat& _format;
  Findings& _findings;
};

void FormatRules::checkEnd() {
  const bool isLonger = _file.lines().size() > _file.mostLines();
  if (_file.kind() == FormatKind::kCdf && !isLonger && !_file.lines().back().raw.ends_with('\n'))
    _findings.warn(_file.placeOf(_file.lines().size() - 1), "text",
                   "the last line has no newline: the end of the file may be missing");
  if (isLonger && !_file.isVff() && !isBlank(_file.lines().back().text.c_str()))
    _findings.warn(_file.placeOf(_file.mostLines()), "text",
                   "{} files end with line 50: later lines are not read", kindName(_file.kind()));
  const std::string& rest = _file.unfinished();
  const bool isMask = rest.find_first_of("ABCDEFGHP") != std::string::npos &&
                      rest.find_first_not_of("ABCDEFGHP.XEO01 ^") == std::string::npos;
  if (isMask)
    _findings.warn(_file.end(), "text", "this line has no \"~\" at its end and is not read");
}

void FormatRules::warnOfLongLine(const FormatFile::Line& line) {
  _findings.warn({_file.place().file, line.number, line.bytesBefore + 1}, "text",
                 "the line is longer than 100 characters: the rest is read as another line");
}

// False when the number is not what it seems to be.
bool FormatRules::checkParityCount() {
  if (_file.isVff()) return true;
  constexpr size_t kItem = FormatFile::kParityCountLine;
  const std::string& text = _file.lines()[kItem].text;
  if (warnOfHiddenByte(kItem)) return false;
  const int32_t count = textToInt32(text.c_str());
  if (!isBlank(text.c_str()) && !startsWithNumber(text)) {
    _findings.warn(_file.placeOf(kItem, 0), "number",
                   "the number of parity masks {} is not a number and is read as {}",
                   shown(withoutSpace(text), kParityCount), _format.numberOfParityBits());
    return false;
  }
  if (count > kParityMaskCount)
    _findings.warn(_file.placeOf(kItem, 0), "mask",
                   "more than eight parity masks are declared: a format has only eight");
  return true;
}

// False when a mask is not what it seems to be: comparing the masks then means nothing.
bool FormatRules::areMaskLinesValid() {
  if (_file.isVff()) return true;
  const size_t end = std::min(_file.lines().size(), _file.mostLines());
  for (size_t item = FormatFile::kFirstMaskLine; item < end; ++item) {
    if (warnOfHiddenByte(item)) return false;
    const std::string_view text = _file.lines()[item].text;
    if (text.find_first_not_of(". ", FormatFile::kPositionsPerLine) == std::string_view::npos)
      continue;
    _findings.warn(_file.placeOf(item, FormatFile::kPositionsPerLine), "mask",
                   "a mask line has 48 positions: the rest belongs in line {}",
                   item + 1 + FormatFile::kMasks);
    return false;
  }
  return true;
}

// `result` is what comes of it in this line.
bool FormatRules::warnOfHiddenByte(size_t item, size_t from, const std::string& result) {
  const std::optional<HiddenByte> hidden = findHiddenByte(_file.lines()[item].raw, from);
  if (hidden)
    _findings.warn(_file.placeOf(item, hidden->offset), "text", "{}{}", hidden->effect, result);
  return hidden.has_value();
}

void FormatRules::checkCardNumberField() {
  const int32_t field = _format.cardNumberField();
  if (_format.fieldBitCount(field) > 0) return;
  const Place place = _file.isVff() ? _file.placeOf(FormatFile::kFirstMaskRecord)
                                    : _file.placeOf(FormatFile::kCardNumberFieldLine, 0);
  _findings.warn(place, "field", "no \"{}\" in the output mask: the card number has no bits",
                 _file.isVff() ? '*' : static_cast<char>('A' + field));
}

// Record 6 of a VFF file.
void FormatRules::checkDefinition() {
  constexpr size_t kItem = FormatFile::kDefinitionRecord;
  const int32_t field = _format.cardNumberField();
  if (_format.fieldBitCount(field) == 0) return;
  const std::string& text = _file.lines()[kItem].text;
  FieldScanner scanner(text.c_str());
  static_cast<void>(scanner.nextInt());  // The number of bits and the card number field.
  static_cast<void>(scanner.nextInt());
  const std::string_view direction = scanner.nextWord(text.size());
  const std::string_view type = scanner.nextWord(text.size());
  const auto placeOfWord = [&](std::string_view word) {
    return word.empty() ? _file.placeOf(kItem)
                        : _file.placeOf(kItem, static_cast<size_t>(word.data() - text.data()));
  };
  if (definition(field).ftyp == kNotGiven)
    _findings.warn(placeOfWord(type), "field",
                   "type {} is unknown: the card number is 0 on every card", shownLetters(type));
  else if (definition(field).dir == kNotGiven)
    _findings.warn(placeOfWord(direction), "field", "direction {} is unknown and is read as MSB",
                   shownLetters(direction));
}

void FormatRules::checkField(int32_t field, bool areWidthsMeant) {
  if (_format.fieldBitCount(field) == 0) return;
  FieldLine line{field, FormatFile::kFirstFieldLine + static_cast<size_t>(field), {}, {}};
  line.text = _file.lines()[line.item].text;
  const size_t labelEnd = std::min(line.text.find(','), line.text.size());
  const bool isZero = definition(field).ftyp == kNotGiven;
  if (warnOfHiddenByte(line.item, labelEnd,
                       isZero ? fmt::format(": {} is 0 on every card", nameOf(field)) : ""))
    return;
  if (line.text.empty() || line.text.front() == ' ') return checkUndefined(field, line.text);
  line.words = CdfCardFormat::fieldWords(line.text.data());
  if (!checkType(line)) return;
  checkBound(line, 1, "minimum");
  checkBound(line, 2, "maximum");
  if (areWidthsMeant) checkWidth(line);
}

void FormatRules::checkUndefined(int32_t field, const std::string& text) {
  const size_t item = FormatFile::kFirstFieldLine + static_cast<size_t>(field);
  if (!isBlank(text.c_str()))
    return _findings.warn(_file.placeOf(item, 0), "field",
                          "a line that begins with a blank counts as empty: {} is 0 on every card",
                          nameOf(field));
  const LayoutMasks masks = _format.masks();
  const char letter = masks.letters[static_cast<size_t>(field)];
  const size_t position = std::string_view(masks.output.data(), masks.output.size()).find(letter);
  _findings.warn(_file.placeInMask(0, position), "field",
                 "{} is not defined in line {} and is 0 on every card", nameOf(field), item + 1);
}

// False when the words of the line are not what they seem to be.
bool FormatRules::checkType(const FieldLine& line) {
  const char* const direction = line.words[3];
  const char* const type = line.words[4];
  const FieldDefinition& defined = definition(line.field);
  if (*type == '\0') {
    _findings.warn(_file.placeOf(line.item), "field",
                   "fewer than five values, not counting empty ones: {} is 0 on every card",
                   nameOf(line.field));
    return false;
  }
  if (defined.ftyp == kNotGiven)
    _findings.warn(placeOf(line, 4), "field", "type {} is unknown: {} is 0 on every card",
                   shownLetters(type), nameOf(line.field));
  else if (defined.dir == kNotGiven)
    _findings.warn(placeOf(line, 3), "field", "direction {} is unknown: {} is read as MSB",
                   shownLetters(direction), nameOf(line.field));
  return defined.ftyp != kNotGiven || defined.dir != kNotGiven;
}

void FormatRules::checkBound(const FieldLine& line, size_t word, const char* name) {
  const char* const text = line.words[word];
  if (startsWithNumber(text)) return;
  _findings.warn(placeOf(line, word), "number", "{} {} is not a number and is read as {}", name,
                 shown(withoutSpace(text), kBound), textToInt32(text));
}

// Whether what the file promises has room in the positions of the field.
void FormatRules::checkWidth(const FieldLine& line) {
  const int32_t width = _format.fieldBitCount(line.field);
  const FieldDefinition& defined = definition(line.field);
  if (defined.ftyp == kTypeMsd && width % 5 != 0)
    return _findings.warn(placeOf(line, 4), "field",
                          "a digit of type MSD needs five positions, but {} has {}",
                          nameOf(line.field), width);
  const int64_t maximum = textToInt64(line.words[2]);
  if (defined.ftyp == kNotGiven || maximum <= 0) return;
  const fieldstate state{.ftyp = defined.ftyp, .dir = defined.dir, .nbits = width};
  const uint64_t kept = width < 64 ? (uint64_t{1} << width) - 1 : UINT64_MAX;
  if (state.toValue(state.toBits(maximum) & kept) != maximum)
    _findings.warn(
        placeOf(line, 2), "field",
        "maximum {} does not fit in the {} positions of {}: values that do not fit are cut",
        maximum, width, nameOf(line.field));
}

}  // namespace

void checkFormatFile(const FormatFile& file, const CardFormat& format, Findings& findings) {
  FormatRules(file, format, findings).check();
}

}  // namespace badgemint::admin
