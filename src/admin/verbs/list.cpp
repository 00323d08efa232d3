// The verb `list`: holders, one a line, as far as filters choose them.
#include <unordered_set>

#include "admin/records/changes.h"
#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

struct ListOptions {
  SitePaths site;
  std::string level, set, expiresBefore, escort, changedSince;
  bool expired = false, notYetValid = false, noLevel = false, noCredential = false, deleted = false;
  bool pin = false, noPin = false;
  bool count = false, csv = false, json = false, withPins = false;
};

// Holders with an access record for which `test` is true.
template <typename Test>
HolderTest anyAccess(Test test) {
  return [test](const Holder& holder) { return std::ranges::any_of(holder.accesses, test); };
}

HolderTest expiresBefore(uint32_t time) {
  return anyAccess([time](const auto& r) { return r.endtime != 0 && r.endtime < time; });
}

bool ownsPin(const Holder& holder) {
  const auto isSet = [](const AccessRecord& record) { return pinText(record, true) != "none"; };
  return std::ranges::any_of(holder.credentials, isPinEntry) ||
         std::ranges::any_of(holder.accesses, isSet);
}

// Those with a line in a diff of the databases in a folder and these.
HolderTest changedSince(const SitePaths& site, const std::string& folder, const Site& now) {
  SitePaths paths = site;
  paths.formats = paths.cardSets = "";
  paths.ident = pathIn(folder, site.ident);
  paths.access = pathIn(folder, site.access);
  const Site before(paths, {.wholeRecords = ExitStatus::kRefused, .sorted = true});
  const Changes changes = compare(before, now);
  std::unordered_set<uint32_t> changed;
  for (const HolderChange& change : changes.holders) changed.insert(uniqidOf(change));
  for (const CredentialChange& change : changes.credentials) changed.insert(uniqidOf(change));
  return [changed = std::move(changed)](const Holder& holder) {
    return changed.contains(holder.uniqid);
  };
}

std::vector<HolderTest> filtersOf(const ListOptions& options, uint32_t now, const Site& site) {
  const uint32_t level = parseNumber("--level", options.level, UINT16_MAX);
  const uint32_t set = parseNumber("--set", options.set, kPinIdentCode);
  const uint32_t escort = parseNumber("--escort", options.escort, UINT32_MAX);
  const uint32_t end = parseTimeOrNow("--expires-before", options.expiresBefore);
  const auto hasLevel = [](const AccessRecord& record) {
    return std::ranges::count(record.acclevel, 0) < AccessRecord::kAccessLevels;
  };
  const auto hasThisLevel = [level](const AccessRecord& record) {
    return level != 0 && std::ranges::count(record.acclevel, level) > 0;
  };
  const std::pair<bool, HolderTest> all[] = {
      {options.expired, expiresBefore(now)},
      {!options.expiresBefore.empty(), expiresBefore(end)},
      {options.notYetValid, anyAccess([now](const auto& r) { return now < r.starttime; })},
      {options.noLevel, std::not_fn(anyAccess(hasLevel))},
      {!options.level.empty(), anyAccess(hasThisLevel)},
      {!options.escort.empty(),
       anyAccess([escort](const auto& r) { return r.escortid == escort; })},
      {!options.set.empty(), anyCredential([set](const auto& r) { return r.cardsetcode == set; })},
      {options.deleted, anyCredential([](const auto& r) { return r.deleted != 0; })},
      {options.noCredential, [](const Holder& holder) { return holder.credentials.empty(); }},
      {options.pin, ownsPin},
      {options.noPin, std::not_fn(ownsPin)},
  };
  std::vector<HolderTest> filters;
  for (const auto& [isGiven, filter] : all)
    if (isGiven) filters.push_back(filter);
  if (!options.changedSince.empty())
    filters.push_back(changedSince(options.site, options.changedSince, site));
  return filters;
}

// Prints holders as lines of columns, CSV (RFC 4180) or JSON. All values of a line are written into
// one text: a million lines with a string for each value would take twice the time.
class ListPrinter {
 public:
  ListPrinter(const ListOptions& options, const Site& site, uint32_t now, Console& console)
      : _options(options), _site(site), _now(now), _console(console) {}

  void printHead() {
    if (_options.csv)
      _console.print("holder,credentials,levels,from,until,flags,access records\r\n");
    else if (_console.isTerminal() && !_options.json)
      _console.print("{:10} {:20} {:15} {:19} {:19} {}\n", "HOLDER", "CREDENTIALS", "LEVELS",
                     "FROM", "UNTIL", "FLAGS");
  }

