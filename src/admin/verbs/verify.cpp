// The verb `verify`: what is wrong with existing databases, and where they differ from what a build
// of a cards file makes.
#include <algorithm>
#include <array>
#include <compare>
#include <map>
#include <memory>
#include <optional>

#include "admin/check/sitecheck.h"
#include "admin/records/expected.h"
#include "admin/records/wording.h"
#include "admin/verbs/verb.h"
#include "cardsets/card_functions.h"
#include "support/packeddecimal.h"
#include "support/textutil.h"

namespace badgemint::admin {

namespace {

struct VerifyOptions {
  SitePaths site;
  std::string cards;  // The cards file to compare with; empty for none.
  bool all = false;
  bool withPins = false;
  bool json = false;
};

// The files that can have faults, in the order in which these are printed.
enum class FaultFile { kIdent, kAccess, kCards, kCardSets };

struct FaultPlace {
  static constexpr int64_t kWholeFile = -1;

  FaultFile file;
  int64_t number = kWholeFile;  // Of a record from 0 on, of a line from 1 on.

  // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy 14 finds a 0 in what the compiler makes.
  auto operator<=>(const FaultPlace&) const = default;
};

struct Fault {
  FaultPlace place;
  std::string_view rule;  // A literal.
  std::string text;
  std::optional<uint32_t> holder{};
  std::optional<IdentRecord> credential{};
};

// Takes faults in any order, and prints them in the order of files and records. Of one rule it
// keeps the first hundred unless all are asked for.
class Faults {
 public:
  // Both outlive it.
  Faults(const VerifyOptions& options, const Site& site) : _options(options), _site(site) {}

  void add(Fault fault) {
    ++_count;
    OfRule& own = _rules[fault.rule];
    ++own.count;
    const FaultPlace place = fault.place;
    own.kept.emplace(place, std::move(fault));
    if (!_options.all && own.kept.size() > kMostOfOneRule)
      own.kept.erase(std::prev(own.kept.end()));
  }

  // Of a credential: the text goes on after its name. It is a record of the ident database, or one
  // that a line of the cards file makes.
  void add(FaultPlace place, const IdentRecord& record, std::string_view rule,
           const std::string& text) {
    const std::string name = credentialText(record, _site, _options.withPins);
    add({place, rule, fmt::format("holder {}: {} {}", record.uniqid, name, text), record.uniqid,
         record});
  }
  void add(const IdentRecord& record, std::string_view rule, const std::string& text) {
    add({FaultFile::kIdent, &record - _site.databases().idents.data()}, record, rule, text);
  }

  // Of a record of the access database: the text goes on after its holder.
  void add(const AccessRecord& record, std::string_view rule, const std::string& text) {
    add({{FaultFile::kAccess, &record - _site.databases().accesses.data()},
         rule,
         fmt::format("holder {} {}", record.uniqid, text),
         record.uniqid});
  }

  size_t count() const { return _count; }

