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
#include "admin/files/folder.h"
#include "admin/files/sitepaths.h"
#include "admin/records/wording.h"
#include "admin/verbs/verb.h"
#include "cardsets/card_functions.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

struct FormatOptions {
  std::vector<std::string> files;
  std::string svg;  // The picture to write; empty for none.
};

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
    const Example example = makeExample();
    _console.print("{}\n", example.text);
    printUnderRuler(rowsWith(_layout.rowOf(_masks.output), example), _console.output());
    for (int32_t mask = 0; mask < kParityMaskCount; ++mask)
      if (const std::string text = parityText(mask, "          "); !text.empty())
        _console.print("{}\n", text);
  }

  std::string svg(const std::string& title) const {
    const Example example = makeExample();
    LayoutPicture picture = {.title = fmt::format("{}: {} bits", title, _layout.count()),
                             .rows = rowsWith(_layout.mergedRow(), example),
                             .legend = {},
                             .remarks = {example.text}};
    for (int32_t field = 0; field < kFieldCount; ++field)
      if (widthOf(field) > 0)
        picture.legend.push_back({std::string(1, letterOf(field)), meaningOf(field)});
    const std::string& sources = picture.rows.front().bits;
    if (sources.find('P') != std::string::npos) picture.legend.push_back({"P", "parity"});
    if (sources.find_first_of("01") != std::string::npos)
      picture.legend.push_back({"0", "0 or 1: a fixed bit"});
    for (int32_t mask = 0; mask < kParityMaskCount; ++mask)
      if (std::string text = parityText(mask, ""); !text.empty()) {
        std::ranges::replace(text, '\n', ' ');
        picture.remarks.push_back(text);
      }
    return svgOf(picture);
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

  // A card of the format, whose other fields have their least values.
  struct Example {
    CardPattern card;
    std::string text;
  };
  Example makeExample() const {
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
    const CardPattern card = encoder.encode(number);
    return {card, fmt::format("card {}{}: key {}", number, text, keyText(card))};
  }

  // The masks that are not empty, and the bits of the example.
  std::vector<BitRow> rowsWith(const std::string& output, const Example& example) const {
    std::vector<BitRow> rows = {{"output", output}, {"fixed", _layout.rowOf(_masks.fixed)}};
    for (int32_t mask = 0; mask < kParityMaskCount; ++mask)
      rows.push_back({fmt::format("parity {}", mask + 1), _layout.rowOf(parityMask(mask))});
    std::erase_if(rows,
                  [](const BitRow& row) { return row.name != "output" && isEmpty(row.bits); });
    rows.push_back({"card", _layout.bitsOf(example.card)});
    return rows;
  }

  // "Facility code (BIN MSB, 8 bits, 0 to 255)".
  std::string meaningOf(int32_t field) const {
    const FieldDefinition& defined = definition(field);
    const char* const number = field == _format.cardNumberField() ? "card number, " : "";
    return fmt::format("{} ({}{}, {} bits, 0 to {})", printable(defined.label.data()), number,
                       typeText(defined), widthOf(field),
                       highestValue(defined.ftyp, widthOf(field)));
  }

  // Empty for a mask that is empty.
  std::string parityText(int32_t mask, std::string_view indent) const {
    const std::string row = _layout.rowOf(parityMask(mask));
    if (isEmpty(row)) return "";
    const int32_t bit = _layout.targetOf(mask);
    if (mask >= _format.numberOfParityBits())
      return fmt::format("parity {}  is not applied", mask + 1);
    if (bit < 0) return fmt::format("parity {}  sets no bit", mask + 1);
    return fmt::format("parity {}  {}: bit {} over {}", mask + 1,
                       row[static_cast<size_t>(bit)] == 'E' ? "even" : "odd", bit,
                       coverText(row, indent));
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

void writeSvg(const std::string& path, const std::string& source, const FormatSheet& sheet) {
  requireDistinctFiles({source}, {path});
  NewFile file(path, true);
  file.write(sheet.svg(printable(source)));
  static_cast<void>(file.finish());
}

ExitStatus show(const std::string& path, const FormatOptions& options, Console& console) {
  CardFormatSet formats;
  Findings findings(true);
  const CardFormat* const format = checkFormatAlone(path, formats, findings);
  if (format == nullptr && isMissing(findings)) {
    console.report("{}: {}", path, findings.sorted().front().text);
    return ExitStatus::kNotDone;
  }
  console.print("{}: {}\n", printable(path),
                format != nullptr ? kindName(kindOf(*format)) : "does not load");
  if (format != nullptr) {
    FormatSheet sheet(*format, console);
    sheet.print();
    if (!options.svg.empty()) writeSvg(options.svg, path, sheet);
  }
  findings.print(console);
  if (format == nullptr) return ExitStatus::kRefused;
  return findings.warnings() > 0 ? ExitStatus::kFound : ExitStatus::kAllWell;
}

ExitStatus format(const FormatOptions& options, Console& console) {
  if (!options.svg.empty() && options.files.size() > 1)
    throw Failure(ExitStatus::kNotDone, "--svg draws one format file; {} are given",
                  options.files.size());
  ExitStatus worst = ExitStatus::kAllWell;
  for (const std::string& file : options.files) {
    if (&file != &options.files.front()) console.print("\n");
    worst = std::max(worst, show(file, options, console));
  }
  return worst;
}

}  // namespace

Run addFormat(Options options) {
  const auto given = std::make_shared<FormatOptions>();
  options.describe("Show format files so that two can be compared",
                   "badgemint-admin format site26.cdf");
  options.files("FILE", given->files, "CDF, EFF and VFF files");
  options.file("--svg", given->svg, "Also draw the layout as a picture, in this file");
  return [given](Console& console) { return format(*given, console); };
}

}  // namespace badgemint::admin
