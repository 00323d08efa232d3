// The verb `show`: what the databases contain about a holder, in words.
#include <strings.h>

#include <set>

#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

struct ShowOptions {
  SitePaths site;
  std::vector<std::string> holders;  // Unique IDs, and ranges of them.
  std::vector<std::string> cards;    // "SET:NUMBER", or the number alone.
  std::vector<std::string> keys;     // Hexadecimal.
  std::string levels;                // The access levels file; empty for none.
  std::string at;                    // The time that counts as now; empty for the clock.
  bool json = false, withPins = false;
};

// Prints holders of an open site, each once.
class HolderPrinter {
 public:
  HolderPrinter(const ShowOptions& options, const Site& site, Console& console)
      : _options(options), _site(site), _console(console) {
    if (!options.levels.empty()) openLevels(options.levels, _levels);
  }

  void print(const Holder& holder) {
    if (!_printed.insert(holder.uniqid).second) return;
    if (_options.json)
      _console.printJson(holderJson(holder, _site, _now, _options.withPins));
    else
      printText(holder);
  }

 private:
  void printText(const Holder& holder) {
    _console.print("holder {}\n", holder.uniqid);
    if (holder.accesses.empty()) line("no access record: no door opens");
    for (const AccessRecord& record : holder.accesses) {
      if (holder.accesses.size() > 1) line("one of {} access records", holder.accesses.size());
      printAccess(record, hasCard(holder));
    }
    if (holder.credentials.empty()) line("no credential: nothing to open a door with");
    for (const IdentRecord& record : holder.credentials) printCredential(record);
    _console.print("\n");
  }

  void printAccess(const AccessRecord& record, bool hasCard) {
    for (const AccessField& field : accessFields()) {
      using enum AccessField::Kind;
      const uint32_t value = field.valueOf(record);
      if (field.kind == kPin && hasCard)
        line("PIN: {}", pinText(record, _options.withPins));
      else if (value != 0 && field.kind == kFlag)
        line("{}", field.name);
      else if (value != 0 && field.kind != kTime && field.kind != kPin)
        line("{}: {}{}", field.name, value, remark(field, value));
      if (std::string_view(field.name) == "end") printValidity(record);
    }
  }

  // What is worth knowing about a value.
  std::string remark(const AccessField& field, uint32_t value) const {
    using enum AccessField::Kind;
    if (field.kind == kEscort && _site.databases().holder(value).accesses.empty())
      return ", who does not exist";
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
    if (record.starttime != 0)
      period = fmt::format(" from {} UTC", timeText(record.starttime).data());
    if (record.endtime != 0)
      period += fmt::format(" until {} UTC", timeText(record.endtime).data());
    line("validity:{}, {}", period.empty() ? " without limit" : period, validityText(record, _now));
  }

  void printCredential(const IdentRecord& record) {
    const std::string name = credentialText(record, _site, _options.withPins);
    const std::string key = keyText(record, _options.withPins);
    const bool isNamedByKey = name.find(key) != std::string::npos;
    line("{}{}{}", name, isNamedByKey ? "" : ", key " + key,
         record.deleted != 0 ? ", deleted" : "");
  }

  template <typename... Args>
  void line(fmt::format_string<Args...> format, Args&&... args) {
    _console.print("  {}\n", fmt::format(format, std::forward<Args>(args)...));
  }

  const ShowOptions& _options;
  const Site& _site;
  Console& _console;
  AccessLevelSet _levels;
  const uint32_t _now = parseTimeOrNow("--at", _options.at);
  std::set<uint32_t> _printed;
};

// What a word of the command line asks for.
struct Query {
  std::string subject;  // "holder 77".
  HolderTest isAbout;
};

Query parseHolders(const std::string& word) {
  const size_t dash = word.find('-', 1);
  const uint32_t first = parseHolder(word.substr(0, dash));
  const uint32_t last = dash == std::string::npos ? first : parseHolder(word.substr(dash + 1));
  if (first > last) throw NotDone("{} is not a range: its end is before its start", inQuotes(word));
  return {"holder " + word, [first, last](const Holder& holder) {
            return first <= holder.uniqid && holder.uniqid <= last;
          }};
}

// In the given card set, or in any; that of a card without format is hexadecimal as `list` shows
// it.
Query parseCards(const std::string& word, const Site& site) {
  const std::string subject = "card " + word;
  if (word.find(':') != std::string::npos)
    return {subject, anyCredential(hasKey(parseCard(word, site), false))};
  const std::string number = word.substr(std::min(word.find_first_not_of('0'), word.size() - 1));
  return {subject, anyCredential([word, number, &site](const IdentRecord& record) {
            const auto text = cardNumberText(record, site);
            const bool isHex = record.cardsetcode == kFormatlessCode;
            return text && (isHex ? strcasecmp(text->c_str(), word.c_str()) == 0 : *text == number);
          })};
}

std::vector<Query> queriesOf(const ShowOptions& options, const Site& site) {
  std::vector<Query> queries;
  for (const std::string& word : options.holders) queries.push_back(parseHolders(word));
  for (const std::string& word : options.cards) queries.push_back(parseCards(word, site));
  for (const std::string& word : options.keys)
    queries.push_back(
        {"credential with key " + word, anyCredential(hasKey(parseKey(word), options.withPins))});
  return queries;
}

ExitStatus show(const ShowOptions& options, Console& console) {
  if (options.holders.empty() && options.cards.empty() && options.keys.empty())
    throw NotDone("no holder given; write a unique ID, a --card or a --key");
  const Site site(options.site, {.sorted = true}, &console);
  HolderPrinter printer(options, site, console);
  ExitStatus status = ExitStatus::kAllWell;
  for (const auto& [subject, isAbout] : queriesOf(options, site)) {
    bool isFound = false;
    site.databases().forEachHolder([&, &isWanted = isAbout](const Holder& holder) {
      if (!isWanted(holder)) return;
      isFound = true;
      printer.print(holder);
    });
    if (isFound) continue;
    if (options.json)
      console.report("there is no {}", subject);
    else
      console.print("there is no {}\n\n", printable(subject));
    status = ExitStatus::kFound;
  }
  return status;
}

}  // namespace

Run addShow(Options options) {
  const auto given = std::make_shared<ShowOptions>();
  options.describe("Show what the databases contain about a holder", "badgemint-admin show 1001");
  options.texts("HOLDER", "", given->holders, "Unique IDs of holders, or ranges: 1001-1020");
  options.texts("--card", "[SET:]NUMBER", given->cards,
                "The holder of a card of this card set, or of any");
  options.texts("--key", "HEX", given->keys, "The holder of a credential with this key");
  options.file("--levels", given->levels, "Show what access levels open, from this file");
  options.text("--at", "\"YYYY/MM/DD HH:MM:SS\"", given->at, "The time that counts as now, in UTC");
  options.databases(given->site);
  options.flag("--json", given->json, "Print JSON, one object a line");
  options.flag("--with-pins", given->withPins, "Show PINs, and find them by their keys");
  return [given](Console& console) { return show(*given, console); };
}

}  // namespace badgemint::admin