  // Levels, validity and flags are those of the first access record: a build writes one for each
  // holder, with rare exceptions.
  void print(const Holder& holder) {
    if (_options.json)
      return _console.printJson(holderJson(holder, _site, _now, _options.withPins));
    const AccessRecord access = holder.accesses.empty() ? AccessRecord{} : holder.accesses.front();
    _line.clear();
    _start = 0;
    addNumber(holder.uniqid);
    endColumn(10);
    for (const IdentRecord& record : holder.credentials) addCredential(record);
    endColumn(20, kList);
    for (const uint16_t level : access.acclevel)
      if (level != 0) addNumber(level);
    endColumn(15, kList);
    for (const uint32_t time : {access.starttime, access.endtime}) {
      if (time != 0) _line.append(timeText(time).data(), kTimeWidth).append(",");
      endColumn(kTimeWidth);
    }
    for (uint32_t bit = 0; bit < 8; ++bit)
      if ((access.bitflds >> bit & 1) != 0) addNumber(bit);
    endColumn(0, kList);
    endLine(holder.accesses.size());
    _console.output() << _line;
  }

 private:
  static constexpr size_t kTimeWidth = 19;  // "2026/01/31 18:00:00".
  static constexpr bool kList = true;       // Whether a column may have several elements.

  // An element of a list: "1:15890" for a card of a card set, "1A2B3C4D" for a card without format,
  // "PIN".
  void addCredential(const IdentRecord& record) {
    if (!isPinEntry(record) && record.cardsetcode != kFormatlessCode)
      addNumber(record.cardsetcode, ':');
    if (isPinEntry(record))
      _line.append("PIN");
    else if (const auto number = cardNumberText(record, _site))
      _line.append(*number);
    else
      _line.append(keyText(record, _options.withPins));
    _line.append(record.deleted != 0 ? "(deleted)," : ",");
  }

  void addNumber(uint32_t number, char after = ',') {
    const fmt::format_int digits(number);
    _line.append(digits.data(), digits.size()).push_back(after);
  }

  // Each element so far ends with a comma.
  void endColumn(size_t width, bool isList = false) {
    if (_line.size() > _start) _line.pop_back();
    if (_line.size() == _start) _line += '-';
    if (_options.csv && isList) _line.insert(_start, 1, '"').append("\"");
    if (!_options.csv) _line.resize(std::max(_line.size(), _start + width), ' ');
    _line += _options.csv ? ',' : ' ';
    _start = _line.size();
  }

  void endLine(size_t accesses) {
    if (_options.csv)
      _line.append(fmt::format("{}\r\n", accesses));
    else if (accesses == 1)
      _line.back() = '\n';
    else
      _line.append(fmt::format("({} access records)\n", accesses));
  }

  const ListOptions& _options;
  const Site& _site;
  const uint32_t _now;
  Console& _console;
  std::string _line;
  size_t _start = 0;  // Of the column.
};

ExitStatus list(const ListOptions& options, Console& console) {
  if (options.count + options.csv + options.json > 1)
    throw NotDone("give only one of --count, --csv and --json");
  if ((options.pin || options.noPin) && !options.withPins)
    throw NotDone("--pin and --no-pin need --with-pins");
  const Site site(options.site, {.wholeRecords = ExitStatus::kRefused, .sorted = true}, &console);
  const uint32_t now = parseTimeOrNow("", "");
  const std::vector<HolderTest> filters = filtersOf(options, now, site);
  ListPrinter printer(options, site, now, console);
  if (!options.count) printer.printHead();
  size_t count = 0;
  site.databases().forEachHolder([&](const Holder& holder) {
    for (const HolderTest& filter : filters)
      if (!filter(holder)) return;
    ++count;
    if (!options.count) printer.print(holder);
  });
  if (options.count) console.print("{}\n", count);
  return count == 0 ? ExitStatus::kFound : ExitStatus::kAllWell;
}

}  // namespace

Run addList(Options options) {
  const auto given = std::make_shared<ListOptions>();
  options.describe("List holders, all or as filters choose them",
                   "badgemint-admin list --level 3 --expires-before \"2027/01/01 00:00:00\"");
  options.text("--level", "N", given->level, "With this access level");
  options.text("--set", "N", given->set, "With a card of this card set");
  options.filter("--expired", given->expired, "Whose validity has ended");
  options.text("--expires-before", "\"YYYY/MM/DD HH:MM:SS\"", given->expiresBefore,
               "Whose validity ends before this time, in UTC");
  options.filter("--not-yet-valid", given->notYetValid, "Whose validity has not begun");
  options.filter("--no-level", given->noLevel, "Without an access level");
  options.filter("--no-credential", given->noCredential, "Without a credential");
  options.text("--escort", "ID", given->escort, "With this escort");
  options.filter("--deleted", given->deleted, "With a credential that is marked as deleted");
  options.filter("--pin", given->pin, "With a PIN; needs --with-pins");
  options.filter("--no-pin", given->noPin, "Without a PIN; needs --with-pins");
  options.text("--changed-since", "FOLDER", given->changedSince,
               "With a change since the databases in this folder");
  options.flag("--count", given->count, "Print only how many there are");
  options.flag("--csv", given->csv, "Print CSV with a header row");
  options.flag("--json", given->json, "Print JSON, one object a line");
  options.databases(given->site);
  options.flag("--with-pins", given->withPins, "Allow filters for PINs; show PINs in JSON");
  return [given](Console& console) { return list(*given, console); };
}

}  // namespace badgemint::admin
