#include "admin/records/recordrules.h"

#include <algorithm>
#include <array>
#include <new>
#include <span>
#include <tuple>

#include "admin/json.h"
#include "admin/records/wording.h"
#include "cardsets/card_functions.h"
#include "inputcards/cardindex.h"
#include "inputcards/cardline.h"
#include "support/packeddecimal.h"
#include "support/textutil.h"

namespace badgemint::admin {

void Faults::add(Fault fault) {
  ++_count;
  OfRule& own = _rules[fault.rule];
  ++own.count;
  const FaultPlace place = fault.place;
  own.kept.emplace(place, std::move(fault));
  if (!_options.all && own.kept.size() > kMostOfOneRule) own.kept.erase(std::prev(own.kept.end()));
}

void Faults::add(FaultPlace place, const IdentRecord& record, std::string_view rule,
                 const std::string& text) {
  const std::string name = credentialText(record, _site, _options.withPins);
  add({place, rule, fmt::format("holder {}: {} {}", record.uniqid, name, text), record.uniqid,
       record});
}

void Faults::add(const IdentRecord& record, std::string_view rule, const std::string& text) {
  add({FaultFile::kIdent, &record - _site.databases().idents.data()}, record, rule, text);
}

void Faults::add(const AccessRecord& record, std::string_view rule, const std::string& text) {
  add({{FaultFile::kAccess, &record - _site.databases().accesses.data()},
       rule,
       fmt::format("holder {} {}", record.uniqid, text),
       record.uniqid});
}

void Faults::print(Console& console) const {
  std::vector<const Fault*> faults;
  for (const auto& [rule, own] : _rules) {
    if (own.count > kMostUncounted && _options.json)
      console.printJson(JsonObject().add("rule", rule).add("count", own.count));
    else if (own.count > kMostUncounted)
      console.print("{} faults [{}]\n", own.count, rule);
    for (const auto& [place, fault] : own.kept) faults.push_back(&fault);
  }
  std::ranges::stable_sort(faults, {}, [](const Fault* fault) { return fault->place; });
  for (const Fault* const fault : faults) print(*fault, console);
  for (const auto& [rule, own] : _rules) {
    const size_t rest = own.count - own.kept.size();
    if (rest > 0 && _options.json)
      console.printJson(JsonObject().add("rule", rule).add("not_printed", rest));
    else if (rest > 0)
      console.print("{} more faults [{}] (--all prints them)\n", rest, rule);
  }
}

void Faults::print(const Fault& fault, Console& console) const {
  const auto& [file, number] = fault.place;
  const SitePaths& site = _options.site;
  const std::array names = {&site.ident, &site.access, &_options.cards, &site.cardSets};
  JsonObject object;
  object.add("file", *names.at(static_cast<size_t>(file)));
  std::string place = printable(*names.at(static_cast<size_t>(file)));
  if (number != FaultPlace::kWholeFile && file <= FaultFile::kAccess) {
    const size_t size = file == FaultFile::kIdent ? IdentRecord::kSize : AccessRecord::kSize;
    const size_t offset = static_cast<size_t>(number) * size;
    object.add("record", number).add("offset", offset);
    place += fmt::format(": record {} (offset {})", number, offset);
  } else if (number != FaultPlace::kWholeFile) {
    object.add("line", number);
    place += fmt::format(":{}", number);
  }
  object.add("severity", "error").add("rule", fault.rule).add("text", fault.text);
  if (fault.holder) object.add("holder", *fault.holder);
  if (fault.credential) admin::addCredential(object, *fault.credential, _site, _options.withPins);
  if (_options.json) return console.printJson(object);
  console.print("{}: {} [{}]\n", place, fault.text, fault.rule);
}

namespace {

bool isValid(const IdentRecord& record) {
  return record.deleted == 0;
}

// Whether the bytes are what packing a PIN gives. No PIN at all is a single filler.
template <size_t Digits, size_t Bytes>
bool isPackedPin(const std::array<uint8_t, Bytes>& packed) {
  const DigitText<Digits> digits(packed);
  const std::string_view pin = digits.c_str();
  if (!std::ranges::all_of(pin, isDigit)) return false;
  std::array<uint8_t, Bytes> again{};
  packDigits(pin, again);
  return packed == again;
}

// A card and a PIN beside it have one unique ID.
bool arePartners(const IdentRecord& a, const IdentRecord& b) {
  const auto isPinBeside = [](const IdentRecord& record) {
    return record.cardsetcode == kPinIdentCode;
  };
  const bool isPinAlone = a.cardsetcode == kPinOnlyCode || b.cardsetcode == kPinOnlyCode;
  return !isPinAlone && isPinBeside(a) != isPinBeside(b);
}

class RecordRules {
 public:
  RecordRules(const Site& site, const ExpectedNumbers& expected, Faults& faults)
      : _idents(site.databases().idents),
        _accesses(site.databases().accesses),
        _site(site),
        _expected(expected),
        _faults(faults) {}

