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

constexpr const char* kBlockDelimiters = " \n\r";
constexpr int64_t kMostCardsToCount = 1 << 20;  // Of a block, behind the first that does not fit.

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
  if (text.find('\xA0') == text.npos && text.find('\t') == text.npos) return {};
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
  tellMore(_undefinedSets, "further lines with this card set");
  tellMore(_unlistedFormats, "further lines with this format");
  tellMore(_unloadedFormats, "lines of the cards file with this format");
  summary.credentials = _index.count();
  summary.holders =
      checkWholeFile({_index, std::move(_unindexed), _rules.escorts(), _file}, _findings);
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
  }
  if (hidden.at != nullptr && _findings.errors() == errors)
    _findings.warning(line.at(hidden.at), "text", hidden.what);
}

void CardsCheck::explainStart(const CheckedLine& line) {
  std::string text;
  if (line.bytesBefore > 0) {
    text = "the line has more than 300 characters: what follows is read as a line of its own";
  } else if (line.text.starts_with("\xEF\xBB\xBF")) {
    text = "the file begins with a byte order mark, which is no line type";
  } else if (isSpace(line.text[0])) {
    text = "white space before the line type";
  } else {
    text = quoted(line.text.substr(0, 1)) +
           " is no line type: a line begins with f, c, n, p, o, d or #";
  }
  _findings.error(line.at(line.text.data()), kInvalidLine, text);
}

// 'c', 'n', 'p' and 'o' lines.
void CardsCheck::checkHolderLine(const CheckedLine& line, bool isHidden) {
  const char type = line.text[0];
  PlacedScanner fields(line.text.data() + 1);
  Subject subject{type, {}, 0};
  int32_t csid = 0;
  if (type == kCardLine || type == kNoFormatCardLine) {
    const CardLine card = scanCardLine(fields);
    csid = card.csid;
    subject.cardNumber = card.cardNumber;
    subject.uniqid = card.uniqid;
  } else {
    subject.uniqid = scanPinLine(fields).uniqid;
  }
  if (type != kPinIdentLine) static_cast<void>(scanHolderFields(fields));
  if (type == kCardLine || type == kNoFormatCardLine) fields.nextInt();

  // The text of such a line is not changed by its check.
  const bool unloaded = type == kCardLine && countUnloaded(csid);
  const int32_t result = unloaded ? kFormatNotDefined
                                  : _checker.check({const_cast<char*>(line.text.data()),
                                                    static_cast<int32_t>(line.number)});
  if (result == kOutOfMemory) throw std::bad_alloc();
  if (result < 0) {
    _findings.setVerdict(result, line.whole());
    explainHolder(line, fields, result);
    _unindexed.push_back({subject.uniqid, subject.uniqid});
  }
  if (isHidden) return;
  checkFlaw(line, fields, result < 0);
  const bool wrongCount = fields.flaw() == PlacedScanner::Flaw::kMissing ||
                          (*fields.rest() != '\0' && !isRemark(fields.rest()) &&
                           fields.flaw() == PlacedScanner::Flaw::kNone);
  if (wrongCount) return;
  if (result == kSuccess) checkIdentity(line, fields, subject);
  if (type != kPinIdentLine) _rules.check(line, fields, firstHolderField(type), subject);
}

