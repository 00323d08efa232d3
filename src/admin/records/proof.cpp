#include "admin/records/proof.h"

#include <algorithm>

#include "admin/console.h"
#include "admin/files/folder.h"
#include "carddb/recordfile.h"
#include "formats/loadformats.h"
#include "support/datetime.h"
#include "support/linereader.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint::admin {

namespace {

[[noreturn]] void refuse(const std::string& text) {
  throw Failure(ExitStatus::kRefused, "not proved: " + text);
}

}  // namespace

// Takes the lines of a cards file as a pass of the build does, and states what they say.
class StatementPass {
 public:
  StatementPass(SiteCards& site, const TellOfCredential& tell) : _site(site), _tell(tell) {}

  // kSuccess, or the code of a line that is wrong.
  int32_t take(InputLine line) { return takeLine(*this, line); }
  bool isEnded() const { return _ended; }

 private:
  template <typename Pass>
  friend int32_t badgemint::takeLine(Pass& pass, InputLine line);

  int32_t takeCard(InputLine line) {
    FieldScanner scanner(line.text + 1);
    const CardLine card = scanCardLine(scanner);
    SaturatedInt64 number{};
    if (const int32_t rc = readCardNumber(card.cardNumber, number); rc < 0) return rc;
    return takeCardHolder(line, card, static_cast<uint32_t>(card.csid), number.value, scanner);
  }

  int32_t takeNoFormatCard(InputLine line) {
    FieldScanner scanner(line.text + 1);
    const CardLine card = scanCardLine(scanner);
    return takeCardHolder(line, card, kFormatlessCode, 0, scanner);
  }

  int32_t takeCardHolder(InputLine line, const CardLine& card, uint32_t code, int64_t number,
                         FieldScanner& scanner) {
    const HolderFields holder = scanHolderFields(scanner);
    std::string_view pin = card.pin;
    if (const int32_t rc = checkPinCode(pin, kMaxPinDigits); rc < 0) return rc;
    return state(
        {line.number, code, card.uniqid, number, card.cardNumber, pin, &holder, scanner.nextInt()});
  }

  int32_t takePin(InputLine line) { return takeAnyPin(line, kPinOnlyCode); }
  int32_t takePinIdent(InputLine line) { return takeAnyPin(line, kPinIdentCode); }
  int32_t takeAnyPin(InputLine line, uint32_t code) {
    FieldScanner scanner(line.text + 1);
    PinLine fields = scanPinLine(scanner);
    const HolderFields holder = scanHolderFields(scanner);
    if (const int32_t rc = checkPinCode(fields.pin, kMaxPinIdentDigits); rc < 0) return rc;
    return state({line.number,
                  code,
                  fields.uniqid,
                  0,
                  fields.pin,
                  {},
                  code == kPinOnlyCode ? &holder : nullptr,
                  0});
  }

  int32_t takeMultiCards(InputLine line) {
    MultiCards block;
    if (const int32_t rc = _site.readMultiCards(line, block); rc < 0) return rc;
    HolderFields holder{};
    holder.accessLevels[0] = block.accessLevel;
    holder.startDate = holder.startTime = holder.endDate = holder.endTime = "0";
    for (int64_t i = 0; i < block.count && !_ended; ++i)
      state({line.number,
             block.csid,
             block.firstUniqid + static_cast<uint32_t>(i),
             block.firstCard + i,
             {},
             "0",
             &holder,
             0});
    return kSuccess;
  }

  int32_t state(const StatedCredential& stated) {
    _ended = !_tell(stated);
    return kSuccess;
  }

  SiteCards& _site;
  const TellOfCredential& _tell;
  bool _ended = false;
};

void readStatements(const std::string& cardsName, SiteCards& site, const TellOfCredential& tell) {
  LineReader lines;
  throwErrnoUnless(lines.open(cardsName.c_str()), cardsName);
  StatementPass pass(site, tell);
  uint32_t number = 0;
  while (!pass.isEnded() && lines.readLine(kMaxInputLine) == LineReader::Status::kLine) {
    const InputLine line = {lines.line(), static_cast<int32_t>(++number)};
    if (pass.take(line) < 0)
      refuse("line " + std::to_string(number) + " of " + cardsName + " is wrong by now");
  }
  throwErrnoUnless(!lines.failed(), cardsName);
}

