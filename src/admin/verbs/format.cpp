// The verb `format`: shows format files so that two can be compared, and draws their layouts.
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "admin/bits/cards.h"
#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

struct FormatOptions {
  std::vector<std::string> files;
  std::string svg;  // The picture to write; empty for none.
};

// A line of a drawing. In a picture each character but '.' whose bit comes from somewhere is
// coloured: a letter names a field, 'P' is parity, '0' and '1' are fixed bits.
struct DrawnLine {
  std::string text;
  std::string sources{};  // One for each of the first characters.
};
using Drawing = std::vector<DrawnLine>;

void drawFields(const CardFormat& format, Drawing& drawing) {
  constexpr std::array kTypes = {"none", "BIN", "BCD", "MSD"};
  drawing.push_back({"field  type     bits  range                     label"});
  for (int32_t field = 0; field < kFieldCount; ++field) {
    const FieldDefinition& defined = format.fieldDefinitions()[static_cast<size_t>(field)];
    const char letter = format.masks().letters[static_cast<size_t>(field)];
    const int32_t width = format.fieldBitCount(field);
    const bool isDefined = width > 0 || defined.ftyp != kNotGiven || defined.label[0] != '\0';
    if (letter == '\0' || !isDefined) continue;
    const bool hasRange = defined.minval != 0 || defined.maxval != 0;
    const std::string type = fmt::format("{} {}", kTypes.at(static_cast<size_t>(defined.ftyp)),
                                         defined.dir == kDirectionLsb ? "LSB" : "MSB");
    const std::string range =
        hasRange ? fmt::format("{} to {}", defined.minval, defined.maxval) : "-";
    std::string line = fmt::format("{:<7}{:<9}{:<6}{:<26}{}", letter, type, width, range,
                                   printable(defined.label.data()));
    line.resize(line.find_last_not_of(' ') + 1);
    drawing.push_back({line, {letter}});
  }
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

// Long rows are continued below, so that no line has more than 100 characters.
void drawBits(const std::string& sources,
              const std::vector<std::pair<std::string, std::string>>& rows, Drawing& drawing) {
  constexpr size_t kBitsPerLine = 90;
  for (size_t from = 0; from < sources.size(); from += kBitsPerLine) {
    std::string tens, units;
    for (size_t bit = from; bit < std::min(from + kBitsPerLine, sources.size()); ++bit) {
      if (bit % 10 == 0) tens += fmt::format("{:<10}", bit / 10);
      units += static_cast<char>('0' + bit % 10);
    }
    drawing.push_back({std::string(10, ' ') + tens.substr(0, tens.find_last_not_of(' ') + 1)});
    drawing.push_back({fmt::format("{:<10}{}", "bit", units)});
    for (const auto& [name, bits] : rows)
      drawing.push_back({fmt::format("{:<10}{}", name, bits.substr(from, kBitsPerLine)),
                         std::string(10, ' ') + sources.substr(from, kBitsPerLine)});
  }
}

// Fields, the key of a card, the masks that are not empty, and the bits of the card.
void draw(const CardFormat& format, Drawing& drawing) {
  const CardLayout layout(format);
  const LayoutMasks masks = format.masks();
  drawing.push_back({fmt::format("{} bits, card number in field {}", layout.count(),
                                 masks.letters[static_cast<size_t>(format.cardNumberField())])});
  drawFields(format, drawing);
  CardFormat::FieldValues values{};
  for (size_t field = 0; field < values.size(); ++field)
    values[field] = std::max(format.fieldDefinitions()[field].minval, 0);
  const CardEncoder encoder = {&format, format.encodeSite(values)};
  const int64_t number = exampleNumber(encoder);
  const CardPattern card = encoder.encode(number);
  drawing.push_back(
      {fmt::format("card {}{}: key {}", number, siteValuesText(format, values), keyText(card))});
  std::vector<std::pair<std::string, std::string>> rows = {{"output", layout.rowOf(masks.output)},
                                                           {"fixed", layout.rowOf(masks.fixed)}};
  for (int mask = 1; const BitMask& parity : masks.parity)
    rows.emplace_back(fmt::format("parity {}", mask++), layout.rowOf(parity));
  std::erase_if(rows, [](const auto& row) {
    return row.second.find_first_not_of(CardLayout::kNoPosition) == std::string::npos;
  });
  rows.emplace_back("card", layout.bitsOf(card));
  drawBits(layout.mergedRow(), rows, drawing);
}

std::string escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text)
    escaped += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
  return escaped;
}

