#include "admin/check/word.h"

#include <algorithm>

#include "admin/check/finding.h"
#include "cardsets/card_functions.h"
#include "support/fieldscanner.h"

namespace badgemint::admin {

namespace {

// The characters that a field of the kind can have beside digits.
std::string_view othersThanDigits(FieldKind kind, bool isHex) {
  if (kind == FieldKind::kDate) return "/";
  if (kind == FieldKind::kTime) return ":";
  return isHex ? "ABCDEFabcdef" : "";
}

size_t mostDigits(const LineField& field) {
  if (field.kind == FieldKind::kCardNumber) return kMaxCardNumberDigits;
  if (field.kind == FieldKind::kDate) return 8;
  if (field.kind == FieldKind::kTime) return 6;
  return fmt::formatted_size("{}", field.most);
}

// The first characters of a word, in quotes. The one after them shows what is wrong; no digit is
// shown that may be of a PIN.
std::string quoted(std::string_view word, size_t length) {
  const bool showsNext = length < word.size() && !isDigit(word[length]);
  const size_t end = length + (showsNext ? 1 : 0);
  return fmt::format("\"{}{}\"", printable(word.substr(0, end)), end < word.size() ? "..." : "");
}

// The part of a word that its field can have.
std::string_view possiblePart(std::string_view word, const LineField& field, bool isHex) {
  const std::string_view others = othersThanDigits(field.kind, isHex);
  const size_t sign = others.empty() && (word.starts_with('-') || word.starts_with('+')) ? 1 : 0;
  size_t end = sign;
  while (end < word.size() &&
         (isDigit(word[end]) || others.find(word[end]) != std::string_view::npos))
    ++end;
  return word.substr(0, end);
}

size_t countDigits(std::string_view text) {
  return static_cast<size_t>(std::ranges::count_if(text, isDigit));
}

}  // namespace

size_t numberLength(std::string_view text) {
  const size_t sign = text.starts_with('-') || text.starts_with('+') ? 1 : 0;
  size_t end = sign;
  while (end < text.size() && isDigit(text[end])) ++end;
  return end > sign ? end : 0;
}

int64_t wordValue(std::string_view word) {
  if (word.size() == 1 && isDigit(word[0])) return word[0] - '0';  // As most are.
  SaturatedInt64 number{};
  return digitsToInt64(word, number) ? number.value : textToInt64(word.data());
}

std::string shown(std::string_view word, const LineField& field, bool isHex) {
  if (field.kind == FieldKind::kPin) return {};
  const std::string_view part = possiblePart(word, field, isHex);
  if (countDigits(part) > mostDigits(field)) return fmt::format("of {} digits", countDigits(part));
  return quoted(word, part.size());
}

bool hasTooManyDigits(std::string_view word, const LineField& field) {
  return countDigits(possiblePart(word, field, false)) > mostDigits(field);
}

std::string shownName(std::string_view word) {
  const auto isLetter = [](char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; };
  const auto end = std::ranges::find_if_not(word, isLetter);
  return quoted(word, static_cast<size_t>(end - word.begin()));
}

}  // namespace badgemint::admin
