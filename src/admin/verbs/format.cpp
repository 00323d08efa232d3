// The verb `format`: shows format files so that two can be compared, and draws their layouts.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "admin/bits/cards.h"
#include "admin/check/formatscheck.h"
#include "admin/check/sitecheck.h"
#include "admin/files/folder.h"
#include "admin/files/sitepaths.h"
#include "admin/records/wording.h"
#include "admin/verbs/verb.h"
#include "cardsets/card_functions.h"

namespace badgemint::admin {

namespace {

struct FormatOptions {
  std::vector<std::string> files;
  std::string svg;  // The picture to write; empty for none.
};

// A row of a drawing.
struct BitRow {
  std::string name, bits;
};

// What is shown of a format, as text or as a picture.
struct FormatSheet {
  std::string size;                 // The number of bits.
  std::vector<std::string> fields;  // A table with a head line.
  std::string example;              // A card of the format.
  std::string sources;              // Where each bit comes from: it gives the colours.
  std::vector<BitRow> rows;         // The masks that are not empty, and the bits of the example.
};

std::string fieldLine(std::string_view field, std::string_view type, std::string_view bits,
                      std::string_view range, std::string_view label) {
  std::string line = fmt::format("{:<7}{:<9}{:<6}{:<26}{}", field, type, bits, range, label);
  line.resize(line.find_last_not_of(' ') + 1);
  return line;
}

std::vector<std::string> fieldTable(const CardFormat& format) {
  constexpr std::array kTypes = {"none", "BIN", "BCD", "MSD"};
  std::vector<std::string> lines = {fieldLine("field", "type", "bits", "range", "label")};
  for (int32_t field = 0; field < kFieldCount; ++field) {
    const FieldDefinition& defined = format.fieldDefinitions()[static_cast<size_t>(field)];
    const char letter = format.masks().letters[static_cast<size_t>(field)];
    const int32_t width = format.fieldBitCount(field);
    const bool isDefined = width > 0 || defined.ftyp != kNotGiven || defined.label[0] != '\0';
    if (letter == '\0' || !isDefined) continue;
    const bool hasRange = defined.minval != 0 || defined.maxval != 0;
    lines.push_back(
        fieldLine(std::string(1, letter),
                  fmt::format("{} {}", kTypes.at(static_cast<size_t>(defined.ftyp)),
                              defined.dir == kDirectionLsb ? "LSB" : "MSB"),
                  std::to_string(width),
                  hasRange ? fmt::format("{} to {}", defined.minval, defined.maxval) : "-",
                  printable(defined.label.data())));
  }
  return lines;
}

// One within the field and its range.
int64_t exampleNumber(const CardEncoder& encoder) {
  const CardFormat& format = *encoder.format;
  const auto field = static_cast<size_t>(format.cardNumberField());
  const FieldDefinition& defined = format.fieldDefinitions()[field];
  for (const int64_t number : {12345, 1234, 123, 12, 1, defined.minval})
    if (number >= defined.minval && (defined.maxval <= 0 || number <= defined.maxval) &&
        encoder.decode(encoder.encode(number)) == number)
      return number;
  return 0;
}

FormatSheet sheetOf(const CardFormat& format) {
  const CardLayout layout(format);
  FormatSheet sheet;
  sheet.size = fmt::format("{} bits, card number in field {}", layout.count(),
                           format.masks().letters[static_cast<size_t>(format.cardNumberField())]);
  sheet.fields = fieldTable(format);
  CardFormat::FieldValues values{};
  std::string valuesText;
  for (int32_t field = 0; field < kFieldCount; ++field) {
    if (!hasSiteValue(format, field)) continue;
    const auto index = static_cast<size_t>(field);
    values[index] = std::max(format.fieldDefinitions()[index].minval, 0);
    valuesText += fmt::format(", {:c}={}", 'A' + field, values[index]);
  }
  const CardEncoder encoder = {&format, format.encodeSite(values)};
  const int64_t number = exampleNumber(encoder);
  const CardPattern card = encoder.encode(number);
  sheet.example = fmt::format("card {}{}: key {}", number, valuesText, keyText(card));
  sheet.sources = layout.mergedRow();
  const LayoutMasks masks = format.masks();
  sheet.rows = {{"output", layout.rowOf(masks.output)}, {"fixed", layout.rowOf(masks.fixed)}};
  for (int mask = 1; const BitMask& parity : masks.parity)
    sheet.rows.push_back({fmt::format("parity {}", mask++), layout.rowOf(parity)});
  std::erase_if(sheet.rows, [](const BitRow& row) {
    return row.bits.find_first_not_of(CardLayout::kNoPosition) == std::string::npos;
  });
  sheet.rows.push_back({"card", layout.bitsOf(card)});
  return sheet;
}

// Long rows are continued below, so that no line has more than 100 characters.
void print(const FormatSheet& sheet, Console& console) {
  constexpr size_t kBitsPerLine = 90;
  console.print("{}\n", sheet.size);
  for (const std::string& line : sheet.fields) console.print("{}\n", line);
  console.print("{}\n", sheet.example);
  for (size_t from = 0; from < sheet.sources.size(); from += kBitsPerLine) {
    std::string tens, units;
    for (size_t bit = from; bit < std::min(from + kBitsPerLine, sheet.sources.size()); ++bit) {
      if (bit % 10 == 0) tens += fmt::format("{:<10}", bit / 10);
      units += static_cast<char>('0' + bit % 10);
    }
    console.print("{:<10}{}\n{:<10}{}\n", "", tens.substr(0, tens.find_last_not_of(' ') + 1), "bit",
                  units);
    for (const auto& [name, bits] : sheet.rows)
      console.print("{:<10}{}\n", name, bits.substr(from, kBitsPerLine));
  }
}

// Lengths in a picture are in pixels of a screen.
constexpr size_t kCell = 20, kNames = 80, kMargin = 10, kBitsPerBand = 40;

const char* colourOf(char source) {
  constexpr std::array kFields = {"#bfdbfe", "#bbf7d0", "#fecaca", "#e9d5ff",
                                  "#fed7aa", "#99f6e4", "#fbcfe8", "#d9f99d"};
  if (source == '*') return kFields[0];
  if (source >= 'A' && source <= 'H') return kFields.at(static_cast<size_t>(source - 'A'));
  if (source == 'P') return "#fde68a";
  return source == '0' || source == '1' ? "#d4d4d8" : "#ffffff";
}

std::string svgText(size_t x, size_t y, std::string_view text, const char* anchor = "start") {
  std::string escaped;
  for (const char c : text)
    escaped += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
  return fmt::format("<text x=\"{}\" y=\"{}\" text-anchor=\"{}\">{}</text>\n", x, y + 14, anchor,
                     escaped);
}

std::string svgCell(size_t x, size_t y, const char* colour, std::string_view text) {
  return fmt::format(
             "<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" fill=\"{}\" "
             "stroke=\"#52525b\" stroke-width=\"0.5\"/>\n",
             x, y, kCell, kCell, colour) +
         svgText(x + kCell / 2, y, text, "middle");
}

// The bits from `from` on: a ruler, and below it the rows.
std::string svgBand(const FormatSheet& sheet, size_t from, size_t y) {
  const size_t end = std::min(from + kBitsPerBand, sheet.sources.size());
  const auto xOf = [from](size_t bit) { return kNames + (bit - from) * kCell; };
  std::string svg;
  for (size_t bit = from; bit < end; ++bit)
    svg += svgText(xOf(bit) + kCell / 2, y, std::to_string(bit), "middle");
  for (const auto& [name, bits] : sheet.rows) {
    y += kCell;
    svg += svgText(kMargin, y, name);
    for (size_t bit = from; bit < end; ++bit) {
      const bool isShown = bits[bit] != CardLayout::kNoPosition;
      svg += svgCell(xOf(bit), y, colourOf(isShown ? sheet.sources[bit] : ' '),
                     isShown ? bits.substr(bit, 1) : "");
    }
  }
  return svg;
}

// The picture as a whole SVG file, which needs nothing else to be shown or printed.
std::string svgOf(const FormatSheet& sheet, const std::string& title) {
  size_t y = kMargin;
  std::string body = svgText(kMargin, y, title + ": " + sheet.size);
  y += kCell;
  for (size_t from = 0; from < sheet.sources.size(); from += kBitsPerBand) {
    body += svgBand(sheet, from, y);
    y += (sheet.rows.size() + 2) * kCell;
  }
  for (const std::string& line : sheet.fields) {
    if (&line != &sheet.fields.front()) body += svgCell(kMargin, y, colourOf(line.front()), "");
    body += svgText(kMargin + 2 * kCell, y, line);
    y += kCell;
  }
  body += svgText(kMargin, y, sheet.example);
  const size_t width = kNames + kBitsPerBand * kCell + kMargin, height = y + kCell + kMargin;
  return fmt::format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} "
      "{1}\" font-family=\"monospace\" font-size=\"11\" xml:space=\"preserve\">\n"
      "<rect width=\"{0}\" height=\"{1}\" fill=\"#ffffff\"/>\n{2}</svg>\n",
      width, height, body);
}

void writeSvg(const std::string& path, const std::string& source, const FormatSheet& sheet) {
  requireDistinctFiles({source}, {path});
  std::string start(4, ' ');
  const bool isOther = std::ifstream(path).read(start.data(), 4) && start != "<svg";
  if (isOther)
    throw Failure(ExitStatus::kRefused, "{} is there already, and is not an SVG picture", path);
  NewFile file(path, true);
  file.write(svgOf(sheet, printable(source)));
  static_cast<void>(file.finish());
  const mode_t mask = umask(0);
  umask(mask);
  static_cast<void>(chmod(path.c_str(), 0666 & ~mask));  // It has no secrets.
}

ExitStatus show(const std::string& path, const FormatOptions& options, Console& console) {
  if (access(path.c_str(), F_OK) != 0) {
    console.report("{}: cannot be opened: {}", path, std::strerror(errno));
    return ExitStatus::kNotDone;
  }
  CardFormatSet formats;
  Findings findings(true);
  const CardFormat* const format = checkFormatAlone(path, formats, findings);
  console.print("{}: {}\n", printable(path),
                format != nullptr ? kindName(*format) : "does not load");
  if (format != nullptr) {
    const FormatSheet sheet = sheetOf(*format);
    print(sheet, console);
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
