#include "admin/records/cardlines.h"

#include <array>
#include <charconv>
#include <string_view>

#include "admin/check/siterules.h"
#include "cardsets/card_functions.h"
#include "inputcards/cardline.h"
#include "support/datetime.h"
#include "support/packeddecimal.h"

namespace badgemint::admin {

namespace {

constexpr std::string_view kPinLeftOut = "*";

// Puts the fields of a line behind its type, each behind a blank.
class LineText {
 public:
  LineText(std::string& text, char type, bool withPins) : _text(text), _withPins(withPins) {
    _text += type;
  }

  LineText& word(std::string_view word) {
    _text += ' ';
    _text += word;
    return *this;
  }
  LineText& number(int64_t number) {
    std::array<char, 20> digits;  // A sign and 19 digits.
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    return word({digits.data(), static_cast<size_t>(end - digits.data())});
  }
  template <size_t Digits>
  LineText& pin(std::span<const uint8_t> packed) {
    const DigitText<Digits> digits(packed);
    if (!_withPins) return word(kPinLeftOut);
    return word(*digits.c_str() == '\0' ? "0" : digits.c_str());
  }
  LineText& time(uint32_t seconds) {
    const DateAndTime parts = splitDateTime(formatDateTime(seconds).data());
    return word(parts.date.data()).word(parts.time.data());
  }
  // What 'c', 'n' and 'p' lines have in common.
  LineText& holder(const AccessRecord& access) {
    number(access.uniqid);
    for (const uint16_t level : access.acclevel) number(level);
    for (const int32_t bit : {2, 1, 4}) number(access.flag(bit));
    number(access.escortid).time(access.starttime).time(access.endtime);
    return number(access.elevatoraccess).number(access.outrelaygrpid);
  }
  LineText& cardHolder(const AccessRecord& access) {
    pin<kMaxPinDigits>(access.pincode);
    return holder(access).number(access.flag(5));
  }

 private:
  std::string& _text;
  const bool _withPins;
};

}  // namespace

std::string fieldsLine(const cardset& set, const CardFormat* format) {
  std::string text = "f " + std::to_string(set.csid) + ' ' + std::to_string(set.fmtid);
  for (int32_t field = 0; field < kCardSetFields; ++field) {
    const bool isOfFormat = format != nullptr && hasSiteValue(*format, field);
    if (!isOfFormat && set.value(field) == 0) continue;
    text.append({' ', static_cast<char>('A' + field), '='});
    text += std::to_string(set.value(field));
  }
  return text + '\n';
}

void appendLine(std::string& text, const Credential& credential, bool withPins) {
  const IdentRecord& ident = credential.ident;
  switch (ident.cardsetcode) {
    case kPinIdentCode:
      LineText(text, kPinIdentLine, withPins)
          .pin<kMaxPinIdentDigits>(ident.cardnumber)
          .number(ident.uniqid);
      break;
    case kPinOnlyCode:
      LineText(text, kPinLine, withPins)
          .pin<kMaxPinIdentDigits>(ident.cardnumber)
          .holder(*credential.access);
      break;
    case kFormatlessCode: {
      std::array<char, 2 * sizeof ident.cardnumber + 1> digits;
      bitsToHex(ident.cardnumber, digits);
      LineText(text, kNoFormatCardLine, withPins)
          .number(0)
          .word(digits.data())
          .cardHolder(*credential.access);
      break;
    }
    default:
      LineText(text, kCardLine, withPins)
          .number(ident.cardsetcode)
          .number(credential.cardNumber)
          .cardHolder(*credential.access);
  }
  text += '\n';
}

}  // namespace badgemint::admin
