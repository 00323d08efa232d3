// The verb `verify`: what is wrong with existing databases, and where they differ from what a build
// of a cards file makes.
#include <algorithm>
#include <array>
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
  SitePaths site{.cards = ""};  // Without a cards file the databases are compared with none.
  bool all = false;
  bool withPins = false;
  bool json = false;
};

// The files that can have faults, in the order in which these are printed.
enum class FaultFile { kIdent, kAccess, kCards, kCardSets };

// The number of a record from 0 on, or of a line from 1 on.
using FaultPlace = std::pair<FaultFile, int64_t>;
constexpr int64_t kWholeFile = -1;

// Takes faults in any order, and prints them in the order of files and records. Of one rule it
// keeps the first hundred that it gets unless all are asked for.
class Faults {
 public:
  // Both outlive it.
  Faults(const VerifyOptions& options, const Site& site) : _options(options), _site(site) {}

  // `rule` is a literal.
  void add(FaultPlace place, std::string_view rule, const std::string& text,
           std::optional<uint32_t> holder = {}, const IdentRecord* credential = nullptr) {
    ++_count;
    if (++_counts[rule] > kMostOfOneRule && !_options.all) return;
    JsonObject object;
    const std::string where = addPlace(object, place);
    object.add("severity", "error").add("rule", rule).add("text", text);
    if (holder) object.add("holder", *holder);
    if (credential != nullptr) addCredential(object, *credential, _site, _options.withPins);
    _lines.emplace(place, line(fmt::format("{}: {} [{}]", where, text, rule), object));
  }

  // Of a credential: the text goes on after its name. It is a record of the ident database, or one
  // that a line of the cards file makes.
  void add(FaultPlace place, const IdentRecord& record, std::string_view rule,
           std::string_view text) {
    const std::string name = credentialText(record, _site, _options.withPins);
    add(place, rule, fmt::format("holder {}: {} {}", record.uniqid, name, text), record.uniqid,
        &record);
  }
  void add(const IdentRecord& record, std::string_view rule, std::string_view text) {
    add({FaultFile::kIdent, &record - _site.databases().idents.data()}, record, rule, text);
  }

  // Of a record of the access database: the text goes on after its holder.
  void add(const AccessRecord& record, std::string_view rule, std::string_view text) {
    add({FaultFile::kAccess, &record - _site.databases().accesses.data()}, rule,
        fmt::format("holder {} {}", record.uniqid, text), record.uniqid);
  }

  size_t count() const { return _count; }

  // Of a rule with more than twenty faults, their number comes first. The last line always has the
  // same words, for programs that read it.
  void print(size_t credentials, size_t holders, Console& console) const {
    for (const auto& [rule, count] : _counts)
      if (count > kMostUncounted)
        console.output() << line(fmt::format("{} faults [{}]", count, rule),
                                 JsonObject().add("rule", rule).add("count", count));
    for (const auto& [place, text] : _lines) console.output() << text;
    for (const auto& [rule, count] : _counts)
      if (const size_t rest = count - kMostOfOneRule; count > kMostOfOneRule && !_options.all)
        console.output() << line(fmt::format("{} more faults [{}] (--all prints them)", rest, rule),
                                 JsonObject().add("rule", rule).add("not_printed", rest));
    JsonObject numbers;
    numbers.add("faults", _count).add("credentials", credentials).add("holders", holders);
    console.output() << line(
        fmt::format("{} faults; {} credentials of {} holders",
                    _count == 0 ? "no" : fmt::to_string(_count), credentials, holders),
        JsonObject().add("summary", numbers));
  }

 private:
  static constexpr size_t kMostOfOneRule = 100;
  static constexpr size_t kMostUncounted = 20;

  std::string line(const std::string& text, const JsonObject& object) const {
    return (_options.json ? object.text() : text) + '\n';
  }