  // A record that is exactly as a build makes it is stored as it should be.
  size_t check() {
    for (size_t i = 0; i < _idents.size(); ++i)
      if (!_expected.idents[i]) checkIdent(i);
    for (size_t i = 0; i < _accesses.size(); ++i)
      if (!_expected.accesses[i]) checkAccess(i);
    checkSharedKeys();
    return checkHolders();
  }

 private:
  using Numbers = std::span<const uint32_t>;

  void checkIdent(size_t i) {
    const IdentRecord& record = _idents[i];
    if (record.deleted > 1)
      _faults.add(_idents[i], "mark", fmt::format("has mark of deletion {}", record.deleted));
    if (record.cardsetcode > kPinIdentCode) {
      _faults.add(_idents[i], "card-set",
                  fmt::format("has the invalid card set code {}", record.cardsetcode));
    } else if (isPinEntry(record)) {
      const bool isEmpty = record.cardnumber[0] >> 4 == 0xF;
      if (isEmpty || !isPackedPin<kMaxPinIdentDigits>(record.cardnumber))
        _faults.add(_idents[i], "pin",
                    "is not stored as packed digits: no keypad entry matches it");
    } else if (record.cardsetcode != kFormatlessCode) {
      const CardEncoder& encoder = encoderOf(record.cardsetcode);
      if (encoder.format == nullptr)
        _faults.add(
            _idents[i], "card-set",
            fmt::format("has no format: card set {} or its format is missing", record.cardsetcode));
      else if (encoder.encode(encoder.decode(record.cardnumber)) != record.cardnumber)
        _faults.add(_idents[i], "key", "has a key that its card set gives to no number");
    }
  }

  const CardEncoder& encoderOf(uint32_t csid) {
    CardEncoder& encoder = _encoders.at(csid);
    if (encoder.format != nullptr) return encoder;
    if (const CardFormat* const format = _site.formatOfSet(csid))
      encoder = {format, format->encodeSite(_site.sets().getCardSet(csid)->fldvalues)};
    return encoder;
  }

  void checkAccess(size_t i) {
    const AccessRecord& record = _accesses[i];
    if (record.bitflds > AccessRecord::kAllFlags)
      _faults.add(_accesses[i], "flag", "has flags beyond flag 5");
    if (!isPackedPin<AccessRecord::kPinDigits>(record.pincode))
      _faults.add(_accesses[i], "pin", "has a PIN that is not stored as packed digits");
  }

  // What a build makes of a wrong line, too.
  void checkHolderOf(size_t i, Numbers accessesByUniqid) {
    const AccessRecord& record = _accesses[i];
    if (record.endtime != 0 && record.endtime < record.starttime)
      _faults.add(_accesses[i], "period",
                  fmt::format("is never valid: the end {} is before the start {}",
                              timeText(record.endtime).data(), timeText(record.starttime).data()));
    const auto uniqidAt = [this](uint32_t number) { return _accesses[number].uniqid; };
    if (record.escortid != 0 &&
        !std::ranges::binary_search(accessesByUniqid, record.escortid, {}, uniqidAt))
      _faults.add(
          _accesses[i], "escort",
          fmt::format("has escort {}, who is not a holder: no door ever opens", record.escortid));
  }

