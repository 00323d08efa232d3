// The verb `verify`: what is wrong with existing databases, and where they differ from what a build
// of a cards file makes.
#include <memory>
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
