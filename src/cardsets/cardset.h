// A card set: the cards of one format that share the values of the format's other fields, such as a
// facility code. A card then needs only its card set ID and its card number.
#ifndef BADGEMINT_CARDSETS_CARDSET_H
#define BADGEMINT_CARDSETS_CARDSET_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// The field letters 'A' to 'H' are the indices 0 to 7.
inline constexpr int32_t kCardSetFields = 8;

// A new card set is all zero.
struct cardset {
  uint32_t csid = 0;   // Card set ID; 0 marks an empty slot of a collection.
  uint32_t fmtid = 0;  // ID of the card format.
  std::array<int64_t, kCardSetFields> fldvalues{};

  // A field by its index. Outside 0 to 7 a value is ignored and reads as 0.
  void setValue(int32_t index, int64_t value);
  int64_t value(int32_t index) const;

  // A field by its letter, in either case; any other letter is ignored or reads as 0.
  void setValueOf(char letter, int64_t value);
  int64_t valueOf(char letter) const;

  // Logs the card set at level 100.
  void printInfo() const;
};

// Reads one card set from a text of blank-separated words: a first word that is not looked at, the
// card set ID, the format ID, then pairs of a field letter and a value; an unknown letter is
// ignored and a letter without a value ends the text. Nothing is range-checked. kSuccess, or
// kBadCardSetText and a message when one of the first three words is missing.
[[nodiscard]] int32_t parseCardSetText(cardset& record, const char* text);

// The line that defines a card set in a card sets file or an input cards file: "f 12 3 A 101 \n".
// Only values above 0 are written.
class CardSetLine {
 public:
  explicit CardSetLine(const cardset& record);
  std::string_view text() const { return {_text.data(), _length}; }

 private:
  void appendText(std::string_view text);
  void appendNumber(int64_t number);

  std::array<char, 256> _text{};  // "f", two IDs of 10 digits and eight values of 19 fit.
  size_t _length = 0;
};

}  // namespace badgemint

#endif  // BADGEMINT_CARDSETS_CARDSET_H
