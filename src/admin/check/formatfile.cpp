// One format file: loaded as a build loads it and then read once more, line by line, because a
// loaded format does not know what its file contained, and one that did not load cannot report why.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>

#include "admin/check/oddtext.h"
#include "admin/check/sitecheck.h"
#include "admin/files/folder.h"
#include "formats/CdfCardFormat.h"
#include "formats/EffCardFormat.h"
#include "formats/VffCardFormat.h"
#include "support/fieldscanner.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint::admin {
namespace {

// The lines of a CDF or EFF file and the records of a VFF file, counted from 1.
constexpr size_t kCardNumberFieldLine = 8;
constexpr size_t kParityCountLine = 9;
constexpr size_t kFirstFieldLine = 13;
constexpr size_t kFirstMaskLine = 21;
constexpr size_t kMasks = 2 + kParityMaskCount;
constexpr size_t kPositionsPerLine = 48;
constexpr size_t kDefinitionRecord = 6;
constexpr size_t kFirstMaskRecord = 7;
constexpr std::string_view kCdf = "CDF", kEff = "EFF", kVff = "VFF";

// What a file of the kind consists of.
std::string_view sizeText(std::string_view kind) {
  if (kind == kCdf) return "a CDF file has 30, 40 or 50 lines, empty ones included";
  if (kind == kVff) return "a VFF file has 17 records of 144 characters, and no \"^\"";
  return "an EFF file has 30, 40 or 50 lines of at most 100 characters, with \"~\" at the end of "
         "each, and no \"^\"";
}

// Where a number is expected. What follows it is ignored.
std::string_view firstWord(std::string_view text) {
  const auto start = std::ranges::find_if_not(text, isSpace);
  return {start, std::find_if(start, text.end(), isSpace)};
}

class FormatFileCheck {
 public:
  FormatFileCheck(CardFormat& format, int file, CheckedFormat& entry, Findings& findings)
      : _format(format), _file(file), _entry(entry), _findings(findings) {}

  void run(const std::string& path) {
    requireRegularFile(path);
    _result = _format.loadFormatFile(path.c_str());
    if (_result >= 0) _entry.format = &_format;
    if (readLines(path)) _result < 0 ? reportErrors() : checkContents();
  }

 private:
  // Label, minimum, maximum, direction and type of a field; a VFF file has the last two.
  using FieldWords = std::array<std::string_view, 5>;

  Place placeOf(size_t line, size_t column = 0) const {
    return {_file, static_cast<int64_t>(line), static_cast<int64_t>(column)};
  }
  // `word` points into the line.
  Place placeOf(size_t line, std::string_view word) const {
    return placeOf(line, static_cast<size_t>(word.data() - _lines[line].data()) + 1);
  }

  template <typename... Args>
  void fail(Place place, int32_t code, fmt::format_string<Args...> format, Args&&... args) {
    _entry.error = _findings.error(place, code, format, std::forward<Args>(args)...);
    place.column = 0;
    _findings.setVerdict(code, place);
  }

  // Reads as far as the format goes. False, with a finding, when the lines are not those of a
  // format file, or cannot be read.
  bool readLines(const std::string& path) {
    const bool isOpen = _reader.open(path.c_str());
    FormatLine line{};
    while (isOpen && _lines.size() <= (_isVff ? 17 : 50) &&
           (_end = _format.readFormatLine(_reader, line, false)) == kSuccess) {
      if (_isText && isMisread()) return false;
      // For the format a NUL ends the line.
      const std::string_view raw(_reader.line(), _reader.length());
      const bool hasNul = _isText && raw.find('\0') != std::string_view::npos;
      _lines.emplace_back(hasNul ? raw : std::string_view(line.data(), line.size()));
    }
    if (isOpen && !_reader.failed()) return true;
    if (_result >= 0) throwErrno(path);
    fail({_file}, _result, "cannot be read: {}", std::strerror(errno));
    return false;
  }

  // Whether the line read last makes a CDF file something else as a whole, which is one finding in
  // place of all others.
  bool isMisread() {
    const int64_t before = _reader.bytesBefore();
    const char* text = nullptr;
    if (isMergeMark({_reader.line(), _reader.length()})) text = kMergeMarkText;
    if (before > 0) text = kLongLineText;
    if (isUtf16(_reader)) text = kUtf16Text;
    if (text == nullptr) return false;
    const Place place = {_file, _reader.lineNumber(), before > 0 ? before + 1 : 0};
    _result < 0 ? fail(place, _result, "{}", text) : _findings.warn(place, "text", "{}", text);
    return true;
  }

