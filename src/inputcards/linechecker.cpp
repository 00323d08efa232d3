#include "inputcards/linechecker.h"

#include <cinttypes>

#include "support/log.h"
#include "support/packeddecimal.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "inputcards";

int32_t reportPin(int32_t result, int32_t lineNumber) {
  LOG(kLogError, "Invalid pin code on line#=%d\n", lineNumber);
  return result;
}

}  // namespace

int32_t LineChecker::check(InputLine line) {
  return _site.dispatch(*this, line);
}

int32_t LineChecker::handleCard(InputLine line) {
  FieldScanner scanner(line.text + 1);
  CardLine card = scanCardLine(scanner);
  if (const int32_t rc = SiteCards::checkCardSetId(card.csid, line.number); rc < 0) return rc;
  SaturatedInt64 number;
  if (const int32_t rc = readCardNumber(card.cardNumber, number); rc < 0)
    return SiteCards::reportCardNumber(rc, line.number);
  if (const int32_t rc = checkPinCode(card.pin, kMaxPinDigits); rc < 0)
    return reportPin(rc, line.number);

  CardPattern key;
  if (const int32_t rc = _site.encodeCard(card.csid, number, line.number, key); rc < 0) return rc;
  const int32_t result =
      _index.add(key, card.uniqid, kCardLine, line.number, card.csid, number.value);
  LOG(kLogStep, "dupcard line#=%d\n", line.number);
  return result;
}

int32_t LineChecker::handleNoFormatCard(InputLine line) {
  FieldScanner scanner(line.text + 1);
  CardLine card = scanCardLine(scanner);
  if (const int32_t rc = checkCardNumber(card.cardNumber, 0, 1); rc < 0)
    return SiteCards::reportCardNumber(rc, line.number);
  if (const int32_t rc = checkPinCode(card.pin, kMaxPinDigits); rc < 0)
    return reportPin(rc, line.number);

  CardPattern key;
  hexToBits(card.cardNumber, key);
  const int32_t result = _index.add(key, card.uniqid, kNoFormatCardLine, line.number, 0, 0);
  LOG(kLogStep, "dupnoformat line#=%d\n", line.number);
  return result;
}

int32_t LineChecker::handlePin(InputLine line) {
  const int32_t result = indexPin(line);
  if (result != kInvalidPin) LOG(kLogStep, "duppin line#=%d\n", line.number);
  return result;
}

int32_t LineChecker::handlePinIdent(InputLine line) {
  const int32_t result = indexPin(line);
  if (result != kInvalidPin) LOG(kLogStep, "duppinident line#=%d\n", line.number);
  return result;
}

int32_t LineChecker::indexPin(InputLine line) {
  FieldScanner scanner(line.text + 1);
  PinLine pin = scanPinLine(scanner);
  if (const int32_t rc = checkPinCode(pin.pin, kMaxPinIdentDigits); rc < 0)
    return reportPin(rc, line.number);
  return _index.add(packedPin(pin.pin), pin.uniqid, *line.text, line.number, 0, 0);
}

int32_t LineChecker::handleMultiCards(InputLine line) {
  MultiCards block;
  if (const int32_t rc = _site.readMultiCards(line, block); rc < 0) return rc;
  const int32_t result = indexMultiCards(block, line.number);
  LOG(kLogStep, "dupmulti line#=%d\n", line.number);
  return result;
}

int32_t LineChecker::indexMultiCards(const MultiCards& block, int32_t lineNumber) {
  uint32_t uniqid = block.firstUniqid;
  const auto csid = static_cast<int32_t>(block.csid);
  CardSequence sequence(*block.encoder);
  for (int64_t card = block.firstCard; card < block.firstCard + block.count; ++card, ++uniqid) {
    const CardPattern key = sequence.encode(card);
    if (const int64_t decoded = block.encoder->decode(key); decoded != card) {
      LOG(kLogError, "Card mismatch cardno=%" PRId64 ", chkcardno=%" PRId64 "\n", card, decoded);
      return kCardMismatch;
    }
    const int32_t rc = _index.add(key, uniqid, kMultiCardsLine, lineNumber, csid, card);
    if (rc < 0) return rc;
  }
  return kSuccess;
}

}  // namespace badgemint
