// The verb `format`: shows format files so that two can be compared.
#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <utility>

#include "admin/bits/bitdrawing.h"
#include "admin/bits/cardbits.h"
#include "admin/check/formatscheck.h"
#include "admin/check/formattext.h"
#include "admin/check/report.h"
#include "admin/check/siterules.h"
#include "admin/records/wording.h"
#include "admin/verbs/verb.h"
#include "cardsets/card_functions.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

struct FormatOptions {
  std::vector<std::string> files;
};

constexpr int64_t kExampleNumber = 12345;
constexpr size_t kMostText = 60;  // Of a line that names bits.

const char* kindText(const CardFormat& format) {
  constexpr std::array kNames = {"CDF", "EFF", "VFF"};
  return kNames.at(static_cast<size_t>(FormatText::kindOf(format)));
}

std::string typeText(const FieldDefinition& defined) {
  constexpr std::array kNames = {"none", "BIN", "BCD", "MSD"};
  const std::string type = kNames.at(static_cast<size_t>(defined.ftyp));
  return type + (defined.dir == kDirectionLsb ? " LSB" : " MSB");
}

// The highest value that so many positions hold.
int64_t highestValue(int32_t type, int32_t positions) {
  constexpr int64_t kAll = std::numeric_limits<int64_t>::max();
  const int32_t bits = std::min(positions, 64);
  if (type == kTypeBin) return bits >= 63 ? kAll : (int64_t{1} << bits) - 1;
  const int32_t digits = type == kTypeBcd ? bits / 4 : type == kTypeMsd ? bits / 5 : 0;
  int64_t above = 1;
  for (int32_t i = 0; i < digits; ++i) above *= 10;
  // Positions that are left over have the low bits of one more digit.
  if (type == kTypeBcd) above <<= bits % 4;
  return above - 1;
}

std::string rangeText(int64_t lowest, int64_t highest) {
  return std::to_string(lowest) + " to " + std::to_string(highest);
}

// "1 to 12, 14", the bits with this character; further lines begin with `indent`.
std::string bitsText(const std::string& row, char c, const std::string& indent) {
  std::string text, line;
  size_t from = row.find(c);
  while (from != std::string::npos) {
    const size_t to = std::min(row.find_first_not_of(c, from), row.size());
    line += std::to_string(from) + (to - from > 1 ? " to " + std::to_string(to - 1) : "");
    from = row.find(c, to);
    if (from == std::string::npos) break;
    line += line.size() < kMostText ? ", " : ",\n";
    if (line.ends_with('\n')) text += std::exchange(line, indent);
  }
  return row.find(c) == std::string::npos ? "no bit" : text + line;
}

bool isEmpty(const std::string& row) {
  return row.find_first_not_of(CardBits::kNoPosition) == std::string::npos;
}

// Shows one format.
class FormatSheet {
 public:
  FormatSheet(const CardFormat& format, std::ostream& output)
      : _format(format), _masks(format.masks()), _bits(format), _output(output) {}

  void print() {
    _output << _bits.count() << " bits, card number in field "
            << letterOf(_format.cardNumberField()) << '\n';
    printFields();
    BitDrawing drawing(static_cast<size_t>(_bits.count()));
    drawing.add("output", _bits.draw(_masks.output));
    addMask("fixed", _masks.fixed, drawing);
    for (int32_t i = 0; i < kParityMaskCount; ++i)
      addMask(parityName(i), _masks.parity[static_cast<size_t>(i)], drawing);
    const CardPattern card = printCard();
    drawing.add("card", _bits.textOf(card));
    drawing.print(_output);
    for (int32_t i = 0; i < kParityMaskCount; ++i) printParity(i);
  }

 private:
  static std::string parityName(int32_t mask) { return "parity " + std::to_string(mask + 1); }

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

  template <typename... Texts>
  void printRow(const Texts&... texts) {
    size_t column = 0;
    std::string row;
    ((row.resize(kColumns.at(column++), ' '), row += texts), ...);
    row.resize(row.find_last_not_of(' ') + 1);
    _output << row << '\n';
  }

