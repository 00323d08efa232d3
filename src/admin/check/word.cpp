#include "admin/check/word.h"

#include <algorithm>

#include "admin/check/finding.h"
#include "cardsets/card_functions.h"
#include "support/fieldscanner.h"

namespace badgemint::admin {

namespace {

// In UTF-8, and alone in the 8-bit sets; elsewhere in UTF-8 its byte is the end of a letter.
bool isNoBreakSpace(std::string_view text, size_t i) {
  if (text.substr(i).starts_with("\xC2\xA0")) return true;
  return text[i] == '\xA0' && (i == 0 || (text[i - 1] & 0x80) == 0);
}

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

std::optional<HiddenByte> findHiddenByte(std::string_view line, size_t from, size_t comment) {
  std::string_view text = line;
  for (int i = 0; i < 2 && (text.ends_with('\n') || text.ends_with('\r')); ++i)
    text.remove_suffix(1);
  constexpr std::string_view kHidden("\0\r\xA0", 3);
  if (std::ranges::none_of(kHidden,
                           [text](char c) { return text.find(c) != std::string_view::npos; }))
    return {};
  for (size_t i = from; i < text.size(); ++i) {
    if (text[i] == '\0') {
      if (text.find_first_not_of('\0', i) == std::string_view::npos) return {};
      return HiddenByte{i, "a NUL byte: the rest of the line is not read"};
    }
    if (text[i] == '\r') return HiddenByte{i, "a carriage return within the line does not end it"};
    if (i < comment && isNoBreakSpace(text, i))
      return HiddenByte{i, "a no-break space is not a blank but part of the word"};
  }
  return {};
}

bool isMergeMark(std::string_view line) {
  for (const char* const mark : {"<<<<<<<", "|||||||", "=======", ">>>>>>>"})
    if (line.starts_with(mark) && (line.size() == 7 || isSpace(line[7]))) return true;
  return false;
}

bool isUtf16(std::string_view start) {
  if (start.starts_with("\xFF\xFE") || start.starts_with("\xFE\xFF")) return true;
  const auto isNul = [start](size_t i) { return i < start.size() && start[i] == '\0'; };
  return start.size() >= 4 && isNul(0) != isNul(1) && isNul(0) == isNul(2) && isNul(1) == isNul(3);
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
