#include "admin/check/cardscheck.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "admin/files/folder.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

constexpr char kCsvText[] =
    "every line has commas or semicolons between its words: a CSV file? examples/csv-to-cards "
    "makes a cards file from it";

bool isIgnored(const char* line) {
  return isBlank(line) || *line == kCommentLine;
}

// What an editor does not show in a line and a build reads otherwise.
std::optional<OddText> findOdd(LineReader& input) {
  const std::string_view raw(input.line(), input.length());
  if (auto odd = findOddText(input, raw[0] == kFieldsLine); odd || raw[0] != kMultiCardsLine)
    return odd;
  if (std::strcspn(input.line(), kBlockDelimiters) > 1)
    return OddText{1, "what follows 'd' without a space is ignored"};
  const std::string_view words = raw.substr(0, commentStart(raw));
  const size_t tab = words.substr(0, words.find_last_not_of(" \t\r\n") + 1).find('\t');
  if (tab != std::string_view::npos)
    return OddText{
        tab, "tabs in a 'd' line separate nothing: cards get wrong holders or levels; use spaces"};
  return {};
}

int32_t checkByType(CardsCheck& check, CheckedLine& line);

// Checks a line of a wrong type without reporting, so that later lines find its card set or holder.
void readDespiteType(CardsCheck& check, const CheckedLine& line) {
  std::string copy = line.text;
  char* start = copy.data();
  if (copy.starts_with(kByteOrderMark)) start += kByteOrderMark.size();
  while (isSpace(*start)) ++start;
  const char type = static_cast<char>(*start | 0x20);  // In lower case.
  if (std::strchr("fcnpod", type) == nullptr) return;
  *start = type;
  CheckedLine fixed{nullptr, line.start, start, true};
  checkByType(check, fixed);
}

int32_t reportLineType(CardsCheck& check, const CheckedLine& line) {
  const std::string_view text = line.text;
  check.findings.setVerdict(kInvalidLine, line.whole());
  if (isMergeMark(text)) {
    reportMergeMark(check.findings, check.mergeMark, line.whole(), kInvalidLine);
  } else {
    line.error(line.at(text), kInvalidLine,
               "{} is not a line type: a line begins with f, c, n, p, o, d or #",
               text.starts_with(kByteOrderMark) ? "a byte order mark"
               : isDigit(text[0])               ? "a digit"
                                                : shownName(text.substr(0, 1)));
    readDespiteType(check, line);
  }
  return kInvalidLine;
}

int32_t checkByType(CardsCheck& check, CheckedLine& line) {
  if (*line.text == kFieldsLine) return checkCardSetLine(check, line);
  if (*line.text == kMultiCardsLine) return checkBlockLine(check, line);
  const bool isHolder = !lineFields(*line.text).empty();
  return isHolder ? checkHolderLine(check, line) : reportLineType(check, line);
}

void checkLine(CardsCheck& check, LineReader& input) {
  CheckedLine line{
      &check.findings, {check.file, input.lineNumber(), input.bytesBefore() + 1}, input.line()};
  const bool hasWords = !isIgnored(line.text);
  const std::optional<OddText> odd = findOdd(input);
  line.isHidden = odd.has_value();
  if (hasWords) {
    const int32_t result = checkByType(check, line);
    if (result < 0 && check.findings.errors() == 0)
      line.error(line.whole(), result, "the line cannot be read");
  }
  if (!odd || std::string_view(line.text).starts_with(kByteOrderMark)) return;
  line.warn(line.at(line.text + odd->offset), "text", "{}", odd->effect);
  if (hasWords) check.unreliableLines.push_back(line.number());
}

// What the file is as a whole when it is not a cards file, else null.
const char* otherFileText(const std::string& path) {
  LineReader lines;
  if (!lines.open(path.c_str())) return nullptr;
  bool hasWords = false;
  while (lines.readLine(kMaxInputLine) == LineReader::Status::kLine) {
    if (isUtf16(lines)) return kUtf16Text;
    const std::string_view line(lines.line(), lines.length());
    if (isIgnored(lines.line()) || line[0] == kFieldsLine) continue;
    const std::string_view words = line.substr(0, commentStart(line));
    if (std::ranges::count(words, ',') < 2 && std::ranges::count(words, ';') < 2) return nullptr;
    hasWords = true;
  }
  return hasWords ? kCsvText : nullptr;
}

void checkLines(CardsCheck& check, InputFile& input) {
  LineReader& lines = input.lines();
  while (lines.readLine(kMaxInputLine) == LineReader::Status::kLine) checkLine(check, lines);
  if (lines.failed())
    check.findings.fail({check.file}, kInputReadFailed, "cannot be read: {}", std::strerror(errno));
  else if (input.checkUnchanged() < 0)
    check.findings.fail({check.file}, kInputReadFailed, "was changed while it was read");
  else if (!lines.endedLine())
    check.findings.warn({check.file, lines.lineNumber(), 0}, "text", kNoNewlineText);
}

