// The verb `format`: shows format files so that two can be compared.
#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <utility>

#include "admin/bits/layout.h"
#include "admin/check/formatfile.h"
#include "admin/check/formatscheck.h"
#include "admin/check/sitecheck.h"
#include "admin/records/wording.h"
#include "admin/verbs/verb.h"
#include "cardsets/card_functions.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

constexpr int64_t kExampleNumber = 12345;
constexpr size_t kMostText = 60;  // Of a line that lists bits.

// "BIN LSB".
std::string typeText(const FieldDefinition& defined) {
  constexpr std::array kNames = {"none", "BIN", "BCD", "MSD"};
  return fmt::format("{} {}", kNames.at(static_cast<size_t>(defined.ftyp)),
                     defined.dir == kDirectionLsb ? "LSB" : "MSB");
}

// The highest value that so many positions hold.
int64_t highestValue(int32_t type, int32_t positions) {
  constexpr int64_t kAll = std::numeric_limits<int64_t>::max();
  const int32_t bits = std::min(positions, 64);
  if (type == kTypeBin) return bits >= 63 ? kAll : (int64_t{1} << bits) - 1;
  const int32_t digits = type == kTypeBcd ? bits / 4 : type == kTypeMsd ? bits / 5 : 0;
  int64_t above = 1;
  for (int32_t i = 0; i < digits; ++i) above *= 10;
  // The positions that are left have the low bits of one more digit.
  if (type == kTypeBcd) above <<= bits % 4;
  return above - 1;
}

// "1 to 12, 14": the bits that a mask covers; further lines begin with `indent`.
std::string coverText(const std::string& row, std::string_view indent) {
  std::string text, line;
  for (size_t from = row.find('X'), to = 0; from != std::string::npos; from = row.find('X', to)) {
    if (line.size() >= kMostText) text += std::exchange(line, "") + ",\n" + std::string(indent);
    if (!line.empty()) line += ", ";
    to = std::min(row.find_first_not_of('X', from), row.size());
    line += to - from > 1 ? fmt::format("{} to {}", from, to - 1) : std::to_string(from);
  }
  return line.empty() ? "no bit" : text + line;
}

// Shows one format.
class FormatSheet {
 public:
  FormatSheet(const CardFormat& format, Console& console)
      : _format(format), _masks(format.masks()), _layout(format), _console(console) {}

  void print() {
    _console.print("{} bits, card number in field {}\n", _layout.count(),
                   letterOf(_format.cardNumberField()));
    printFields();
    const CardPattern card = printCard();
    std::vector<BitRow> rows = {{"output", _layout.rowOf(_masks.output)}};
    addMask("fixed", _masks.fixed, rows);
    for (int32_t mask = 0; mask < kParityMaskCount; ++mask)
      addMask(fmt::format("parity {}", mask + 1), parityMask(mask), rows);
    rows.push_back({"card", _layout.bitsOf(card)});
    printUnderRuler(rows, _console.output());
    for (int32_t mask = 0; mask < kParityMaskCount; ++mask) printParity(mask);
  }

 private:
  const BitMask& parityMask(int32_t mask) const { return _masks.parity[static_cast<size_t>(mask)]; }
  // As the output mask names a field.
  char letterOf(int32_t field) const {
    const char letter = _masks.letters[static_cast<size_t>(field)];
    return letter == '\0' ? static_cast<char>('A' + field) : letter;
  }
  const FieldDefinition& definition(int32_t field) const {
    return _format.fieldDefinitions()[static_cast<size_t>(field)];
  }
  // The positions of a field; those of a VFF are all the card number's.
  int32_t widthOf(int32_t field) const {
    return _masks.letters[static_cast<size_t>(field)] == '\0' ? 0 : _format.fieldBitCount(field);
  }
  static bool isEmpty(const std::string& row) {
    return row.find_first_not_of(CardLayout::kNoPosition) == std::string::npos;
  }

  template <typename... Texts>
  void printRow(const Texts&... texts) {
    std::string row = fmt::format("{:<7}{:<9}{:<6}{:<26}{:<26}{}", texts...);
    row.resize(row.find_last_not_of(' ') + 1);
    _console.print("{}\n", row);
  }

