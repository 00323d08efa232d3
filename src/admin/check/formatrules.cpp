#include "admin/check/formatrules.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "admin/check/maskrules.h"
#include "formats/CdfCardFormat.h"
#include "formats/fieldstate.h"
#include "support/fieldscanner.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint::admin {
namespace {

class FormatErrors {
 public:
  FormatErrors(const FormatText& text, int32_t result, Findings& findings)
      : _text(text), _result(result), _findings(findings) {}

  Place tell() {
    if (_result == kBadCardNumberField) tellCardNumberField();
    if (_text.isVff()) tellDefinition();
    if (!_text.isWhole()) tellEnd();
    if (_count == 0) tell(_text.file(), _result, "cannot be loaded, though it can be read now");
    return _first;
  }

 private:
  void tell(Place place, int32_t code, const std::string& text) {
    if (_count > 0 && _text.firstLongLine() != nullptr) return;  // The cause of all that follows.
    _findings.error(place, code, text);
    if (_count++ == 0) _first = place;
  }

  void tellCardNumberField() {
    if (_text.lines().size() <= FormatText::kCardNumberFieldLine) return;
    const std::string& text = _text.lines()[FormatText::kCardNumberFieldLine].text;
    tell(_text.at(FormatText::kCardNumberFieldLine, 0), kBadCardNumberField,
         "card number field " + quoted(text.substr(0, 1)) + " is not A to H" + ofLongLine());
  }

  void tellDefinition() {
    if (_text.lines().size() <= FormatText::kDefinitionRecord) return;
    FieldScanner scanner(_text.lines()[FormatText::kDefinitionRecord].text.c_str());
    const Place place = _text.at(FormatText::kDefinitionRecord, 0);
    const int32_t bits = scanner.nextInt();
    const int32_t field = scanner.nextInt();
    if (bits < 0 || bits > BitPattern::kPositions)
      tell(place, kVffReadFailed, "bit count " + std::to_string(bits) + " is not 0 to 144");
    if (field < 1 || field > kFieldCount)
      tell(place, kVffReadFailed, "card number field " + std::to_string(field) + " is not 1 to 8");
  }

  void tellEnd() {
    const int32_t code = _text.kind() == FormatText::Kind::kCdf   ? kCdfReadFailed
                         : _text.kind() == FormatText::Kind::kEff ? kEffReadFailed
                                                                  : kVffReadFailed;
    const std::string& unfinished = _text.unfinished();
    Place place = _text.end();
    if (_text.systemError() != 0) {
      if (_text.lines().empty()) place.line = 0;
      return tell(place, code,
                  std::string("cannot be read: ") + std::strerror(_text.systemError()));
    }
    if (unfinished.ends_with('^')) {
      place.column = static_cast<int64_t>(unfinished.size());
      return tell(place, code, "\"^\" marks an error here: the file is not read beyond it");
    }
    if (unfinished.size() > kMostEffCharacters)
      return tell(place, code, "more than 100 characters without a \"~\" at their end");
    tell(place, code, endText() + ofLongLine());
  }

  std::string endText() const {
    if (_text.isVff()) return "the file ends here; a VFF file has 17 records of 144 characters";
    return std::string("the file ends here; ") +
           (_text.kind() == FormatText::Kind::kCdf ? "a CDF" : "an EFF") +
           " file has 30, 40 or 50 lines, empty ones included";
  }

  std::string ofLongLine() const {
    const FormatText::Line* const line = _text.firstLongLine();
    if (line == nullptr) return "";
    return "; line " + std::to_string(line->number) +
           " is longer than 100 characters and counts as two";
  }

  static constexpr size_t kMostEffCharacters = 100;

  const FormatText& _text;
  int32_t _result;
  Findings& _findings;
  int _count = 0;
  Place _first;
};

// Whether a text begins with a number and nothing else touches it.
bool isWholeNumber(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
  const auto end = std::ranges::find_if_not(text, isDigit);
  return end != text.begin() && (end == text.end() || isSpace(*end));
}

class FormatRules {
 public:
  FormatRules(const FormatText& text, const CardFormat& format, Findings& findings)
      : _text(text), _format(format), _findings(findings) {}

  void apply() {
    if (isMisread()) return;
    const bool countHolds = checkParityCount();
    _widthsHold = checkMaskTexts() && applyMaskRules(_text, _format, countHolds, _findings);
    if (_widthsHold) checkCardNumberField();
    if (_text.isVff()) return checkDefinition();
    for (int32_t field = 0; field < kFieldCount; ++field) checkField(field);
  }

 private:
  struct FieldLine {
    int32_t field;
    size_t item;
    std::string text;  // Taken apart.
    CdfCardFormat::FieldWords words;
  };

  void warn(Place place, std::string_view rule, const std::string& text) {
    _findings.warning(place, rule, text);
  }

