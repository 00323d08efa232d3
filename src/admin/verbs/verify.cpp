// The verb `verify`: what is wrong with existing databases, and where they differ from what a build
// of a cards file makes.
#include <algorithm>
#include <memory>
#include <numeric>
#include <optional>

#include "admin/check/sitecheck.h"
#include "admin/json.h"
#include "admin/records/expected.h"
#include "admin/records/recordrules.h"
#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

// Finds the records of the databases that a build would make, in whatever order they stand.
class Comparison {
 public:
  Comparison(const Databases& databases, Faults& faults)
      : _databases(databases), _faults(faults), _accessWalk(databases.accesses) {
    _found.resize(databases.idents.size());
    _expected.idents.resize(databases.idents.size());
    _expected.accesses.resize(databases.accesses.size());
  }

  // `stored` are the card sets of the card sets file.
  void run(const std::string& cards, const std::string& formats, const cardsets& stored) {
    ExpectedRecords records(formats, [this](const ExpectedRecord& record) { compare(record); });
    records.readFile(cards);
    for (size_t i = 0; i < _found.size(); ++i)
      if (!_found[i]) _faults.addIdent(i, "other", "is in no line of the cards file");
    for (size_t i = 0; i < _databases.accesses.size(); ++i)
      if (!_accessWalk.isUsed(i)) _faults.addAccess(i, "other", "is in no line of the cards file");
    const std::string difference = differenceOfCardSets(records.cardSets(), stored);
    if (!difference.empty())
      _faults.add({{FaultFile::kCardSets}, "differs", "a build would not write it: " + difference});
  }

  // Which records are exactly as a build makes them; none before run().
  const ExpectedNumbers& expected() const { return _expected; }

 private:
  static constexpr size_t kNone = SIZE_MAX;

  void compare(const ExpectedRecord& expected) {
    const size_t ident = findIdent(expected.ident);
    const bool isSameIdent = compareIdent(expected, ident);
    const bool isSameAccess = expected.access == nullptr || compareAccess(expected);
    if (isSameIdent && isSameAccess) _expected.idents[ident] = true;
  }

  // Most databases are in the order of the file.
  size_t findIdent(const IdentRecord& expected) {
    size_t number = _next;
    if (number == _databases.idents.size() || _databases.idents[number] != expected)
      number = findByKey(expected);
    if (number != kNone) _next = number + 1;
    return number;
  }

  auto keyOf() const {
    return [this](uint32_t number) -> const CardPattern& {
      return _databases.idents[number].cardnumber;
    };
  }

  // Of several records with the key, which no other line has, the equal one; else the first one.
  size_t findByKey(const IdentRecord& expected) {
    if (_byKey.empty()) sortByKey();
    const auto same = equalElements(_byKey, expected.cardnumber, keyOf());
    const auto equal = std::ranges::find_if(
        same, [&](uint32_t number) { return _databases.idents[number] == expected; });
    if (equal != same.end()) return *equal;
    return same.empty() ? kNone : same.front();
  }

  void sortByKey() {
    _byKey.resize(_databases.idents.size());
    std::iota(_byKey.begin(), _byKey.end(), 0U);
    std::ranges::stable_sort(_byKey, {}, keyOf());
  }

  bool compareIdent(const ExpectedRecord& expected, size_t number) {
    if (number == kNone) {
      _faults.addCredential({FaultFile::kCards, expected.line}, expected.ident, "missing",
                            "is not in the ident database");
      return false;
    }
    _found[number] = true;
    const char* const field = differingField(_databases.idents[number], expected.ident);
    if (field == nullptr) return true;
    _faults.addIdent(number, "differs", differenceText(expected, field));
    return false;
  }

  bool compareAccess(const ExpectedRecord& expected) {
    const AccessWalk::Step step = _accessWalk.next(expected.access->uniqid);
    if (step.record == nullptr || step.isShared) {
      _faults.addCredential({FaultFile::kCards, expected.line}, expected.ident, "missing",
                            "has no access record");
      return false;
    }
    const auto number = static_cast<size_t>(step.record - _databases.accesses.data());
    const char* const field = differingField(*step.record, *expected.access);
    if (field != nullptr)
      _faults.addAccess(number, "differs", differenceText(expected, field));
    else
      _expected.accesses[number] = true;
    return field == nullptr;
  }

  static std::string differenceText(const ExpectedRecord& expected, const char* field) {
    return fmt::format("is not as in the cards file, line {}: {}", expected.line, field);
  }

  const Databases& _databases;
  Faults& _faults;
  AccessWalk _accessWalk;
  ExpectedNumbers _expected;
  std::vector<bool> _found;  // Ident records that a line makes.
  size_t _next = 0;          // The number after that of the last one found.
  std::vector<uint32_t> _byKey;
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
  return checkRecords(site, comparison.expected(), faults);
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