  // Returns it as text.
  std::string addPlace(JsonObject& object, const FaultPlace& place) const {
    const auto& [file, number] = place;
    const SitePaths& site = _options.site;
    const std::string& name =
        *std::array{&site.ident, &site.access, &site.cards, &site.cardSets}.at(
            static_cast<size_t>(file));
    object.add("file", name);
    if (number == kWholeFile) return printable(name);
    if (file > FaultFile::kAccess) {
      object.add("line", number);
      return fmt::format("{}:{}", printable(name), number);
    }
    const size_t size = file == FaultFile::kIdent ? IdentRecord::kSize : AccessRecord::kSize;
    const size_t offset = static_cast<size_t>(number) * size;
    object.add("record", number).add("offset", offset);
    return fmt::format("{}: record {} (offset {})", printable(name), number, offset);
  }

  const VerifyOptions& _options;
  const Site& _site;
  std::map<std::string_view, size_t> _counts;  // By their rules.
  std::multimap<FaultPlace, std::string> _lines;
  size_t _count = 0;
};

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

// All that is checked of the databases. A record that is exactly as a build makes it is stored as
// it should be: what a build accepts is no fault when the cards file is given.
class DatabasesCheck {
 public:
  // All outlive it.
  DatabasesCheck(const VerifyOptions& options, const Site& site, Faults& faults)
      : _options(options),
        _site(site),
        _idents(site.databases().idents),
        _accesses(site.databases().accesses),
        _faults(faults),
        _isExpected(_idents.size()) {}

  // Returns the number of holders who have an access record.
  size_t run() {
    size_t holders = 0;
    checkFiles();
    if (!_options.site.cards.empty()) compareWithBuild();
    for (const IdentRecord& record : _idents)
      if (!isExpected(record)) checkIdent(record);
    const auto accesses = orderByUniqid(_accesses);
    for (const AccessRecord& record : _accesses) checkAccess(record, accesses);
    checkSharedKeys();
    forEachUniqid(orderByUniqid(_idents), accesses, [&](uint32_t, auto own, auto rights) {
      holders += rights.empty() ? 0 : 1;
      checkAccessesOfHolder(own, rights);
      checkIdentsOfHolder(own, rights.empty());
    });
    return holders;
  }

 private:
  template <typename Record>
  using Pointers = std::vector<const Record*>;
  template <typename Record>
  using Span = std::span<const Record* const>;

  // Faults of the files as a whole.
  void checkFiles() {
    const Databases& databases = _site.databases();
    for (const auto& [file, rest] : {std::pair(FaultFile::kIdent, databases.identRest),
                                     std::pair(FaultFile::kAccess, databases.accessRest)})
      if (rest != 0)
        _faults.add({file, kWholeFile}, "size",
                    fmt::format("{} bytes after the last whole record", rest));
    if (_idents.empty() && _accesses.empty())
      _faults.add({FaultFile::kIdent, kWholeFile}, "empty",
                  fmt::format("neither it nor {} has a record: nobody has access",
                              printable(_options.site.access)));
    for (const auto& [line, text] : _site.cardSetProblems())
      _faults.add({FaultFile::kCardSets, line}, "card-sets", text);
  }

  // Finds the records that a build would make, in whatever order they are.
  void compareWithBuild() {
    IdentWalk idents(_idents);
    AccessWalk accesses(_accesses);
    ExpectedRecords records(_options.site.formats, [&](const ExpectedRecord& made) {
      const auto found = idents.next(made.ident.cardnumber);
      if (compare(made, made.ident, found, "is not in the ident database"))
        isExpected(*found.record) = true;
      if (made.access != nullptr)
        compare(made, *made.access, accesses.next(made.access->uniqid), "has no access record");
    });
    records.readFile(_options.site.cards);
    reportOthers(_idents, idents);
    reportOthers(_accesses, accesses);
    const std::string difference = differenceOfCardSets(records.cardSets(), _site.sets());
    if (!difference.empty())
      _faults.add({FaultFile::kCardSets, kWholeFile}, "differs",
                  "a build would not write it: " + difference);
  }

