#include "admin/check/finding.h"

#include <tuple>

#include "cardsets/card_functions.h"

namespace badgemint::admin {

namespace {

constexpr char kDigits[] = "0123456789";
constexpr char kHexDigits[] = "0123456789ABCDEFabcdef";

// The characters that a word of a field can have after a sign, and the most digits.
std::pair<const char*, size_t> notationOf(const LineField& field, bool isHex) {
  switch (field.kind) {
    case FieldKind::kCardNumber:
      return {isHex ? kHexDigits : kDigits, kMaxCardNumberDigits};
    case FieldKind::kDate:
      return {"0123456789/", 8};
    case FieldKind::kTime:
      return {"0123456789:", 6};
    default:
      return {kDigits, fmt::format_int(field.most).size()};
  }
}

size_t signLength(std::string_view word) {
  return word.starts_with('-') || word.starts_with('+') ? 1 : 0;
}

// The first characters of a word, in quotes. The one after them shows what is wrong; no digit is
// shown that may be of a PIN.
std::string quoted(std::string_view word, size_t length) {
  const bool showsNext = length < word.size() && !isDigit(word[length]);
  return inQuotes(word, length + (showsNext ? 1 : 0));
}

}  // namespace

bool About::hasNumber() const {
  return !card.empty() && card.size() <= kMaxCardNumberDigits &&
         card.find_first_not_of(isHex ? kHexDigits : kDigits) == std::string::npos;
}

std::string About::name() const {
  if (!holder && !hasNumber()) return "";
  std::string name = card.empty() ? "PIN" : "card";
  if (hasNumber()) name += ' ' + card;
  return holder ? fmt::format("{} of holder {}", name, *holder) : name;
}

int Findings::addFile(std::string name) {
  _files.push_back(std::move(name));
  return static_cast<int>(_files.size()) - 1;
}

size_t Findings::add(Finding finding, fmt::string_view format, fmt::format_args args) {
  ++(finding.isError() ? _errors : _warnings);
  if (++_counts[finding.kind()] > _mostOfOneKind) return kNotKept;
  finding.text = fmt::vformat(format, args);
  _kept.push_back(std::move(finding));
  return _kept.size() - 1;
}

void Findings::countFurther(size_t error) {
  if (Finding* const finding = find(error)) ++finding->further;
}

void Findings::combine(std::string_view rule, const std::string& text) {
  const Place first = std::ranges::find(_kept, rule, &Finding::rule)->place;
  std::erase_if(_kept, [rule](const Finding& finding) { return finding.rule == rule; });
  _warnings -= std::exchange(_counts[std::string(rule)], 0);
  warn(first, rule, "{}", text);
}

void Findings::setVerdict(int32_t result, Place place) {
  if (_verdict.result == 0) _verdict = {result, place};
}

std::vector<Finding> Findings::sorted() const {
  std::vector<Finding> findings = _kept;
  for (Finding& finding : findings)
    if (finding.further > 0)
      finding.text += fmt::format("; further lines affected: {}", finding.further);
  std::ranges::stable_sort(findings, {}, [](const Finding& finding) {
    const Place& place = finding.place;
    return std::tuple(place.file, place.line, place.column, place.record);
  });
  return findings;
}

std::map<std::string, size_t> Findings::notKept() const {
  std::map<std::string, size_t> more;
  for (const auto& [kind, count] : _counts)
    if (count > _mostOfOneKind) more[kind] = count - _mostOfOneKind;
  return more;
}

std::string Findings::placeText(const Place& place) const {
  std::string name = printable(fileName(place.file));
  if (place.record >= 0)
    return fmt::format("{}: record {} (offset {})", name, place.record, place.offset);
  if (place.line == 0) return name;
  return place.column > 0 ? fmt::format("{}:{}:{}", name, place.line, place.column)
                          : fmt::format("{}:{}", name, place.line);
}

void Findings::print(Console& console, bool asJson) const {
  for (const Finding& finding : sorted()) {
    asJson ? console.printJson(json(finding))
           : console.print("{}: {}: {} [{}]\n", placeText(finding.place),
                           console.severityText(finding.isError()), finding.text, finding.kind());
  }
  if (asJson) return;
  for (const auto& [kind, count] : notKept())
    console.print("{} more findings [{}] (--all prints them)\n", count, kind);
}

JsonObject Findings::json(const Finding& finding) const {
  const auto& [file, line, column, record, offset] = finding.place;
  JsonObject object;
  object.add("file", fileName(file));
  if (line > 0) object.add("line", line);
  if (column > 0) object.add("column", column);
  if (record >= 0) object.add("record", record).add("offset", offset);
  object.add("severity", finding.isError() ? "error" : "warning");
  if (finding.rule.empty())
    object.add("result", finding.code);
  else
    object.add("rule", finding.rule);
  object.add("text", finding.text);
  const About& about = finding.about;
  if (about.holder) object.add("holder", *about.holder);
  if (about.set >= kFirstCardSetId && about.set <= kLastCardSetId) object.add("set", about.set);
  if (about.hasNumber()) object.add("card", about.card);
  if (!about.key.empty()) object.add("key", about.key);
  return object;
}

std::string keyText(const CardPattern& key) {
  std::string text(2 * key.size(), '0');
  for (size_t i = 0; i < key.size(); ++i) putHex(key[i], text.data() + 2 * i);
  return text;
}

std::string inQuotes(std::string_view word, size_t most) {
  return fmt::format("\"{}{}\"", printable(word.substr(0, most)), word.size() > most ? "..." : "");
}

size_t numberLength(std::string_view text) {
  const size_t sign = signLength(text);
  size_t end = sign;
  while (end < text.size() && isDigit(text[end])) ++end;
  return end > sign ? end : 0;
}

std::string shown(std::string_view word, const LineField& field, bool isHex) {
  if (field.kind == FieldKind::kPin) return {};
  const auto [characters, mostDigits] = notationOf(field, isHex);
  const size_t end = word.find_first_not_of(characters, signLength(word));
  const std::string_view part = word.substr(0, end);
  const auto digits = static_cast<size_t>(std::ranges::count_if(part, isDigit));
  return digits > mostDigits ? fmt::format("of {} digits", digits) : quoted(word, part.size());
}

std::string effectOf(std::string_view shownWord, const char* effect, int64_t number) {
  return shownWord.starts_with('"') ? fmt::format(": {} {}", effect, number) : "";
}

std::string shownName(std::string_view word) {
  return quoted(word, std::min(word.find_first_of(kDigits), word.size()));
}

}  // namespace badgemint::admin