  void printFields() {
    printRow("field", "type", "bits", "holds", "file says", "label");
    for (int32_t field = 0; field < kFieldCount; ++field) {
      const FieldDefinition& defined = definition(field);
      const int32_t width = widthOf(field);
      if (width == 0 && defined.ftyp == kNotGiven && defined.label[0] == '\0') continue;
      const bool hasRange = defined.minval != 0 || defined.maxval != 0;
      printRow(letterOf(field), typeText(defined), width,
               fmt::format("0 to {}", highestValue(defined.ftyp, width)),
               hasRange ? fmt::format("{} to {}", defined.minval, defined.maxval) : "-",
               printable(defined.label.data()));
    }
  }

  void addMask(const std::string& name, const BitMask& mask, std::vector<BitRow>& rows) const {
    const std::string row = _layout.rowOf(mask);
    if (!isEmpty(row)) rows.push_back({name, row});
  }

  void printParity(int32_t mask) {
    const std::string row = _layout.rowOf(parityMask(mask));
    if (isEmpty(row)) return;
    const int32_t bit = _layout.targetOf(mask);
    if (mask >= _format.numberOfParityBits())
      return _console.print("parity {}  is not applied\n", mask + 1);
    if (bit < 0) return _console.print("parity {}  sets no bit\n", mask + 1);
    _console.print("parity {}  {}: bit {} over {}\n", mask + 1,
                   row[static_cast<size_t>(bit)] == 'E' ? "even" : "odd", bit,
                   coverText(row, "          "));
  }

  // Prints a card of this format and returns it. Its other fields have their least values.
  CardPattern printCard() {
    CardFormat::FieldValues values{};
    std::string text;
    for (int32_t field = 0; field < kFieldCount; ++field) {
      if (!hasSiteValue(_format, field)) continue;
      const int64_t value = std::max(definition(field).minval, 0);
      values[static_cast<size_t>(field)] = value;
      text += fmt::format(", {}={}", letterOf(field), value);
    }
    const CardEncoder encoder = {&_format, _format.encodeSite(values)};
    const int64_t number = exampleNumber(encoder);
    const CardPattern pattern = encoder.encode(number);
    _console.print("card {}{}: key {}\n", number, text, keyText(pattern));
    return pattern;
  }

  // One within the field and its range.
  int64_t exampleNumber(const CardEncoder& encoder) const {
    const int32_t field = _format.cardNumberField();
    const FieldDefinition& defined = definition(field);
    for (const int64_t number :
         {kExampleNumber, int64_t{defined.maxval}, highestValue(defined.ftyp, widthOf(field))})
      if (number > 0 && number >= defined.minval &&
          (defined.maxval <= 0 || number <= defined.maxval) &&
          encoder.decode(encoder.encode(number)) == number)
        return number;
    return 0;
  }

  const CardFormat& _format;
  const LayoutMasks _masks;
  const CardLayout _layout;
  Console& _console;
};

bool isMissing(const Findings& findings) {
  const int32_t code = findings.sorted().front().code;
  return code == kFormatFileOpenFailed || code == kVffOpenFailed;
}

ExitStatus show(const std::string& path, Console& console) {
  CardFormatSet formats;
  Findings findings(true);
  const CardFormat* const format = checkFormatAlone(path, formats, findings);
  if (format == nullptr && isMissing(findings)) {
    console.report("{}: {}", printable(path), findings.sorted().front().text);
    return ExitStatus::kNotDone;
  }
  console.print("{}: {}\n", printable(path),
                format != nullptr ? kindName(kindOf(*format)) : "does not load");
  if (format != nullptr) FormatSheet(*format, console).print();
  findings.print(console);
  if (format == nullptr) return ExitStatus::kRefused;
  return findings.warnings() > 0 ? ExitStatus::kFound : ExitStatus::kAllWell;
}

ExitStatus format(const std::vector<std::string>& files, Console& console) {
  ExitStatus worst = ExitStatus::kAllWell;
  for (const std::string& file : files) {
    if (&file != &files.front()) console.print("\n");
    worst = std::max(worst, show(file, console));
  }
  return worst;
}

}  // namespace

Run addFormat(Options options) {
  const auto files = std::make_shared<std::vector<std::string>>();
  options.describe("Show format files so that two can be compared",
                   "badgemint-admin format site26.cdf");
  options.files("FILE", *files, "CDF, EFF and VFF files");
  return [files](Console& console) { return format(*files, console); };
}

}  // namespace badgemint::admin