// A whole SVG file, which needs nothing else to be shown or printed. Lengths are in pixels; fonts
// of one width have characters of 0.6 times their size.
std::string svgOf(const Drawing& drawing) {
  constexpr size_t kCharacter = 9, kLine = 20, kMargin = 10;
  constexpr std::string_view kSources = "*ABCDEFGHP01";
  constexpr std::array kColours = {"#bfdbfe", "#bfdbfe", "#bbf7d0", "#fecaca",
                                   "#e9d5ff", "#fed7aa", "#99f6e4", "#fbcfe8",
                                   "#d9f99d", "#fde68a", "#d4d4d8", "#d4d4d8"};
  std::string body;
  size_t y = kMargin, width = 0;
  for (const auto& [text, sources] : drawing) {
    for (size_t i = 0; i < sources.size(); ++i)
      if (const size_t source = kSources.find(sources[i]);
          source != std::string_view::npos && text[i] != '.')
        body += fmt::format(
            "<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" fill=\"{}\" "
            "stroke=\"#52525b\" stroke-width=\"0.5\"/>\n",
            kMargin + i * kCharacter, y, kCharacter, kLine, kColours.at(source));
    body += fmt::format("<text x=\"{}\" y=\"{}\" textLength=\"{}\">{}</text>\n", kMargin, y + 15,
                        text.size() * kCharacter, escaped(text));
    y += kLine;
    width = std::max(width, text.size() * kCharacter);
  }
  return fmt::format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} "
      "{1}\" font-family=\"monospace\" font-size=\"15\" xml:space=\"preserve\">\n"
      "<rect width=\"{0}\" height=\"{1}\" fill=\"#ffffff\"/>\n{2}</svg>\n",
      width + 2 * kMargin, y + kMargin, body);
}

// False when a power cut may undo it.
bool writeSvg(const std::string& path, const std::string& source, const Drawing& drawing,
              Console& console) {
  requireDistinctFiles({source}, {path});
  requireRegularFile(path);
  std::string start(4, ' ');
  const bool isPicture = std::ifstream(path).read(start.data(), 4) && start == "<svg";
  if (!isPicture && std::filesystem::exists(path))
    throw Refused("{} already exists and is not an SVG picture", path);
  NewFile file(path, true);
  file.write(svgOf(drawing));
  file.letOthersRead();
  return file.finish(console);
}

ExitStatus show(const std::string& path, const FormatOptions& options, Console& console) {
  if (access(path.c_str(), R_OK) != 0)
    throw NotDone("{}: cannot be opened: {}", path, std::strerror(errno));
  CardFormatSet formats;
  Findings findings(true);
  CheckedFormat checked;
  checkFormatFile(path, checked, formats, findings);
  const CardFormat* const format = checked.format;
  Drawing drawing = {{fmt::format("{}: {}", printable(path),
                                  format != nullptr ? kindName(*format) : "does not load")}};
  if (format != nullptr) draw(*format, drawing);
  for (const DrawnLine& line : drawing) console.print("{}\n", line.text);
  const bool isSafe =
      format == nullptr || options.svg.empty() || writeSvg(options.svg, path, drawing, console);
  findings.print(console);
  if (format == nullptr) return ExitStatus::kRefused;
  return findings.warnings() == 0 && isSafe ? ExitStatus::kAllWell : ExitStatus::kFound;
}

ExitStatus format(const FormatOptions& options, Console& console) {
  if (options.files.empty()) throw NotDone("give one or more format files");
  if (!options.svg.empty() && options.files.size() > 1)
    throw NotDone("--svg draws one format file, but {} were given", options.files.size());
  ExitStatus worst = ExitStatus::kAllWell;
  for (const std::string& file : options.files) {
    if (&file != &options.files.front()) console.print("\n");
    try {
      worst = std::max(worst, show(file, options, console));
    } catch (const Failure& failure) {
      console.reportText(failure.what());
      worst = std::max(worst, failure.status());
    }
  }
  return worst;
}

}  // namespace

Run addFormat(Options options) {
  const auto given = std::make_shared<FormatOptions>();
  options.describe("Show format files so that two can be compared",
                   "badgemint-admin format site26.cdf");
  options.texts("FILE", "", given->files, "CDF, EFF and VFF files");
  options.file("--svg", given->svg, "Also draw the layout as a picture, in this file");
  return [given](Console& console) { return format(*given, console); };
}

}  // namespace badgemint::admin
