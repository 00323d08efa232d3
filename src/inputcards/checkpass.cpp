// Pass 1 of the loader: every line is checked and every key enters the card index; the duplicate
// checks follow when the whole file is known.
#include <cinttypes>
#include <new>

#include "inputcards/inputcards.h"
#include "support/log.h"
#include "support/result.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "inputcards";

}  // namespace

int32_t InputCards::pass1() {
  if (const int32_t rc = _input.open(); rc < 0) return rc;
  const std::unique_ptr<CardIndex> index(new (std::nothrow) CardIndex);
  if (!index) {
    LOG(kLogError, "Not enough memory to create card index\n");
    return kOutOfMemory;
  }
  if (!index->isInitialised()) return kCardIndexNotInitialised;

  _index = index.get();
  int32_t result = readInput(&LineType::check);
  _index = nullptr;
  if (result < 0) return result;
  _credentialsChecked = index->count();

  result = index->checkDuplicateKeys();
  if (result == kSuccess) result = index->checkDuplicateUniqueIds();
  LOG(kLogRun, "Number of cards=%d\n", index->count());
  return result;
}

int32_t InputCards::reportPin(int32_t result) const {
  LOG(kLogError, "Invalid pin code on line#=%d\n", _lineNumber);
  return result;
}

int32_t InputCards::checkCard(char* line) {
  FieldScanner scanner(line + 1);
  CardLine card = scanCardLine(scanner);
  if (const int32_t rc = checkCardSetId(card.csid); rc < 0) return rc;
  SaturatedInt64 number;
  if (const int32_t rc = readCardNumber(card.cardNumber, number); rc < 0)
    return reportCardNumber(rc);
  if (const int32_t rc = checkPinCode(card.pin, kMaxPinDigits); rc < 0) return reportPin(rc);

  CardPattern key;
  if (const int32_t rc = encodeCard(card.csid, number, key); rc < 0) return rc;
  const int32_t result =
      _index->add(key, card.uniqid, kCardLine, _lineNumber, card.csid, number.value);
  LOG(kLogStep, "dupcard line#=%d\n", _lineNumber);
  return result;
}

int32_t InputCards::checkNoFormatCard(char* line) {
  FieldScanner scanner(line + 1);
  CardLine card = scanCardLine(scanner);
  if (const int32_t rc = checkCardNumber(card.cardNumber, 0, 1); rc < 0)
    return reportCardNumber(rc);
  if (const int32_t rc = checkPinCode(card.pin, kMaxPinDigits); rc < 0) return reportPin(rc);

  CardPattern key;
  hexToBits(card.cardNumber, key);
  const int32_t result = _index->add(key, card.uniqid, kNoFormatCardLine, _lineNumber, 0, 0);
  LOG(kLogStep, "dupnoformat line#=%d\n", _lineNumber);
  return result;
}

int32_t InputCards::checkPin(char* line) {
  const int32_t result = indexPin(line);
  if (result != kInvalidPin) LOG(kLogStep, "duppin line#=%d\n", _lineNumber);
  return result;
}

int32_t InputCards::checkPinIdent(char* line) {
  const int32_t result = indexPin(line);
  if (result != kInvalidPin) LOG(kLogStep, "duppinident line#=%d\n", _lineNumber);
  return result;
}

int32_t InputCards::indexPin(const char* line) {
  FieldScanner scanner(line + 1);
  PinLine pin = scanPinLine(scanner);
  if (const int32_t rc = checkPinCode(pin.pin, kMaxPinIdentDigits); rc < 0) return reportPin(rc);
  return _index->add(packedPin(pin.pin), pin.uniqid, *line, _lineNumber, 0, 0);
}

int32_t InputCards::checkMultiCards(char* line) {
  MultiCards block;
  if (const int32_t rc = prepareMultiCards(line, block); rc < 0) return rc;
  const int32_t result = indexMultiCards(block);
  LOG(kLogStep, "dupmulti line#=%d\n", _lineNumber);
  return result;
}

int32_t InputCards::indexMultiCards(const MultiCards& block) {
  uint32_t uniqid = block.firstUniqid;
  const auto csid = static_cast<int32_t>(block.csid);
  CardSequence sequence(*block.encoder);
  for (int64_t card = block.firstCard; card < block.firstCard + block.count; ++card, ++uniqid) {
    const CardPattern key = sequence.encode(card);
    if (const int64_t decoded = block.encoder->decode(key); decoded != card) {
      LOG(kLogError, "Card mismatch cardno=%" PRId64 ", chkcardno=%" PRId64 "\n", card, decoded);
      return kCardMismatch;
    }
    const int32_t rc = _index->add(key, uniqid, kMultiCardsLine, _lineNumber, csid, card);
    if (rc < 0) return rc;
  }
  return kSuccess;
}

}  // namespace badgemint
