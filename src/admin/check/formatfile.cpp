// One format file: loaded as a build loads it and then read once more, line by line, because a
// loaded format does not know what its file contained, and one that did not load cannot report why.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <system_error>

#include "admin/check/formatscheck.h"
#include "admin/check/oddtext.h"
#include "admin/files/sitepaths.h"
#include "formats/CdfCardFormat.h"
#include "formats/EffCardFormat.h"
#include "formats/VffCardFormat.h"
#include "support/fieldscanner.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint::admin {
namespace {

constexpr LineField kParityCount = {"number of parity masks", FieldKind::kNumber, kParityMaskCount};
constexpr LineField kBound = {"bound", FieldKind::kNumber, std::numeric_limits<int32_t>::max()};

// Where the items of a file stand, counted from 0: lines of a CDF or EFF file, records of a VFF.
constexpr size_t kCardNumberFieldLine = 7;
constexpr size_t kParityCountLine = 8;
constexpr size_t kFirstFieldLine = 12;
constexpr size_t kFirstMaskLine = 20;
constexpr size_t kMasks = 2 + kParityMaskCount;
constexpr size_t kPositionsPerLine = 48;
constexpr size_t kDefinitionRecord = 5;
constexpr size_t kFirstMaskRecord = 6;
constexpr size_t kMaxLine = 100;

struct Kind {
  const char* name;
  const char* size;
};
constexpr Kind kCdf = {"CDF", "a CDF file has 30, 40 or 50 lines, empty ones included"};
constexpr Kind kEff = {
    "EFF",
    "an EFF file has 30, 40 or 50 lines of at most 100 characters, with \"~\" at "
    "the end of each, and no \"^\""};
constexpr Kind kVff = {"VFF", "a VFF file has 17 records of 144 characters, and no \"^\""};

const Kind& kindOf(const CardFormat& format) {
  if (dynamic_cast<const VffCardFormat*>(&format) != nullptr) return kVff;
  return dynamic_cast<const EffCardFormat*>(&format) != nullptr ? kEff : kCdf;
}

// Where a number is expected. What follows it is ignored.
std::string_view firstWord(std::string_view text) {
  const auto start = std::ranges::find_if_not(text, isSpace);
  return {start, std::find_if(start, text.end(), isSpace)};
}

// A word of letters, in quotes: a digit and what follows is left out, since it may be a PIN.
std::string shownLetters(std::string_view word) {
  return inQuotes(word.substr(0, word.find_first_of("0123456789")));
}

class FormatFileCheck {
 public:
  FormatFileCheck(CardFormat& format, int file, CheckedFormat& entry, Findings& findings)
      : _format(format),
        _kind(kindOf(format)),
        _isVff(&_kind == &kVff),
        _isText(&_kind == &kCdf),
        _file(file),
        _entry(entry),
        _findings(findings) {}

  void run(const std::string& path) {
    requireRegularFile(path);
    const int32_t result = _format.loadFormatFile(path.c_str());
    LineReader reader;
    const bool isOpen = reader.open(path.c_str());
    if (isOpen) readLines(reader);
    const int error = errno;
    const bool isUnreadable = !isOpen || reader.failed();
    if (result >= 0 && isUnreadable) throw std::system_error(error, std::generic_category(), path);
    if (!isOpen)
      fail({_file, 0, 0}, result, "cannot be opened: {}", std::strerror(error));
    else if (!isMisread(result))
      result < 0 ? reportErrors(result, isUnreadable, error) : checkContents();
    if (result >= 0) _entry.format = &_format;
  }

 private:
  struct Line {
    std::string text;  // As the format reads it.
    std::string raw;   // As it is in the file, or decoded.
  };
  // What makes a CDF file something else as a whole.
  struct Misread {
    const char* text;
    Place place;
  };
  // Label, minimum, maximum, direction and type of a field; a VFF file has the last two.
  using FieldWords = std::array<std::string_view, 5>;

  // Not for lines after one that is too long.
  Place placeOf(size_t item) const { return {_file, static_cast<int64_t>(item) + 1, 0}; }
  Place placeOf(size_t item, size_t offset) const {
    return {_file, static_cast<int64_t>(item) + 1, static_cast<int64_t>(offset) + 1};
  }
  Place placeOf(size_t item, std::string_view word) const {
    return placeOf(item, static_cast<size_t>(word.data() - _lines[item].text.data()));
  }
  Place placeInMask(size_t mask, size_t position) const {
    if (_isVff) return placeOf(kFirstMaskRecord + mask, position);
    return placeOf(kFirstMaskLine + position / kPositionsPerLine * kMasks + mask,
                   position % kPositionsPerLine);
  }

  template <typename... Args>
  void fail(Place place, int32_t code, fmt::format_string<Args...> format, Args&&... args) {
    _entry.error = _findings.error(place, code, format, std::forward<Args>(args)...);
    place.column = 0;
    _findings.setVerdict(code, place);
  }