// Card set, card number, PIN and unique ID of a line without an error.
void CardsCheck::checkIdentity(const CheckedLine& line, const PlacedScanner& fields,
                               const Subject& subject) {
  const auto isZero = [](std::string_view word) {
    return word.find_first_not_of('0') == std::string_view::npos;
  };
  const bool isCard = !subject.cardNumber.empty();
  const size_t uniqid = isCard ? 3 : 1;
  if (fields.count() <= uniqid) return;
  const auto warn = [&](size_t field, const char* rule, const std::string& text) {
    _findings.warning(line.at(fields.begin(field)), rule, text);
  };
  if (subject.type == kCardLine)
    _rules.checkRange(line, fields.word(0), valueOf(fields.word(0)), INT32_MIN, INT32_MAX,
                      "card set");
  if (isCard && isZero(subject.cardNumber)) warn(1, "zero", "card number 0");
  if (subject.type == kNoFormatCardLine && subject.cardNumber.size() % 2 == 1)
    warn(1, "hex",
         "an odd count of digits: the card is " + printable(subject.cardNumber) +
             "0, with a zero at the end");
  if (!isCard && isZero(fields.word(0))) warn(0, "zero", "PIN 0 is a key like any other");
  const int64_t id = valueOf(fields.word(uniqid));
  _rules.checkRange(line, fields.word(uniqid), id, 0, UINT32_MAX, "unique ID");
  if (id == 0) warn(uniqid, "zero", "unique ID 0");
}

// What keeps a line from having the fields that it seems to have.
void CardsCheck::checkFlaw(const CheckedLine& line, const PlacedScanner& fields, bool isWrong) {
  const char type = line.text[0];
  const size_t last = fields.count() - 1;
  const size_t holder = firstHolderField(type);
  const char* const begin = fields.begin(last);
  if (isWrong && last < holder) return;  // Told as the error.
  const auto name = [type](size_t field) { return std::string(fieldName(type, field)); };
  for (size_t field = holder; field < fields.count(); ++field) {
    if (*fields.begin(field) != '#') continue;
    _findings.warning(
        line.at(fields.begin(field)), "text",
        "a # where the " + name(field) + " is due: a remark may stand only behind the last field");
    return;
  }
  switch (fields.flaw()) {
    case PlacedScanner::Flaw::kMissing:
      _findings.warning(line.whole(), "fields",
                        "the " + name(last) + " is missing: it and all behind it read as 0");
      return;
    case PlacedScanner::Flaw::kNoNumber:
      _findings.warning(line.at(begin), "number",
                        quoted(fields.word(last)) + " is no number: the " + name(last) +
                            " and all behind it read as 0");
      return;
    case PlacedScanner::Flaw::kCut:
      if (last < holder + 12 || last > holder + 15)  // HolderRules tells of dates and times.
        _findings.warning(line.at(begin), "number",
                          quoted(fields.word(last)) + " is not wholly a number: the " + name(last) +
                              " ends within it, and its rest is read as the next field");
      return;
    case PlacedScanner::Flaw::kNone:
      if (*fields.rest() != '\0' && !isRemark(fields.rest()))
        _findings.warning(line.at(fields.rest()), "fields",
                          "a word behind the last field, which is ignored");
  }
}

// The first field with a flaw explains what the fields before it do not.
void CardsCheck::explainHolder(const CheckedLine& line, const PlacedScanner& fields,
                               int32_t result) {
  const char type = line.text[0];
  using Flaw = PlacedScanner::Flaw;
  const size_t sound = fields.count() - (fields.flaw() == Flaw::kNone ? 0 : 1);
  const bool told = type == kPinLine || type == kPinIdentLine
                        ? sound > 0 && explainPin(line, fields.word(0), kMaxPinIdentDigits)
                        : explainCard(line, fields, sound);
  if (told || sound == fields.count()) return;
  const std::string name = fieldName(type, sound);
  const std::string word = quoted(fields.word(sound));
  if (fields.flaw() == Flaw::kMissing) {
    _findings.error(line.whole(), result, "the " + name + " is missing");
  } else if (fields.flaw() == Flaw::kNoNumber) {
    _findings.error(line.at(fields.begin(sound)), result,
                    word + " stands where the " + name + " is due, which is a number");
  } else {
    _findings.error(line.at(fields.begin(sound)), result,
                    "the " + name + " is not wholly a number: its rest is read as the next field");
  }
}

