// One format file: loaded as a build loads it and then read once more, line by line, because a
// loaded format does not know what its file contained, and one that did not load cannot report why.
// And its masks against each other, position by position: the rule `mask`.
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

namespace badgemint::admin {
namespace {

// The lines of a CDF or EFF file and the records of a VFF file, counted from 1.
constexpr size_t kCardNumberFieldLine = 8;
constexpr size_t kParityCountLine = 9;
constexpr size_t kFirstFieldLine = 13;
constexpr size_t kFirstMaskLine = 21, kLastMaskLine = 50;
constexpr size_t kPositionsPerLine = 48;
constexpr size_t kDefinitionRecord = 6;
constexpr size_t kFirstMaskRecord = 7;

constexpr size_t kOutput = 0, kFixed = 1, kParity = 2, kMasks = kParity + kParityMaskCount;
constexpr size_t kPositions = BitPattern::kPositions;
constexpr size_t kCardBits = 8 * sizeof(CardPattern);
constexpr size_t kNone = std::string_view::npos;
constexpr std::string_view kFillers(". -_\0", 5);  // Where a mask has nothing.
constexpr std::string_view kCdf = "CDF", kEff = "EFF", kVff = "VFF";

// What a file of the kind consists of.
std::string_view sizeText(std::string_view kind) {
  if (kind == kCdf) return "a CDF file has 30, 40 or 50 lines, empty ones included";
  if (kind == kVff) return "a VFF file has 17 records of 144 characters, and no \"^\"";
  return "an EFF file has 30, 40 or 50 lines of at most 100 characters, with \"~\" at the end of "
         "each, and no \"^\"";
}

bool contains(std::string_view characters, char c) {
  return characters.find(c) != kNone;
}

// The check of one format file.
class FormatFileCheck : TextFileCheck {
 public:
  // `result` is that of loading the file.
  FormatFileCheck(CardFormat& format, int32_t result, int file, CheckedFormat& entry,
                  Findings& findings)
      : TextFileCheck(findings, file), _format(format), _result(result), _entry(entry) {
    for (const BitMask& mask : _masks.parity) _rows.emplace_back(mask.data(), kPositions);
    std::erase(_letters, '\0');
  }

  void run(const std::string& path) {
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
    _entry.error = _findings.fail(place, code, format, std::forward<Args>(args)...);
  }

