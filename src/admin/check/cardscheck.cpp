#include "admin/check/cardscheck.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "admin/check/siterules.h"
#include "cardsets/card_functions.h"
#include "support/result.h"
#include "support/tokenizer.h"

namespace badgemint::admin {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr const char* kMoreOfSet = "further lines with this card set";

// What an eye does not see in a line and a build trips over; null when there is no such thing. Only
// what stands before a remark counts, but for a carriage return, which may hide whole lines.
struct Hidden {
  const char* at = nullptr;
  const char* what = nullptr;
};

Hidden findHidden(std::string_view text, size_t physicalLength) {
  if (text.size() < physicalLength)
    return {text.data() + text.size(), "a NUL byte: a build reads the line only up to here"};
  const size_t end = text.find_last_not_of("\r\n") + 1;
  if (const size_t at = text.find('\r'); at < end)
    return {text.data() + at,
            "a carriage return within a line: what follows is no line of its own"};
  const size_t mark = text[0] == kFieldsLine ? text.find('#') : std::string_view::npos;
  if (mark != std::string_view::npos && std::strchr(kWordDelimiters, text[mark - 1]) == nullptr)
    return {text.data() + mark,
            "a # glued to a word ends that word alone: what stands behind is read on"};
  if (text.find('\xA0') == std::string_view::npos && text.find('\t') == std::string_view::npos)
    return {};
  for (size_t at = 0; at < end; ++at) {
    if (text[at] == '#' && (at == 0 || isSpace(text[at - 1]))) break;
    const bool isSpaceByte = text[at] == '\xA0';
    const auto before = at == 0 ? '\0' : text[at - 1];
    if (isSpaceByte && (before == '\xC2' || static_cast<signed char>(before) >= 0))
      return {text.data() + at - (before == '\xC2' ? 1 : 0),
              "a no-break space: it is no blank and belongs to its word"};
    if (text[at] == '\t' && text[0] == kMultiCardsLine)
      return {text.data() + at, "a tab in a 'd' line: it does not separate words there"};
  }
  return {};
}

}  // namespace

CardsCheck::CardsCheck(const SiteCheckOptions& options, SiteCards& site,
                       const CheckedFormats& formats, const AccessLevelSet* levels,
                       Findings& findings)
    : _options(options),
      _site(site),
      _formats(formats),
      _findings(findings),
      _checker(site, _index),
      _rules(findings, levels),
      _file(findings.addFile(options.cards)) {
  if (!_index.isInitialised()) throw std::bad_alloc();
}

bool CardsCheck::open(InputFile& input) {
  if (!input.setName(_options.cards.c_str())) throw std::bad_alloc();
  const int32_t rc = input.open();
  if (rc == kSuccess) return true;
  const Place place{_file, 0, 0};
  _findings.setVerdict(rc, place);
  _findings.error(place, rc,
                  rc == kInputOpenFailed ? std::string("cannot be opened: ") + std::strerror(errno)
                                         : "cannot be read twice, as a build has to");
  return false;
}

void CardsCheck::run(SiteSummary& summary) {
  const auto input = std::make_unique<InputFile>();
  if (!open(*input)) return;
  LineReader& lines = input->lines();
  LineReader::Status status = LineReader::Status::kLine;
  while ((status = lines.readLine(kMaxInputLine)) == LineReader::Status::kLine) checkLine(lines);
  const bool failed = status == LineReader::Status::kError;
  if (failed || input->checkUnchanged() < 0) {
    const Place place{_file, 0, 0};
    _findings.setVerdict(kInputReadFailed, place);
    _findings.error(place, kInputReadFailed,
                    failed ? std::string("cannot be read: ") + std::strerror(errno)
                           : "changes while it is read");
  }
  tellMore(_undefinedSets, kMoreOfSet);
  tellMore(_unlistedFormats, "further lines with this format");
  tellMore(_unloadedFormats, "lines of the cards file with this format");
  summary.credentials = _index.count();
  summary.holders =
      checkWholeFile({_index, std::move(_unindexed), _rules.escorts(), _misread, _file}, _findings);
}