  bool isMisread();
  bool checkParityCount();
  void checkCardNumberField();
  void checkDefinition();
  void checkField(int32_t field);
  void checkUndefined(int32_t field, const std::string& text);
  bool checkType(const FieldLine& line);
  void checkBound(const FieldLine& line, size_t word, const char* name);
  void checkMaximum(const FieldLine& line);
  bool checkHidden(size_t item, size_t from, const std::string& more);
  bool checkMaskTexts();

  const FieldDefinition& definition(int32_t field) const {
    return _format.fieldDefinitions()[static_cast<size_t>(field)];
  }
  std::string nameOf(int32_t field) const {
    const std::string name = std::string("field ") + static_cast<char>('A' + field);
    return field == _format.cardNumberField() ? "the card number (" + name + ")" : name;
  }
  std::string zeroText(int32_t field) const { return nameOf(field) + " is 0 on every card"; }
  Place wordPlace(const FieldLine& line, size_t word) const {
    return _text.at(line.item, static_cast<size_t>(line.words[word] - line.text.data()));
  }

  const FormatText& _text;
  const CardFormat& _format;
  Findings& _findings;
  bool _widthsHold = true;  // Whether the fields have the positions that they are meant to have.
};

// When all that follows is read as something else, or not at all, one finding is enough.
bool FormatRules::isMisread() {
  const FormatText::Line* const longLine = _text.firstLongLine();
  if (longLine != nullptr)
    warn({_text.file().file, longLine->number, longLine->bytesBefore + 1}, "text",
         "the line is longer than 100 characters: the rest is read as another line");
  if (_text.lines().size() > _text.mostLines() && !isBlank(_text.lines().back().text.c_str()) &&
      !_text.isVff())
    warn(_text.line(_text.mostLines()), "text",
         std::string(_text.kind() == FormatText::Kind::kCdf ? "CDF" : "EFF") +
             " files end with line 50: what follows is not read");
  const std::string& left = _text.unfinished();
  if (left.find_first_of("ABCDEFGHP") != std::string::npos &&
      left.find_first_not_of("ABCDEFGHP.XEO01 ^") == std::string::npos)
    warn(_text.end(), "text", "the line has no \"~\" at its end and is not read");
  return longLine != nullptr;
}

// False when the number is not what it looks like.
bool FormatRules::checkParityCount() {
  if (_text.isVff()) return true;
  constexpr size_t kItem = FormatText::kParityCountLine;
  const std::string& text = _text.lines()[kItem].text;
  if (checkHidden(kItem, 0, "")) return false;
  const int32_t count = textToInt32(text.c_str());
  if (!isBlank(text.c_str()) && !isWholeNumber(text)) {
    warn(_text.at(kItem, 0), "number",
         "number of parity masks " + quoted(text) + " is read as " + std::to_string(count));
    return false;
  }
  if (count > kParityMaskCount)
    warn(_text.at(kItem, 0), "mask",
         std::to_string(count) + " parity masks are declared, and there are eight");
  return true;
}

void FormatRules::checkCardNumberField() {
  const int32_t field = _format.cardNumberField();
  if (_format.fieldBitCount(field) > 0) return;
  if (_text.isVff())
    return warn(_text.line(FormatText::kFirstMaskRecord), "field",
                "no \"*\" in the mask: the card has no bit of its number");
  warn(_text.at(FormatText::kCardNumberFieldLine, 0), "field",
       std::string("no \"") + static_cast<char>('A' + field) +
           "\" in the mask: the card has no bit of its number");
}

// Record 6 of a VFF file.
void FormatRules::checkDefinition() {
  constexpr size_t kItem = FormatText::kDefinitionRecord;
  const int32_t field = _format.cardNumberField();
  if (_format.fieldBitCount(field) == 0) return;
  const std::string& text = _text.lines()[kItem].text;
  FieldScanner scanner(text.c_str());
  static_cast<void>(scanner.nextInt());
  static_cast<void>(scanner.nextInt());
  const std::string_view direction = scanner.nextWord(text.size());
  const std::string_view type = scanner.nextWord(text.size());
  const auto place = [&](std::string_view word) {
    return word.empty() ? _text.line(kItem)
                        : _text.at(kItem, static_cast<size_t>(word.data() - text.data()));
  };
  if (definition(field).ftyp == kNotGiven)
    return warn(place(type), "field",
                "type " + quoted(type) + " is not known: the card number is 0 on every card");
  if (definition(field).dir == kNotGiven)
    warn(place(direction), "field",
         "direction " + quoted(direction) + " is not known: read as MSB");
}

void FormatRules::checkField(int32_t field) {
  if (_format.fieldBitCount(field) == 0) return;
  FieldLine line{field, FormatText::kFirstFieldLine + static_cast<size_t>(field), {}, {}};
  line.text = _text.lines()[line.item].text;
  const bool isZero = definition(field).ftyp == kNotGiven;
  if (checkHidden(line.item, std::min(line.text.find(','), line.text.size()),
                  isZero ? ": " + zeroText(field) : ""))
    return;
  if (line.text.empty() || line.text.front() == ' ') return checkUndefined(field, line.text);
  line.words = CdfCardFormat::fieldWords(line.text.data());
  if (!checkType(line)) return;
  checkBound(line, 1, "minimum");
  checkBound(line, 2, "maximum");
  checkMaximum(line);
}

void FormatRules::checkUndefined(int32_t field, const std::string& text) {
  const size_t item = FormatText::kFirstFieldLine + static_cast<size_t>(field);
  if (!isBlank(text.c_str()))
    return warn(_text.at(item, 0), "field",
                "a blank at the front makes the line count as empty: " + zeroText(field));
  const LayoutMasks masks = _format.masks();
  const char letter = masks.letters[static_cast<size_t>(field)];
  const auto position = std::ranges::find(masks.output, letter) - masks.output.begin();
  warn(_text.maskPlace(0, static_cast<int32_t>(position)), "field",
       nameOf(field) + " is not defined in line " + std::to_string(item + 1) +
           ": it is 0 on every card");
}

// False when the rest of the line need not be looked at: its words are not what they look like.
bool FormatRules::checkType(const FieldLine& line) {
  const char* const direction = line.words[3];
  const char* const type = line.words[4];
  if (*type == '\0') {
    warn(_text.line(line.item), "field",
         "fewer than five values, empty ones not counted: " + zeroText(line.field));
    return false;
  }
  if (definition(line.field).ftyp == kNotGiven) {
    warn(wordPlace(line, 4), "field",
         "type " + quoted(type) + " is not known: " + zeroText(line.field));
    return directionFromText(direction) != kNotGiven;
  }
  if (definition(line.field).dir == kNotGiven)
    warn(wordPlace(line, 3), "field",
         "direction " + quoted(direction) + " is not known: " + nameOf(line.field) +
             " is read as MSB");
  return true;
}

void FormatRules::checkBound(const FieldLine& line, size_t word, const char* name) {
  const char* const text = line.words[word];
  if (isWholeNumber(text)) return;
  warn(wordPlace(line, word), "number",
       std::string(name) + ' ' + quoted(text) + " is read as " + std::to_string(textToInt32(text)));
}

void FormatRules::checkMaximum(const FieldLine& line) {
  const int32_t width = _format.fieldBitCount(line.field);
  const FieldDefinition& defined = definition(line.field);
  const int64_t maximum = textToInt64(line.words[2]);
  if (!_widthsHold) return;
  if (defined.ftyp == kTypeMsd && width % 5 != 0)
    return warn(wordPlace(line, 4), "field",
                "digits of type MSD take five positions each, and " + nameOf(line.field) + " has " +
                    std::to_string(width));
  const fieldstate state{.ftyp = defined.ftyp, .dir = defined.dir, .nbits = width};
  const uint64_t kept = width < 64 ? (uint64_t{1} << width) - 1 : UINT64_MAX;
  if (defined.ftyp == kNotGiven || maximum <= 0 ||
      state.toValue(state.toBits(maximum) & kept) == maximum)
    return;
  warn(wordPlace(line, 2), "field",
       "maximum " + std::to_string(maximum) + " does not fit the " + std::to_string(width) +
           " positions of " + nameOf(line.field) + ": it is cut");
}

bool FormatRules::checkHidden(size_t item, size_t from, const std::string& more) {
  const std::optional<HiddenByte> hidden = findHiddenByte(_text.lines()[item].raw, from);
  if (!hidden) return false;
  warn(_text.at(item, hidden->offset), "text", hidden->effect + more);
  return true;
}

// False when masks are not what they look like, so that comparing them says nothing.
bool FormatRules::checkMaskTexts() {
  if (_text.isVff()) return true;
  bool isClear = true;
  const size_t end = std::min(_text.lines().size(), _text.mostLines());
  for (size_t item = FormatText::kFirstMaskLine; item < end && isClear; ++item) {
    isClear = !checkHidden(item, 0, "");
    const std::string_view text = _text.lines()[item].text;
    const size_t behind = text.find_first_not_of(". ", FormatText::kPositionsPerLine);
    if (!isClear || behind == std::string_view::npos) continue;
    warn(_text.at(item, FormatText::kPositionsPerLine), "mask",
         "a line has 48 positions: the rest belongs in line " +
             std::to_string(item + 1 + FormatText::kMasks));
    isClear = false;
  }
  return isClear;
}

}  // namespace

Place tellFormatErrors(const FormatText& text, int32_t result, Findings& findings) {
  return FormatErrors(text, result, findings).tell();
}

void applyFormatRules(const FormatText& text, const CardFormat& format, Findings& findings) {
  FormatRules(text, format, findings).apply();
}

}  // namespace badgemint::admin
