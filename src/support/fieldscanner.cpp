#include "support/fieldscanner.h"

namespace badgemint {

const char FieldScanner::kFailed[1] = "";

namespace {

struct Number {
  uint64_t magnitude = 0;
  bool negative = false;
  bool overflow = false;   // The magnitude went beyond 64 bits.
  bool converted = false;  // There was a digit.
};

constexpr size_t kSafeDigits = 19;  // So many digits always fit 64 bits.

bool overflows(std::string_view digits) {
  uint64_t magnitude = 0;
  for (const char c : digits) {
    const auto digit = static_cast<uint64_t>(c - '0');
    if (magnitude > (UINT64_MAX - digit) / 10) return true;
    magnitude = magnitude * 10 + digit;
  }
  return false;
}

// Scans white space, a sign and digits, and leaves `text` after them.
Number scanNumber(const char*& text) {
  Number number;
  const char* p = text;
  while (isSpace(*p)) ++p;
  if (*p == '-' || *p == '+') number.negative = *p++ == '-';
  const char* const digits = p;
  uint64_t magnitude = 0;
  for (unsigned digit; (digit = static_cast<unsigned char>(*p) - unsigned{'0'}) <= 9; ++p)
    magnitude = magnitude * 10 + digit;
  number.magnitude = magnitude;
  number.converted = p != digits;
  const std::string_view scanned(digits, p);
  if (scanned.size() > kSafeDigits) number.overflow = overflows(scanned);
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

uint64_t FieldScanner::nextNumber(bool isSigned) {
  const Number number = scanNumber(_next);
  if (!number.converted) _next = kFailed;
  return isSigned ? static_cast<uint64_t>(toInt64(number).value) : toUint64(number);
}

SaturatedInt64 scanInt64(const char* text) {
  return toInt64(scanNumber(text));
}

bool digitsToInt64(std::string_view text, SaturatedInt64& number) {
  Number scanned;
  for (const char c : text) {
    const unsigned digit = static_cast<unsigned char>(c) - unsigned{'0'};
    if (digit > 9) return false;
    scanned.magnitude = scanned.magnitude * 10 + digit;
  }
  scanned.overflow = text.size() > kSafeDigits && overflows(text);
  number = toInt64(scanned);
  return true;
}

int64_t textToInt64(const char* text) {
  return scanInt64(text).value;
}

int32_t textToInt32(const char* text) {
  return static_cast<int32_t>(textToInt64(text));
}

}  // namespace badgemint