void CardsCheck::checkLine(LineReader& input) {
  const std::string_view text = input.line();
  const CheckedLine line{text, _file, input.lineNumber(), input.bytesBefore()};
  Hidden hidden = findHidden(text, input.length());
  if (isBlank(text.data()) || isRemark(text.data())) {
    if (hidden.at != nullptr) _findings.warning(line.at(hidden.at), "text", hidden.what);
    return;
  }
  if (line.bytesBefore > 0 && hidden.at == nullptr)
    hidden = {text.data(),
              "a line of more than 300 characters: what follows is read as a line of its own"};
  const size_t errors = _findings.errors();
  switch (text[0]) {
    case kCardLine:
    case kNoFormatCardLine:
    case kPinLine:
    case kPinIdentLine:
      checkHolderLine(line, hidden.at != nullptr);
      break;
    case kFieldsLine:
      checkFieldsLine(line, hidden.at != nullptr);
      break;
    case kMultiCardsLine:
      checkBlock(line, hidden.at != nullptr);
      break;
    default:
      _findings.setVerdict(kInvalidLine, line.whole());
      explainStart(line);
      if (hidden.at == text.data()) hidden = {};  // Told as the error.
  }
  if (hidden.at == nullptr) return;
  const Place place = line.at(hidden.at);
  if (_findings.errors() == errors) {
    _findings.warning(place, "text", hidden.what);
    _misread.push_back(static_cast<int32_t>(line.number));
  } else {
    _findings.amend(_findings.lastError(),
                    "; column " + std::to_string(place.column) + " has " + hidden.what);
  }
}

void CardsCheck::explainStart(const CheckedLine& line) {
  std::string text;
  if (line.bytesBefore > 0) {
    text = "a line of more than 300 characters: what follows is read as a line of its own";
  } else if (line.text.starts_with(kByteOrderMark)) {
    text = "the file begins with a byte order mark, which is no line type";
  } else if (isSpace(line.text[0])) {
    text = "white space before the line type";
  } else {
    text = quoted(line.text.substr(0, 1)) +
           " is no line type: a line begins with f, c, n, p, o, d or #";
  }
  _findings.error(line.at(line.text.data()), kInvalidLine, text);
  takeBehindStart(line);
}

void CardsCheck::takeBehindStart(const CheckedLine& line) {
  auto copy = copyOf(line);
  char* start = copy.data();
  if (line.text.starts_with(kByteOrderMark)) start += kByteOrderMark.size();
  while (isSpace(*start)) ++start;
  *start = static_cast<char>(*start | 0x20);  // In lower case.
  FieldScanner fields(start + 1);
  uint32_t uniqid = 0;
  switch (*start) {
    case kFieldsLine:
      _lineOfSet.try_emplace(fields.nextUnsigned(), line.number);
      static_cast<void>(_checker.check({start, static_cast<int32_t>(line.number)}));
      return;
    case kMultiCardsLine:
      addUnindexed(splitMultiCardsLine(start));
      return;
    case kCardLine:
    case kNoFormatCardLine:
      uniqid = scanCardLine(fields).uniqid;
      break;
    case kPinLine:
    case kPinIdentLine:
      uniqid = scanPinLine(fields).uniqid;
      break;
    default:
      return;
  }
  _unindexed.push_back({uniqid, uniqid});
}

bool CardsCheck::explainCardSet(const CheckedLine& line, const char* word, int32_t csid) {
  if (SiteCards::checkCardSetId(csid, 0) == kSuccess) return false;
  _findings.error(
      line.at(word), kInvalidCardSet,
      "card set " + std::to_string(csid) + " is not 1 to 253" + line.subject.inBrackets());
  return true;
}

bool CardsCheck::explainNumber(const CheckedLine& line, std::string_view number, int32_t csid,
                               bool isHex) {
  std::string_view text = number;
  const int32_t rc = checkCardNumber(text, isHex ? 0 : std::max(csid, 1), isHex ? 1 : 0);
  if (rc == kSuccess) return false;
  std::string what;
  if (number[0] == '#') {
    what = earlyRemark("card number");
  } else if (number.size() > kMaxCardNumberDigits) {
    what = "card number of " + std::to_string(number.size()) + " digits, at most " +
           std::to_string(kMaxCardNumberDigits) + " are allowed";
  } else {
    what = "card number " + quoted(number) + " is not digits" +
           (isHex ? " and letters A to F alone" : " alone");
  }
  const Subject holder{false, {}, line.subject.uniqid};
  _findings.error(line.at(number.data()), rc, what + holder.inBrackets());
  return true;
}

bool CardsCheck::explainPin(const CheckedLine& line, std::string_view pin, size_t most) {
  std::string_view text = pin;
  if (checkPinCode(text, most) == kSuccess) return false;
  std::string what = pin.size() > most
                         ? "PIN of " + std::to_string(pin.size()) + " digits, at most " +
                               std::to_string(most) + " are allowed"
                         : "PIN is not digits alone";
  if (_options.withPins) what += ": " + quoted(pin);
  _findings.error(line.at(pin.data()), kInvalidPin,
                  pin[0] == '#' ? earlyRemark("PIN") : what + line.subject.inBrackets());
  return true;
}

