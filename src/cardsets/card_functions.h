// What every card line of the input cards file passes: the checks of its card number and PIN, and
// the computation of its bit pattern; and the conversions between a pattern and its hexadecimal
// text.
#ifndef BADGEMINT_CARDSETS_CARD_FUNCTIONS_H
#define BADGEMINT_CARDSETS_CARD_FUNCTIONS_H

#include <bit>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "formats/CardFormat.h"
#include "formats/bitpattern.h"
#include "support/exported.h"
#include "support/fieldscanner.h"

namespace BADGEMINT_EXPORTED badgemint {

class CardFormatSet;
class cardsets;

// The card set IDs that a site may use. The codes outside mark records without a card set.
inline constexpr int32_t kFirstCardSetId = 1;
inline constexpr int32_t kLastCardSetId = 253;

// The most digits of a card number, of the PIN of a card holder, and of a PIN that stands alone.
inline constexpr size_t kMaxCardNumberDigits = 32;
inline constexpr size_t kMaxPinDigits = 8;
inline constexpr size_t kMaxPinIdentDigits = 16;

// Checks the text of a card number: at most 32 characters; decimal digits when `csid` is 1 or more;
// hexadecimal digits when it is below 1 and `hex` is 1; anything, an empty text becoming "0",
// otherwise. kSuccess; kInvalidCardNumber with its message; kEmptyCardNumber, without one, when the
// text may not be empty.
[[nodiscard]] int32_t checkCardNumber(std::string_view& text, int32_t csid, int32_t hex);

// Checks the text of a card number of a card set, as checkCardNumber does, and reads it. kSuccess;
// kInvalidCardNumber with its message, or kEmptyCardNumber without one, `number` unchanged.
[[nodiscard]] int32_t readCardNumber(std::string_view text, SaturatedInt64& number);

// Checks the text of a PIN: at most `maxDigits` decimal digits; an empty text becomes "0".
// kSuccess, or kInvalidPin with its message.
[[nodiscard]] int32_t checkPinCode(std::string_view& text, size_t maxDigits);

// What the cards of one card set are encoded with: worked out once for the set, not for each card.
// Good as long as the format that it points to, and as long as the card set keeps its values.
struct CardEncoder {
  const CardFormat* format = nullptr;
  SitePattern site;

  CardPattern encode(int64_t number) const { return format->encodeNumber(site, number); }
  int64_t decode(const CardPattern& pattern) const { return format->decodeCardNumber(pattern); }
};

// Encodes cards of one card set one after the other, each from the one before: of consecutive
// numbers hardly more than the last digit differs, so that little is left to flip.
class CardSequence {
 public:
  // The encoder must have its format, which outlives the sequence.
  explicit CardSequence(const CardEncoder& encoder)
      : _format(*encoder.format), _words(encoder.site.words) {}

  CardPattern encode(int64_t number) {
    const uint64_t bits = _format.numberBits(number);
    _format.flip(bits ^ std::exchange(_bits, bits), _words);
    return std::bit_cast<CardPattern>(_words);
  }

 private:
  const CardFormat& _format;
  uint64_t _bits = 0;
  PatternWords _words;
};

// Finds the card set and its format and prepares the encoder, which is kept when it has a format
// already. `sets` and `formats` may be null; `line` is the number of the card's line, or at most 0
// when there is none. kSuccess; kInvalidCardSet or kFormatNotDefined with their messages.
[[nodiscard]] int32_t findCardEncoder(uint32_t csid, int32_t line, const cardsets* sets,
                                      const CardFormatSet* formats, CardEncoder& encoder);

// Encodes a card number and proves that it decodes to the same number. kSuccess; kCardMismatch with
// its message and the pattern all the same.
[[nodiscard]] int32_t encodeCardNumber(const CardEncoder& encoder, const SaturatedInt64& number,
                                       int32_t line, CardPattern& pattern);

// Both in one, from the text of a card number, which is read up to the first character that is no
// digit.
[[nodiscard]] int32_t computeCardBits(uint32_t csid, const char* text, int32_t line,
                                      const cardsets* sets, const CardFormatSet* formats,
                                      int64_t& number, CardPattern& pattern);

// Writes bytes as upper-case hexadecimal digits and a NUL into `text`, as many as fit. Zeros at the
// end are left out, unless all but the first digit are zeros, and a "0" then makes the number of
// digits even.
void bitsToHex(std::span<const uint8_t> bytes, std::span<char> text);

// Reads pairs of hexadecimal digits into bytes, an odd last digit as if a "0" followed it, and
// fills the rest with zeros. In a pair, what is no digit ends the number. Logs the bytes at
// level 75.
void hexToBits(std::string_view text, std::span<uint8_t> bytes);

}  // namespace badgemint

#endif  // BADGEMINT_CARDSETS_CARD_FUNCTIONS_H
