// A line of the cards file that is being checked: where its words stand, and whom it is about.
#ifndef BADGEMINT_CHECK_CHECKEDLINE_H
#define BADGEMINT_CHECK_CHECKEDLINE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "check/finding.h"

namespace badgemint {

struct CheckedLine {
  std::string_view text;  // Followed by a NUL; without its newline.
  int file = 0;
  int64_t number = 0;
  int64_t bytesBefore = 0;  // Of the editor's line, when it is longer than the limit.

  Place whole() const { return {file, number, 0}; }
  // `word` points into the text.
  Place at(const char* word) const {
    return {file, number, bytesBefore + (word - text.data()) + 1};
  }
};

// Whom a line is about, in the words of messages. A PIN is never among them.
struct Subject {
  char type = '\0';
  std::string_view cardNumber;  // Of 'c', 'n' and 'd' lines.
  uint32_t uniqid = 0;

  std::string text() const {
    const std::string holder = "holder " + std::to_string(uniqid);
    return cardNumber.empty() ? "PIN of " + holder
                              : "card " + printable(cardNumber) + " of " + holder;
  }
};

}  // namespace badgemint

#endif  // BADGEMINT_CHECK_CHECKEDLINE_H
