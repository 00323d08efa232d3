// Reads numbers and words out of a text with exactly the outcome of a formatted scan ("%d", "%u",
// "%s", a literal character), several times as fast: signs, white space, overflow and the stop at
// the first field that does not convert are those of glibc's sscanf on a 64-bit system.
#ifndef BADGEMINT_SUPPORT_FIELDSCANNER_H
#define BADGEMINT_SUPPORT_FIELDSCANNER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/exported.h"
#include "support/textutil.h"

namespace BADGEMINT_EXPORTED badgemint {

// Scans the NUL-terminated text that it is given, which must outlive the scanner and its words.
// Once a field does not convert, that field and all later ones read as 0 or empty: a scan that
// fails leaves the rest of its targets alone.
//
// Numbers of one to eighteen digits after blanks, nearly all there are, are read in line: they do
// not reach the ends of the 64-bit range, so that no rule for saturation or signs can apply to
// them. All other numbers are read from their first character on in scanNumber().
class FieldScanner {
 public:
  explicit FieldScanner(const char* text) : _next(text) {}

  // A decimal number: the low 32 bits of its value, which saturates at the signed ("%d") or
  // unsigned ("%u") 64-bit range. An unsigned number may carry a minus and is then negated.
  int32_t nextInt() {
    uint64_t value = 0;
    return static_cast<int32_t>(scanShortNumber(_next, value) ? value : nextNumber(true));
  }
  uint32_t nextUnsigned() {
    uint64_t value = 0;
    return static_cast<uint32_t>(scanShortNumber(_next, value) ? value : nextNumber(false));
  }

  // A run of at most `width` characters that are no white space. A longer run goes on in the next
  // field.
  std::string_view nextWord(size_t width) {
    const char* const start = skipSpace(_next);
    const char* end = start;
    while (!endsWord(*end)) ++end;
    const size_t length = std::min(static_cast<size_t>(end - start), width);
    _next = length == 0 ? kFailed : start + length;
    return {start, length};
  }

  // Exactly this character, without skipping white space before it.
  void expect(char literal) { _next = *_next == literal ? _next + 1 : kFailed; }

  // Where the next field is scanned from; an empty text once a field did not convert.
  const char* position() const { return _next; }

  // Whether a field did not convert.
  bool failed() const { return _next == kFailed; }

 private:
  static constexpr ptrdiff_t kShortNumber = 18;  // Digits that stay within 63 bits.
  static const char kFailed[1];  // Where a failed scan stands: an empty text of its own.

  // White space and the NUL are below '!', and of the characters there only rare ones are neither.
  static bool mayEndWord(char c) { return static_cast<unsigned char>(c) <= ' '; }
  static bool endsWord(char c) { return mayEndWord(c) && (c == '\0' || isSpace(c)); }
  static const char* skipSpace(const char* text) {
    while (mayEndWord(*text) && isSpace(*text)) ++text;
    return text;
  }

  static bool scanShortNumber(const char*& text, uint64_t& value) {
    const auto digitAt = [](const char* p) {
      return static_cast<unsigned>(static_cast<unsigned char>(*p)) - unsigned{'0'};
    };
    const char* digits = text;
    while (*digits == ' ') ++digits;
    unsigned digit = digitAt(digits);
    if (digit > 9) return false;
    uint64_t scanned = digit;
    const char* end = digits + 1;
    for (; (digit = digitAt(end)) <= 9; ++end) scanned = scanned * 10 + digit;
    if (end - digits > kShortNumber) return false;
    value = scanned;
    text = end;
    return true;
  }
  uint64_t nextNumber(bool isSigned);

  const char* _next;
};

// The text as a decimal number as atoi and atoll read it: leading white space and a sign, up to the
// first character that is no digit, 0 without digits. The value saturates at 64 bits; the 32-bit
// form gives the low half of that.
int32_t textToInt32(const char* text);
int64_t textToInt64(const char* text);

// The same, and whether the value went beyond the 64-bit range.
struct SaturatedInt64 {
  int64_t value;
  bool saturated;
};
SaturatedInt64 scanInt64(const char* text);

// The same of a text that must hold nothing but digits. False, `number` unchanged, when it does
// not.
[[nodiscard]] bool digitsToInt64(std::string_view text, SaturatedInt64& number);

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_FIELDSCANNER_H
