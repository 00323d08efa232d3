#include "admin/bits/layout.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace badgemint::admin {

namespace {

constexpr size_t kBitsPerLine = 90;

char at(const BitMask& mask, int32_t position) {
  return mask[static_cast<size_t>(position)];
}

// The position that a parity mask sets: the first one if there are several. -1 for none.
int32_t targetPosition(const BitMask& mask) {
  const size_t target = std::string_view(mask.data(), BitPattern::kPositions).find_first_of("EO");
  return target == std::string_view::npos ? -1 : static_cast<int32_t>(target);
}

}  // namespace

CardLayout::CardLayout(const CardFormat& format)
    : _format(format), _masks(format.masks()), _count((format.bitCount() + 7) / 8 * 8) {
  while (_count > format.bitCount() && !isEverSet(0)) --_count;
}

bool CardLayout::isEverSet(int32_t bit) const {
  const int32_t position = positionOf(bit);
  return position >= 0 && (parityMaskOf(bit) >= 0 || at(_masks.fixed, position) == '1' ||
                           isUsedPosition(_masks, position));
}

std::string CardLayout::bitsOf(const CardPattern& pattern) const {
  std::string bits;
  for (int32_t bit = 0; bit < count(); ++bit) {
    const auto place = static_cast<size_t>(placeOf(bit));
    if (place >= 8 * pattern.size())
      bits += kNoBit;
    else
      bits += (pattern[place / 8] >> (7 - place % 8) & 1) != 0 ? '1' : '0';
  }
  return bits;
}

CardPattern CardLayout::patternOf(std::string_view bits) const {
  BitPattern places;
  for (int32_t place = placeOf(0); const char bit : bits) {
    if (bit == '1') places.set(place);
    ++place;
  }
  return places.toCard();
}

std::string CardLayout::rowOf(const BitMask& mask) const {
  std::string row;
  for (int32_t bit = 0; bit < count(); ++bit) {
    const int32_t position = positionOf(bit);
    const char c = position < 0 ? '\0' : at(mask, position);
    row += c > ' ' && c <= '~' ? c : kNoPosition;
  }
  return row;
}

std::string CardLayout::mergedRow() const {
  std::string row;
  for (int32_t bit = 0; bit < count(); ++bit) row += sourceOf(bit);
  return row;
}

// Fixed bits replace those of fields, and parity bits replace both.
char CardLayout::sourceOf(int32_t bit) const {
  const int32_t position = positionOf(bit);
  if (position < 0) return kNoPosition;
  if (parityMaskOf(bit) >= 0) return 'P';
  const char fixed = at(_masks.fixed, position);
  if (fixed == '0' || fixed == '1') return fixed;
  return isUsedPosition(_masks, position) ? at(_masks.output, position) : kNoPosition;
}

int32_t CardLayout::parityMaskOf(int32_t bit) const {
  for (int32_t mask = _format.numberOfParityBits(); mask-- > 0;)
    if (targetOf(mask) == bit) return mask;
  return -1;
}

int32_t CardLayout::targetOf(int32_t mask) const {
  const int32_t target = targetPosition(_masks.parity[static_cast<size_t>(mask)]);
  const int32_t bit = target - positionOf(0);
  return target >= 0 && bit >= 0 && bit < count() ? bit : -1;
}

void printUnderRuler(std::span<const BitRow> rows, std::ostream& output) {
  const auto print = [&](std::string_view name, std::string_view bits) {
    output << fmt::format("{:<10}{}\n", name, bits);
  };
  const size_t count = rows.front().bits.size();
  for (size_t from = 0; from < count; from += kBitsPerLine) {
    const size_t length = std::min(kBitsPerLine, count - from);
    std::string tens, units;
    for (size_t bit = from; bit < from + length; ++bit) {
      if (bit % 10 == 0) tens += fmt::format("{:<10}", bit / 10);
      units += static_cast<char>('0' + bit % 10);
    }
    print("", tens.substr(0, tens.find_last_not_of(' ') + 1));
    print("bit", units);
    for (const auto& [name, bits] : rows) print(name, bits.substr(from, length));
  }
}