// The card set and its format. `word` is the card number.
bool CardsCheck::explainEncoding(const CheckedLine& line, const char* word, int32_t csid) {
  const auto id = static_cast<uint32_t>(csid);
  const cardset* const set = _site.cardSets().getCardSet(id);
  if (set == nullptr) {
    followsFrom(_undefinedSets, id, line.whole(), kInvalidCardSet,
                "card set " + std::to_string(id) + " has no 'f' line before this line" +
                    line.subject.inBrackets());
    return true;
  }
  if (const CheckedFormat* const format = unloadedFormat(csid); format != nullptr) {
    Cause& cause = _unloadedFormats[set->fmtid];
    cause.error = format->error;
    ++cause.more;
    return true;
  }
  if (_site.formats().findFormat(set->fmtid) != nullptr) return false;
  if (_formats.complete)
    followsFrom(_unlistedFormats, set->fmtid, line.at(word), kFormatNotDefined,
                "the formats file has no format " + std::to_string(set->fmtid) +
                    ", which card set " + std::to_string(id) + " is of" +
                    line.subject.inBrackets());
  return true;
}

// Of a card set whose format has been found.
CardEncoder CardsCheck::encoderOf(const cardset& set) const {
  const CardFormat* const format = _site.formats().findFormat(set.fmtid);
  return {format, format->encodeSite(set.fldvalues)};
}

// Whether the number, all digits, comes back.
void CardsCheck::explainMismatch(const CheckedLine& line, std::string_view word,
                                 const cardset& set) {
  const SaturatedInt64 number = scanInt64(word.data());
  const CardEncoder encoder = encoderOf(set);
  const int64_t decoded = encoder.decode(encoder.encode(number.value));
  if (decoded == number.value && !number.saturated) return;
  _findings.error(line.at(word.data()), kCardMismatch,
                  line.subject.text() + " does not fit format " + std::to_string(set.fmtid) +
                      ": it would come back as card " + std::to_string(decoded));
}

const CheckedFormat* CardsCheck::unloadedFormat(int32_t csid) const {
  const cardset* const set = csid < kFirstCardSetId || csid > kLastCardSetId
                                 ? nullptr
                                 : _site.cardSets().getCardSet(static_cast<uint32_t>(csid));
  const CheckedFormat* const format = set == nullptr ? nullptr : _formats.find(set->fmtid);
  return format != nullptr && format->format == nullptr ? format : nullptr;
}

void CardsCheck::followsFrom(Causes& causes, uint32_t id, Place place, int32_t code,
                             const std::string& text) {
  const auto [at, isFirst] = causes.try_emplace(id);
  if (isFirst) {
    at->second.error = _findings.error(place, code, text);
  } else {
    ++at->second.more;
  }
}

void CardsCheck::tellMore(const Causes& causes, const char* what) {
  for (const auto& [id, cause] : causes)
    if (cause.more > 0)
      _findings.amend(cause.error, std::string("; ") + what + ": " + std::to_string(cause.more));
}

// 'f' lines.
void CardsCheck::checkFieldsLine(const CheckedLine& line, bool isHidden) {
  auto copy = copyOf(line);
  Tokenizer words;
  words.split(copy.data(), kWordDelimiters);
  const auto csid = words.count() < 2 ? 0 : static_cast<uint32_t>(textToInt32(words.word(1)));
  const bool isRepeated = words.count() > 1 && _site.cardSets().getCardSet(csid) != nullptr;

  auto checked = copyOf(line);
  const int32_t result = _checker.check({checked.data(), static_cast<int32_t>(line.number)});
  const SiteRules rules(_findings, line, copy.data());
  if (result < 0) {
    _findings.setVerdict(result, line.whole());
    Cause& cause = _undefinedSets[csid];
    if (cause.more > 0) tellMore({{csid, cause}}, kMoreOfSet);
    cause = {rules.explain(words, result), 0};
    return;
  }
  if (isHidden) return;
  if (isRepeated) {
    rules.checkRepeated(words, *_site.cardSets().getCardSet(csid), _lineOfSet[csid]);
    return;
  }
  _lineOfSet[csid] = line.number;
  const cardset& set = *_site.cardSets().getCardSet(csid);
  const CheckedFormat* const format = _formats.find(set.fmtid);
  rules.checkValues(words, format == nullptr ? nullptr : format->format);
}

}  // namespace badgemint::admin
