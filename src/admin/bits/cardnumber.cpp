#include "admin/bits/cardnumber.h"

#include <algorithm>

#include "admin/check/finding.h"
#include "admin/console.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

constexpr int32_t kValueBits = 64;

// "16 bits", and how many digits that is in a field of digits.
std::string widthText(const CardFormat& format, int32_t field) {
  const int32_t bits = format.fieldBitCount(field);
  const auto digits = [bits](int32_t each) {
    return " (" + std::to_string(std::min(bits, kValueBits) / each) + " digits)";
  };
  const int32_t type = format.fieldDefinitions()[static_cast<size_t>(field)].ftyp;
  std::string text = std::to_string(bits) + (bits == 1 ? " bit" : " bits");
  if (type == kTypeBcd) text += digits(4);
  if (type == kTypeMsd) text += digits(5);
  if (type == kNotGiven) text += " (of no type)";
  return text;
}

[[noreturn]] void refuse(std::string_view word, const std::string& why) {
  throw Failure(ExitStatus::kRefused, "card number " + std::string(word) + why);
}

}  // namespace

std::string fieldName(char letter) {
  return letter == '*' ? "the number" : std::string("field ") + letter;
}

NumberedCard encodeWord(const CardEncoder& encoder, std::string_view word) {
  SaturatedInt64 number{};
  if (readCardNumber(word, number) != kSuccess)
    refuse(quoted(word), word.size() > kMaxCardNumberDigits ? " has more than 32 digits"
                                                            : " is not digits alone");
  NumberedCard card{number.value, {}};
  if (encodeCardNumber(encoder, number, 0, card.pattern) == kSuccess) return card;
  const CardFormat& format = *encoder.format;
  const int32_t field = format.cardNumberField();
  const char letter = format.masks().letters[static_cast<size_t>(field)];
  refuse(word, " does not fit " + (letter == '*' ? "its " : fieldName(letter) + " of ") +
                   widthText(format, field) + ": it would come back as card " +
                   std::to_string(encoder.decode(card.pattern)));
}

}  // namespace badgemint::admin