namespace {

// Lengths are in pixels of a screen.
constexpr size_t kCell = 20, kNames = 80, kMargin = 10, kBitsPerBand = 40;

const char* colourOf(char source) {
  constexpr std::array kFields = {"#bfdbfe", "#bbf7d0", "#fecaca", "#e9d5ff",
                                  "#fed7aa", "#99f6e4", "#fbcfe8", "#d9f99d"};
  if (source == '*') return kFields[0];
  if (source >= 'A' && source <= 'H') return kFields.at(static_cast<size_t>(source - 'A'));
  if (source == 'P') return "#fde68a";
  return source == '0' || source == '1' ? "#d4d4d8" : "#ffffff";
}

std::string escaped(std::string_view text) {
  std::string shown;
  for (const char c : text)
    shown += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
  return shown;
}

std::string svgText(size_t x, size_t y, const char* anchor, std::string_view text) {
  return fmt::format("<text x=\"{}\" y=\"{}\" text-anchor=\"{}\">{}</text>\n", x, y, anchor,
                     escaped(text));
}

std::string svgCell(size_t x, size_t y, const char* colour, std::string_view text) {
  return fmt::format(
             "<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" fill=\"{}\" "
             "stroke=\"#52525b\" stroke-width=\"0.5\"/>\n",
             x, y, kCell, kCell, colour) +
         svgText(x + kCell / 2, y + 14, "middle", text);
}

// The bits from `from` on: a ruler, and below it the rows.
std::string svgBand(const std::vector<BitRow>& rows, size_t from, size_t y) {
  const std::string& sources = rows.front().bits;
  const size_t end = std::min(from + kBitsPerBand, sources.size());
  std::string svg;
  for (size_t bit = from; bit < end; ++bit)
    svg +=
        svgText(kNames + (bit - from) * kCell + kCell / 2, y + 14, "middle", std::to_string(bit));
  for (const auto& [name, bits] : rows) {
    y += kCell;
    svg += svgText(kMargin, y + 14, "start", name);
    for (size_t bit = from; bit < end; ++bit) {
      const bool isShown = bits[bit] != CardLayout::kNoPosition;
      svg += svgCell(kNames + (bit - from) * kCell, y, isShown ? colourOf(sources[bit]) : "#ffffff",
                     isShown ? bits.substr(bit, 1) : "");
    }
  }
  return svg;
}

}  // namespace

std::string svgOf(const LayoutPicture& picture) {
  size_t y = kMargin;
  std::string body = fmt::format("<text x=\"{}\" y=\"{}\" font-size=\"15\">{}</text>\n", kMargin,
                                 y + 14, escaped(picture.title));
  y += kCell + kCell / 2;
  const size_t count = picture.rows.front().bits.size();
  for (size_t from = 0; from < count; from += kBitsPerBand) {
    body += svgBand(picture.rows, from, y);
    y += (picture.rows.size() + 2) * kCell;
  }
  for (const auto& [source, meaning] : picture.legend) {
    body += svgCell(kMargin, y, colourOf(source.front()), source);
    body += svgText(kMargin + 2 * kCell, y + 14, "start", meaning);
    y += kCell + 4;
  }
  for (const std::string& remark : picture.remarks)
    body += svgText(kMargin, (y += kCell) - 4, "start", remark);
  const size_t width = kNames + kBitsPerBand * kCell + kMargin, height = y + 2 * kMargin;
  return fmt::format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} "
      "{1}\" font-family=\"monospace\" font-size=\"11\">\n"
      "<rect width=\"{0}\" height=\"{1}\" fill=\"#ffffff\"/>\n{2}</svg>\n",
      width, height, body);
}

}  // namespace badgemint::admin
