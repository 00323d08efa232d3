#include "inputcards/inputcards.h"

#include <algorithm>
#include <iterator>
#include <new>

#include "formats/loadformats.h"
#include "support/log.h"
#include "support/packeddecimal.h"
#include "support/result.h"
#include "support/textutil.h"
#include "support/tokenizer.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "inputcards";
constexpr int32_t kInitialFormats = 20;

bool created(bool done, const char* what) {
  if (!done) LOG(kLogError, "Not enough memory to create %s\n", what);
  return done;
}

bool copyName(std::unique_ptr<char[]>& copy, const char* name, const char* what) {
  copy = copyText(name);
  return created(copy != nullptr, what);
}

// Creates a database file object and gives it its name.
template <typename File>
bool createFile(std::unique_ptr<File>& file, const char* name, const char* what) {
  file.reset(new (std::nothrow) File);
  return created(file && file->setFileName(name) == kSuccess, what);
}

}  // namespace

const InputCards::LineType InputCards::kLineTypes[] = {
    {kCardLine, &InputCards::checkCard, &InputCards::writeCard},
    {kPinIdentLine, &InputCards::checkPinIdent, &InputCards::writePinIdent},
    {kNoFormatCardLine, &InputCards::checkNoFormatCard, &InputCards::writeNoFormatCard},
    {kPinLine, &InputCards::checkPin, &InputCards::writePin},
    {kMultiCardsLine, &InputCards::checkMultiCards, &InputCards::writeMultiCards},
    {kFieldsLine, &InputCards::defineCardSet, &InputCards::defineCardSet},
    {kCommentLine, &InputCards::ignoreLine, &InputCards::ignoreLine},
};

InputCards::InputCards(const char* inputName, const char* identName, const char* accessName,
                       const char* cardSetsName)
    : _initialised(created(_input.setName(inputName), "input filename") &&
                   copyName(_identName, identName, "ident filename") &&
                   copyName(_accessName, accessName, "access filename") &&
                   copyName(_cardSetsName, cardSetsName, "card set filename") &&
                   createFile(_identFile, identName, "ident file") &&
                   createFile(_accessFile, accessName, "access file")) {
  if (!_initialised) return;
  _formats.reset(new (std::nothrow) CardFormatSet);
  _initialised =
      created(_formats != nullptr, "card formats") && _formats->create(kInitialFormats) == kSuccess;
  if (!_initialised) return;
  _cardSets.reset(new (std::nothrow) cardsets);
  _initialised = created(_cardSets != nullptr, "card sets") &&
                 _cardSets->create(cardsets::kInitialCapacity) == kSuccess;
}

int32_t InputCards::loadFormats(const char* baseDirectory, const char* formatsName) {
  return badgemint::loadFormats(kLogModule, baseDirectory, formatsName, *_formats);
}

// A file that changes while it is read may well have a line that is wrong; that it changes says
// more.
int32_t InputCards::readInput(Handler LineType::*pass) {
  int32_t result = readLines(pass);
  if (!_input.lines().failed() && _input.checkUnchanged() < 0) result = kInputReadFailed;
  _input.close();
  return result;
}

int32_t InputCards::readLines(Handler LineType::*pass) {
  LineReader& input = _input.lines();
  uint32_t lines = 0;  // Wraps where a signed number must not.
  while (input.readLine(kMaxInputLine) == LineReader::Status::kLine) {
    _lineNumber = static_cast<int32_t>(++lines);
    if (const int32_t rc = handleLine(input.line(), pass); rc < 0) return rc;
  }
  if (!input.failed()) return kSuccess;
  LOG(kLogError, "Error reading input cards file\n");
  return kInputReadFailed;
}

int32_t InputCards::handleLine(char* line, Handler LineType::*pass) {
  if (isBlank(line)) return kSuccess;
  const LineType* const type =
      std::find_if(std::begin(kLineTypes), std::end(kLineTypes),
                   [line](const LineType& candidate) { return candidate.letter == *line; });
  if (type != std::end(kLineTypes)) return (this->*(type->*pass))(line);
  LOG(kLogError, "Invalid line in input cards line#=%d\n", _lineNumber);
  LOG(kLogError, "line=%s\n", line);
  return kInvalidLine;
}

int32_t InputCards::ignoreLine(char* /*line*/) {
  return kSuccess;
}

