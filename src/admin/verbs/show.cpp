// The verb `show`: all that the databases say about a holder, in words.
#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "admin/arguments.h"
#include "admin/check/sitecheck.h"
#include "admin/records/site.h"
#include "admin/records/wording.h"
#include "admin/verbs/verb.h"
#include "site/accesslevel.h"

namespace badgemint::admin {

namespace {

struct ShowOptions {
  SitePaths site;
  std::vector<std::string> holders;  // Unique IDs, and ranges of them.
  std::vector<std::string> cards;    // "SET:NUMBER", or the number alone.
  std::vector<std::string> keys;     // Hexadecimal.
  std::string levels;                // The access levels file; empty for none.
  std::string at;                    // The time that counts as now; empty for the clock.
  bool json = false;
  bool withPins = false;
};

// Prints holders of an open site.
class HolderPrinter {
 public:
  HolderPrinter(const ShowOptions& options, const Site& site, Console& console)
      : _options(options),
        _site(site),
        _index(site.databases()),
        _console(console),
        _now(parseTimeOrNow("--at", options.at)) {
    if (!options.levels.empty()) readLevels(options.levels, _levels);
  }

  // False, and nothing is printed, when there is no such holder.
  bool print(uint32_t uniqid) {
    const auto accesses = _index.accessesOf(uniqid), idents = _index.identsOf(uniqid);
    if (accesses.empty() && idents.empty()) return false;
    if (!_printed.insert(uniqid).second) return true;
    if (_options.json)
      _console.printJson(json(uniqid));
    else
      printText(uniqid, accesses, idents);
    return true;
  }

  std::vector<uint32_t> holdersIn(uint32_t first, uint32_t last) const {
    return _index.holdersIn(first, last);
  }

 private:
  void printText(uint32_t uniqid, std::span<const uint32_t> accesses,
                 std::span<const uint32_t> idents) {
    _console.print("holder {}\n", uniqid);
    if (accesses.empty()) line("no access record: no door opens");
    if (accesses.size() > 1)
      line("{} access records: a build writes one for each card", accesses.size());
    const auto isCard = [this](uint32_t n) { return !isPinEntry(_site.databases().idents[n]); };
    for (const uint32_t number : accesses) printAccess(number, std::ranges::any_of(idents, isCard));
    if (idents.empty()) line("no credential: nothing to open a door with");
    for (const uint32_t number : idents) printCredential(number);
    _console.print("\n");
  }

  JsonObject json(uint32_t uniqid) const {
    const Databases& databases = _site.databases();
    std::vector<AccessRecord> accesses;
    std::vector<IdentRecord> idents;
    for (const uint32_t number : _index.accessesOf(uniqid))
      accesses.push_back(databases.accesses[number]);
    for (const uint32_t number : _index.identsOf(uniqid))
      idents.push_back(databases.idents[number]);
    return holderJson(uniqid, accesses, idents, _site, _now, _options.withPins);
  }

  void printAccess(uint32_t number, bool hasCard) {
    const AccessRecord& record = _site.databases().accesses[number];
    line("access record {}", number);
    for (const AccessField& field : accessFields()) {
      using enum AccessField::Kind;
      const uint32_t value = field.valueOf(record);
      if (field.kind == kPin)
        printPin(record, hasCard);
      else if (value != 0 && field.kind == kFlag)
        line("{}", field.name);
      else if (value != 0 && field.kind != kTime)
        line("{}: {}{}", field.name, value, remark(field, value));
      if (std::string_view(field.name) == "end") printValidity(record);
    }
  }

  // What is worth knowing about a value.
  std::string remark(const AccessField& field, uint32_t value) const {
    using enum AccessField::Kind;
    if (field.kind == kEscort && _index.accessesOf(value).empty()) return ", who is not a holder";
    if (field.kind != kAccessLevel || _options.levels.empty()) return "";
    const int32_t position = _levels.findLevel(value);
    std::string pairs;
    if (position >= 0)
      for (const AccessPair& pair : _levels.level(position).pairs())
        pairs += fmt::format(" {}/{}", pair.doorgroup, pair.schedule);
    return pairs.empty() ? ", opens no door" : ", opens door group/schedule" + pairs;
  }

  void printValidity(const AccessRecord& record) {
    std::string period;
    if (record.starttime != 0) period += fmt::format("from {} UTC ", timeText(record.starttime));
    if (record.endtime != 0) period += fmt::format("until {} UTC ", timeText(record.endtime));
    if (period.empty()) period = "without limit ";
    period.back() = ',';
    line("validity: {} {}", period, stateText(record));
  }

  std::string stateText(const AccessRecord& record) const {
    const Validity validity = validityAt(_now, record);
    const std::string text = validityText(validity);
    if (validity == Validity::kExpired)
      return fmt::format("{} since {} UTC", text, timeText(record.endtime + 1));
    if (validity == Validity::kValid) return text + (_options.at.empty() ? " now" : " then");
    return text;
  }

  // Whether somebody has no PIN is as secret as a PIN. Without a card it has no effect.
  void printPin(const AccessRecord& record, bool hasCard) {
    if (_options.withPins ? hasCard || pinText(record, true) != "none" : hasCard)
      line("PIN: {}", _options.withPins ? pinText(record, true) : kHiddenPin);
  }

  void printCredential(uint32_t number) {
    const IdentRecord& record = _site.databases().idents[number];
    const std::string name = credentialText(record, _site, _options.withPins);
    const std::string key = keyText(record, _options.withPins);
    const bool showsKey = key != kHiddenPin && name.find(key) == std::string::npos;
    line("{}{}{}, ident record {}{}", name, showsKey ? ", key " : "", showsKey ? key : "", number,
         record.deleted != 0 ? ", deleted" : "");
  }

