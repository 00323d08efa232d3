#include "admin/check/cardscheck.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <system_error>
#include <utility>

#include "admin/files/sitepaths.h"
#include "admin/json.h"
#include "cardsets/card_functions.h"
#include "inputcards/inputfile.h"
#include "support/linereader.h"
#include "support/result.h"
#include "support/tokenizer.h"

namespace badgemint::admin {

namespace {

constexpr char kRestOfLongLine[] =
    "a line of more than 300 characters: the rest is read as another line";

size_t commentStart(std::string_view line) {
  for (size_t mark = line.find('#'); mark != std::string_view::npos;
       mark = line.find('#', mark + 1))
    if (mark == 0 || isSpace(line[mark - 1])) return mark;
  return std::string_view::npos;
}

// What an editor does not show in a line and a build reads otherwise. In a comment only a carriage
// return and a NUL count: they may hide whole lines.
std::optional<HiddenByte> findHidden(LineReader& input) {
  const std::string_view raw(input.line(), input.length());
  std::optional<HiddenByte> hidden = findHiddenByte(raw);
  while (hidden && (raw[hidden->offset] & 0x80) != 0 && hidden->offset > commentStart(raw))
    hidden = findHiddenByte(raw, hidden->offset + 1);
  if (hidden) return hidden;
  if (raw[0] == kMultiCardsLine) {
    const std::string_view words = raw.substr(0, commentStart(raw));
    const size_t tab = words.find('\t');
    if (tab != std::string_view::npos &&
        words.find_first_not_of(" \t\r\n", tab) != std::string_view::npos)
      return HiddenByte{tab, "a tab in a 'd' line does not separate words"};
  }
  if (raw[0] == kFieldsLine)
    if (const size_t mark = raw.find('#');
        mark != std::string_view::npos && std::strchr(kWordDelimiters, raw[mark - 1]) == nullptr)
      return HiddenByte{mark,
                        "'#' without a space before it ends only its word; the rest of the line is "
                        "still read"};
  if (input.bytesBefore() > 0) return HiddenByte{0, kRestOfLongLine};
  return {};
}

// Enters what other lines need of a line whose first character is wrong: its card set, its unique
// IDs.
void readDespiteType(CardsCheck& check, const CheckedLine& line) {
  std::string copy = line.text;
  char* start = copy.data();
  if (copy.starts_with(kByteOrderMark)) start += kByteOrderMark.size();
  while (isSpace(*start)) ++start;
  *start = static_cast<char>(*start | 0x20);  // In lower case.
  FieldScanner fields(start + 1);
  switch (*start) {
    case kFieldsLine:
      check.lineOfSet.try_emplace(fields.nextUnsigned(), line.start.line);
      check.checkAsBuild(line, start, 0);
      break;
    case kMultiCardsLine:
      check.addUnindexed(splitMultiCardsLine(start));
      break;
    case kCardLine:
    case kNoFormatCardLine: {
      const uint32_t uniqid = scanCardLine(fields).uniqid;
      check.unindexed.push_back({uniqid, uniqid});
      break;
    }
    case kPinLine:
    case kPinIdentLine: {
      const uint32_t uniqid = scanPinLine(fields).uniqid;
      check.unindexed.push_back({uniqid, uniqid});
      break;
    }
    default:
      break;
  }
}

// One error for all marks of the file.
int32_t reportMergeMark(CardsCheck& check, const CheckedLine& line) {
  if (check.hasMergeMark)
    check.findings.countFurther(check.mergeMark, "further marks");
  else
    check.mergeMark = line.error(line.whole(), kInvalidLine,
                                 "a mark of a merge conflict: choose one of the two versions that "
                                 "follow and delete the marks");
  check.hasMergeMark = true;
  return kInvalidLine;
}

int32_t reportLineType(CardsCheck& check, const CheckedLine& line) {
  const std::string_view text = line.text;
  const Place place = line.at(text);
  check.findings.setVerdict(kInvalidLine, line.whole());
  if (isMergeMark(text)) return reportMergeMark(check, line);
  if (line.start.column > 1)
    check.findings.error(place, kInvalidLine, kRestOfLongLine);
  else if (text.starts_with(kByteOrderMark))
    line.error(place, kInvalidLine, "the file begins with a byte order mark, not with a line type");
  else if (isSpace(text[0]))
    line.error(place, kInvalidLine, "white space before the line type");
  else
    line.error(place, kInvalidLine,
               "{} is not a line type: a line begins with f, c, n, p, o, d or #",
               shownName(text.substr(0, 1)));
  readDespiteType(check, line);
  return kInvalidLine;
}

int32_t checkByType(CardsCheck& check, CheckedLine& line) {
  switch (*line.text) {
    case kCardLine:
    case kNoFormatCardLine:
    case kPinLine:
    case kPinIdentLine:
      return checkHolderLine(check, line);
    case kFieldsLine:
      return checkCardSetLine(check, line);
    case kMultiCardsLine:
      return checkBlockLine(check, line);
    default:
      return reportLineType(check, line);
  }
}

void checkLine(CardsCheck& check, LineReader& input) {
  CheckedLine line{
      check.findings, {check.file, input.lineNumber(), input.bytesBefore() + 1}, input.line()};
  const std::optional<HiddenByte> hidden = findHidden(input);
  const bool isIgnored = isBlank(line.text) || *line.text == kCommentLine;
  if (!hidden) {
    if (!isIgnored) checkByType(check, line);
    return;
  }
  const Place place = line.at(line.text + hidden->offset);
  if (isIgnored) {
    if (hidden->offset > 0 || line.start.column == 1)
      line.warn(place, "text", "{}", hidden->effect);
    return;
  }
  line.note = fmt::format("; column {}: {}", place.column, hidden->effect);
  if (checkByType(check, line) < 0) return;  // The note is part of the error.
  line.warn(place, "text", "{}", hidden->effect);
  check.misread.push_back(static_cast<int32_t>(line.start.line));
}

// Reports an error of the file as a whole.
template <typename... Args>
void failFile(CardsCheck& check, int32_t result, fmt::format_string<Args...> format,
              Args&&... args) {
  const Place place{check.file, 0, 0};
  check.findings.setVerdict(result, place);
  check.findings.error(place, result, format, std::forward<Args>(args)...);
}

bool openCards(CardsCheck& check, InputFile& input) {
  if (!input.setName(check.options.cards.c_str())) throw std::bad_alloc();
  const int32_t result = input.open();
  if (result == kSuccess) return true;
  if (result == kInputOpenFailed)
    failFile(check, result, "cannot be opened: {}", std::strerror(errno));
  else
    failFile(check, result, "cannot be read twice, as a build reads it");
  return false;
}

void checkLines(CardsCheck& check, InputFile& input, SiteSummary& summary) {
  LineReader& lines = input.lines();
  LineReader::Status status = LineReader::Status::kLine;
  bool isComplete = true;
  while ((status = lines.readLine(kMaxInputLine)) == LineReader::Status::kLine) {
    isComplete = lines.line()[lines.length() - 1] == '\n' || lines.length() == kMaxInputLine;
    checkLine(check, lines);
  }
  if (status == LineReader::Status::kError)
    failFile(check, kInputReadFailed, "cannot be read: {}", std::strerror(errno));
  else if (input.checkUnchanged() < 0)
    failFile(check, kInputReadFailed, "was changed while it was read");
  else if (!isComplete)
    check.findings.warn({check.file, lines.lineNumber(), 0}, "text",
                        "the last line has no newline: the end of the file may be missing");
  check.otherDates.finish();
  summary.credentials = check.index.count();
  summary.holders =
      checkWholeFile({check.index, std::move(check.unindexed), check.escorts, check.slippedEscorts,
                      check.misread, check.file, check.options.withPins},
                     check.findings);
  if (check.index.count() == 0 && check.findings.errors() == 0 && !check.options.allowEmpty)
    check.findings.warn({check.file, 0, 0}, "empty",
                        "no card and no PIN: a build makes empty databases, which open no door");
}

// What makes a file something else than a cards file as a whole; null for none.
const char* otherForm(LineReader& lines) {
  bool isCsv = false;
  while (lines.readLine(kMaxInputLine) == LineReader::Status::kLine) {
    const std::string_view line(lines.line(), lines.length());
    if (lines.lineNumber() == 1 && isUtf16(line))
      return "the file is in UTF-16, which a build does not read: save it as UTF-8";
    if (isBlank(lines.line()) || line[0] == kCommentLine) continue;
    const auto has = [words = line.substr(0, commentStart(line))](char separator) {
      return std::ranges::count(words, separator) >= 3;
    };
    isCsv = has(',') || has(';');
    if (!isCsv) return nullptr;
  }
  return isCsv ? "every line has commas or semicolons between its words: a CSV file? "
                 "examples/csv-to-cards makes a cards file from it"
               : nullptr;
}

// One finding for the file, with the result of a build, in place of those of its lines.
void reportForm(CardsCheck& check, InputFile& input, const char* form, SiteSummary& summary) {
  Findings ofLines;
  ofLines.addFile(check.options.cards);
  CardsCheck lines{check.options, check.site, check.formats, nullptr, ofLines, 0};
  if (!lines.index.isInitialised()) throw std::bad_alloc();
  checkLines(lines, input, summary);
  const Verdict& verdict = ofLines.verdict();
  const Place place{check.file, 1, 0};
  if (verdict.result == kSuccess) {
    check.findings.warn(place, "text", "{}", form);
    return;
  }
  check.findings.setVerdict(verdict.result, {check.file, verdict.place.line, verdict.place.column});
  check.findings.error(place, verdict.result, "{}", form);
}

void checkCards(CardsCheck& check, SiteSummary& summary) {
  const auto input = std::make_unique<InputFile>();
  if (!openCards(check, *input)) return;
  const char* const form = otherForm(input->lines());
  input->close();
  if (!openCards(check, *input)) return;
  form == nullptr ? checkLines(check, *input, summary) : reportForm(check, *input, form, summary);
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
  size_t leftOut = 0;
  for (const auto& [kind, count] : findings.notKept()) leftOut += count;
  if (leftOut > 0) numbers.add("left_out", leftOut);
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

std::string readAs(std::string_view word, const LineField& field, int64_t value) {
  // The digits of a word that may be a PIN could be worked out from the number.
  return shown(word, field).hasTooManyDigits() ? "" : fmt::format(": it is read as {}", value);
}

std::string named(const LineField& field) {
  const std::string_view name = field.name;
  return (isDigit(name.back()) ? "" : "the ") + std::string(name);
}

bool Subject::hasNumber() const {
  return !cardNumber.empty() && cardNumber.size() <= kMaxCardNumberDigits &&
         cardNumber.find_first_not_of("0123456789ABCDEFabcdef") == std::string_view::npos;
}

std::string Subject::text() const {
  if (kind == Kind::kBlock)
    return fmt::format("cards from {}, holders from {}", hasNumber() ? cardNumber : "?", uniqid);
  std::string text = kind == Kind::kPin ? "PIN" : "card";
  if (kind == Kind::kCard && hasNumber()) text.append(" ").append(cardNumber);
  return text + (hasHolder ? fmt::format(" of holder {}", uniqid) : " without a unique ID");
}

About Subject::about() const {
  About about;
  if (kind != Kind::kNone && hasHolder) about.holder = uniqid;
  if (csid >= kFirstCardSetId && csid <= kLastCardSetId) about.set = static_cast<uint32_t>(csid);
  if (hasNumber()) about.card = cardNumber;
  return about;
}

void OtherDates::add(std::string_view date, Finding finding) {
  std::string notation;
  for (const char c : date)
    if (!isDigit(c) || !notation.ends_with('N')) notation += isDigit(c) ? 'N' : c;
  if (_count++ == 0) _notation = notation;
  const bool isKept = _findings.keepsAll() || _kept.size() < Findings::kMostOfOneKind;
  if (isKept || _isMixed) _kept.push_back(std::move(finding));
  if (_isMixed || notation != _notation) flush();
}

void OtherDates::flush() {
  _isMixed = true;
  for (Finding& finding : _kept) {
    const std::string text = std::move(finding.text);
    _findings.add(std::move(finding), "{}", fmt::make_format_args(text));
  }
  for (; _count > _kept.size(); --_count) _findings.warn({}, "date", "");  // Beyond the hundred.
  _kept.clear();
  _count = 0;
}

void OtherDates::finish() {
  if (_isMixed || _count < 2) return flush();
  _findings.warn(_kept.front().place, "date",
                 "no date of the file is year/month/day, so no card has a start or an end; dates "
                 "like this one: {}",
                 _count);
}

int32_t CardsCheck::checkAsBuild(const CheckedLine& line, char* text, int32_t csid) {
  const int32_t result = unloadedFormat(csid) != nullptr
                             ? kFormatNotDefined
                             : checker.check({text, static_cast<int32_t>(line.start.line)});
  if (result == kOutOfMemory) throw std::bad_alloc();
  if (result < 0) findings.setVerdict(result, line.whole());
  return result;
}

const CheckedFormat* CardsCheck::unloadedFormat(int32_t csid) const {
  if (csid < kFirstCardSetId || csid > kLastCardSetId) return nullptr;
  const cardset* const set = site.cardSets().getCardSet(static_cast<uint32_t>(csid));
  const CheckedFormat* const format = set == nullptr ? nullptr : formats.find(set->fmtid);
  return format != nullptr && format->format == nullptr ? format : nullptr;
}

CardEncoder CardsCheck::encoderOf(const cardset& set) const {
  const CardFormat* const format = site.formats().findFormat(set.fmtid);
  return {format, format->encodeSite(set.fldvalues)};
}

bool CardsCheck::reportCardSet(const CheckedLine& line, std::string_view word,
                               const LineField& field, int32_t csid) const {
  if (csid >= kFirstCardSetId && csid <= kLastCardSetId) return false;
  line.error(line.at(word), kInvalidCardSet, "{} {} is not 1 to 253 ({})", field.name,
             shown(word, field), line.subject);
  return true;
}

bool CardsCheck::reportCardNumber(const CheckedLine& line, std::string_view number,
                                  const LineField& field, int32_t csid) const {
  const bool isHex = *line.text == kNoFormatCardLine;
  std::string_view text = number;
  const int32_t result = checkCardNumber(text, isHex ? 0 : std::max(csid, 1), isHex ? 1 : 0);
  if (result == kSuccess) return false;
  const Place place = line.at(number);
  const ShownWord word = shown(number, field);
  if (number.starts_with('#'))
    line.error(place, result, kEarlyComment, named(field));
  else if (word.length > kMaxCardNumberDigits)
    line.error(place, result, "{} of {} digits; at most {} are allowed ({})", field.name,
               word.length, kMaxCardNumberDigits, line.subject);
  else
    line.error(place, result, "{} {} has a character that is not a {} digit ({})", field.name, word,
               isHex ? "hexadecimal" : "decimal", line.subject);
  return true;
}

bool CardsCheck::reportEncoding(const CheckedLine& line, std::string_view number, int32_t csid) {
  const auto id = static_cast<uint32_t>(csid);
  const cardset* const set = site.cardSets().getCardSet(id);
  if (set == nullptr) {
    const auto [at, isFirst] = undefinedSets.try_emplace(id);
    if (isFirst)
      at->second =
          line.error(line.whole(), kInvalidCardSet,
                     "card set {} has no 'f' line before this line ({})", id, line.subject);
    else
      findings.countFurther(at->second, "further lines with this card set");
    return true;
  }
  if (const CheckedFormat* const format = unloadedFormat(csid); format != nullptr) {
    findings.countFurther(format->error, "lines of the cards file with this format");
    return true;
  }
  if (site.formats().findFormat(set->fmtid) != nullptr) return false;
  if (!formats.complete) return true;
  const auto [at, isFirst] = unlistedFormats.try_emplace(set->fmtid);
  if (isFirst)
    at->second = line.error(line.at(number), kFormatNotDefined,
                            "the formats file does not list format {} of card set {} ({})",
                            set->fmtid, id, line.subject);
  else
    findings.countFurther(at->second, "further lines with this format");
  return true;
}

void CardsCheck::checkRange(const CheckedLine& line, std::string_view word, const LineField& field,
                            int64_t value) const {
  if (value >= 0 && value <= field.most) return;
  // As a build reads it, which for numbers beyond 64 bits is not `value`.
  FieldScanner scanner(word.data());
  const uint32_t stored = field.most == UINT32_MAX
                              ? scanner.nextUnsigned()
                              : static_cast<uint32_t>(scanner.nextInt()) & field.most;
  line.warn(line.at(word), "range", "{} {} is not 0 to {}{} ({})", field.name, shown(word, field),
            field.most, readAs(word, field, stored), line.subject);
}

bool CardsCheck::hasNumberRange(int32_t csid) {
  NumberRange& range = numberRanges[static_cast<size_t>(csid)];
  if (!range.isKnown) {
    range.isKnown = true;
    const uint32_t fmtid = site.cardSets().getCardSet(static_cast<uint32_t>(csid))->fmtid;
    const CardFormat& format = *site.formats().findFormat(fmtid);
    const auto field = static_cast<size_t>(format.cardNumberField());
    if (field < kFieldCount) {
      const FieldDefinition& definition = format.fieldDefinitions()[field];
      range.low = definition.minval;
      range.high = definition.maxval < INT32_MAX ? definition.maxval : 0;
    }
  }
  return range.high > 0;
}

bool CardsCheck::checkNumberRange(const CheckedLine& line, std::string_view word,
                                  const LineField& field, int32_t csid, int64_t number) {
  if (!hasNumberRange(csid)) return false;
  const NumberRange& range = numberRanges[static_cast<size_t>(csid)];
  if (number >= range.low && number <= range.high) return false;
  line.warn(line.at(word), "range",
            "{} {} is not {} to {}, as format {} requires: no such card should exist ({})",
            field.name, number, range.low, range.high,
            site.cardSets().getCardSet(static_cast<uint32_t>(csid))->fmtid, line.subject);
  return true;
}

void CardsCheck::checkLevel(const CheckedLine& line, std::string_view word, const LineField& field,
                            int64_t level) const {
  checkRange(line, word, field, level);
  if (levels == nullptr || level <= 0 || level > UINT16_MAX) return;
  if (levels->findLevel(static_cast<uint32_t>(level)) >= 0) return;
  line.warn(line.at(word), "level", "access level {} is not defined and opens no door ({})", level,
            line.subject);
}

void readLevels(const std::string& path, AccessLevelSet& levels) {
  const auto reader = std::make_unique<LineReader>();
  if (!reader->open(path.c_str())) throw std::system_error(errno, std::generic_category(), path);
  if (!levels.readAccessLevels(*reader)) throw std::bad_alloc();
  if (reader->failed()) throw std::system_error(errno, std::generic_category(), path);
}

SiteSummary checkSite(const SiteCheckOptions& options, Findings& findings) {
  for (const std::string& path : {options.cards, options.formats, options.levels})
    if (!path.empty()) requireRegularFile(path);
  AccessLevelSet levels;
  if (!options.levels.empty()) {
    checkLevelsFile(options.levels, findings);
    readLevels(options.levels, levels);
  }
  const auto site = std::make_unique<SiteCards>();
  if (site->create() != kSuccess) throw std::bad_alloc();

  SiteSummary summary;
  const CheckedFormats formats = checkFormats(options.formats, site->formats(), findings);
  summary.inputs.push_back(options.formats);
  for (const CheckedFormat& format : formats.formats) summary.inputs.push_back(format.fileName);
  summary.inputs.push_back(options.cards);

  CardsCheck check{options,  *site,
                   formats,  options.levels.empty() ? nullptr : &levels,
                   findings, findings.addFile(options.cards)};
  if (!check.index.isInitialised()) throw std::bad_alloc();
  checkCards(check, summary);
  return summary;
}

ExitStatus report(const Findings& findings, const SiteSummary& summary, bool isStrict,
                  Console& console, bool asJson) {
  asJson ? findings.printJson(console) : findings.print(console);
  asJson ? printJsonSummary(findings, summary, console) : printSummary(findings, summary, console);
  if (findings.errors() > 0 || (isStrict && findings.warnings() > 0)) return ExitStatus::kRefused;
  return findings.warnings() > 0 ? ExitStatus::kFound : ExitStatus::kAllWell;
}

}  // namespace badgemint::admin