  // Reads as far as the format goes. False, with a finding, when the lines are not those of a
  // format file, or cannot be read.
  bool readLines(const std::string& path) {
    const bool isOpen = _reader.open(path.c_str());
    FormatLine line{};
    while (isOpen && _lines.size() <= (_isVff ? 17 : 50) &&
           (_end = _format.readFormatLine(_reader, line, false)) == kSuccess) {
      if (_isText && reportWrongKindOfFile()) return false;
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
  bool reportWrongKindOfFile() {
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
      fail(placeOf(kCardNumberFieldLine, 1), _result, "card number field {} is not one of A to H",
           shownName(std::string_view(_lines[kCardNumberFieldLine].c_str()).substr(0, 1)));
    const bool isHeadWrong = _isVff && next > kDefinitionRecord && !hasValidHead();
    if (isHeadWrong)
      fail(placeOf(kDefinitionRecord, 1), _result,
           "the number of bits is outside 0 to 144, or the card number field is outside 1 to 8");
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
    const bool areWidthsMeant = (_isVff || checkMaskLines()) && checkMasks(isCountValid);
    const int32_t number = _format.cardNumberField();
    if (areWidthsMeant && _format.fieldBitCount(number) == 0)
      _findings.warn(_isVff ? placeOf(kFirstMaskRecord) : placeOf(kCardNumberFieldLine, 1), "field",
                     "no \"{}\" in the output mask: the card number has no bits",
                     _masks.letters[static_cast<size_t>(number)]);
    for (size_t field = 0; field < kFieldCount; ++field) checkField(field, areWidthsMeant);
  }

  // Returns false when the number cannot be relied on.
  bool checkParityCount() {
    const char* const text = _lines[kParityCountLine].c_str();
    if (hasHiddenByte(kParityCountLine)) return false;
    if (!isBlank(text) &&
        !checkNumber(kParityCountLine, text, "parity mask count", kParityMaskCount))
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
      const std::string effect =
          line + kMasks > kLastMaskLine
              ? "a layout has 144 positions: the rest is ignored"
              : fmt::format("a mask line has 48 positions: the rest belongs in line {}",
                            line + kMasks);
      _findings.warn(placeOf(line, kPositionsPerLine + 1), "mask", "{}", effect);
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
    const char letter = _masks.letters[field];
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

  // False when the text does not begin with a number; what follows its first word is ignored. A NUL
  // follows the text.
  bool checkNumber(size_t line, std::string_view text, const char* name, int32_t most) {
    const std::string_view word = FieldScanner(text.data()).nextWord(text.size());
    if (isNumber(word)) return true;
    const LineField field = {name, FieldKind::kNumber, static_cast<uint32_t>(most)};
    _findings.warn(placeOf(line, text), "number", "{} {} is not a number and is read as {}", name,
                   shown(word, field), std::min(textToInt32(text.data()), most));
    return false;
  }

  // Warns when the type or the maximum of a field does not fit its positions.
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

  // False when a field does not get the positions that it seems to have. The number of parity masks
  // counts only if `isParityCountValid`.
  bool checkMasks(bool isParityCountValid) {
    const size_t before = _findings.warnings();
    const bool isOutputValid =
        checkCharacters(kOutput, _letters + 'P', "is not a field: the card has no bit here");
    checkCharacters(kFixed, "01", "is neither 0 nor 1 and fixes no bit");
    checkFixed();
    const bool areWidthsMeant = _findings.warnings() == before;
    if (isOutputValid) checkUsedPositions();
    const size_t beforeParity = _findings.warnings();
    for (size_t mask = kParity; mask < _appliedEnd; ++mask) checkParity(mask, isOutputValid);
    if (isParityCountValid) checkNotApplied();
    if (_findings.warnings() == beforeParity) checkUnsetParity();
    return areWidthsMeant;
  }

  // Reports each unknown character once. False when there is one.
  bool checkCharacters(size_t mask, std::string known, const char* effect) {
    const size_t before = _findings.warnings();
    const std::string_view row = _rows[mask];
    known += kFillers;
    for (size_t p = 0; (p = row.find_first_not_of(known, p)) != kNone; known += row[p])
      warnMask(mask, p, "{} {}", isDigit(row[p]) ? "a digit" : inQuotes(row.substr(p, 1)), effect);
    return _findings.warnings() == before;
  }

  // Reports once what a fixed bit replaces. What the output mask cannot have is reported there.
  void checkFixed() {
    std::string known = ".P";
    for (size_t p = 0; p < kPositions; ++p) {
      const char replaced = _rows[kOutput][p];
      if (!contains("01", _rows[kFixed][p]) || contains(known, replaced)) continue;
      known += replaced;
      if (contains(_letters, replaced))
        warnMask(kFixed, p, "this bit of field {} is fixed: part of its value is lost", replaced);
      else if (contains(kFillers, replaced))
        warnMask(kFixed, p,
                 "the output mask has no \".\" here: this fixed bit is not counted as a bit of the "
                 "card");
    }
  }

  void checkUsedPositions() {
    std::string used;
    for (int32_t p = 0; p < BitPattern::kPositions; ++p)
      used += isUsedPosition(_masks, p) ? 'u' : '.';
    const auto count = static_cast<int32_t>(std::ranges::count(used, 'u'));
    const size_t end = used.find("u.");
    if (end != kNone && used.find('u', end + 1) != kNone)
      warnMask(kOutput, end + 1,
               "an unused position between used ones is always 0, and not counted as a bit");
    else if (count != _format.bitCount())
      warnMask(kOutput, 0, "the file gives the card {} bits, but its output mask uses {}",
               _format.bitCount(), count);
    if (count > static_cast<int32_t>(kCardBits))
      warnMask(kOutput, kCardBits,
               "the layout has {} bits, but a card has room for 128: the last are lost", count);
  }

  void checkParity(size_t mask, bool isOutputValid) {
    if (!checkCharacters(mask, "XEO", "has no meaning in a parity mask")) return;
    const size_t target = targetOf(mask);
    if (target == kNone) {
      if (const size_t covered = _rows[mask].find('X'); covered != kNone)
        warnMask(mask, covered, "a mask without E or O sets no parity bit");
      return;
    }
    if (isOutputValid && _rows[kOutput][target] != 'P')
      warnMask(mask, target, "the output mask has no P here: the parity bit replaces another bit");
    if (const size_t second = _rows[mask].find_first_of("EO", target + 1); second != kNone)
      warnMask(mask, second, "a second parity bit in one mask: only the first is set");
    for (size_t later = mask + 1; later < _appliedEnd; ++later)
      if (const size_t p = targetOf(later);
          p != kNone && _rows[kOutput][p] == 'P' && _rows[mask][p] == 'X')
        return warnMask(mask, p,
                        "X covers the bit of parity mask {}, which is set later and counts as 0",
                        later - kParity + 1);
  }

  // One finding for all: what is wrong is their number.
  void checkNotApplied() {
    for (size_t mask = _appliedEnd; mask < kMasks; ++mask)
      if (targetOf(mask) != kNone)
        return warnMask(mask, targetOf(mask),
                        "parity mask {} is not applied: the format uses only the first {}",
                        mask - kParity + 1, _appliedEnd - kParity);
  }

  void checkUnsetParity() {
    for (size_t p = 0; p < kPositions; ++p) {
      const auto sets = [p](const BitMask& mask) { return contains("EO", mask[p]); };
      if (_rows[kOutput][p] == 'P' && !contains("01", _rows[kFixed][p]) &&
          std::ranges::none_of(_masks.parity, sets))
        warnMask(kOutput, p, "no parity mask sets this P: it is 0 on every card");
    }
  }

  // A VFF file has a record for each mask; the others have a line for 48 positions of each.
  template <typename... Args>
  void warnMask(size_t mask, size_t position, fmt::format_string<Args...> format, Args&&... args) {
    const size_t perLine = _isVff ? kPositions : kPositionsPerLine;
    const size_t line = _firstMask + position / perLine * kMasks + mask;
    _findings.warn(placeOf(line, position % perLine + 1), "mask", format,
                   std::forward<Args>(args)...);
  }

  // The position that a parity mask sets.
  size_t targetOf(size_t mask) const { return _rows[mask].find_first_of("EO"); }

  CardFormat& _format;
  const int32_t _result;
  const bool _isVff = kindName(_format) == kVff, _isText = kindName(_format) == kCdf;
  CheckedFormat& _entry;
  std::vector<std::string> _lines{""};  // From 1 on, as the format reads them.
  int32_t _end = kSuccess;              // The result of reading after the last of the lines.

  const LayoutMasks _masks = _format.masks();
  const size_t _firstMask = _isVff ? kFirstMaskRecord : kFirstMaskLine;  // Its line or record.
  std::vector<std::string_view> _rows{{_masks.output.data(), kPositions},
                                      {_masks.fixed.data(), kPositions}};
  std::string _letters{_masks.letters.begin(), _masks.letters.end()};  // Of fields.
  // Of the parity masks that the format uses.
  const size_t _appliedEnd =
      kParity + static_cast<size_t>(std::clamp(_format.numberOfParityBits(), 0, 8));
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
    findings.fail({file}, kFormatNotAdded,
                  "not a format file: its name does not contain .cdf, .eff or .vff");
    return;
  }
  CardFormat* const format = formats.addFormat(entry.id, name.c_str());
  if (format == nullptr) throw std::bad_alloc();
  requireRegularFile(path);
  const int32_t result = format->loadFormatFile(path.c_str());
  if (result >= 0) entry.format = format;
  FormatFileCheck(*format, result, file, entry, findings).run(path);
}

}  // namespace badgemint::admin