  // The index of a build finds records that share a key without sorting all of them.
  void checkSharedKeys() {
    CardIndex index;
    if (!index.isInitialised()) throw std::bad_alloc();
    for (size_t i = 0; i < _idents.size(); ++i)
      if (isValid(_idents[i]) && index.add(_idents[i].cardnumber, _idents[i].uniqid, kCardLine,
                                           static_cast<int32_t>(i), 0, 0) < 0)
        throw std::bad_alloc();
    CardIndexSuspects suspects;
    if (!index.collectByKey(suspects)) throw std::bad_alloc();
    const CardIndexEntry* first = nullptr;
    for (const CardIndexSuspect& suspect : suspects.elements()) {
      const CardIndexEntry& entry = index.entry(suspect.position);
      if (first == nullptr || first->key != entry.key)
        first = &entry;
      else
        _faults.add(_idents[static_cast<size_t>(entry.line)], "unique",
                    fmt::format("has the key of record {}", first->line));
    }
  }

  // Returns the number of those that have an access record.
  size_t checkHolders() {
    size_t holders = 0;
    const std::vector<uint32_t> idents = orderByUniqid(_idents);
    const std::vector<uint32_t> accesses = orderByUniqid(_accesses);
    for (size_t i = 0; i < _accesses.size(); ++i) checkHolderOf(i, accesses);
    forEachUniqid(
        Numbers(idents), Numbers(accesses), [this](uint32_t i) { return _idents[i].uniqid; },
        [this](uint32_t i) { return _accesses[i].uniqid; },
        [&](uint32_t, Numbers own, Numbers rights) {
          if (!rights.empty()) ++holders;
          checkAccessesOfHolder(own, rights);
          checkIdentsOfHolder(own, rights.empty());
        });
    return holders;
  }

  // A build writes an access record with each credential but the PIN beside a card.
  void checkAccessesOfHolder(Numbers idents, Numbers accesses) {
    if (idents.empty())
      for (const uint32_t i : accesses) _faults.add(_accesses[i], "holder", "has no credential");
    const auto owners = static_cast<size_t>(std::ranges::count_if(
        idents, [this](uint32_t i) { return _idents[i].cardsetcode != kPinIdentCode; }));
    for (size_t n = std::max(owners, size_t{1}); n < accesses.size(); ++n)
      _faults.add(_accesses[accesses[n]], "holder",
                  fmt::format("already has record {}", accesses[0]));
  }

  // A PIN beside a card that lacks its card passes a build when no unique ID is lower.
  void checkIdentsOfHolder(Numbers idents, bool hasNoAccess) {
    const uint32_t* last = nullptr;
    size_t valid = 0;
    for (const uint32_t& i : idents) {
      if (!isValid(_idents[i])) continue;
      ++valid;
      if (hasNoAccess && !_expected.idents[i])
        _faults.add(_idents[i], "holder", "has no access record");
      if (last != nullptr && !arePartners(_idents[*last], _idents[i]))
        _faults.add(_idents[i], "unique", fmt::format("has the unique ID of record {}", *last));
      last = &i;
    }
    if (valid == 1 && _idents[*last].cardsetcode == kPinIdentCode && !_expected.idents[*last])
      _faults.add(_idents[*last], "pair", "has no card beside it");
  }

  const std::vector<IdentRecord>& _idents;
  const std::vector<AccessRecord>& _accesses;
  const Site& _site;
  const ExpectedNumbers& _expected;
  Faults& _faults;
  std::array<CardEncoder, kLastCardSetId + 1> _encoders;  // By card set, when first used.
};

}  // namespace

size_t checkRecords(const Site& site, const ExpectedNumbers& expected, Faults& faults) {
  return RecordRules(site, expected, faults).check();
}

}  // namespace badgemint::admin
