#include "admin/bits/bitdrawing.h"

#include <algorithm>
#include <iomanip>

namespace badgemint::admin {

namespace {

constexpr int kNameWidth = 10;
constexpr size_t kMostBits = 90;  // Of one line.

std::ostream& startLine(const std::string& name, std::ostream& output) {
  return output << std::left << std::setw(kNameWidth) << name;
}

}  // namespace

void BitDrawing::print(std::ostream& output) const {
  for (size_t from = 0; from < _bits; from += kMostBits) {
    const size_t to = std::min(from + kMostBits, _bits);
    printRuler(from, to, output);
    for (const Row& row : _rows)
      startLine(row.name, output) << row.text.substr(from, to - from) << '\n';
  }
}

// Tens above units.
void BitDrawing::printRuler(size_t from, size_t to, std::ostream& output) const {
  std::string tens, units;
  for (size_t bit = from; bit < to; ++bit) {
    if (bit % 10 == 0) tens.resize(bit - from, ' ');
    if (bit % 10 == 0) tens += std::to_string(bit / 10);
    units += static_cast<char>('0' + bit % 10);
  }
  startLine("", output) << tens << '\n';
  startLine("bit", output) << units << '\n';
}

}  // namespace badgemint::admin
