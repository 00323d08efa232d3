#include "support/fieldscanner.h"

#include "support/textutil.h"

namespace badgemint {

const char FieldScanner::kFailed[1] = "";

namespace {

struct Number {
  uint64_t magnitude = 0;
  bool negative = false;
  bool overflow = false;   // The magnitude went beyond 64 bits.
  bool converted = false;  // There was a digit.
};

constexpr ptrdiff_t kSafeDigits = 19;  // So many digits always fit 64 bits.

const char* skipSpace(const char* text) {
  while (isSpace(*text)) ++text;
  return text;
}

// All characters that end a word are below '!'; most that do not are not.
constexpr bool endsWord(char c) {
  return static_cast<unsigned char>(c) <= ' ' && (c == '\0' || isSpace(c));
}

bool overflows(const char* digits, const char* end) {
  uint64_t magnitude = 0;
  for (; digits != end; ++digits) {
    const auto digit = static_cast<uint64_t>(*digits - '0');
    if (magnitude > (UINT64_MAX - digit) / 10) return true;
    magnitude = magnitude * 10 + digit;
  }
  return false;
}

// Scans white space, a sign and digits, and leaves `text` behind them.
inline Number scanNumber(const char*& text) {
  Number number;
  const char* p = skipSpace(text);
  if (*p == '-' || *p == '+') number.negative = *p++ == '-';
  const char* const digits = p;
  for (; isDigit(*p); ++p)
    number.magnitude = number.magnitude * 10 + static_cast<uint64_t>(*p - '0');
  number.converted = p != digits;
  if (p - digits > kSafeDigits) number.overflow = overflows(digits, p);
  text = p;
  return number;
}

SaturatedInt64 toInt64(const Number& number) {
  const uint64_t limit = static_cast<uint64_t>(INT64_MAX) + (number.negative ? 1 : 0);
  const bool saturated = number.overflow || number.magnitude > limit;
  const uint64_t magnitude = saturated ? limit : number.magnitude;
  return {static_cast<int64_t>(number.negative ? 0 - magnitude : magnitude), saturated};
}

uint64_t toUint64(const Number& number) {
  if (number.overflow) return UINT64_MAX;
  return number.negative ? 0 - number.magnitude : number.magnitude;
}

}  // namespace

int32_t FieldScanner::nextInt() {
  const Number number = scanNumber(_next);
  if (!number.converted) _next = kFailed;
  return static_cast<int32_t>(toInt64(number).value);
}

uint32_t FieldScanner::nextUnsigned() {
  const Number number = scanNumber(_next);
  if (!number.converted) _next = kFailed;
  return static_cast<uint32_t>(toUint64(number));
}

std::string_view FieldScanner::nextWord(size_t width) {
  const char* const start = skipSpace(_next);
  const char* const limit = start + width;
  const char* end = start;
  while (end != limit && !endsWord(*end)) ++end;
  _next = end == start ? kFailed : end;
  return {start, static_cast<size_t>(end - start)};
}

void FieldScanner::expect(char literal) {
  _next = *_next == literal ? _next + 1 : kFailed;
}

SaturatedInt64 scanInt64(const char* text) {
  return toInt64(scanNumber(text));
}

int64_t textToInt64(const char* text) {
  return scanInt64(text).value;
}

int32_t textToInt32(const char* text) {
  return static_cast<int32_t>(textToInt64(text));
}

}  // namespace badgemint
