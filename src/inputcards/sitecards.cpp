#include "inputcards/sitecards.h"

#include "support/fieldscanner.h"
#include "support/log.h"
#include "support/result.h"
#include "support/tokenizer.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "inputcards";
constexpr int32_t kInitialFormats = 20;

int32_t checkMultiCardsWords(const MultiCardsLine& words, int32_t lineNumber) {
  const struct {
    const char *word, *name;
  } needed[] = {{words.type, "token"},
                {words.csid, "card set ID"},
                {words.firstCard, "first card"},
                {words.count, "number of cards"},
                {words.firstUniqid, "first unique ID"}};
  for (const auto& [word, name] : needed) {
    if (word != nullptr) continue;
    LOG(kLogError, "Error reading multicardsline %s, line#=%d\n", name, lineNumber);
    return kMultiCardsWordMissing;
  }
  return kSuccess;
}

}  // namespace

int32_t SiteCards::create() {
  if (const int32_t rc = _formats.create(kInitialFormats); rc < 0) return rc;
  return _cardSets.create(cardsets::kInitialCapacity);
}

int32_t SiteCards::defineCardSet(InputLine line) {
  Tokenizer tokens;
  tokens.split(line.text, kWordDelimiters);
  if (tokens.count() < 2) {
    LOG(kLogError, "Error reading fieldsline card set ID, line#=%d\n", line.number);
    return kFieldsWordMissing;
  }
  const int32_t csid = textToInt32(tokens.word(1));
  if (const int32_t rc = checkCardSetId(csid, line.number); rc < 0) return rc;
  if (_cardSets.getCardSet(static_cast<uint32_t>(csid)) != nullptr) return kSuccess;

  if (_cardSets.addCardSetLine(tokens, line.number) == 0) {
    LOG(kLogError, "Error adding cardset ID %d, line#=%d\n", csid, line.number);
    return kInvalidCardSet;
  }
  LOG(kLogStep, "fieldsline csid=%d line#=%d\n", csid, line.number);
  return kSuccess;
}

int32_t SiteCards::checkCardSetId(int32_t csid, int32_t lineNumber) {
  if (csid >= kFirstCardSetId && csid <= kLastCardSetId) return kSuccess;
  LOG(kLogError, "Invalid cardset ID %d, line#=%d\n", csid, lineNumber);
  return kInvalidCardSet;
}

int32_t SiteCards::encodeCard(int32_t csid, const SaturatedInt64& number, int32_t lineNumber,
                              CardPattern& pattern) {
  const auto id = static_cast<uint32_t>(csid);
  CardEncoder& encoder = _encoders[id];
  if (const int32_t rc = findCardEncoder(id, lineNumber, &_cardSets, &_formats, encoder); rc < 0)
    return rc;
  return encodeCardNumber(encoder, number, lineNumber, pattern);
}

int32_t SiteCards::readMultiCards(InputLine line, MultiCards& block) {
  const MultiCardsLine words = splitMultiCardsLine(line.text);
  if (const int32_t rc = checkMultiCardsWords(words, line.number); rc < 0) return rc;

  const int32_t csid = textToInt32(words.csid);
  if (const int32_t rc = checkCardSetId(csid, line.number); rc < 0) return rc;
  const cardset* const set = _cardSets.getCardSet(static_cast<uint32_t>(csid));
  if (set == nullptr) {
    LOG(kLogError, "Card set %d not defined (no f line), line#=%d \n", csid, line.number);
    return kInvalidCardSet;
  }
  const CardFormat* const format = _formats.findFormat(set->fmtid);
  if (format == nullptr) {
    LOG(kLogError, "Card format %u not defined, line#=%d\n", set->fmtid, line.number);
    return kFormatNotDefined;
  }
  std::string_view firstCard = words.firstCard;
  if (const int32_t rc = checkCardNumber(firstCard, csid, 0); rc < 0)
    return reportCardNumber(rc, line.number);

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

int32_t SiteCards::reportCardNumber(int32_t result, int32_t lineNumber) {
  LOG(kLogError, "Invalid card number on line#=%d\n", lineNumber);
  return result;
}

int32_t SiteCards::reportInvalidLine(InputLine line) {
  LOG(kLogError, "Invalid line in input cards line#=%d\n", line.number);
  LOG(kLogError, "line=%s\n", line.text);
  return kInvalidLine;
}

}  // namespace badgemint