bool CardsCheck::explainCard(const CheckedLine& line, const PlacedScanner& fields, size_t sound) {
  const bool isHex = line.text[0] == kNoFormatCardLine;
  const int32_t csid = sound > 0 ? textToInt32(fields.begin(0)) : 0;
  const bool wrongSet = !isHex && sound > 0 && explainCardSet(line, fields.begin(0), csid);
  const bool wrongNumber = sound > 1 && explainNumber(line, fields.word(1), csid, isHex);
  bool told = wrongSet || wrongNumber;
  if (sound > 2 && explainPin(line, fields.word(2), kMaxPinDigits)) told = true;
  if (isHex || sound < 2 || wrongSet || wrongNumber) return told;
  SaturatedInt64 number{};
  if (readCardNumber(fields.word(1), number) != kSuccess) return told;
  return explainEncoding(line, fields.begin(1), csid, number) || told;
}

bool CardsCheck::explainCardSet(const CheckedLine& line, const char* word, int32_t csid) {
  if (SiteCards::checkCardSetId(csid, 0) == kSuccess) return false;
  _findings.error(line.at(word), kInvalidCardSet,
                  "card set " + std::to_string(csid) + " is not 1 to 253");
  return true;
}

bool CardsCheck::explainNumber(const CheckedLine& line, std::string_view number, int32_t csid,
                               bool isHex) {
  std::string_view text = number;
  const int32_t rc = checkCardNumber(text, isHex ? 0 : csid, isHex ? 1 : 0);
  if (rc == kSuccess) return false;
  const std::string digits = std::to_string(number.size());
  _findings.error(line.at(number.data()), rc,
                  number.size() > kMaxCardNumberDigits
                      ? "card number of " + digits + " digits, at most 32 are allowed"
                      : "card number " + quoted(number) + " is not digits" +
                            (isHex ? " and letters A to F alone" : " alone"));
  return true;
}

bool CardsCheck::explainPin(const CheckedLine& line, std::string_view pin, size_t most) {
  std::string_view text = pin;
  if (checkPinCode(text, most) == kSuccess) return false;
  const bool isLong = pin.size() > most;
  std::string what = isLong ? "PIN of " + std::to_string(pin.size()) + " digits, at most " +
                                  std::to_string(most) + " are allowed"
                            : "PIN is not digits alone";
  if (_options.withPins) what += ": " + quoted(pin);
  _findings.error(line.at(pin.data()), kInvalidPin, what);
  return true;
}

// The last step of a check: the card set and its format, and whether the number comes back.
bool CardsCheck::explainEncoding(const CheckedLine& line, const char* word, int32_t csid,
                                 const SaturatedInt64& number) {
  const auto id = static_cast<uint32_t>(csid);
  const cardset* const set = _site.cardSets().getCardSet(id);
  if (set == nullptr) {
    followsFrom(_undefinedSets, id, line.whole(), kInvalidCardSet,
                "card set " + std::to_string(id) + " has no 'f' line before this line");
    return true;
  }
  CardEncoder encoder;
  if (findCardEncoder(id, 0, &_site.cardSets(), &_site.formats(), encoder) < 0) {
    if (_formats.complete)
      followsFrom(_unlistedFormats, set->fmtid, line.whole(), kFormatNotDefined,
                  "the formats file has no format " + std::to_string(set->fmtid) +
                      ", which card set " + std::to_string(id) + " is of");
    return true;
  }
  if (countUnloaded(csid)) return true;
  const int64_t decoded = encoder.decode(encoder.encode(number.value));
  if (decoded == number.value && !number.saturated) return false;
  std::string_view written(word);
  written = written.substr(0, written.find_first_not_of("0123456789"));
  _findings.error(line.at(word), kCardMismatch,
                  "card " + std::string(written) + " does not fit format " +
                      std::to_string(set->fmtid) + ": it would come back as card " +
                      std::to_string(decoded));
  return true;
}

