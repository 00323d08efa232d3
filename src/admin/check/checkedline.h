// A line of the cards file that is being checked: where its words stand, and whom it is about.
#ifndef BADGEMINT_ADMIN_CHECK_CHECKEDLINE_H
#define BADGEMINT_ADMIN_CHECK_CHECKEDLINE_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "admin/check/finding.h"
#include "inputcards/cardline.h"

namespace badgemint::admin {

// Whom a line is about, in the words of messages. A PIN is never among them.
struct Subject {
  bool isBlock = false;         // The first card and holder of a 'd' line.
  std::string_view cardNumber;  // Empty in 'p' and 'o' lines.
  uint32_t uniqid = 0;

  std::string text() const {
    const std::string holder = "holder " + std::to_string(uniqid);
    return cardNumber.empty() ? "PIN of " + holder
                              : "card " + printable(cardNumber) + " of " + holder;
  }
  // Behind a message.
  std::string inBrackets() const {
    const std::string holder = std::to_string(uniqid);
    if (isBlock) return " (cards from " + printable(cardNumber) + ", holders from " + holder + ")";
    return cardNumber.empty() ? " (holder " + holder + ")" : " (" + text() + ")";
  }
};

struct CheckedLine {
  std::string_view text;  // Followed by a NUL; without its newline.
  int file = 0;
  int64_t number = 0;
  int64_t bytesBefore = 0;  // Of the editor's line, when it is longer than the limit.
  Subject subject{};

  Place whole() const { return {file, number, 0}; }
  // `word` points into the text.
  Place at(const char* word) const {
    return {file, number, bytesBefore + (word - text.data()) + 1};
  }
};

// A copy of the line, for those who split it in place.
inline std::array<char, kMaxInputLine + 1> copyOf(const CheckedLine& line) {
  std::array<char, kMaxInputLine + 1> copy{};
  line.text.copy(copy.data(), copy.size() - 1);
  return copy;
}

inline bool isRemark(const char* word) {
  return *word == '#';
}

// What is told of a '#' that comes before the last field; `name` is of the field that it is read
// as.
inline std::string earlyRemark(const std::string& name) {
  return "a # where the " + name + " is due: a remark may stand only behind the last field";
}

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_CHECKEDLINE_H