  // Why the file did not load.
  void reportErrors() {
    const size_t next = _lines.size();
    const bool isFieldWrong = _result == kBadCardNumberField && next > kCardNumberFieldLine;
    if (isFieldWrong)
      fail(placeOf(kCardNumberFieldLine, 1), _result, "card number field {} is not A to H",
           shownName(std::string_view(_lines[kCardNumberFieldLine].c_str()).substr(0, 1)));
    const bool isHeadWrong = _isVff && next > kDefinitionRecord && !hasValidHead();
    if (isHeadWrong)
      fail(placeOf(kDefinitionRecord, 1), _result,
           "the number of bits is not 0 to 144, or the card number field not 1 to 8");
    const bool isComplete = _end >= 0 || next == 31 || next == 41;
    if (!isComplete || !(isFieldWrong || isHeadWrong))
      fail(placeOf(next), _end < 0 ? _end : _result, "the format ends here; {}",
           sizeText(kindName(_format)));
  }

  bool hasValidHead() const {
    FieldScanner scanner(_lines[kDefinitionRecord].c_str());
    const int32_t bits = scanner.nextInt(), field = scanner.nextInt();
    return bits >= 0 && bits <= BitPattern::kPositions && field >= 1 && field <= kFieldCount;
  }

  // Of a file that loaded.
  void checkContents() {
    const size_t last = _lines.size() - 1;
    if (last < (_isVff ? 17 : 30)) return;  // Somebody has changed it meanwhile.
    if (_isText && !_reader.endedLine()) _findings.warn(placeOf(last), "text", kNoNewlineText);
    const bool isCountValid = _isVff || checkParityCount();
    const bool areWidthsMeant =
        (_isVff || checkMaskLines()) && checkMasks(_format, _file, isCountValid, _findings);
    const int32_t number = _format.cardNumberField();
    if (areWidthsMeant && _format.fieldBitCount(number) == 0)
      _findings.warn(_isVff ? placeOf(kFirstMaskRecord) : placeOf(kCardNumberFieldLine, 1), "field",
                     "no \"{}\" in the output mask: the card number has no bits",
                     _format.masks().letters[static_cast<size_t>(number)]);
    for (size_t field = 0; field < kFieldCount; ++field) checkField(field, areWidthsMeant);
  }

  // False when the number is not what it seems to be.
  bool checkParityCount() {
    const char* const text = _lines[kParityCountLine].c_str();
    if (hasHiddenByte(kParityCountLine)) return false;
    if (!isBlank(text) &&
        !checkNumber(kParityCountLine, text, "the number of parity masks", kParityMaskCount))
      return false;
    if (textToInt32(text) > kParityMaskCount)
      _findings.warn(placeOf(kParityCountLine, 1), "mask",
                     "more than eight parity masks are declared: a format has only eight");
    return true;
  }

  // False when a mask is not what it seems to be: comparing the masks then means nothing.
  bool checkMaskLines() {
    for (size_t line = kFirstMaskLine; line < _lines.size(); ++line) {
      if (hasHiddenByte(line)) return false;
      const std::string_view text = _lines[line].c_str();
      if (text.find_first_not_of(". ", kPositionsPerLine) == std::string_view::npos) continue;
      _findings.warn(placeOf(line, kPositionsPerLine + 1), "mask",
                     "a mask line has 48 positions: the rest belongs in line {}", line + kMasks);
      return false;
    }
    return true;
  }

  bool hasHiddenByte(size_t line, size_t from = 0) {
    const std::optional<OddText> hidden = findHiddenByte(_lines[line], from);
    if (hidden)
      _findings.warn(placeOf(line, hidden->offset + 1), "text",
                     "{}: cards may get other bits than the line shows", hidden->effect);
    return hidden.has_value();
  }

  // Takes the line apart.
  FieldWords wordsOf(size_t line) {
    FieldWords words;
    if (!_isVff) {
      std::ranges::copy(CdfCardFormat::fieldWords(_lines[line].data()), words.begin());
      return words;
    }
    FieldScanner scanner(_lines[line].c_str());
    static_cast<void>(scanner.nextInt());  // The number of bits and the card number field.
    static_cast<void>(scanner.nextInt());
    words[3] = scanner.nextWord(sizeof(FormatLine));
    words[4] = scanner.nextWord(sizeof(FormatLine));
    return words;
  }

