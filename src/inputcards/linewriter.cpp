#include "inputcards/linewriter.h"

#include <algorithm>
#include <cinttypes>

#include "inputcards/cardrecord.h"
#include "support/datetime.h"
#include "support/log.h"
#include "support/packeddecimal.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "inputcards";

constexpr uint8_t kFlag1 = 1 << 1;
constexpr uint8_t kFlag2 = 1 << 2;
constexpr uint8_t kFlag4 = 1 << 4;
constexpr uint8_t kFlag5 = 1 << 5;

constexpr uint8_t flagIf(int32_t value, uint8_t flag) {
  return value != 0 ? flag : 0;
}

// A date and time that do not parse mean none, without an error.
uint32_t secondsOf(PeriodEnd end, std::string_view date, std::string_view time) {
  uint32_t seconds = 0;
  return parsePeriodEnd(end, date, time, seconds) == kSuccess ? seconds : 0;
}

// The fields that 'c', 'n' and 'p' lines have in common. Values are cut to their record field.
void setHolder(AccessRecord& access, const HolderFields& holder) {
  std::transform(holder.accessLevels.begin(), holder.accessLevels.end(), access.acclevel.begin(),
                 [](int32_t level) { return static_cast<uint16_t>(level); });
  access.bitflds = static_cast<uint8_t>(
      flagIf(holder.flag2, kFlag2) | flagIf(holder.flag1, kFlag1) | flagIf(holder.flag4, kFlag4));
  access.escortid = holder.escortId;
  access.starttime = secondsOf(PeriodEnd::kStart, holder.startDate, holder.startTime);
  access.endtime = secondsOf(PeriodEnd::kEnd, holder.endDate, holder.endTime);
  access.elevatoraccess = static_cast<uint8_t>(holder.elevatorAccess);
  access.outrelaygrpid = static_cast<uint8_t>(holder.outputRelayGroup);
}

// What only 'c' and 'n' lines have: the holder's PIN beside the card, and one more flag at the end.
void setCardHolder(CardRecord& card, const CardLine& line, const HolderFields& holder,
                   int32_t flag5) {
  setHolder(card.access, holder);
  card.setUniqid(line.uniqid);
  card.access.bitflds = static_cast<uint8_t>(card.access.bitflds | flagIf(flag5, kFlag5));
  packDigits(line.pin, card.access.pincode);
}

}  // namespace

int32_t LineWriter::write(InputLine line) {
  return _site.dispatch(*this, line);
}

int32_t LineWriter::handleCard(InputLine line) {
  FieldScanner scanner(line.text + 1);
  CardLine fields = scanCardLine(scanner);
  const HolderFields holder = scanHolderFields(scanner);
  const int32_t flag5 = scanner.nextInt();
  if (const int32_t rc = SiteCards::checkCardSetId(fields.csid, line.number); rc < 0) return rc;
  SaturatedInt64 number;
  if (const int32_t rc = readCardNumber(fields.cardNumber, number); rc < 0) return rc;
  if (const int32_t rc = checkPinCode(fields.pin, kMaxPinDigits); rc < 0) return rc;

  CardRecord card;
  if (const int32_t rc = _site.encodeCard(fields.csid, number, line.number, card.ident.cardnumber);
      rc < 0)
    return rc;
  card.ident.cardsetcode = static_cast<uint32_t>(fields.csid);
  setCardHolder(card, fields, holder, flag5);
  if (const int32_t rc = _records.put(card.ident, &card.access); rc < 0) return rc;
  LOG(kLogStep, "cardline card=%" PRId64 " line#=%d\n", number.value, line.number);
  return kSuccess;
}