  // As far as the format goes.
  void readLines(LineReader& reader) {
    FormatLine line{};
    for (const size_t most = _isVff ? 17 : 50; _lines.size() < most;) {
      _endCode = _format.readFormatLine(reader, line, false);
      if (_endCode < 0) break;
      std::string raw(line.begin(), line.end());
      raw.erase(raw.find_last_not_of('\0') + 1);
      if (_isText) raw = {reader.line(), reader.length()};
      if (_isText && !_misread) findMisread(reader);
      _lines.push_back({line.data(), raw});
    }
    _hasNewline = reader.endedLine();
  }

  void findMisread(LineReader& line) {
    if (isUtf16(line))
      _misread = {kUtf16Text, placeOf(0)};
    else if (line.bytesBefore() > 0)
      _misread = {kLongLineText, {_file, line.lineNumber(), line.bytesBefore() + 1}};
    else if (isMergeMark({line.line(), line.length()}))
      _misread = {kMergeMarkText, placeOf(_lines.size())};
  }

  // One finding in place of all others.
  bool isMisread(int32_t result) {
    if (!_misread) return false;
    const auto& [text, place] = *_misread;
    result < 0 ? fail(place, result, "{}", text) : _findings.warn(place, "text", "{}", text);
    return true;
  }

  // Why the file did not load; at least one error.
  void reportErrors(int32_t result, bool isReadError, int error) {
    const size_t before = _findings.errors();
    if (result == kBadCardNumberField && _lines.size() > kCardNumberFieldLine)
      fail(placeOf(kCardNumberFieldLine, 0), result, "card number field {} is not A to H",
           shownLetters(_lines[kCardNumberFieldLine].text.substr(0, 1)));
    if (_isVff && _lines.size() > kDefinitionRecord) {
      FieldScanner scanner(_lines[kDefinitionRecord].text.c_str());
      const int32_t bits = scanner.nextInt(), field = scanner.nextInt();
      if (bits < 0 || bits > BitPattern::kPositions || field < 1 || field > kFieldCount)
        fail(placeOf(kDefinitionRecord, 0), result,
             "the number of bits is not 0 to 144, or the card number field not 1 to 8");
    }
    const Place end = placeOf(_lines.size());
    const bool isIncomplete = _lines.size() != 30 && _lines.size() != 40 && _endCode < 0;
    if (isReadError)
      fail(end, _endCode, "cannot be read: {}", std::strerror(error));
    else if (isIncomplete || _findings.errors() == before)
      fail(end, _endCode < 0 ? _endCode : result, "the format ends here; {}", _kind.size);
  }

  // Of a file that loaded.
  void checkContents() {
    if (_lines.size() < (_isVff ? 17 : 30)) return;  // Somebody has changed it meanwhile.
    if (_isText && !_hasNewline) _findings.warn(placeOf(_lines.size() - 1), "text", kNoNewlineText);
    const bool isCountValid = _isVff || checkParityCount();
    const auto warn = [this](size_t mask, size_t position, const std::string& text) {
      _findings.warn(placeInMask(mask, position), "mask", "{}", text);
    };
    const bool areWidthsMeant =
        (_isVff || checkMaskLines()) && checkMasks(_format, isCountValid, warn);
    if (areWidthsMeant) checkCardNumberField();
    for (size_t field = 0; field < kFieldCount; ++field) checkField(field, areWidthsMeant);
  }

  // False when the number is not what it seems to be.
  bool checkParityCount() {
    const std::string& text = _lines[kParityCountLine].text;
    const Place place = placeOf(kParityCountLine, 0);
    if (hasHiddenByte(kParityCountLine)) return false;
    if (!isBlank(text.c_str()) && !isNumber(firstWord(text))) {
      _findings.warn(place, "number",
                     "the number of parity masks {} is not a number and is read as {}",
                     shown(firstWord(text), kParityCount), _format.numberOfParityBits());
      return false;
    }
    if (textToInt32(text.c_str()) > kParityMaskCount)
      _findings.warn(place, "mask",
                     "more than eight parity masks are declared: a format has only eight");
    return true;
  }

  // False when a mask is not what it seems to be: comparing the masks then means nothing.
  bool checkMaskLines() {
    for (size_t item = kFirstMaskLine; item < _lines.size(); ++item) {
      if (hasHiddenByte(item)) return false;
      if (_lines[item].text.find_first_not_of(". ", kPositionsPerLine) == std::string::npos)
        continue;
      _findings.warn(placeOf(item, kPositionsPerLine), "mask",
                     "a mask line has 48 positions: the rest belongs in line {}",
                     item + 1 + kMasks);
      return false;
    }
    return true;
  }