  // Returns whether the record is there as a build makes it.
  template <typename Record, typename Step>
  bool compare(const ExpectedRecord& expected, const Record& made, const Step& found,
               const char* missing) {
    const bool isMissing = found.record == nullptr || found.isShared;
    const char* const field = isMissing ? nullptr : differingField(*found.record, made);
    if (isMissing)
      _faults.add({FaultFile::kCards, expected.line}, expected.ident, "missing", missing);
    else if (field != nullptr)
      _faults.add(*found.record, "differs",
                  fmt::format("is not as in the cards file, line {}: {}", expected.line, field));
    return !isMissing && field == nullptr;
  }

  template <typename Record, typename Walk>
  void reportOthers(const std::vector<Record>& records, const Walk& walk) {
    for (size_t i = 0; i < records.size(); ++i)
      if (!walk.isUsed(i)) _faults.add(records[i], "other", "is in no line of the cards file");
  }

  void checkIdent(const IdentRecord& record) {
    const uint32_t code = record.cardsetcode;
    if (record.deleted > 1)
      _faults.add(record, "mark", fmt::format("has mark of deletion {}", record.deleted));
    if (code == kPinOnlyCode || code == kPinIdentCode) {
      const bool isEmpty = record.cardnumber[0] >> 4 == 0xF;
      if (isEmpty || !isPackedPin<kMaxPinIdentDigits>(record.cardnumber))
        _faults.add(record, "pin", "is not stored as packed digits: no keypad entry matches it");
    } else if (code != kFormatlessCode) {
      const CardEncoder& encoder = encoderOf(code);
      if (encoder.format == nullptr)
        _faults.add(record, "card-set",
                    fmt::format("has no format: card set {} or its format is missing", code));
      else if (encoder.encode(encoder.decode(record.cardnumber)) != record.cardnumber)
        _faults.add(record, "key", "has a key that its card set gives to no number");
    }
  }

  const CardEncoder& encoderOf(uint32_t csid) {
    const auto [found, isNew] = _encoders.try_emplace(csid);
    if (const CardFormat* const format = isNew ? _site.formatOfSet(csid) : nullptr)
      found->second = {format, format->encodeSite(_site.sets().getCardSet(csid)->fldvalues)};
    return found->second;
  }

  void checkAccess(const AccessRecord& record, const Pointers<AccessRecord>& byUniqid) {
    if (record.bitflds > AccessRecord::kAllFlags)
      _faults.add(record, "flag", "has flags beyond flag 5");
    if (!isPackedPin<AccessRecord::kPinDigits>(record.pincode))
      _faults.add(record, "pin", "has a PIN that is not stored as packed digits");
    if (record.endtime != 0 && record.endtime < record.starttime)
      _faults.add(record, "period",
                  fmt::format("is never valid: the end {} is before the start {}",
                              timeText(record.endtime).data(), timeText(record.starttime).data()));
    if (record.escortid != 0 &&
        !std::ranges::binary_search(byUniqid, record.escortid, {}, uniqidOf<const AccessRecord*>))
      _faults.add(
          record, "escort",
          fmt::format("has escort {}, who is not a holder: no door ever opens", record.escortid));
  }

  void checkSharedKeys() {
    std::vector<std::pair<CardPattern, const IdentRecord*>> byKey;
    byKey.reserve(_idents.size());
    for (const IdentRecord& record : _idents)
      if (record.deleted == 0) byKey.emplace_back(record.cardnumber, &record);
    std::ranges::sort(byKey);
    for (size_t first = 0, i = 1; i < byKey.size(); ++i)
      if (byKey[i].first != byKey[first].first)
        first = i;
      else
        _faults.add(*byKey[i].second, "unique",
                    fmt::format("has the key of record {}", byKey[first].second - _idents.data()));
  }