int32_t InputCards::defineCardSet(char* line) {
  Tokenizer tokens;
  tokens.split(line, kWordDelimiters);
  if (tokens.count() == 0) {
    LOG(kLogError, "Error reading fieldsline token, line#=%d\n", _lineNumber);
    return kFieldsWordMissing;
  }
  if (tokens.count() == 1) {
    LOG(kLogError, "Error reading fieldsline card set ID, line#=%d\n", _lineNumber);
    return kFieldsWordMissing;
  }
  const int32_t csid = textToInt32(tokens.word(1));
  if (const int32_t rc = checkCardSetId(csid); rc < 0) return rc;
  if (_cardSets->getCardSet(static_cast<uint32_t>(csid)) != nullptr) return kSuccess;

  if (_cardSets->addCardSetLine(tokens, _lineNumber) == 0) {
    LOG(kLogError, "Error adding cardset ID %d, line#=%d\n", csid, _lineNumber);
    return kInvalidCardSet;
  }
  LOG(kLogStep, "fieldsline csid=%d line#=%d\n", csid, _lineNumber);
  return kSuccess;
}

int32_t InputCards::checkCardSetId(int32_t csid) const {
  if (csid >= kFirstCardSetId && csid <= kLastCardSetId) return kSuccess;
  LOG(kLogError, "Invalid cardset ID %d, line#=%d\n", csid, _lineNumber);
  return kInvalidCardSet;
}

int32_t InputCards::encodeCard(int32_t csid, const SaturatedInt64& number, CardPattern& pattern) {
  const auto id = static_cast<uint32_t>(csid);
  CardEncoder& encoder = _encoders[id];
  if (const int32_t rc = findCardEncoder(id, _lineNumber, _cardSets.get(), _formats.get(), encoder);
      rc < 0)
    return rc;
  return encodeCardNumber(encoder, number, _lineNumber, pattern);
}

int32_t InputCards::checkMultiCardsWords(const MultiCardsLine& words) const {
  const struct {
    const char *word, *name;
  } needed[] = {{words.type, "token"},
                {words.csid, "card set ID"},
                {words.firstCard, "first card"},
                {words.count, "number of cards"},
                {words.firstUniqid, "first unique ID"}};
  for (const auto& [word, name] : needed) {
    if (word != nullptr) continue;
    LOG(kLogError, "Error reading multicardsline %s, line#=%d\n", name, _lineNumber);
    return kMultiCardsWordMissing;
  }
  return kSuccess;
}

int32_t InputCards::prepareMultiCards(char* line, MultiCards& block) {
  const MultiCardsLine words = splitMultiCardsLine(line);
  if (const int32_t rc = checkMultiCardsWords(words); rc < 0) return rc;

  const int32_t csid = textToInt32(words.csid);
  if (const int32_t rc = checkCardSetId(csid); rc < 0) return rc;
  const cardset* const set = _cardSets->getCardSet(static_cast<uint32_t>(csid));
  if (set == nullptr) {
    LOG(kLogError, "Card set %d not defined (no f line), line#=%d \n", csid, _lineNumber);
    return kInvalidCardSet;
  }
  const CardFormat* const format = _formats->findFormat(set->fmtid);
  if (format == nullptr) {
    LOG(kLogError, "Card format %u not defined, line#=%d\n", set->fmtid, _lineNumber);
    return kFormatNotDefined;
  }
  std::string_view firstCard = words.firstCard;
  if (const int32_t rc = checkCardNumber(firstCard, csid, 0); rc < 0) return reportCardNumber(rc);

  block.csid = set->csid;
  block.fmtid = set->fmtid;
  block.firstCard = textToInt32(words.firstCard);
  block.count = textToInt32(words.count);
  block.firstUniqid = static_cast<uint32_t>(textToInt32(words.firstUniqid));
  block.accessLevel = words.accessLevel != nullptr ? textToInt32(words.accessLevel) : 0;
  CardEncoder& encoder = _encoders[set->csid];
  if (encoder.format == nullptr) encoder = {format, format->encodeSite(set->fldvalues)};
  block.encoder = &encoder;
  return kSuccess;
}

int32_t InputCards::reportCardNumber(int32_t result) const {
  LOG(kLogError, "Invalid card number on line#=%d\n", _lineNumber);
  return result;
}

CardPattern InputCards::packedPin(std::string_view pin) {
  CardPattern key{};
  packDigits(pin, key);
  return key;
}

}  // namespace badgemint