  // Of a rule with more than twenty faults, their number comes first.
  void print(Console& console) const {
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

 private:
  static constexpr size_t kMostOfOneRule = 100;
  static constexpr size_t kMostUncounted = 20;

  struct OfRule {
    size_t count = 0;
    std::multimap<FaultPlace, Fault> kept{};
  };

  void print(const Fault& fault, Console& console) const {
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

  const VerifyOptions& _options;
  const Site& _site;
  std::map<std::string_view, OfRule> _rules;
  size_t _count = 0;
};

// Which records are exactly as a build makes them.
struct ExpectedNumbers {
  std::vector<bool> idents, accesses;
};

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

// The rules that any databases keep, whoever has maintained them since a build made them.
class RecordRules {
 public:
  RecordRules(const Site& site, const ExpectedNumbers& expected, Faults& faults)
      : _idents(site.databases().idents),
        _accesses(site.databases().accesses),
        _site(site),
        _expected(expected),
        _faults(faults) {}

  // Returns the number of holders: of different unique IDs in the access database. A record that is
  // exactly as a build makes it is stored as it should be.
  size_t check() {
    for (size_t i = 0; i < _idents.size(); ++i)
      if (!_expected.idents[i]) checkIdent(_idents[i]);
    for (size_t i = 0; i < _accesses.size(); ++i)
      if (!_expected.accesses[i]) checkAccess(_accesses[i]);
    checkSharedKeys();
    return checkHolders();
  }

 private:
  using Numbers = std::span<const uint32_t>;

  void checkIdent(const IdentRecord& record) {
    if (record.deleted > 1)
      _faults.add(record, "mark", fmt::format("has mark of deletion {}", record.deleted));
    if (record.cardsetcode > kPinIdentCode) {
      _faults.add(record, "card-set",
                  fmt::format("has the invalid card set code {}", record.cardsetcode));
    } else if (isPinEntry(record)) {
      const bool isEmpty = record.cardnumber[0] >> 4 == 0xF;
      if (isEmpty || !isPackedPin<kMaxPinIdentDigits>(record.cardnumber))
        _faults.add(record, "pin", "is not stored as packed digits: no keypad entry matches it");
    } else if (record.cardsetcode != kFormatlessCode) {
      const CardEncoder& encoder = encoderOf(record.cardsetcode);
      if (encoder.format == nullptr)
        _faults.add(
            record, "card-set",
            fmt::format("has no format: card set {} or its format is missing", record.cardsetcode));
      else if (encoder.encode(encoder.decode(record.cardnumber)) != record.cardnumber)
        _faults.add(record, "key", "has a key that its card set gives to no number");
    }
  }

  const CardEncoder& encoderOf(uint32_t csid) {
    CardEncoder& encoder = _encoders.at(csid);
    if (encoder.format != nullptr) return encoder;
    if (const CardFormat* const format = _site.formatOfSet(csid))
      encoder = {format, format->encodeSite(_site.sets().getCardSet(csid)->fldvalues)};
    return encoder;
  }

  void checkAccess(const AccessRecord& record) {
    if (record.bitflds > AccessRecord::kAllFlags)
      _faults.add(record, "flag", "has flags beyond flag 5");
    if (!isPackedPin<AccessRecord::kPinDigits>(record.pincode))
      _faults.add(record, "pin", "has a PIN that is not stored as packed digits");
  }

  // What a build makes of a wrong line, too.
  void checkHolderOf(const AccessRecord& record, Numbers accessesByUniqid) {
    if (record.endtime != 0 && record.endtime < record.starttime)
      _faults.add(record, "period",
                  fmt::format("is never valid: the end {} is before the start {}",
                              timeText(record.endtime).data(), timeText(record.starttime).data()));
    const auto uniqidAt = [this](uint32_t number) { return _accesses[number].uniqid; };
    if (record.escortid != 0 &&
        !std::ranges::binary_search(accessesByUniqid, record.escortid, {}, uniqidAt))
      _faults.add(
          record, "escort",
          fmt::format("has escort {}, who is not a holder: no door ever opens", record.escortid));
  }

  void checkSharedKeys() {
    std::vector<std::pair<CardPattern, uint32_t>> keys;
    keys.reserve(_idents.size());
    for (uint32_t i = 0; i < _idents.size(); ++i)
      if (isValid(_idents[i])) keys.emplace_back(_idents[i].cardnumber, i);
    std::ranges::sort(keys);
    for (size_t first = 0, i = 1; i < keys.size(); ++i)
      if (keys[i].first != keys[first].first)
        first = i;
      else
        _faults.add(_idents[keys[i].second], "unique",
                    fmt::format("has the key of record {}", keys[first].second));
  }

  // Returns the number of those that have an access record.
  size_t checkHolders() {
    size_t holders = 0;
    const std::vector<uint32_t> idents = orderByUniqid(_idents);
    const std::vector<uint32_t> accesses = orderByUniqid(_accesses);
    for (const AccessRecord& record : _accesses) checkHolderOf(record, accesses);
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

// Finds the records of the databases that a build would make, in whatever order they stand.
class Comparison {
 public:
  Comparison(const Databases& databases, Faults& faults)
      : _idents(databases.idents),
        _accesses(databases.accesses),
        _faults(faults),
        _identWalk(_idents),
        _accessWalk(_accesses),
        _expected{std::vector<bool>(_idents.size()), std::vector<bool>(_accesses.size())} {}

  // `stored` are the card sets of the card sets file.
  void run(const std::string& cards, const std::string& formats, const cardsets& stored) {
    ExpectedRecords records(formats, [this](const ExpectedRecord& record) { compare(record); });
    records.readFile(cards);
    for (size_t i = 0; i < _idents.size(); ++i)
      if (!_identWalk.isUsed(i)) _faults.add(_idents[i], "other", kOther);
    for (size_t i = 0; i < _accesses.size(); ++i)
      if (!_accessWalk.isUsed(i)) _faults.add(_accesses[i], "other", kOther);
    const std::string difference = differenceOfCardSets(records.cardSets(), stored);
    if (!difference.empty())
      _faults.add({{FaultFile::kCardSets}, "differs", "a build would not write it: " + difference});
  }

  // Which records are exactly as a build makes them; none before run().
  const ExpectedNumbers& expected() const { return _expected; }

 private:
  static constexpr char kOther[] = "is in no line of the cards file";

  void compare(const ExpectedRecord& expected) {
    compare(expected, expected.ident, _identWalk.next(expected.ident.cardnumber),
            "is not in the ident database");
    if (expected.access != nullptr)
      compare(expected, *expected.access, _accessWalk.next(expected.access->uniqid),
              "has no access record");
  }

  template <typename Record, typename Step>
  void compare(const ExpectedRecord& expected, const Record& made, const Step& found,
               const char* missing) {
    if (found.record == nullptr || found.isShared)
      return _faults.add({FaultFile::kCards, expected.line}, expected.ident, "missing", missing);
    if (const char* const field = differingField(*found.record, made))
      _faults.add(*found.record, "differs",
                  fmt::format("is not as in the cards file, line {}: {}", expected.line, field));
    else
      mark(*found.record);
  }

  void mark(const IdentRecord& record) {
    _expected.idents[static_cast<size_t>(&record - _idents.data())] = true;
  }
  void mark(const AccessRecord& record) {
    _expected.accesses[static_cast<size_t>(&record - _accesses.data())] = true;
  }

  const std::vector<IdentRecord>& _idents;
  const std::vector<AccessRecord>& _accesses;
  Faults& _faults;
  IdentWalk _identWalk;
  AccessWalk _accessWalk;
  ExpectedNumbers _expected;
};

// Faults of the files as a whole.
void checkFiles(const VerifyOptions& options, const Site& site, Faults& faults) {
  const Databases& databases = site.databases();
  const auto checkRest = [&faults](FaultFile file, size_t rest) {
    if (rest != 0)
      faults.add({{file}, "size", fmt::format("{} bytes after the last whole record", rest)});
  };
  checkRest(FaultFile::kIdent, databases.identRest);
  checkRest(FaultFile::kAccess, databases.accessRest);
  if (databases.idents.empty() && databases.accesses.empty())
    faults.add({{FaultFile::kIdent},
                "empty",
                fmt::format("neither it nor {} has a record: nobody has access",
                            printable(options.site.access))});
  for (const auto& [line, text] : site.cardSetProblems())
    faults.add({{FaultFile::kCardSets, line}, "card-sets", text});
}

bool arePlausible(const Databases& databases) {
  try {
    requirePlausibleRecords(databases, "", "");
    return true;
  } catch (const Failure&) {
    return false;
  }
}

// The databases, if it is with swapped names that they are plausible.
std::optional<Databases> swapped(const SitePaths& names, const Databases& databases) {
  if (arePlausible(databases)) return std::nullopt;
  Databases swapped;
  swapped.readIdents(names.access);
  swapped.readAccesses(names.ident);
  if (!arePlausible(swapped)) return std::nullopt;
  swapped.sort();
  return swapped;
}

// Returns the number of holders.
size_t checkDatabases(const VerifyOptions& options, const Site& site, Faults& faults) {
  checkFiles(options, site, faults);
  Comparison comparison(site.databases(), faults);
  if (!options.cards.empty()) comparison.run(options.cards, options.site.formats, site.sets());
  return RecordRules(site, comparison.expected(), faults).check();
}

// Always of the same words, for programs that read it.
void printSummary(size_t faults, size_t credentials, size_t holders, bool isJson,
                  Console& console) {
  if (isJson)
    console.printJson(JsonObject().add("summary", JsonObject()
                                                      .add("faults", faults)
                                                      .add("credentials", credentials)
                                                      .add("holders", holders)));
  else
    console.print("{} faults; {} credentials of {} holders\n",
                  faults == 0 ? "no" : fmt::to_string(faults), credentials, holders);
}

ExitStatus verify(const VerifyOptions& options, Console& console) {
  const SitePaths& names = options.site;
  const Site site(names, Site::Formats::kRequired);  // Its problems are faults.
  if (!options.cards.empty()) {
    Findings findings(options.all);
    const SiteSummary summary =
        checkSite({options.cards, names.formats, "", options.withPins}, findings);
    if (findings.errors() > 0) return report(findings, summary, false, console, options.json);
  }
  Faults faults(options, site);
  size_t credentials = site.databases().idents.size(), holders = 0;
  if (const auto databases = swapped(names, site.databases())) {
    credentials = databases->idents.size();
    holders = databases->countHolders();
    faults.add({{FaultFile::kIdent},
                "swapped",
                fmt::format("this is an access database, and {} is an ident database: --ident and "
                            "--access are swapped",
                            printable(names.access))});
  } else {
    holders = checkDatabases(options, site, faults);
  }
  faults.print(console);
  printSummary(faults.count(), credentials, holders, options.json, console);
  return faults.count() == 0 ? ExitStatus::kAllWell : ExitStatus::kRefused;
}

}  // namespace

Run addVerify(Options options) {
  const auto given = std::make_shared<VerifyOptions>();
  options.describe("Report what is wrong with existing databases",
                   "badgemint-admin verify --cards cards.txt");
  options.file("--cards", given->cards, "Compare with what a build of this file would make");
  options.databases(given->site);
  options.flag("--all", given->all, "Print more than 100 faults of one kind");
  options.flag("--with-pins", given->withPins, "Show PINs");
  options.flag("--json", given->json, "Print JSON Lines: an object for each fault");
  return [given](Console& console) { return verify(*given, console); };
}

}  // namespace badgemint::admin