  void checkField(size_t field, bool areWidthsMeant) {
    const char letter = _format.masks().letters[field];
    const int32_t width = _format.fieldBitCount(static_cast<int32_t>(field));
    if (letter == '\0' || width == 0) return;
    const size_t line = _isVff ? kDefinitionRecord : kFirstFieldLine + field;
    if (hasHiddenByte(line, _lines[line].find(','))) return;
    const bool isCleared = !_isVff && _lines[line].starts_with(' ');
    const FieldWords words = wordsOf(line);
    const FieldDefinition& defined = _format.fieldDefinitions()[field];
    if (isCleared || words[4].empty())
      return _findings.warn(placeOf(line), "field",
                            "the definition begins with a blank, or one of its values is missing "
                            "or empty: field {} is 0 on every card",
                            letter);
    if (defined.ftyp == kNotGiven)
      return _findings.warn(placeOf(line, words[4]), "field",
                            "type {} is unknown: field {} is 0 on every card", shownName(words[4]),
                            letter);
    if (defined.dir == kNotGiven)
      _findings.warn(placeOf(line, words[3]), "field",
                     "direction {} is unknown: field {} is read as MSB", shownName(words[3]),
                     letter);
    if (_isVff) return;
    checkNumber(line, words[1], "minimum", INT32_MAX);
    checkNumber(line, words[2], "maximum", INT32_MAX);
    if (areWidthsMeant) checkWidth(line, letter, words, {defined.ftyp, defined.dir, width});
  }

  // False when the text does not begin with a number. A NUL follows it.
  bool checkNumber(size_t line, std::string_view text, const char* name, int32_t most) {
    const std::string_view word = firstWord(text);
    if (isNumber(word)) return true;
    const LineField field = {name, FieldKind::kNumber, static_cast<uint32_t>(most)};
    _findings.warn(placeOf(line, text), "number", "{} {} is not a number and is read as {}", name,
                   shown(word, field), std::min(textToInt32(text.data()), most));
    return false;
  }

  // Whether what the file promises has room in the positions of the field.
  void checkWidth(size_t line, char letter, const FieldWords& words, fieldstate state) {
    if (state.ftyp == kTypeMsd && state.nbits % 5 != 0)
      return _findings.warn(placeOf(line, words[4]), "field",
                            "a digit of type MSD needs five positions, but field {} has {}", letter,
                            state.nbits);
    const int64_t maximum = textToInt64(words[2].data());
    const uint64_t kept = state.nbits < 64 ? (uint64_t{1} << state.nbits) - 1 : UINT64_MAX;
    if (maximum > 0 && state.toValue(state.toBits(maximum) & kept) != maximum)
      _findings.warn(placeOf(line, words[2]), "field",
                     "maximum {} does not fit in the {} positions of field {}: values that do not "
                     "fit are cut",
                     maximum, state.nbits, letter);
  }

  CardFormat& _format;
  const bool _isVff = kindName(_format) == kVff, _isText = kindName(_format) == kCdf;
  const int _file;
  CheckedFormat& _entry;
  Findings& _findings;
  int32_t _result = kSuccess;  // Of loading the file.
  LineReader _reader;
  std::vector<std::string> _lines{""};  // From 1 on, as the format reads them.
  int32_t _end = kSuccess;              // The result of reading after the last of the lines.
};

}  // namespace

std::string_view kindName(const CardFormat& format) {
  if (dynamic_cast<const VffCardFormat*>(&format) != nullptr) return kVff;
  return dynamic_cast<const EffCardFormat*>(&format) != nullptr ? kEff : kCdf;
}

void checkFormatFile(const std::string& path, CheckedFormat& entry, CardFormatSet& formats,
                     Findings& findings) {
  const int file = findings.addFile(path);
  const std::string name = path.substr(path.rfind('/') + 1);
  if (!CardFormatSet::isFormatFile(name.c_str())) {
    findings.error({file}, kFormatNotAdded,
                   "not a format file: its name does not contain .cdf, .eff or .vff");
    return;
  }
  CardFormat* const format = formats.addFormat(entry.id, name.c_str());
  if (format == nullptr) throw std::bad_alloc();
  FormatFileCheck(*format, file, entry, findings).run(path);
}

}  // namespace badgemint::admin