namespace {

// A word that lacks an odd digit means a zero behind it, and all digits that follow are zeros.
bool isHex(const CardPattern& key, std::string_view word) {
  for (size_t i = 0; i < key.size(); ++i) {
    char digits[2];
    putHex(key[i], digits);
    for (size_t j = 0; j < 2; ++j) {
      const char c = 2 * i + j < word.size() ? word[2 * i + j] : '0';
      if (digits[j] != (c >= 'a' && c <= 'f' ? c - 'a' + 'A' : c)) return false;
    }
  }
  return true;
}

// A text as a record would give it back, or another that means the same; none for a date that is
// none.
bool isTime(uint32_t seconds, PeriodEnd end, std::string_view date, std::string_view time) {
  const DateTimeText stored = formatDateTime(seconds);
  const DateTimeText stated = joinDateTime(end, date, time);
  if (stored == stated) return true;
  uint32_t meant = 0;
  if (parseDateTime(stated.data(), meant) != kSuccess) meant = 0;
  return formatDateTime(meant) == stored;
}

// Whether a card can carry this value: what a format cuts, covers or does not know cannot be read
// back, and is a matter of the check of the files.
bool carries(const CardFormat& format, size_t field, int64_t value) {
  const LayoutMasks masks = format.masks();
  const char letter = masks.letters[field];
  const int32_t width = format.fieldBitCount(static_cast<int32_t>(field));
  if (letter == '\0' || width == 0 || value < 0 || format.bitCount() > 128) return false;
  for (size_t p = 0; p < masks.output.size(); ++p) {
    if (masks.output[p] != letter) continue;
    if (masks.fixed[p] == '0' || masks.fixed[p] == '1') return false;
    for (const BitMask& parity : masks.parity)
      if (parity[p] == 'E' || parity[p] == 'O') return false;
  }
  const int32_t type = format.fieldDefinitions()[field].ftyp;
  if (type == kTypeBin) return width >= 63 || value >> width == 0;
  if (type != kTypeBcd && type != kTypeMsd) return false;
  for (int32_t digits = width / (type == kTypeBcd ? 4 : 5); digits > 0; --digits) value /= 10;
  return value == 0;
}

const char* differenceOfCard(const StatedCredential& stated, const CardPattern& key,
                             SiteCards& site) {
  const cardset* const set = site.cardSets().getCardSet(stated.cardSetCode);
  const CardFormat* const format = set == nullptr ? nullptr : site.formats().findFormat(set->fmtid);
  if (format == nullptr) return "card set";
  for (size_t i = static_cast<size_t>(format->bitCount() + 7) / 8; i < key.size(); ++i)
    if (key[i] != 0) return "end of the card";
  int64_t value = 0;
  static_cast<void>(format->decodeField(key, format->cardNumberField(), value));
  if (value != stated.cardNumber) return "card number";
  for (int32_t field = 0; field < kFieldCount; ++field) {
    if (field == format->cardNumberField()) continue;
    static_cast<void>(format->decodeField(key, field, value));
    if (value != set->value(field) &&
        carries(*format, static_cast<size_t>(field), set->value(field)))
      return "site value";
  }
  return nullptr;
}

const char* differenceOfKey(const StatedCredential& stated, const CardPattern& key,
                            SiteCards& site) {
  switch (stated.cardSetCode) {
    case kPinOnlyCode:
    case kPinIdentCode:
      return isPin<kMaxPinIdentDigits>(key, stated.key) ? nullptr : "PIN";
    case kFormatlessCode:
      return isHex(key, stated.key) ? nullptr : "card number";
    default:
      return differenceOfCard(stated, key, site);
  }
}

const char* differenceOfHolder(const StatedCredential& stated, const AccessRecord& access) {
  const HolderFields& holder = *stated.holder;
  if (access.uniqid != stated.uniqid) return "unique ID in the access database";
  const bool hasCard = stated.cardSetCode != kPinOnlyCode;
  if (hasCard ? !isPin<kMaxPinDigits>(access.pincode, stated.pin)
              : access.pincode != decltype(access.pincode){})
    return "PIN";
  for (int32_t slot = 0; slot < AccessRecord::kAccessLevels; ++slot)
    if (access.accessLevel(slot) !=
        static_cast<uint16_t>(holder.accessLevels[static_cast<size_t>(slot)]))
      return "access level";
  const std::array<bool, 6> flags = {false, holder.flag1 != 0, holder.flag2 != 0,
                                     false, holder.flag4 != 0, stated.flag5 != 0};
  for (int32_t bit = 0; bit < 6; ++bit)
    if (access.flag(bit) != (flags[static_cast<size_t>(bit)] ? 1 : 0)) return "flag";
  if (access.escortid != holder.escortId) return "escort";
  if (!isTime(access.starttime, PeriodEnd::kStart, holder.startDate, holder.startTime))
    return "start";
  if (!isTime(access.endtime, PeriodEnd::kEnd, holder.endDate, holder.endTime)) return "end";
  if (access.elevatoraccess != static_cast<uint8_t>(holder.elevatorAccess)) return "elevator";
  if (access.outrelaygrpid != static_cast<uint8_t>(holder.outputRelayGroup))
    return "output relay group";
  if (access.cardissuelevel != 0 || access.outgrpmode != 0) return "issue level or output mode";
  return nullptr;
}

// Both databases in one walk.
class ProofWalk {
 public:
  ProofWalk(const ProvedFiles& files, SiteCards& site) : _files(files), _site(site) {
    throwErrnoUnless(_idents.open(files.ident.c_str()), files.ident);
    throwErrnoUnless(_accesses.open(files.access.c_str()), files.access);
  }