int32_t LineWriter::handleNoFormatCard(InputLine line) {
  FieldScanner scanner(line.text + 1);
  CardLine fields = scanCardLine(scanner);
  const HolderFields holder = scanHolderFields(scanner);
  const int32_t flag5 = scanner.nextInt();
  if (const int32_t rc = checkCardNumber(fields.cardNumber, 0, 1); rc < 0) return rc;
  if (const int32_t rc = checkPinCode(fields.pin, kMaxPinDigits); rc < 0) return rc;

  CardRecord card;
  hexToBits(fields.cardNumber, card.ident.cardnumber);
  LOG(kLogRecord, "pcd=%.*s acclvl[0]=%d \n", printLength(fields.pin), fields.pin.data(),
      holder.accessLevels[0]);
  LOG(kLogRecord, "unqid=%u acclvl[1]=%d \n", fields.uniqid, holder.accessLevels[1]);
  card.ident.cardsetcode = kFormatlessCode;
  setCardHolder(card, fields, holder, flag5);
  if (const int32_t rc = _records.put(card.ident, &card.access); rc < 0) return rc;
  LOG(kLogStep, "noformatcardline card=%.*s line#=%d\n", printLength(fields.cardNumber),
      fields.cardNumber.data(), line.number);
  return kSuccess;
}

int32_t LineWriter::handlePin(InputLine line) {
  FieldScanner scanner(line.text + 1);
  PinLine fields = scanPinLine(scanner);
  const HolderFields holder = scanHolderFields(scanner);
  if (const int32_t rc = checkPinCode(fields.pin, kMaxPinIdentDigits); rc < 0) return rc;

  CardRecord card;
  setHolder(card.access, holder);
  card.ident.cardsetcode = kPinOnlyCode;
  card.ident.cardnumber = packedPin(fields.pin);
  card.setUniqid(fields.uniqid);
  if (const int32_t rc = _records.put(card.ident, &card.access); rc < 0) return rc;
  LOG(kLogStep, "pinline pin=%.*s line#=%d\n", printLength(fields.pin), fields.pin.data(),
      line.number);
  return kSuccess;
}

int32_t LineWriter::handlePinIdent(InputLine line) {
  FieldScanner scanner(line.text + 1);
  PinLine fields = scanPinLine(scanner);
  if (const int32_t rc = checkPinCode(fields.pin, kMaxPinIdentDigits); rc < 0) return rc;

  IdentRecord record;
  record.cardsetcode = kPinIdentCode;
  record.cardnumber = packedPin(fields.pin);
  record.uniqid = fields.uniqid;
  if (const int32_t rc = _records.put(record, nullptr); rc < 0) return rc;
  LOG(kLogStep, "pinidentline pin=%.*s line#=%d\n", printLength(fields.pin), fields.pin.data(),
      line.number);
  return kSuccess;
}

int32_t LineWriter::handleMultiCards(InputLine line) {
  MultiCards block;
  if (const int32_t rc = _site.readMultiCards(line, block); rc < 0) return rc;
  LOG(kLogRecord,
      "multicards fmt %u fcard %" PRId64 " ncards %" PRId64 " lcard %" PRId64 ", line#=%d \n",
      block.fmtid, block.firstCard, block.count, block.firstCard + block.count - 1, line.number);
  const int32_t result = writeBlock(block, line.number);
  if (result == kSuccess || result == kCardMismatch)
    LOG(kLogStep, "multicardsline first card=%" PRId64 " line#=%d\n", block.firstCard, line.number);
  return result;
}

// A card that does not decode to its own number is left out and fails the block at its end.
int32_t LineWriter::writeBlock(const MultiCards& block, int32_t lineNumber) {
  CardRecord card;
  card.ident.cardsetcode = block.csid;
  card.access.acclevel[0] = static_cast<uint16_t>(block.accessLevel);
  packDigits("0", card.access.pincode);

  int32_t result = kSuccess;
  uint32_t uniqid = block.firstUniqid;
  CardSequence sequence(*block.encoder);
  for (int64_t number = block.firstCard; number < block.firstCard + block.count; ++number) {
    card.setUniqid(uniqid++);
    card.ident.cardnumber = sequence.encode(number);
    if (const int64_t decoded = block.encoder->decode(card.ident.cardnumber); decoded != number) {
      LOG(kLogError, "Card mismatch cardno=%" PRId64 ", chkcardno=%" PRId64 ", line#=%d\n", number,
          decoded, lineNumber);
      result = kCardMismatch;
    } else if (const int32_t rc = _records.put(card.ident, &card.access); rc < 0) {
      return rc;
    }
  }
  return result;
}

}  // namespace badgemint