  bool hasHiddenByte(size_t item, size_t from = 0) {
    const std::optional<OddText> hidden = findHiddenByte(_lines[item].raw, from);
    if (hidden)
      _findings.warn(placeOf(item, hidden->offset), "text",
                     "{}: cards may get other bits than the line shows", hidden->effect);
    return hidden.has_value();
  }

  void checkCardNumberField() {
    const int32_t field = _format.cardNumberField();
    if (_format.fieldBitCount(field) > 0) return;
    _findings.warn(_isVff ? placeOf(kFirstMaskRecord) : placeOf(kCardNumberFieldLine, 0), "field",
                   "no \"{}\" in the output mask: the card number has no bits",
                   _format.masks().letters[static_cast<size_t>(field)]);
  }

  // Takes the text apart.
  FieldWords wordsOf(std::string& text) const {
    FieldWords words;
    if (!_isVff) {
      std::ranges::copy(CdfCardFormat::fieldWords(text.data()), words.begin());
      return words;
    }
    FieldScanner scanner(text.c_str());
    static_cast<void>(scanner.nextInt());  // The number of bits and the card number field.
    static_cast<void>(scanner.nextInt());
    for (std::string_view& word : std::span(words).last(2)) word = scanner.nextWord(text.size());
    return words;
  }

  void checkField(size_t field, bool areWidthsMeant) {
    const char letter = _format.masks().letters[field];
    if (letter == '\0' || _format.fieldBitCount(static_cast<int32_t>(field)) == 0) return;
    const size_t item = _isVff ? kDefinitionRecord : kFirstFieldLine + field;
    std::string& text = _lines[item].text;
    if (hasHiddenByte(item, text.find(','))) return;
    if (!_isVff && (text.empty() || text.front() == ' '))
      return _findings.warn(
          placeOf(item), "field",
          "field {} has no definition, or one that begins with a blank: it is 0 on "
          "every card",
          letter);
    const FieldWords words = wordsOf(text);
    const FieldDefinition& defined = _format.fieldDefinitions()[field];
    if (words[4].empty())
      return _findings.warn(
          placeOf(item), "field",
          "a value is missing (empty ones do not count): field {} is 0 on every card", letter);
    if (defined.ftyp == kNotGiven)
      return _findings.warn(placeOf(item, words[4]), "field",
                            "type {} is unknown: field {} is 0 on every card",
                            shownLetters(words[4]), letter);
    if (defined.dir == kNotGiven)
      _findings.warn(placeOf(item, words[3]), "field",
                     "direction {} is unknown: field {} is read as MSB", shownLetters(words[3]),
                     letter);
    if (_isVff) return;
    checkBound(item, words[1], "minimum");
    checkBound(item, words[2], "maximum");
    if (areWidthsMeant) checkWidth(field, words);
  }

  void checkBound(size_t item, std::string_view word, const char* name) {
    if (!isNumber(firstWord(word)))
      _findings.warn(placeOf(item, word), "number", "{} {} is not a number and is read as {}", name,
                     shown(firstWord(word), kBound), textToInt32(word.data()));
  }

  // Whether what the file promises has room in the positions of the field.
  void checkWidth(size_t field, const FieldWords& words) {
    const size_t item = kFirstFieldLine + field;
    const int32_t width = _format.fieldBitCount(static_cast<int32_t>(field));
    const FieldDefinition& defined = _format.fieldDefinitions()[field];
    if (defined.ftyp == kTypeMsd && width % 5 != 0)
      return _findings.warn(placeOf(item, words[4]), "field",
                            "a digit of type MSD needs five positions, but field {:c} has {}",
                            'A' + static_cast<int>(field), width);
    const int64_t maximum = textToInt64(words[2].data());
    const fieldstate state{.ftyp = defined.ftyp, .dir = defined.dir, .nbits = width};
    const uint64_t kept = width < 64 ? (uint64_t{1} << width) - 1 : UINT64_MAX;
    if (maximum > 0 && state.toValue(state.toBits(maximum) & kept) != maximum)
      _findings.warn(
          placeOf(item, words[2]), "field",
          "maximum {} does not fit in the {} positions of field {:c}: values that do not "
          "fit are cut",
          maximum, width, 'A' + static_cast<int>(field));
  }

  CardFormat& _format;
  const Kind& _kind;
  const bool _isVff, _isText;
  const int _file;
  CheckedFormat& _entry;
  Findings& _findings;
  std::vector<Line> _lines;
  std::optional<Misread> _misread;
  bool _hasNewline = true;
  int32_t _endCode = kSuccess;  // The result of reading beyond the last line; 0 when none is due.
};

}  // namespace

const char* kindName(const CardFormat& format) {
  return kindOf(format).name;
}

void checkFormatFile(CardFormat& format, const std::string& path, int file, CheckedFormat& entry,
                     Findings& findings) {
  FormatFileCheck(format, file, entry, findings).run(path);
}

}  // namespace badgemint::admin
