#include "admin/check/oddtext.h"

#include "support/tokenizer.h"

namespace badgemint::admin {

namespace {

constexpr size_t kNotFound = std::string_view::npos;

bool isStartOfFile(LineReader& line) {
  return line.lineNumber() == 1 && line.bytesBefore() == 0;
}

// In UTF-8, and alone in the 8-bit sets; elsewhere in UTF-8 its byte is the end of a letter.
bool isNoBreakSpace(std::string_view text, size_t i) {
  if (text.substr(i).starts_with("\xC2\xA0")) return true;
  return text[i] == '\xA0' && (i == 0 || (text[i - 1] & 0x80) == 0);
}

}  // namespace

bool isUtf16(LineReader& line) {
  const std::string_view start(line.line(), line.length());
  if (!isStartOfFile(line)) return false;
  if (start.starts_with("\xFF\xFE") || start.starts_with("\xFE\xFF")) return true;
  const auto isNul = [start](size_t i) { return i < start.size() && start[i] == '\0'; };
  return start.size() >= 4 && isNul(0) != isNul(1) && isNul(0) == isNul(2) && isNul(1) == isNul(3);
}

size_t commentStart(std::string_view line) {
  size_t mark = line.find('#');
  while (mark != kNotFound && mark > 0 && !isSpace(line[mark - 1])) mark = line.find('#', mark + 1);
  return mark;
}

std::optional<OddText> findHiddenByte(std::string_view line, size_t from, size_t comment) {
  std::string_view text = line;
  for (int i = 0; i < 2 && (text.ends_with('\n') || text.ends_with('\r')); ++i)
    text.remove_suffix(1);
  constexpr std::string_view kHidden("\0\r\xA0", 3);
  if (std::ranges::none_of(kHidden, [text](char c) { return text.find(c) != kNotFound; }))
    return {};
  for (size_t i = from; i < text.size(); ++i) {
    if (text[i] == '\0') {
      if (text.find_first_not_of('\0', i) == kNotFound) return {};
      return OddText{i, "a NUL byte: the rest of the line is not read"};
    }
    if (text[i] == '\r') return OddText{i, "a carriage return within the line does not end it"};
    if (i < comment && isNoBreakSpace(text, i))
      return OddText{i, "a no-break space is not a blank but part of the word"};
  }
  return {};
}

std::optional<OddText> findOddText(LineReader& line, bool isForTokenizer) {
  const std::string_view text(line.line(), line.length());
  if (isStartOfFile(line) && text.starts_with(kByteOrderMark))
    return OddText{0, "a byte order mark is read as part of the first word"};
  const size_t comment = commentStart(text);
  if (line.bytesBefore() > 0 && text.find_first_not_of(" \t\r\n") < std::min(comment, text.size()))
    return OddText{0, kLongLineText};
  if (const auto hidden = findHiddenByte(text, 0, comment)) return hidden;
  const size_t mark = isForTokenizer ? text.find('#') : kNotFound;
  if (mark != kNotFound && mark > 0 &&
      std::string_view(kWordDelimiters).find(text[mark - 1]) == kNotFound)
    return OddText{mark,
                   "'#' without a space before it ends only this word; the rest of the line is "
                   "still read"};
  return {};
}

bool isMergeMark(std::string_view line) {
  for (const char* const mark : {"<<<<<<<", "|||||||", "=======", ">>>>>>>"})
    if (line.starts_with(mark) && (line.size() == 7 || isSpace(line[7]))) return true;
  return false;
}

size_t reportMergeMark(Findings& findings, size_t& finding, Place place, int32_t result) {
  if (finding != Findings::kNotKept)
    findings.countFurther(finding);
  else
    finding = result < 0 ? findings.fail(place, result, kMergeMarkText)
                         : findings.add({.place = place, .rule = "text"}, kMergeMarkText, {});
  return finding;
}

}  // namespace badgemint::admin
