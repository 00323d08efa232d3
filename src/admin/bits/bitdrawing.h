// Rows of one character a bit, drawn under a ruler that counts the bits from 0.
#ifndef BADGEMINT_ADMIN_BITS_BITDRAWING_H
#define BADGEMINT_ADMIN_BITS_BITDRAWING_H

#include <ostream>
#include <string>
#include <vector>

namespace badgemint::admin {

class BitDrawing {
 public:
  // All rows have as many characters as there are bits.
  explicit BitDrawing(size_t bits) : _bits(bits) {}

  void add(std::string name, std::string row) {
    _rows.push_back({std::move(name), std::move(row)});
  }
  // Long rows are continued below, so that no line has more than 100 characters.
  void print(std::ostream& output) const;

 private:
  struct Row {
    std::string name, text;
  };

  void printRuler(size_t from, size_t to, std::ostream& output) const;

  const size_t _bits;
  std::vector<Row> _rows;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_BITS_BITDRAWING_H
