// One format file: loaded as a build loads it and then read once more, line by line, because a
// loaded format does not know what its file contained, and one that did not load cannot report why.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <system_error>

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
constexpr std::string_view kCdf = "CDF", kEff = "EFF", kVff = "VFF";

// What a file of the kind consists of.
std::string_view sizeText(std::string_view kind) {
  if (kind == kCdf) return "a CDF file has 30, 40 or 50 lines, empty ones included";
  if (kind == kVff) return "a VFF file has 17 records of 144 characters, and no \"^\"";
  return "an EFF file has 30, 40 or 50 lines of at most 100 characters, with \"~\" at the end of "
         "each, "
         "and no \"^\"";
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
      : _format(format), _file(file), _entry(entry), _findings(findings) {}

  void run(const std::string& path) {
    requireRegularFile(path);
    const int32_t result = _format.loadFormatFile(path.c_str());
    LineReader reader;
    const bool isRead = reader.open(path.c_str()) && readLines(reader);
    const int error = errno;
    if (result >= 0 && !isRead) throw std::system_error(error, std::generic_category(), path);
    if (result >= 0) _entry.format = &_format;
    if (!isRead)
      fail({_file}, result, "cannot be read: {}", std::strerror(error));
    else if (_misread)
      reportMisread(result);
    else
      result < 0 ? reportErrors(result) : checkContents();
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
  // `word` points into the text of the item.
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

  // As far as the format goes. False when they cannot be read.
  bool readLines(LineReader& reader) {
    FormatLine line{};
    while (_lines.size() < (_isVff ? 17 : 50) &&
           (_end = _format.readFormatLine(reader, line, false)) == kSuccess) {
      if (_isText && !_misread) findMisread(reader);
      std::string raw(line.begin(), line.end());
      if (_isText) raw = {reader.line(), reader.length()};
      _lines.push_back({line.data(), std::move(raw)});
    }
    _hasNewline = reader.endedLine();
    return !reader.failed();
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
  void reportMisread(int32_t result) {
    const auto& [text, place] = *_misread;
    result < 0 ? fail(place, result, "{}", text) : _findings.warn(place, "text", "{}", text);
  }

  // Why the file did not load.
  void reportErrors(int32_t result) {
    const bool isFieldWrong = result == kBadCardNumberField;
    if (isFieldWrong)
      fail(placeOf(kCardNumberFieldLine, 0), result, "card number field {} is not A to H",
           shownLetters(_lines[kCardNumberFieldLine].text.substr(0, 1)));
    const bool isHeadWrong = _isVff && _lines.size() > kDefinitionRecord && !hasValidHead();
    if (isHeadWrong)
      fail(placeOf(kDefinitionRecord, 0), result,
           "the number of bits is not 0 to 144, or the card number field not 1 to 8");
    const bool isComplete = _end >= 0 || _lines.size() == 30 || _lines.size() == 40;
    if (!isComplete || !(isFieldWrong || isHeadWrong))
      fail(placeOf(_lines.size()), _end < 0 ? _end : result, "the format ends here; {}",
           sizeText(kindName(_format)));
  }

  bool hasValidHead() const {
    FieldScanner scanner(_lines[kDefinitionRecord].text.c_str());
    const int32_t bits = scanner.nextInt(), field = scanner.nextInt();
    return bits >= 0 && bits <= BitPattern::kPositions && field >= 1 && field <= kFieldCount;
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
    const std::string_view text = _lines[kParityCountLine].text;
    const Place place = placeOf(kParityCountLine, 0);
    if (hasHiddenByte(kParityCountLine)) return false;
    if (!isBlank(text.data()) && !isNumber(firstWord(text))) {
      _findings.warn(place, "number",
                     "the number of parity masks {} is not a number and is read as {}",
                     shown(firstWord(text), kParityCount), _format.numberOfParityBits());
      return false;
    }
    if (textToInt32(text.data()) > kParityMaskCount)
      _findings.warn(place, "mask",
                     "more than eight parity masks are declared: a format has only eight");
    return true;
  }

  // False when a mask is not what it seems to be: comparing the masks then means nothing.
  bool checkMaskLines() {
    for (size_t item = kFirstMaskLine; item < _lines.size(); ++item) {
      if (hasHiddenByte(item)) return false;
      const std::string_view text = _lines[item].text;
      if (text.find_first_not_of(". ", kPositionsPerLine) == std::string_view::npos) continue;
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

  // Takes the text of the item apart.
  FieldWords wordsOf(size_t item) {
    FieldWords words;
    if (!_isVff) {
      std::ranges::copy(CdfCardFormat::fieldWords(_lines[item].text.data()), words.begin());
      return words;
    }
    FieldScanner scanner(_lines[item].text.c_str());
    static_cast<void>(scanner.nextInt());  // The number of bits and the card number field.
    static_cast<void>(scanner.nextInt());
    for (std::string_view& word : std::span(words).last(2))
      word = scanner.nextWord(_lines[item].text.size());
    return words;
  }

  void checkField(size_t field, bool areWidthsMeant) {
    const char letter = _format.masks().letters[field];
    if (letter == '\0' || _format.fieldBitCount(static_cast<int32_t>(field)) == 0) return;
    const size_t item = _isVff ? kDefinitionRecord : kFirstFieldLine + field;
    if (hasHiddenByte(item, _lines[item].text.find(','))) return;
    const bool isCleared = !_isVff && _lines[item].text.starts_with(' ');
    const FieldWords words = wordsOf(item);
    const FieldDefinition& defined = _format.fieldDefinitions()[field];
    if (isCleared || words[4].empty())
      return _findings.warn(placeOf(item), "field",
                            "the definition begins with a blank, or one of its values is missing "
                            "or empty: field {} is 0 on every card",
                            letter);
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
  const bool _isVff = kindName(_format) == kVff, _isText = kindName(_format) == kCdf;
  const int _file;
  CheckedFormat& _entry;
  Findings& _findings;
  std::vector<Line> _lines;
  std::optional<Misread> _misread;
  int32_t _end = kSuccess;  // The result of reading after the last of the lines.
  bool _hasNewline = true;
};

}  // namespace

std::string_view kindName(const CardFormat& format) {
  if (dynamic_cast<const VffCardFormat*>(&format) != nullptr) return kVff;
  return dynamic_cast<const EffCardFormat*>(&format) != nullptr ? kEff : kCdf;
}

void checkFormatFile(CardFormat& format, const std::string& path, int file, CheckedFormat& entry,
                     Findings& findings) {
  FormatFileCheck(format, file, entry, findings).run(path);
}

}  // namespace badgemint::admin