SiteSummary checkCards(CardsCheck& check) {
  const auto input = std::make_unique<InputFile>();
  if (!input->setName(check.options.cards.c_str())) throw std::bad_alloc();
  if (const int32_t result = input->open(); result != kSuccess) {
    check.findings.fail({check.file}, result, "cannot be opened: {}", std::strerror(errno));
    return {};
  }
  checkLines(check, *input);
  const SiteSummary summary = {check.index.count(), checkWholeFile(check)};
  const auto& dates = check.otherDates;
  const size_t alike = dates.size() == 1 && !check.hasDate ? dates.begin()->second : 0;
  if (check.index.count() == 0 && check.findings.errors() == 0 && !check.options.allowEmpty)
    check.findings.warn({check.file, 0, 0}, "empty",
                        "no card and no PIN: a build makes empty databases, which open no door");
  else if (alike > 1 && check.findings.counts().at("date") == alike)
    check.findings.combine(
        "date", fmt::format("no date of the file is year/month/day, so no card has a start or an "
                            "end; dates like this one: {}",
                            alike));
  return summary;
}

// Always of the same words, for programs that read it.
void printSummary(const Findings& findings, const SiteSummary& summary, Console& console) {
  if (findings.errors() == 0)
    console.print("no errors, {} warnings; {} credentials of {} holders\n", findings.warnings(),
                  summary.credentials, summary.holders);
  else
    console.print("{} errors, {} warnings; a build ends with {} at {}\n", findings.errors(),
                  findings.warnings(), findings.verdict().result,
                  findings.placeText(findings.verdict().place));
}

void printJsonSummary(const Findings& findings, const SiteSummary& summary, Console& console) {
  JsonObject numbers;
  numbers.add("errors", findings.errors()).add("warnings", findings.warnings());
  const size_t all = findings.errors() + findings.warnings(), kept = findings.sorted().size();
  if (all > kept) numbers.add("left_out", all - kept);
  if (findings.errors() == 0) {
    numbers.add("credentials", summary.credentials).add("holders", summary.holders);
  } else {
    const Verdict& verdict = findings.verdict();
    numbers.add("result", verdict.result).add("file", findings.fileName(verdict.place.file));
    if (verdict.place.line > 0) numbers.add("line", verdict.place.line);
  }
  console.printJson(JsonObject().add("summary", numbers));
}

}  // namespace

void CardsCheck::addOtherDate(std::string_view date) {
  std::string notation;
  for (const char c : date)
    if (!isDigit(c) || !notation.ends_with('N')) notation += isDigit(c) ? 'N' : c;
  ++otherDates[notation];
}

int32_t CardsCheck::checkAsBuild(const CheckedLine& line, char* text, const CheckedFormat* format) {
  const bool isUnloaded = format != nullptr && format->format == nullptr;
  const int32_t result = isUnloaded ? kFormatNotDefined : checker.check({text, line.number()});
  if (result == kOutOfMemory) throw std::bad_alloc();
  if (result < 0) findings.setVerdict(result, line.whole());
  return result;
}

SiteSummary checkSite(const SiteCheckOptions& options, Findings& findings) {
  requireRegularFile(options.cards);
  requireRegularFile(options.formats);
  AccessLevelSet levels;
  if (!options.levels.empty()) readLevels(options.levels, levels, findings);
  const auto site = std::make_unique<SiteCards>();
  if (site->create() != kSuccess) throw std::bad_alloc();

  const CheckedFormats formats = checkFormats(options.formats, site->formats(), findings);
  const int file = findings.addFile(options.cards);
  const char* const otherFile = otherFileText(options.cards);
  Findings lineFindings;  // One finding takes their place in a file of another kind.
  Findings& used = otherFile == nullptr ? findings : lineFindings;
  CardsCheck check{options, *site, formats, levels, used, file};
  if (!check.index.isInitialised()) throw std::bad_alloc();
  const SiteSummary summary = checkCards(check);
  if (otherFile == nullptr) return summary;
  const auto [result, place] = lineFindings.verdict();
  findings.setVerdict(result, place);
  findings.add({.place = {file, result < 0 ? place.line : 1},
                .code = result,
                .rule = result < 0 ? "" : "text"},
               otherFile, {});
  return summary;
}

ExitStatus report(const Findings& findings, const SiteSummary& summary, bool isStrict,
                  Console& console, bool asJson) {
  findings.print(console, asJson);
  asJson ? printJsonSummary(findings, summary, console) : printSummary(findings, summary, console);
  if (findings.errors() > 0 || (isStrict && findings.warnings() > 0)) return ExitStatus::kRefused;
  return findings.warnings() > 0 ? ExitStatus::kFound : ExitStatus::kAllWell;
}

}  // namespace badgemint::admin
