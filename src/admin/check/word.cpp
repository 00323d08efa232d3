#include "admin/check/word.h"

#include <algorithm>

#include "admin/check/finding.h"
#include "support/fieldscanner.h"
#include "support/textutil.h"

namespace badgemint::admin {

namespace {

// The length of the number at the start of a text, with its sign; 0 for none.
size_t numberLength(std::string_view text) {
  const size_t sign = !text.empty() && (text[0] == '-' || text[0] == '+') ? 1 : 0;
  size_t end = sign;
  while (end < text.size() && isDigit(text[end])) ++end;
  return end > sign ? end : 0;
}

// Three numbers with `separator` between them; its length, or 0.
size_t tripleLength(std::string_view word, char separator) {
  size_t end = 0;
  for (int i = 0; i < 3; ++i) {
    if (i > 0 && (end >= word.size() || word[end++] != separator)) return 0;
    const size_t length = numberLength(word.substr(end));
    if (length == 0) return 0;
    end += length;
  }
  return end;
}

// In UTF-8, and alone in the 8-bit sets; elsewhere in UTF-8 its byte is the end of a letter.
bool isNoBreakSpace(std::string_view text, size_t i) {
  if (text.substr(i).starts_with("\xC2\xA0")) return true;
  return text[i] == '\xA0' && (i == 0 || (text[i - 1] & 0x80) == 0);
}

// The characters that a field of the kind can have beside digits.
std::string_view othersThanDigits(FieldKind kind) {
  switch (kind) {
    case FieldKind::kCardNumber:
      return "ABCDEFabcdef";
    case FieldKind::kDate:
      return "/";
    case FieldKind::kTime:
      return ":";
    default:
      return "-+";
  }
}

size_t mostDigits(const LineField& field) {
  switch (field.kind) {
    case FieldKind::kCardNumber:
      return 32;
    case FieldKind::kDate:
      return 8;
    case FieldKind::kTime:
      return 6;
    default:
      return fmt::formatted_size("{}", field.most);
  }
}

}  // namespace

Word classify(std::string_view word) {
  if (word.starts_with('#')) return {WordKind::kComment};
  const size_t number = numberLength(word);
  if (number == 0) return {WordKind::kOther};
  if (number == word.size()) return {WordKind::kNumber};
  if (const size_t date = tripleLength(word, '/'); date > 0)
    return {WordKind::kDate, word.substr(date)};
  if (const size_t time = tripleLength(word, ':'); time > 0)
    return {WordKind::kTime, word.substr(time)};
  return {WordKind::kNumberWithRest, word.substr(number)};
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

ShownWord shown(std::string_view word, const LineField& field) {
  if (field.kind == FieldKind::kPin) return {};
  ShownWord shown{word};
  const std::string_view others = othersThanDigits(field.kind);
  shown.mostDigits = mostDigits(field);
  for (const char c : word) {
    const bool isLateSign = (c == '-' || c == '+') && shown.length > 0;
    if (!isDigit(c) && (isLateSign || others.find(c) == std::string_view::npos)) break;
    ++shown.length;
    shown.digits += isDigit(c) ? 1 : 0;
  }
  return shown;
}

ShownWord shownName(std::string_view word) {
  const auto isLetter = [](char c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; };
  const auto end = std::ranges::find_if_not(word, isLetter);
  return {word, static_cast<size_t>(end - word.begin())};
}

std::string ShownWord::text() const {
  if (hasTooManyDigits()) return fmt::format("of {} digits", digits);
  // The character after it shows what is wrong; of a PIN no digit is shown.
  const bool showsNext = length < word.size() && !isDigit(word[length]);
  const size_t end = length + (showsNext ? 1 : 0);
  return fmt::format("\"{}{}\"", printable(word.substr(0, end)), end < word.size() ? "..." : "");
}

}  // namespace badgemint::admin