bool CardsCheck::countUnloaded(int32_t csid) {
  const cardset* const set = csid < kFirstCardSetId || csid > kLastCardSetId
                                 ? nullptr
                                 : _site.cardSets().getCardSet(static_cast<uint32_t>(csid));
  const CheckedFormat* const format = set == nullptr ? nullptr : _formats.find(set->fmtid);
  if (format == nullptr || format->format != nullptr) return false;
  Cause& cause = _unloadedFormats[set->fmtid];
  cause.error = format->error;
  ++cause.more;
  return true;
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
      _findings.amend(cause.error,
                      std::string(" (") + what + ": " + std::to_string(cause.more) + ")");
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
    _undefinedSets[csid].error = rules.explain(words, result);
    return;
  }
  if (isHidden) return;
  rules.checkRemark();
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
  const CheckedLine placed{
      {copy.data(), line.text.size()}, line.file, line.number, line.bytesBefore};
  const int32_t csid = words.csid == nullptr ? 0 : textToInt32(words.csid);
  const int32_t before = _index.count();
  auto checked = copyOf(line);
  const int32_t result = countUnloaded(csid)
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
  if (explainCardSet(line, words.csid, csid)) return;
  const bool wrongNumber = explainNumber(line, words.firstCard, csid, false);
  if (result != kCardMismatch) {
    if (!wrongNumber || result != kInvalidCardNumber)
      explainEncoding(line, words.firstCard, csid, {0, false});
    return;
  }
  const int64_t first = textToInt32(words.firstCard) + sound;
  const int64_t left = textToInt32(words.count) - sound;
  const cardset* const set = _site.cardSets().getCardSet(static_cast<uint32_t>(csid));
  CardEncoder encoder;
  if (findCardEncoder(set->csid, 0, &_site.cardSets(), &_site.formats(), encoder) < 0) return;
  int64_t wrong = 0;
  const int64_t looked = std::min(left, kMostCardsToCount);
  for (int64_t card = first; card < first + looked; ++card)
    wrong += encoder.decode(encoder.encode(card)) != card ? 1 : 0;
  std::string text = "card " + std::to_string(first);
  if (wrong > 1) text += " and " + std::to_string(wrong - 1) + " more of the block";
  if (looked < left) text += " at least";
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
  for (const auto& [word, name] : numbers) {
    if (word == nullptr || (word == words.accessLevel && isRemark(word))) continue;
    const char* const behind = word + (*word == '-' || *word == '+' ? 1 : 0);
    const size_t digits = std::strspn(behind, "0123456789");
    if (digits > 0 && behind[digits] == '\0') continue;
    const bool isText = isRemark(word);
    if (result < 0) return;
    _findings.warning(line.at(word), isText ? "text" : "number",
                      isText ? std::string("a # where the ") + name +
                                   " is due: a remark may stand only behind the last field"
                             : quoted(word) + " is not wholly a number: the " + name +
                                   " is read as " + std::to_string(textToInt32(word)));
    return;
  }
  if (const char* const extra = wordBehind(line, words); extra != nullptr) {
    _findings.warning(line.at(extra), "fields", "a word behind the last field, which is ignored");
    return;
  }
  if (words.accessLevel != nullptr && !isRemark(words.accessLevel))
    _rules.checkLevel(line, words.accessLevel, textToInt64(words.accessLevel));
  if (result == kSuccess) checkBlockRanges(line, words);
}

// What stands behind the sixth word, unless it is a remark or the sixth word begins one.
const char* CardsCheck::wordBehind(const CheckedLine& line, const MultiCardsLine& words) {
  if (words.accessLevel == nullptr || isRemark(words.accessLevel)) return nullptr;
  const char* const end = line.text.data() + line.text.size();
  const char* next = words.accessLevel + std::strlen(words.accessLevel);
  while (next < end && (*next == '\0' || std::strchr(kBlockDelimiters, *next) != nullptr)) ++next;
  return next == end || isRemark(next) ? nullptr : next;
}

void CardsCheck::checkBlockRanges(const CheckedLine& line, const MultiCardsLine& words) {
  const auto warn = [&](const char* word, const char* rule, const std::string& text) {
    _findings.warning(line.at(word), rule, text);
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