  bool compareNext(const StatedCredential& stated) {
    IdentRecord ident;
    AccessRecord access;
    ++_count;
    if (!_idents.next(ident) || (stated.holder != nullptr && !_accesses.next(access)))
      refuse("the databases end before line " + std::to_string(stated.line) + " of " +
             _files.cards);
    if (const char* const what = differenceTo(stated, ident, access, _site))
      refuse("record " + std::to_string(_count) + " of the ident database has another " + what +
             " than line " + std::to_string(stated.line) + " of " + _files.cards);
    return true;
  }

  int64_t end() {
    IdentRecord ident;
    AccessRecord access;
    if (_idents.next(ident) || _accesses.next(access) || _idents.rest() != 0 ||
        _accesses.rest() != 0)
      refuse("the databases go on behind the last line of " + _files.cards);
    if (_idents.failed() || _accesses.failed()) refuse("the databases cannot be read to their end");
    return _count;
  }

 private:
  const ProvedFiles& _files;
  SiteCards& _site;
  RecordReader _idents;
  RecordReader _accesses;
  int64_t _count = 0;
};

// The file keeps no values below 1.
bool isSameSet(const cardset& stated, const cardset& stored) {
  for (int32_t field = 0; field < kCardSetFields; ++field)
    if (stored.value(field) != std::max<int64_t>(stated.value(field), 0)) return false;
  return stored.fmtid == stated.fmtid;
}

}  // namespace

const char* differenceTo(const StatedCredential& stated, const IdentRecord& ident,
                         const AccessRecord& access, SiteCards& site) {
  if (ident.uniqid != stated.uniqid) return "unique ID";
  if (ident.cardsetcode != stated.cardSetCode) return "card set";
  if (ident.deleted != 0) return "mark of deletion";
  if (const char* const key = differenceOfKey(stated, ident.cardnumber, site)) return key;
  return stated.holder == nullptr ? nullptr : differenceOfHolder(stated, access);
}

std::string differenceTo(const cardsets& stated, const cardsets& stored) {
  for (uint32_t id = 0; id <= UINT8_MAX; ++id) {
    const cardset* const set = stated.getCardSet(id);
    const cardset* const inFile = stored.getCardSet(id);
    if ((set == nullptr) != (inFile == nullptr) || (set != nullptr && !isSameSet(*set, *inFile)))
      return "something else of card set " + std::to_string(id);
  }
  return stored.count() == stated.count() ? "" : "that there are more card sets";
}

int64_t prove(const ProvedFiles& files) {
  SiteCards site;
  if (site.create() < 0) throw std::bad_alloc();
  if (loadFormats("badgemint-admin", "", files.formats.c_str(), site.formats()) < 0)
    refuse("the formats cannot be loaded any more");
  ProofWalk walk(files, site);
  readStatements(files.cards, site,
                 [&walk](const StatedCredential& stated) { return walk.compareNext(stated); });
  cardsets stored;
  throwErrnoUnless(stored.load(files.cardSets.c_str()) >= 0, files.cardSets);
  if (const std::string difference = differenceTo(site.cardSets(), stored); !difference.empty())
    refuse("the card sets file says " + difference);
  return walk.end();
}

}  // namespace badgemint::admin