  // A build writes an access record with each credential but the PIN beside a card.
  void checkAccessesOfHolder(Span<IdentRecord> idents, Span<AccessRecord> accesses) {
    size_t owners = 0;
    for (const IdentRecord* const ident : idents) owners += ident->cardsetcode != kPinIdentCode;
    for (size_t n = 0; n < accesses.size(); ++n)
      if (idents.empty())
        _faults.add(*accesses[n], "holder", "has no credential");
      else if (n > 0 && n >= owners)
        _faults.add(*accesses[n], "holder",
                    fmt::format("already has record {}", accesses[0] - _accesses.data()));
  }

  // A PIN beside a card that lacks its card passes a build when no unique ID is lower.
  void checkIdentsOfHolder(Span<IdentRecord> idents, bool hasNoAccess) {
    const IdentRecord* last = nullptr;
    size_t valid = 0;
    for (const IdentRecord* const ident : idents) {
      if (ident->deleted != 0) continue;
      ++valid;
      if (hasNoAccess && !isExpected(*ident)) _faults.add(*ident, "holder", "has no access record");
      if (last != nullptr && !arePartners(*last, *ident))
        _faults.add(*ident, "unique",
                    fmt::format("has the unique ID of record {}", last - _idents.data()));
      last = ident;
    }
    if (valid == 1 && last->cardsetcode == kPinIdentCode && !isExpected(*last))
      _faults.add(*last, "pair", "has no card beside it");
  }

  std::vector<bool>::reference isExpected(const IdentRecord& record) {
    return _isExpected[static_cast<size_t>(&record - _idents.data())];
  }

  const VerifyOptions& _options;
  const Site& _site;
  const std::vector<IdentRecord>& _idents;
  const std::vector<AccessRecord>& _accesses;
  Faults& _faults;
  std::vector<bool> _isExpected;              // By ident record; none without a cards file.
  std::map<uint32_t, CardEncoder> _encoders;  // By card set, when first used.
};

bool arePlausible(const Databases& databases) {
  try {
    requirePlausibleRecords(databases, "", "");
    return true;
  } catch (const Failure&) {
    return false;
  }
}

// Reads the databases anew if it is with swapped names that they are plausible.
bool readSwapped(const SitePaths& names, Databases& databases) {
  if (arePlausible(databases)) return false;
  Databases swapped;
  swapped.readIdents(names.access);
  swapped.readAccesses(names.ident);
  if (!arePlausible(swapped)) return false;
  databases = std::move(swapped);
  return true;
}

ExitStatus verify(const VerifyOptions& options, Console& console) {
  const SitePaths& names = options.site;
  Site site(names, Site::Formats::kRequired);  // Its problems are faults.
  if (!names.cards.empty()) {
    Findings findings(options.all);
    const SiteSummary summary =
        checkSite({names.cards, names.formats, "", options.withPins}, findings);
    if (findings.errors() > 0) return report(findings, summary, false, console, options.json);
  }
  Faults faults(options, site);
  Databases& databases = site.databases();
  size_t holders = 0;
  if (readSwapped(names, databases)) {
    faults.add({FaultFile::kIdent, kWholeFile}, "swapped",
               fmt::format("this is an access database, and {} is an ident database: --ident and "
                           "--access are swapped",
                           printable(names.access)));
    databases.sort();
    holders = databases.countHolders();
  } else {
    holders = DatabasesCheck(options, site, faults).run();
  }
  faults.print(databases.idents.size(), holders, console);
  return faults.count() == 0 ? ExitStatus::kAllWell : ExitStatus::kRefused;
}

}  // namespace

Run addVerify(Options options) {
  const auto given = std::make_shared<VerifyOptions>();
  options.describe("Report what is wrong with existing databases",
                   "badgemint-admin verify --cards cards.txt");
  options.file("--cards", given->site.cards, "Compare with what a build of this file would make");
  options.databases(given->site);
  options.flag("--all", given->all, "Print more than 100 faults of one kind");
  options.flag("--with-pins", given->withPins, "Show PINs");
  options.flag("--json", given->json, "Print JSON Lines: an object for each fault");
  return [given](Console& console) { return verify(*given, console); };
}

}  // namespace badgemint::admin
