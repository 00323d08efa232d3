// The verb `verify`: what is wrong with existing databases, and where they differ from what a build
// of a cards file makes.
#include <unordered_set>

#include "admin/records/expected.h"
#include "admin/verbs/verb.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

struct VerifyOptions {
  SitePaths site{.cards = ""};  // Without a cards file the databases are compared with none.
  bool all = false, withPins = false, json = false;
};

// The files that can have faults, in the order in which these are printed.
enum FaultFile { kIdentFile, kAccessFile, kCardsFile, kCardSetsFile };

template <typename Record>
Place placeOf(FaultFile file, const Record& record, const std::vector<Record>& records) {
  const int64_t number = &record - records.data();
  return {.file = file, .record = number, .offset = number * int64_t{Record::kSize}};
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
  const bool isPinAlone = a.cardsetcode == kPinOnlyCode || b.cardsetcode == kPinOnlyCode;
  return !isPinAlone && (a.cardsetcode == kPinIdentCode) != (b.cardsetcode == kPinIdentCode);
}

// All checks of the databases. A record that equals what a build of the given cards file makes has
// no fault.
class DatabasesCheck {
 public:
  // All outlive it.
  DatabasesCheck(const VerifyOptions& options, const Site& site, Findings& faults)
      : _options(options), _site(site), _faults(faults) {}

  void run() {
    checkFiles();
    if (!_options.site.cards.empty()) compareWithBuild();
    for (const IdentRecord& record : _idents)
      if (!isExpected(record)) checkIdent(record);
    const auto accesses = orderByUniqid(_accesses);
    for (const AccessRecord& record : _accesses)
      if (!isExpected(record)) checkAccess(record, accesses);
    checkSharedKeys();
    forEachUniqid(orderByUniqid(_idents), accesses, [&](uint32_t, auto own, auto rights) {
      checkAccessesOfHolder(own, rights);
      checkIdentsOfHolder(own, rights.empty());
    });
  }

 private:
  using Idents = std::span<const IdentRecord* const>;
  using Accesses = std::span<const AccessRecord* const>;

  // Faults of the files as a whole.
  void checkFiles() {
    const Databases& databases = _site.databases();
    for (const auto& [file, rest] :
         {std::pair(kIdentFile, databases.identRest), std::pair(kAccessFile, databases.accessRest)})
      if (rest != 0)
        _faults.fault({file}, "size", fmt::format("{} bytes after the last whole record", rest));
    if (_idents.empty() && _accesses.empty() && _options.site.cards.empty())
      _faults.fault({kIdentFile}, "empty",
                    fmt::format("neither this database nor {} has a record: nobody has access",
                                printable(_options.site.access)));
    for (const auto& [line, text] : _site.cardSetProblems())
      _faults.fault({kCardSetsFile, line}, "card-sets", text);
  }

  // Finds the records that a build would make, in whatever order they are.
  void compareWithBuild() {
    IdentWalk idents(_idents);
    AccessWalk accesses(_accesses);
    ExpectedRecords records(_site, [&](const ExpectedRecord& made) {
      compare(made, made.ident, idents.next(made.ident.cardnumber), "is not in the ident database");
      if (made.access != nullptr)
        compare(made, *made.access, accesses.next(made.access->uniqid), "has no access record");
    });
    records.readFile(_options.site.cards);
    reportOthers(_idents, idents);
    reportOthers(_accesses, accesses);
    const std::string difference = differenceOfCardSets(_site);
    if (!difference.empty())
      _faults.fault({kCardSetsFile}, "differs", "a build would not write it: " + difference);
  }

  template <typename Record, typename Step>
  void compare(const ExpectedRecord& expected, const Record& made, const Step& found,
               const char* missing) {
    if (found.record == nullptr || found.isShared)
      return addFault({kCardsFile, expected.line}, expected.ident, "missing", missing);
    if (const char* const field = differingField(*found.record, made))
      addUnexpected(
          *found.record, "differs",
          fmt::format("differs from line {} of the cards file: {}", expected.line, field));
  }

  template <typename Record, typename Walk>
  void reportOthers(const std::vector<Record>& records, const Walk& walk) {
    for (size_t i = 0; i < records.size(); ++i)
      if (!walk.isUsed(i)) addUnexpected(records[i], "other", "is in no line of the cards file");
  }

  void addUnexpected(const auto& record, std::string_view rule, std::string_view text) {
    _unexpected.insert(&record);
    addFault(record, rule, text);
  }
  // Whether a build of the cards file makes this record.
  bool isExpected(const auto& record) const {
    return !_options.site.cards.empty() && !_unexpected.contains(&record);
  }