  template <typename... Args>
  void line(fmt::format_string<Args...> format, Args&&... args) {
    _console.print("  {}\n", fmt::format(format, std::forward<Args>(args)...));
  }

  const ShowOptions& _options;
  const Site& _site;
  const HolderIndex _index;
  Console& _console;
  AccessLevelSet _levels;
  const uint32_t _now;
  std::set<uint32_t> _printed;
};

// What one word of the command line asks for.
struct Query {
  std::string subject;  // "holder 77".
  std::vector<CardPattern> keys;
  std::vector<uint32_t> holders;
};

Query parseHolders(const std::string& word, const HolderPrinter& printer) {
  const size_t dash = word.find('-');
  if (dash == std::string::npos) {
    const uint32_t uniqid = parseHolder(word);
    return {fmt::format("holder {}", uniqid), {}, {uniqid}};
  }
  const uint32_t first = parseHolder(word.substr(0, dash)),
                 last = parseHolder(word.substr(dash + 1));
  if (first > last)
    throw Failure(ExitStatus::kNotDone, "{} is not a range: its end is before its start",
                  inQuotes(word));
  return {fmt::format("holder from {} to {}", first, last), {}, printer.holdersIn(first, last)};
}

// In the given card set, or in all of them.
Query parseCards(const std::string& word, const Site& site) {
  const size_t colon = word.find(':');
  if (colon != std::string::npos)
    return {fmt::format("card {} of card set {}", word.substr(colon + 1), word.substr(0, colon)),
            {parseCard(word, site)},
            {}};
  Query query{fmt::format("card {} of any card set", word), {}, {}};
  std::optional<Failure> unfit;
  for (int32_t csid = kFirstCardSetId; csid <= kLastCardSetId; ++csid) try {
      if (site.formatOfSet(static_cast<uint32_t>(csid)) != nullptr)
        query.keys.push_back(keyOfCard(std::to_string(csid), word, site));
    } catch (const Failure& failure) {
      unfit = failure;
    }
  if (query.keys.empty() && unfit) throw *unfit;
  return query;
}

std::vector<Query> parseQueries(const ShowOptions& options, const Site& site,
                                const HolderPrinter& printer) {
  std::vector<Query> queries;
  for (const std::string& word : options.holders) queries.push_back(parseHolders(word, printer));
  for (const std::string& word : options.cards) queries.push_back(parseCards(word, site));
  for (const std::string& word : options.keys) {
    const CardPattern key = parseKey(word);
    queries.push_back({fmt::format("credential with key {}", keyText(key)), {key}, {}});
  }
  return queries;
}

// PINs are found by their keys only with --with-pins: nobody can try them out otherwise.
void findHolders(std::vector<Query>& queries, const Databases& databases, bool withPins) {
  std::multimap<CardPattern, Query*> wanted;
  for (Query& query : queries)
    for (const CardPattern& key : query.keys) wanted.emplace(key, &query);
  if (wanted.empty()) return;
  for (const IdentRecord& record : databases.idents) {
    if (isPinEntry(record) && !withPins) continue;
    const auto [first, last] = wanted.equal_range(record.cardnumber);
    for (auto found = first; found != last; ++found)
      found->second->holders.push_back(record.uniqid);
  }
}

void reportRest(size_t rest, const std::string& path, Console& console) {
  if (rest != 0)
    console.report("{} ends within a record; its last {} bytes are ignored", path, rest);
}

ExitStatus show(const ShowOptions& options, Console& console) {
  if (options.holders.empty() && options.cards.empty() && options.keys.empty())
    throw Failure(ExitStatus::kNotDone, "no holder given; write a unique ID, a --card or a --key");
  const Site site(options.site, Site::Formats::kOptional, console);
  HolderPrinter printer(options, site, console);
  std::vector<Query> queries = parseQueries(options, site, printer);
  reportRest(site.databases().identRest, options.site.ident, console);
  reportRest(site.databases().accessRest, options.site.access, console);
  findHolders(queries, site.databases(), options.withPins);
  ExitStatus status = ExitStatus::kAllWell;
  for (const Query& query : queries) {
    bool isFound = false;
    for (const uint32_t uniqid : query.holders) isFound = printer.print(uniqid) || isFound;
    if (isFound) continue;
    if (options.json)
      console.report("there is no {}", query.subject);
    else
      console.print("there is no {}\n\n", printable(query.subject));
    status = ExitStatus::kFound;
  }
  return status;
}

}  // namespace

Run addShow(Options options) {
  const auto given = std::make_shared<ShowOptions>();
  options.describe("Show holders with all that they have", "badgemint-admin show 1001");
  options.texts("HOLDER", "", given->holders, "Unique IDs of holders, or ranges: 1001-1020");
  options.texts("--card", "[SET:]NUMBER", given->cards,
                "The holder of a card of this card set, or of any");
  options.texts("--key", "HEX", given->keys, "The holder of a credential with this key");
  options.file("--levels", given->levels, "Show what access levels open, from this file");
  options.text("--at", "\"YYYY/MM/DD HH:MM:SS\"", given->at, "The time that counts as now, in UTC");
  options.databases(given->site);
  options.flag("--json", given->json, "Print JSON objects, one a holder");
  options.flag("--with-pins", given->withPins, "Show PINs, and find them by their keys");
  return [given](Console& console) { return show(*given, console); };
}

}  // namespace badgemint::admin
