// The check of 'c', 'n', 'p' and 'o' lines.
#include "admin/check/cardscheck.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

constexpr const char* kWhiteSpace = " \t\n\v\f\r";

// A field as messages speak of it: "the PIN", but "access level 1".
std::string named(char lineType, size_t field) {
  const std::string name = fieldName(lineType, field);
  return isDigit(name.back()) ? name : "the " + name;
}

}  // namespace

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

}  // namespace badgemint::admin