  void checkIdent(const IdentRecord& record) {
    const uint32_t code = record.cardsetcode;
    if (record.deleted > 1)
      addFault(record, "mark", fmt::format("has mark of deletion {}, not 0 or 1", record.deleted));
    if (code == kPinOnlyCode || code == kPinIdentCode) {
      const bool isEmpty = record.cardnumber[0] >> 4 == 0xF;
      if (isEmpty || !isPackedPin<kMaxPinIdentDigits>(record.cardnumber))
        addFault(record, "pin", "is not stored as packed digits: no keypad entry matches it");
    } else if (code != kFormatlessCode) {
      CardEncoder& encoder = _encoders[code];
      if (findCardEncoder(code, 0, &_site.sets(), &_site.formatSet(), encoder) != kSuccess)
        addFault(record, "card-set",
                 fmt::format("has no format: card set {} or its format is missing", code));
      else if (encoder.encode(encoder.decode(record.cardnumber)) != record.cardnumber)
        addFault(record, "key", "has the key of no card of its card set: readers deliver another");
    }
  }

  void checkAccess(const AccessRecord& record, Accesses byUniqid) {
    if (record.bitflds > AccessRecord::kAllFlags)
      addFault(record, "flag", "has flags beyond flag 5");
    if (!isPackedPin<AccessRecord::kPinDigits>(record.pincode))
      addFault(record, "pin", "has a PIN that is not stored as packed digits");
    if (record.endtime != 0 && record.endtime < record.starttime)
      addFault(record, "period",
               fmt::format("is never valid: the end {} is before the start {}",
                           timeText(record.endtime).data(), timeText(record.starttime).data()));
    if (record.escortid != 0 &&
        !std::ranges::binary_search(byUniqid, record.escortid, {}, &AccessRecord::uniqid))
      addFault(
          record, "escort",
          fmt::format("has escort {}, who does not exist: doors that need an escort never open",
                      record.escortid));
  }

  void checkSharedKeys() {
    std::vector<std::pair<CardPattern, const IdentRecord*>> byKey;
    byKey.reserve(_idents.size());
    for (const IdentRecord& record : _idents)
      if (record.deleted == 0) byKey.emplace_back(record.cardnumber, &record);
    std::ranges::sort(byKey);
    std::map<const IdentRecord*, const IdentRecord*> others;  // In the order of the file.
    for (size_t first = 0, i = 1; i < byKey.size(); ++i)
      if (byKey[i].first != byKey[first].first)
        first = i;
      else
        others.emplace(byKey[i].second, byKey[first].second);
    for (const auto& [record, other] : others)
      addFault(*record, "unique", fmt::format("has the key of record {}", other - _idents.data()));
  }

  // A build writes an access record with each credential but the PIN beside a card.
  void checkAccessesOfHolder(Idents idents, Accesses accesses) {
    size_t owners = 0;
    for (const IdentRecord* const ident : idents) owners += ident->cardsetcode != kPinIdentCode;
    for (size_t n = 0; n < accesses.size(); ++n)
      if (idents.empty())
        addFault(*accesses[n], "holder", "has no credential");
      else if (n > 0 && n >= owners)
        addFault(*accesses[n], "holder",
                 fmt::format("already has access record {}", accesses[0] - _accesses.data()));
  }

  // A PIN beside a card that lacks its card passes a build when no unique ID is lower.
  void checkIdentsOfHolder(Idents idents, bool hasNoAccess) {
    const IdentRecord* last = nullptr;
    size_t valid = 0;
    for (const IdentRecord* const ident : idents) {
      if (ident->deleted != 0) continue;
      ++valid;
      if (hasNoAccess && !isExpected(*ident)) addFault(*ident, "holder", "has no access record");
      if (last != nullptr && !arePartners(*last, *ident))
        addFault(*ident, "unique",
                 fmt::format("has the unique ID of record {}", last - _idents.data()));
      last = ident;
    }
    if (valid == 1 && last->cardsetcode == kPinIdentCode && !isExpected(*last))
      addFault(*last, "pair", "has no card");
  }

  // About a credential: the text goes on after its name. It is a record of the ident database, or
  // one that a line of the cards file makes.
  void addFault(Place place, const IdentRecord& record, std::string_view rule,
                std::string_view text) {
    const std::string name = credentialText(record, _site, _options.withPins);
    _faults.fault(place, rule, fmt::format("holder {}: {} {}", record.uniqid, name, text),
                  {.holder = record.uniqid, .credential = record});
  }
  void addFault(const IdentRecord& record, std::string_view rule, std::string_view text) {
    addFault(placeOf(kIdentFile, record, _idents), record, rule, text);
  }