  void printFields() {
    printRow("field", "type", "bits", "holds", "file says", "label");
    for (int32_t field = 0; field < kFieldCount; ++field) {
      const FieldDefinition& defined = definition(field);
      if (widthOf(field) != 0 || defined.ftyp != kNotGiven || defined.label[0] != '\0')
        printField(field, defined);
    }
  }

  void printField(int32_t field, const FieldDefinition& defined) {
    const bool hasRange = defined.minval != 0 || defined.maxval != 0;
    printRow(std::string(1, letterOf(field)), typeText(defined), std::to_string(widthOf(field)),
             rangeText(0, highestValue(defined.ftyp, widthOf(field))),
             hasRange ? rangeText(defined.minval, defined.maxval) : std::string("-"),
             printable(defined.label.data()));
  }

  void addMask(const std::string& name, const BitMask& mask, BitDrawing& drawing) const {
    const std::string row = _bits.draw(mask);
    if (!isEmpty(row)) drawing.add(name, row);
  }

  void printParity(int32_t mask) {
    const std::string row = _bits.draw(_masks.parity[static_cast<size_t>(mask)]);
    if (isEmpty(row)) return;
    const int32_t bit = _bits.bitOfParity(mask);
    _output << parityName(mask);
    if (mask >= _format.numberOfParityBits())
      _output << "  is not applied\n";
    else if (bit < 0)
      _output << "  sets no bit\n";
    else
      _output << (row[static_cast<size_t>(bit)] == 'E' ? "  even: bit " : "  odd: bit ") << bit
              << " over " << bitsText(row, 'X', kIndent) << '\n';
  }

  // Prints a card of this format and returns it. Its other fields have their least values.
  CardPattern printCard() {
    CardFormat::FieldValues values{};
    std::string text;
    for (int32_t field = 0; field < kFieldCount; ++field) {
      if (!hasSiteValue(_format, field)) continue;
      const int64_t value = std::max(definition(field).minval, 0);
      values[static_cast<size_t>(field)] = value;
      text += std::string(", ") + letterOf(field) + '=' + std::to_string(value);
    }
    const CardEncoder encoder = {&_format, _format.encodeSite(values)};
    const int64_t number = exampleNumber(encoder);
    const CardPattern pattern = encoder.encode(number);
    _output << "card " << number << text << ": key " << keyText(pattern) << '\n';
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

  static constexpr std::array<size_t, 6> kColumns = {0, 7, 16, 22, 48, 74};
  static constexpr char kIndent[] = "          ";

  const CardFormat& _format;
  const LayoutMasks _masks;
  const CardBits _bits;
  std::ostream& _output;
};

// Whether it is no file at all.
bool isMissing(const Findings& findings) {
  const int32_t code = findings.sorted().front().code;
  return code == kFormatFileOpenFailed || code == kVffOpenFailed;
}

ExitStatus show(const std::string& path, const char*& separator, Console& console) {
  CardFormatSet formats;
  Findings findings(true);
  const CardFormat* const format = checkFormatAlone(path, formats, findings);
  if (format == nullptr && isMissing(findings)) {
    console.reportText(printable(path) + ": " + findings.sorted().front().text);
    return ExitStatus::kNotDone;
  }
  console.output() << std::exchange(separator, "\n") << printable(path) << ": ";
  if (format != nullptr) {
    console.output() << kindText(*format) << '\n';
    FormatSheet(*format, console.output()).print();
  } else {
    console.output() << "does not load\n";
  }
  findings.print(console);
  if (format == nullptr) return ExitStatus::kRefused;
  return findings.warnings() > 0 ? ExitStatus::kFound : ExitStatus::kAllWell;
}

ExitStatus format(const FormatOptions& options, Console& console) {
  ExitStatus worst = ExitStatus::kAllWell;
  const char* separator = "";
  for (const std::string& file : options.files)
    worst = std::max(worst, show(file, separator, console));
  return worst;
}

}  // namespace

Run addFormat(Options options) {
  const auto given = std::make_shared<FormatOptions>();
  options.describe("Show format files so that two can be compared",
                   "badgemint-admin format site26.cdf");
  options.files("FILE", given->files, "CDF, EFF and VFF files");
  return [given](Console& console) { return format(*given, console); };
}

}  // namespace badgemint::admin
