#include "admin/records/recordrules.h"

#include <algorithm>
#include <array>

#include "admin/records/proof.h"
#include "admin/records/wording.h"
#include "cardsets/card_functions.h"
#include "inputcards/cardindex.h"
#include "inputcards/cardline.h"
#include "support/packeddecimal.h"
#include "support/textutil.h"

namespace badgemint::admin {

namespace {

bool isValid(const IdentRecord& record) {
  return record.deleted == 0;
}

template <size_t Digits>
bool isPackedPin(std::span<const uint8_t> packed) {
  const DigitText<Digits> digits(packed);
  const std::string_view pin = digits.c_str();
  return std::ranges::all_of(pin, isDigit) && isPin<Digits>(packed, pin);
}

// What the build's rules for unique IDs ask of an entry of its card index.
CardIndexEntry entryOf(const IdentRecord& record) {
  CardIndexEntry entry;
  entry.type = record.cardsetcode == kPinOnlyCode    ? kPinLine
               : record.cardsetcode == kPinIdentCode ? kPinIdentLine
                                                     : kCardLine;
  return entry;
}

class RecordRules {
 public:
  RecordRules(const Databases& databases, const RecordOrders& orders, const Site& site,
              RecordFaults& faults)
      : _idents(databases.idents),
        _accesses(databases.accesses),
        _orders(orders),
        _site(site),
        _faults(faults) {}

  void judge() {
    for (size_t i = 0; i < _idents.size(); ++i) judgeIdent(i);
    for (size_t i = 0; i < _accesses.size(); ++i) judgeAccess(i);
    judgeKeys();
    judgeHolders();
  }

 private:
  void judgeIdent(size_t i) {
    const IdentRecord& record = _idents[i];
    if (record.deleted > 1) _faults.addIdent({i, "mark", "has mark of deletion", record.deleted});
    if (record.cardsetcode > kPinIdentCode) {
      _faults.addIdent({i, "card-set", "has a code that is no card set's:", record.cardsetcode});
    } else if (isPinEntry(record)) {
      const bool isEmpty = record.cardnumber[0] >> 4 == 0xF;
      if (isEmpty || !isPackedPin<kMaxPinIdentDigits>(record.cardnumber))
        _faults.addIdent({i, "pin", "is not stored as digits and their end"});
    } else if (record.cardsetcode != kFormatlessCode) {
      judgeCard(i);
    }
  }

  void judgeCard(size_t i) {
    const IdentRecord& record = _idents[i];
    const CardEncoder& encoder = encoderOf(record.cardsetcode);
    if (encoder.format == nullptr) {
      const bool isSet = _site.sets().getCardSet(record.cardsetcode) != nullptr;
      _faults.addIdent({i, "card-set",
                        isSet ? "has no format: none is listed for card set"
                              : "has no format: the card sets file lacks card set",
                        record.cardsetcode});
      return;
    }
    const CardPattern again = encoder.encode(encoder.decode(record.cardnumber));
    if (again == record.cardnumber) return;
    _faults.addIdent({i,
                      "key",
                      "has a key that its card set does not give",
                      {},
                      deviation(*encoder.format, record.cardnumber, again)});
  }

  static const char* deviation(const CardFormat& format, const CardPattern& key,
                               const CardPattern& again) {
    for (int32_t field = 0; field < kFieldCount; ++field) {
      int64_t value = 0, expected = 0;
      static_cast<void>(format.decodeField(key, field, value));
      static_cast<void>(format.decodeField(again, field, expected));
      if (value != expected) return "another site value";
    }
    return "parity, fixed bits, or bits behind the card's end";
  }

  const CardEncoder& encoderOf(uint32_t csid) {
    CardEncoder& encoder = _encoders.at(csid);
    if (encoder.format != nullptr) return encoder;
    if (const CardFormat* const format = _site.formatOfSet(csid))
      encoder = {format, format->encodeSite(_site.sets().getCardSet(csid)->fldvalues)};
    return encoder;
  }

  void judgeAccess(size_t i) {
    const AccessRecord& record = _accesses[i];
    if (record.bitflds > AccessRecord::kAllFlags)
      _faults.addAccess({i, "flag", "has flags beyond flag 5"});
    if (!isPackedPin<AccessRecord::kPinDigits>(record.pincode))
      _faults.addAccess({i, "pin", "has a PIN that is not stored as digits and their end"});
  }

  void judgeKeys() {
    for (RecordNumbers rest = _orders.identsByKey(); !rest.empty();) {
      const RecordNumbers alike = firstAlike(rest, _idents, &IdentRecord::cardnumber);
      rest = rest.subspan(alike.size());
      if (alike.size() > 1) judgeSameKey(alike);
    }
  }

  void judgeSameKey(RecordNumbers numbers) {
    const size_t* first = nullptr;
    for (const size_t& i : numbers) {
      if (!isValid(_idents[i])) continue;
      if (first != nullptr)
        _faults.addIdent({i, "unique", "has the key of record", *first});
      else
        first = &i;
    }
  }

  // All holders, those of either database, by their unique IDs.
  void judgeHolders() {
    RecordNumbers idents = _orders.identsByUniqid(), accesses = _orders.accessesByUniqid();
    while (!idents.empty() || !accesses.empty()) {
      RecordNumbers own = firstAlike(idents, _idents, &IdentRecord::uniqid);
      RecordNumbers rights = firstAlike(accesses, _accesses, &AccessRecord::uniqid);
      if (!own.empty() && !rights.empty()) {
        const uint32_t a = _idents[own[0]].uniqid, b = _accesses[rights[0]].uniqid;
        if (a > b) own = {};
        if (b > a) rights = {};
      }
      judgeHolder(own, rights);
      idents = idents.subspan(own.size());
      accesses = accesses.subspan(rights.size());
    }
  }

  // The credentials that a build writes an access record with.
  size_t countOwners(RecordNumbers idents) const {
    return static_cast<size_t>(std::ranges::count_if(
        idents, [this](size_t i) { return _idents[i].cardsetcode != kPinIdentCode; }));
  }

  void judgeHolder(RecordNumbers idents, RecordNumbers accesses) {
    if (idents.empty())
      for (const size_t i : accesses) _faults.addAccess({i, "holder", "has no credential"});
    for (size_t n = std::max(countOwners(idents), size_t{1}); n < accesses.size(); ++n)
      _faults.addAccess({accesses[n], "holder", "already has record", accesses[0]});
    const size_t* last = nullptr;
    size_t valid = 0;
    for (const size_t& i : idents) {
      if (!isValid(_idents[i])) continue;
      ++valid;
      if (accesses.empty()) _faults.addIdent({i, "holder", "has no access record"});
      if (last != nullptr &&
          !CardIndex::mayShareUniqid(entryOf(_idents[*last]), entryOf(_idents[i])))
        _faults.addIdent({i, "unique", "has the unique ID of record", *last});
      last = &i;
    }
    if (valid == 1 && _idents[*last].cardsetcode == kPinIdentCode)
      _faults.addIdent({*last, "pair", "has no card beside it"});
  }

  const std::vector<IdentRecord>& _idents;
  const std::vector<AccessRecord>& _accesses;
  const RecordOrders& _orders;
  const Site& _site;
  RecordFaults& _faults;
  std::array<CardEncoder, kLastCardSetId + 1> _encoders;  // By card set, when first used.
};

}  // namespace

void judgeRecords(const Databases& databases, const RecordOrders& orders, const Site& site,
                  RecordFaults& faults) {
  RecordRules(databases, orders, site, faults).judge();
}

}  // namespace badgemint::admin