  // About a record of the access database: the text goes on after its holder.
  void addFault(const AccessRecord& record, std::string_view rule, std::string_view text) {
    _faults.fault(placeOf(kAccessFile, record, _accesses), rule,
                  fmt::format("holder {} {}", record.uniqid, text), {.holder = record.uniqid});
  }

  const VerifyOptions& _options;
  const Site& _site;
  Findings& _faults;
  const std::vector<IdentRecord>& _idents = _site.databases().idents;
  const std::vector<AccessRecord>& _accesses = _site.databases().accesses;
  std::unordered_set<const void*> _unexpected;  // Records that no build of the cards file makes.
  std::map<uint32_t, CardEncoder> _encoders;    // By card set; without format until first used.
};

// Reads the databases with their names swapped, if they are valid only that way.
bool readSwapped(const SitePaths& names, Databases& databases) {
  if (whyImpossible(databases, names).empty()) return false;
  Databases swapped;
  swapped.readIdents(names.access);
  swapped.readAccesses(names.ident);
  if (!whyImpossible(swapped, names).empty()) return false;
  databases = std::move(swapped);
  return true;
}

// Always of the same words, for programs that read it.
void printTotals(size_t faults, const Databases& databases, const auto& print) {
  size_t credentials = databases.idents.size(), holders = 0;
  databases.forEachHolder([&](const Holder& holder) { holders += !holder.accesses.empty(); });
  JsonObject numbers;
  numbers.add("faults", faults).add("credentials", credentials).add("holders", holders);
  print(fmt::format("{} faults; {} credentials of {} holders",
                    faults == 0 ? "no" : fmt::to_string(faults), credentials, holders),
        JsonObject().add("summary", numbers));
}

// Of a rule with more than twenty faults, their number comes first.
void printFaults(const Findings& faults, const Site& site, const VerifyOptions& options,
                 Console& console) {
  constexpr size_t kMostUncounted = 20;
  const auto print = [&](const std::string& text, const JsonObject& object) {
    console.output() << (options.json ? object.text() : text) << '\n';
  };
  for (const auto& [rule, count] : faults.counts())
    if (count > kMostUncounted)
      print(fmt::format("{} faults [{}]", count, rule),
            JsonObject().add("rule", rule).add("count", count));
  for (const Finding& fault : faults.sorted()) {
    JsonObject object = faults.json(fault);
    if (const auto& credential = fault.about.credential)
      addCredential(object, *credential, site, options.withPins);
    print(fmt::format("{}: {} [{}]", faults.placeText(fault.place), fault.text, fault.rule),
          object);
  }
  for (const auto& [rule, rest] : faults.notKept())
    print(fmt::format("{} more faults [{}] (--all prints them)", rest, rule),
          JsonObject().add("rule", rule).add("not_printed", rest));
  printTotals(faults.errors(), site.databases(), print);
}

ExitStatus verify(const VerifyOptions& options, Console& console) {
  const SitePaths& names = options.site;
  Site site(names, {.formats = true});  // Its problems are faults.
  if (!names.cards.empty()) {
    Findings findings(options.all);
    const SiteSummary summary =
        checkSite({names.cards, names.formats, {}, options.withPins}, findings);
    if (findings.errors() > 0) return report(findings, summary, false, console, options.json);
  }
  Findings faults(options.all);
  for (const std::string& name : {names.ident, names.access, names.cards, names.cardSets})
    faults.addFile(name);  // In the order of FaultFile.
  Databases& databases = site.databases();
  if (readSwapped(names, databases)) {
    faults.fault({kIdentFile}, "swapped",
                 fmt::format("this is an access database, and {} is an ident database: --ident and "
                             "--access are swapped",
                             printable(names.access)));
  } else {
    DatabasesCheck(options, site, faults).run();
  }
  databases.sort();  // To count holders; the faults have their record numbers.
  printFaults(faults, site, options, console);
  return faults.errors() == 0 ? ExitStatus::kAllWell : ExitStatus::kRefused;
}

}  // namespace

Run addVerify(Options options) {
  const auto given = std::make_shared<VerifyOptions>();
  options.describe("Report what is wrong with existing databases",
                   "badgemint-admin verify --cards cards.txt");
  options.file("--cards", given->site.cards, "Compare with what a build of this file would make");
  options.databases(given->site);
  options.flag("--all", given->all, "Print all faults, not only 100 of each kind");
  options.flag("--with-pins", given->withPins, "Show PINs");
  options.flag("--json", given->json, "Print JSON, one object a line");
  return [given](Console& console) { return verify(*given, console); };
}

}  // namespace badgemint::admin
