// Reads numbers and words out of a text with exactly the outcome of a formatted scan ("%d", "%u",
// "%s", a literal character), several times as fast: signs, white space, overflow and the stop at
// the first field that does not convert are those of glibc's sscanf on a 64-bit system.
#ifndef BADGEMINT_SUPPORT_FIELDSCANNER_H
#define BADGEMINT_SUPPORT_FIELDSCANNER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace badgemint {

// Scans the NUL-terminated text that it is given, which must outlive the scanner and its words.
// Once a field does not convert, that field and all later ones read as 0 or empty: a scan that
// fails leaves the rest of its targets alone.
class FieldScanner {
 public:
  explicit FieldScanner(const char* text) : _next(text) {}

  // A decimal number: the low 32 bits of its value, which saturates at the signed ("%d") or
  // unsigned ("%u") 64-bit range. An unsigned number may carry a minus and is then negated.
  int32_t nextInt();
  uint32_t nextUnsigned();

  // A run of at most `width` characters that are no white space. A longer run goes on in the next
  // field.
  std::string_view nextWord(size_t width);

  // Exactly this character, without skipping white space before it.
  void expect(char literal);

  // Whether a field did not convert.
  bool failed() const { return _next == kFailed; }

 private:
  static const char kFailed[1];  // Where a failed scan stands: an empty text of its own.

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

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_FIELDSCANNER_H
