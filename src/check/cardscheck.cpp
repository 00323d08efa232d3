#include "check/cardscheck.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "cardsets/card_functions.h"
#include "check/siterules.h"
#include "support/result.h"
#include "support/tokenizer.h"

namespace badgemint {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr const char* kWhiteSpace = " \t\n\v\f\r";
constexpr const char* kMoreOfSet = "further lines with this card set";
constexpr const char* kBlockDelimiters = " \n\r";

bool isRemark(const char* word) {
  return *word == '#';
}

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

std::string earlyRemark(const std::string& name) {
  return "a # where the " + name + " is due: a remark may stand only behind the last field";
}

std::string gluedType(const char* word) {
  return quoted(word) + " is read as d: the card set is the next word";
}

// A field as messages speak of it: "the PIN", but "access level 1".
std::string named(char lineType, size_t field) {
  const std::string name = fieldName(lineType, field);
  return isDigit(name.back()) ? name : "the " + name;
}

std::array<char, kMaxInputLine + 1> copyOf(const CheckedLine& line) {
  std::array<char, kMaxInputLine + 1> copy{};
  line.text.copy(copy.data(), copy.size() - 1);
  return copy;
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

// 'c', 'n', 'p' and 'o' lines.
void CardsCheck::checkHolderLine(const CheckedLine& checked, bool isHidden) {
  CheckedLine line = checked;
  const char type = line.text[0];
  const bool isCard = type == kCardLine || type == kNoFormatCardLine;
  PlacedScanner fields(line.text.data() + 1);
  int32_t csid = 0;
  if (isCard) {
    const CardLine card = scanCardLine(fields);
    csid = card.csid;
    line.subject = {false, card.cardNumber, card.uniqid};
  } else {
    line.subject = {false, {}, scanPinLine(fields).uniqid};
  }
  if (type != kPinIdentLine) static_cast<void>(scanHolderFields(fields));
  if (isCard) fields.nextInt();

  // The text of such a line is not changed by its check.
  const bool isUnloaded = type == kCardLine && unloadedFormat(csid) != nullptr;
  const int32_t result = isUnloaded ? kFormatNotDefined
                                    : _checker.check({const_cast<char*>(line.text.data()),
                                                      static_cast<int32_t>(line.number)});
  if (result == kOutOfMemory) throw std::bad_alloc();
  if (result < 0) {
    _findings.setVerdict(result, line.whole());
    explainHolder(line, fields, result);
    _unindexed.push_back({line.subject.uniqid, line.subject.uniqid});
  }
  if (isHidden || !checkFlaw(line, fields, result < 0)) return;
  if (result == kSuccess) checkIdentity(line, fields);
  if (type != kPinIdentLine) _rules.check(line, fields, firstHolderField(type));
}

// Card set, card number, PIN and unique ID of a line without an error.
void CardsCheck::checkIdentity(const CheckedLine& line, const PlacedScanner& fields) {
  const auto isZero = [](std::string_view word) {
    return word.find_first_not_of('0') == std::string_view::npos;
  };
  const char type = line.text[0];
  const bool isCard = firstHolderField(type) == 4;
  const size_t uniqid = firstHolderField(type) - 1;
  if (fields.sound() <= uniqid) return;
  const auto warn = [&](size_t field, const char* rule, const std::string& text) {
    _findings.warning(line.at(fields.begin(field)), rule, text);
  };
  const std::string_view number = line.subject.cardNumber;
  const auto holder = [&line] { return " of holder " + std::to_string(line.subject.uniqid); };
  if (type == kCardLine && valueOf(fields.word(0)) != textToInt32(fields.begin(0)))
    warn(0, "range",
         "card set " + printable(fields.word(0)) + " is read as " +
             std::to_string(textToInt32(fields.begin(0))) + line.subject.inBrackets());
  if (isCard && isZero(number)) warn(1, "zero", "card number 0" + holder());
  if (type == kNoFormatCardLine && number.size() % 2 == 1)
    warn(1, "hex",
         "an odd count of digits: card " + printable(number) + holder() + " is read as " +
             printable(number) + "0");
  if (!isCard && isZero(fields.word(0)))
    warn(0, "zero", "PIN 0" + holder() + " is a key as any other: 0 at the keypad is this holder");
  const int64_t id = valueOf(fields.word(uniqid));
  _rules.checkRange(line, fields.word(uniqid), id, UINT32_MAX, "unique ID");
  if (id == 0) warn(uniqid, "zero", "unique ID 0" + line.subject.inBrackets());
}

// What keeps a line from having the fields that it seems to have. Returns whether its fields can be
// looked at.
bool CardsCheck::checkFlaw(const CheckedLine& line, const PlacedScanner& fields, bool isWrong) {
  const char type = line.text[0];
  const size_t last = fields.count() - 1;
  const size_t holder = firstHolderField(type);
  const char* const begin = fields.begin(last);
  const auto warn = [&](Place place, const char* rule, const std::string& text) {
    _findings.warning(place, rule, text + line.subject.inBrackets());
    _misread.push_back(static_cast<int32_t>(line.number));
  };
  if (isWrong && last < holder) return true;  // Told as the error.
  for (size_t field = 0; field < fields.count(); ++field) {
    if (*fields.begin(field) != '#') continue;
    if (!isWrong || field >= holder)
      warn(line.at(fields.begin(field)), "text", earlyRemark(fieldName(type, field)));
    return false;
  }
  switch (fields.flaw()) {
    case PlacedScanner::Flaw::kMissing:
      warn(line.whole(), "fields", named(type, last) + " is missing: it and all behind it are 0");
      return false;
    case PlacedScanner::Flaw::kNoNumber:
      warn(line.at(begin), "number",
           quoted(fields.word(last)) + " is no number: " + named(type, last) +
               " and all behind it are 0");
      return true;
    case PlacedScanner::Flaw::kCut:
      if (last + 1 == fieldCount(type) && *fields.rest() == '#') return true;
      if (last < holder + 12 || last > holder + 15)  // HolderRules tells of dates and times.
        warn(line.at(begin), "number",
             quoted(fields.word(last)) + " is not wholly a number: " + named(type, last) +
                 " ends within it, and the rest is " +
                 (last + 1 == fieldCount(type) ? "ignored" : "taken for the next field"));
      return true;
    default:  // None.
      break;
  }
  std::string_view extra = fields.rest();
  if (extra.empty() || extra[0] == '#') return true;
  extra = extra.substr(0, extra.find_first_of(kWhiteSpace));
  warn(line.at(extra.data()), "fields", quoted(extra) + " behind the last field is ignored");
  return false;
}

// The first field with a flaw explains what the fields before it do not.
void CardsCheck::explainHolder(const CheckedLine& line, const PlacedScanner& fields,
                               int32_t result) {
  const char type = line.text[0];
  const bool told = firstHolderField(type) == 2
                        ? explainPin(line, fields.word(0), kMaxPinIdentDigits)
                        : explainCard(line, fields);
  if (told) return;
  const size_t sound = fields.sound();
  const std::string name = fieldName(type, sound);
  const Place place = line.at(fields.begin(sound));
  if (fields.flaw() == PlacedScanner::Flaw::kMissing) {
    _findings.error(line.whole(), result, "the " + name + " is missing");
  } else if (*fields.begin(sound) == '#') {
    _findings.error(place, result, earlyRemark(name));
  } else {
    _findings.error(
        place, result,
        quoted(fields.word(sound)) + " stands where the " + name + " is due, which is a number");
  }
}

bool CardsCheck::explainCard(const CheckedLine& line, const PlacedScanner& fields) {
  // A number or a PIN that is too long to be read at once is explained as a whole.
  const bool isCut = fields.flaw() == PlacedScanner::Flaw::kCut && fields.sound() > 0;
  const size_t sound = isCut ? fields.count() : fields.sound();
  const bool isHex = line.text[0] == kNoFormatCardLine;
  const int32_t csid = sound > 0 ? textToInt32(fields.begin(0)) : 0;
  const bool wrongSet = !isHex && sound > 0 && explainCardSet(line, fields.begin(0), csid);
  const bool wrongNumber = sound > 1 && explainNumber(line, fields.word(1), csid, isHex);
  const bool wrongPin = sound > 2 && explainPin(line, fields.word(2), kMaxPinDigits);
  if (isHex || sound < 2 || wrongSet) return wrongSet || wrongNumber || wrongPin;
  if (explainEncoding(line, fields.begin(1), csid)) return true;
  const cardset& set = *_site.cardSets().getCardSet(static_cast<uint32_t>(csid));
  if (!wrongNumber) explainMismatch(line, fields.word(1), set);
  return true;
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

// 'd' lines.
void CardsCheck::checkBlock(const CheckedLine& line, bool isHidden) {
  auto copy = copyOf(line);
  const MultiCardsLine words = splitMultiCardsLine(copy.data());
  CheckedLine placed = line;
  placed.text = {copy.data(), line.text.size()};
  if (words.firstUniqid != nullptr)
    placed.subject = {true, words.firstCard, static_cast<uint32_t>(textToInt32(words.firstUniqid))};
  const int32_t csid = words.csid == nullptr ? 0 : textToInt32(words.csid);
  const int32_t before = _index.count();
  auto checked = copyOf(line);
  const int32_t result = unloadedFormat(csid) != nullptr
                             ? kFormatNotDefined
                             : _checker.check({checked.data(), static_cast<int32_t>(line.number)});
  if (result == kOutOfMemory) throw std::bad_alloc();
  if (result < 0) {
    _findings.setVerdict(result, line.whole());
    explainBlock(placed, words, result, _index.count() - before);
    addUnindexed(words);
  }
  if (!isHidden && words.firstUniqid != nullptr) checkBlockWords(placed, words, result);
}

void CardsCheck::addUnindexed(const MultiCardsLine& words) {
  if (words.firstUniqid == nullptr) return;
  const auto first = static_cast<uint32_t>(textToInt32(words.firstUniqid));
  const int64_t count = std::max(textToInt32(words.count), 1);
  _unindexed.push_back(
      {first, static_cast<uint32_t>(std::min<int64_t>(first + count - 1, UINT32_MAX))});
}

void CardsCheck::explainBlock(const CheckedLine& line, const MultiCardsLine& words, int32_t result,
                              int64_t sound) {
  if (std::strlen(words.type) > 1) {
    _findings.error(line.at(words.type), result, gluedType(words.type));
    return;
  }
  const struct {
    const char *word, *name;
  } needed[] = {{words.csid, "card set"},
                {words.firstCard, "first card"},
                {words.count, "number of cards"},
                {words.firstUniqid, "first unique ID"}};
  for (const auto& [word, name] : needed) {
    if (word != nullptr) continue;
    _findings.error(line.whole(), result, std::string("the ") + name + " is missing");
    return;
  }
  const int32_t csid = textToInt32(words.csid);
  const bool wrongSet = explainCardSet(line, words.csid, csid);
  const bool wrongNumber = explainNumber(line, words.firstCard, csid, false);
  if (wrongSet || explainEncoding(line, words.firstCard, csid) || wrongNumber) return;
  const int64_t first = textToInt32(words.firstCard) + sound;
  const int64_t left = textToInt32(words.count) - sound;
  const cardset* const set = _site.cardSets().getCardSet(static_cast<uint32_t>(csid));
  const CardEncoder encoder = encoderOf(*set);
  int64_t wrong = 0;
  const int64_t looked = std::min(left, _cardsToCount);
  _cardsToCount -= looked;
  for (int64_t card = first; card < first + looked; ++card)
    wrong += encoder.decode(encoder.encode(card)) != card ? 1 : 0;
  const auto uniqid = static_cast<uint32_t>(textToInt32(words.firstUniqid) + sound);
  std::string text = "card " + std::to_string(first) + " of holder " + std::to_string(uniqid);
  if (wrong > 1)
    text += (looked < left ? " and at least " : " and ") + std::to_string(wrong - 1) +
            " more of the block";
  text +=
      (wrong > 1 ? " do not fit format " : " does not fit format ") + std::to_string(set->fmtid);
  _findings.error(line.at(words.firstCard), result, text);
}

void CardsCheck::checkBlockWords(const CheckedLine& line, const MultiCardsLine& words,
                                 int32_t result) {
  const struct {
    const char *word, *name;
  } numbers[] = {{words.csid, "card set"},
                 {words.count, "number of cards"},
                 {words.firstUniqid, "first unique ID"},
                 {words.accessLevel, "access level"}};
  const auto warn = [&](const char* word, const char* rule, const std::string& text) {
    _findings.warning(line.at(word), rule, text + line.subject.inBrackets());
  };
  if (std::strlen(words.type) > 1) {
    if (result == kSuccess) warn(words.type, "fields", gluedType(words.type));
    return;
  }
  for (const auto& [word, name] : numbers) {
    if (word == nullptr || (word == words.accessLevel && isRemark(word))) continue;
    const char* const behind = word + (*word == '-' || *word == '+' ? 1 : 0);
    const size_t digits = std::strspn(behind, "0123456789");
    const char next = behind[digits];
    if (digits > 0 && (next == '\0' || (word == words.accessLevel && next == '#'))) continue;
    if (result < 0) return;
    if (isRemark(word)) {
      warn(word, "text", earlyRemark(name));
    } else {
      warn(word, "number",
           quoted(word) + " is not wholly a number: the " + name + " is read as " +
               std::to_string(textToInt32(word)));
    }
    return;
  }
  if (const char* const extra = wordBehind(line, words); extra != nullptr) {
    std::string_view word(extra);
    word = word.substr(0, word.find_first_of(kBlockDelimiters));
    warn(extra, "fields", quoted(word) + " behind the last field is ignored");
    return;
  }
  if (words.accessLevel != nullptr && !isRemark(words.accessLevel))
    _rules.checkLevel(line, words.accessLevel, textToInt64(words.accessLevel));
  if (result == kSuccess) checkBlockRanges(line, words);
}

// What stands behind the sixth word, unless it is a remark or the sixth word begins one.
const char* CardsCheck::wordBehind(const CheckedLine& line, const MultiCardsLine& words) {
  if (words.accessLevel == nullptr || std::strchr(words.accessLevel, '#') != nullptr)
    return nullptr;
  const char* const end = line.text.data() + line.text.size();
  const char* next = words.accessLevel + std::strlen(words.accessLevel);
  while (next < end && (*next == '\0' || std::strchr(kBlockDelimiters, *next) != nullptr)) ++next;
  return next == end || isRemark(next) ? nullptr : next;
}

void CardsCheck::checkBlockRanges(const CheckedLine& line, const MultiCardsLine& words) {
  const auto warn = [&](const char* word, const char* rule, const std::string& text) {
    _findings.warning(line.at(word), rule, text + line.subject.inBrackets());
  };
  const auto cut = [](const char* word) { return std::to_string(textToInt32(word)); };
  if (textToInt64(words.csid) != textToInt32(words.csid))
    warn(words.csid, "range",
         "card set " + printable(words.csid) + " is read as " + cut(words.csid));
  if (textToInt64(words.firstCard) > INT32_MAX)
    warn(words.firstCard, "range",
         "first card " + printable(words.firstCard) + " is read as card " + cut(words.firstCard) +
             ": blocks are for numbers up to 2147483647");
  const int64_t count = textToInt64(words.count);
  if (count > INT32_MAX || count < INT32_MIN) {
    warn(words.count, "range",
         "number of cards " + printable(words.count) + " is read as " + cut(words.count));
  } else if (count < 1) {
    warn(words.count, "range", "a block of no cards");
  }
  const int64_t uniqid = textToInt64(words.firstUniqid);
  if (uniqid < 0 || uniqid > UINT32_MAX) {
    warn(words.firstUniqid, "range",
         "first unique ID " + printable(words.firstUniqid) + " is read as " +
             std::to_string(static_cast<uint32_t>(uniqid)));
  } else if (count <= INT32_MAX && uniqid + count - 1 > UINT32_MAX) {
    warn(words.firstUniqid, "range",
         "the unique IDs of the block run past 4294967295 and on from 0");
  } else if (uniqid == 0 && count > 0) {
    warn(words.firstUniqid, "zero", "unique ID 0");
  }
  if (textToInt32(words.firstCard) == 0 && textToInt64(words.firstCard) == 0 && count > 0)
    warn(words.firstCard, "zero", "card number 0");
}

}  // namespace badgemint
