// The verb `show`: holders, with all that they have, in plain words.
#include <algorithm>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "admin/arguments.h"
#include "admin/check/sitecheck.h"
#include "admin/records/databases.h"
#include "admin/records/site.h"
#include "admin/records/wording.h"
#include "admin/verbs/verb.h"
#include "site/accesslevel.h"

namespace badgemint::admin {

namespace {

struct ShowOptions {
  SitePaths site;
  std::vector<std::string> holders;  // Unique IDs.
  std::vector<std::string> cards;    // "SET:NUMBER".
  std::vector<std::string> keys;     // Hexadecimal.
  std::string levels;                // The access levels file; empty for none.
  std::string at;                    // The time that counts as now; empty for the clock.
  bool withPins = false;
};

[[noreturn]] void rejectArgument(const std::string& text) {
  throw Failure(ExitStatus::kNotDone, text);
}

// What one word of the command line asks for.
struct Question {
  std::string thing;               // "holder 77", when it is not there.
  std::optional<CardPattern> key;  // None for a holder.
  std::vector<uint32_t> holders;   // Whose answer it is.
};

std::vector<Question> questionsOf(const ShowOptions& options, const Site& site) {
  std::vector<Question> questions;
  for (const std::string& word : options.holders) {
    const auto uniqid = numberOf(word);
    if (!uniqid) rejectArgument(quoted(word) + " is no unique ID: it is 0 to 4294967295");
    questions.push_back({"holder " + std::to_string(*uniqid), {}, {*uniqid}});
  }
  for (const std::string& word : options.cards) {
    const size_t colon = word.find(':');
    if (colon == std::string::npos)
      rejectArgument(quoted(word) + " is no card: write card set and number as 1:15890");
    const std::string set = word.substr(0, colon), number = word.substr(colon + 1);
    std::string thing = "card ";
    thing.append(number).append(" of card set ").append(set);
    questions.push_back({thing, keyOfCard(set, number, site), {}});
  }
  for (const std::string& word : options.keys) {
    const auto key = keyOf(word);
    if (!key) rejectArgument(quoted(word) + " is no key: it is 1 to 32 hexadecimal digits");
    questions.push_back({"credential with key " + keyText(*key), key, {}});
  }
  if (questions.empty()) rejectArgument("show whom? Name a holder, a --card or a --key");
  return questions;
}

// Of whom all records are collected, by their numbers.
struct HolderRecords {
  std::vector<size_t> accesses, idents;
};

class Show {
 public:
  Show(const ShowOptions& options, Console& console)
      : _options(options), _console(console), _output(console.output()) {
    const SitePaths& names = options.site;
    tellOfCutShort({names.access, names.ident, names.cardSets}, console);
    tryTo(console, [&] { _site.loadFormats(names.formats); });
    tryTo(console, [&] { _site.loadCardSets(names.cardSets, console); });
    if (!options.levels.empty()) readLevels(options.levels, _levels);
    _now = static_cast<uint32_t>(std::time(nullptr));
    if (options.at.empty()) return;
    const auto at = timeOf(options.at);
    if (!at)
      rejectArgument("--at " + quoted(options.at) + " is no time: it is as 2026/01/31 18:00:00");
    _now = *at;
  }

  ExitStatus run() {
    std::vector<Question> questions = questionsOf(_options, _site);
    readDatabases();
    findKeys(questions);
    collect(questions);
    ExitStatus status = ExitStatus::kAllWell;
    std::unordered_set<uint32_t> shown;
    for (const Question& question : questions)
      if (!answer(question, shown)) status = ExitStatus::kFound;
    return status;
  }

 private:
  void readDatabases() {
    _databases.readIdents(_options.site.ident);
    _databases.readAccesses(_options.site.access);
    if (_databases.identRest != 0)
      _console.reportText(_options.site.ident + " ends within a record");
    if (_databases.accessRest != 0)
      _console.reportText(_options.site.access + " ends within a record");
  }

  // A key must not serve to try out PINs.
  bool mayBeFound(const IdentRecord& record) const {
    return _options.withPins || !isPinEntry(record);
  }

  void findKeys(std::vector<Question>& questions) const {
    std::multimap<CardPattern, Question*> wanted;
    for (Question& question : questions)
      if (question.key) wanted.emplace(*question.key, &question);
    if (wanted.empty()) return;
    for (const IdentRecord& record : _databases.idents) {
      if (!mayBeFound(record)) continue;
      const auto [first, last] = wanted.equal_range(record.cardnumber);
      for (auto found = first; found != last; ++found)
        found->second->holders.push_back(record.uniqid);
    }
  }

  void collect(const std::vector<Question>& questions) {
    for (const Question& question : questions)
      for (const uint32_t uniqid : question.holders) _holders[uniqid];
    for (size_t i = 0; i < _databases.idents.size(); ++i)
      if (const auto holder = _holders.find(_databases.idents[i].uniqid); holder != _holders.end())
        holder->second.idents.push_back(i);
    std::unordered_set<uint32_t> escorts;
    for (size_t i = 0; i < _databases.accesses.size(); ++i) {
      const AccessRecord& record = _databases.accesses[i];
      const auto holder = _holders.find(record.uniqid);
      if (holder == _holders.end()) continue;
      holder->second.accesses.push_back(i);
      escorts.insert(record.escortid);
    }
    for (const AccessRecord& record : _databases.accesses)
      if (escorts.contains(record.uniqid)) _escorts.insert(record.uniqid);
  }

  // False when what was asked for is not there.
  bool answer(const Question& question, std::unordered_set<uint32_t>& shown) const {
    bool isThere = false;
    for (const uint32_t uniqid : question.holders) {
      const HolderRecords& records = _holders.at(uniqid);
      if (records.accesses.empty() && records.idents.empty()) continue;
      isThere = true;
      if (shown.insert(uniqid).second) showHolder(uniqid, records);
    }
    if (!isThere) _output << "there is no " << printable(question.thing) << "\n\n";
    return isThere;
  }

  void showHolder(uint32_t uniqid, const HolderRecords& records) const {
    _output << "holder " << uniqid << '\n';
    if (records.accesses.empty()) line("no access record: no door opens");
    if (records.accesses.size() > 1)
      line(std::to_string(records.accesses.size()) +
           " access records: a build writes one for each card");
    const bool isCardHolder = hasCard(records);
    for (const size_t number : records.accesses) {
      line("access record " + std::to_string(number));
      showAccess(_databases.accesses[number], isCardHolder);
    }
    if (records.idents.empty()) line("no credential: nothing to open a door with");
    for (const size_t number : records.idents) showCredential(number);
    _output << '\n';
  }

  bool hasCard(const HolderRecords& records) const {
    return std::ranges::any_of(records.idents,
                               [this](size_t i) { return !isPinEntry(_databases.idents[i]); });
  }

  void showAccess(const AccessRecord& record, bool isCardHolder) const {
    for (int32_t slot = 0; slot < AccessRecord::kAccessLevels; ++slot)
      if (const uint16_t level = record.accessLevel(slot); level != 0)
        line("access level " + std::to_string(slot + 1) + ": " + levelText(level));
    line("validity: " + validityText(record));
    for (int32_t bit = 0; bit < 8; ++bit)
      if (record.flag(bit) != 0) line(flagText(bit));
    if (record.escortid != 0) line("escort: " + escortText(record.escortid));
    number("elevator access", record.elevatoraccess);
    number("output relay group", record.outrelaygrpid);
    number("issue level", record.cardissuelevel);
    number("output mode", record.outgrpmode);
    const bool isBlank = record.pincode == decltype(record.pincode){};
    if (isCardHolder || !isBlank) line("PIN: " + pinText(record, _options.withPins));
  }

  // The level of this number, and the pairs that it opens.
  std::string levelText(uint32_t level) const {
    std::string text = std::to_string(level);
    if (_options.levels.empty()) return text;
    const int32_t position = _levels.findLevel(level);
    std::string pairs;
    if (position >= 0)
      for (const AccessPair& pair : _levels.level(position).pairs())
        pairs += ' ' + std::to_string(pair.doorgroup) + '/' + std::to_string(pair.schedule);
    return text + (pairs.empty() ? ", opens no door" : ", opens door group/schedule" + pairs);
  }

  std::string validityText(const AccessRecord& record) const {
    const std::string from = "from " + timeText(record.starttime);
    const std::string to = "to " + timeText(record.endtime);
    const bool hasStart = record.starttime != 0, hasEnd = record.endtime != 0;
    const std::string period = hasStart && hasEnd ? from + " " + to
                               : hasStart         ? from + " on"
                               : hasEnd           ? to
                                                  : "without limit";
    return period + ", " + stateText(record);
  }

  // Both ends belong to the period.
  std::string stateText(const AccessRecord& record) const {
    const bool hasEnd = record.endtime != 0;
    if (hasEnd && record.endtime < record.starttime) return "never valid";
    if (_now < record.starttime) return "not yet valid";
    if (hasEnd && _now > record.endtime) return "expired since " + timeText(record.endtime + 1);
    return _options.at.empty() ? "valid now" : "valid then";
  }

  std::string escortText(uint32_t escort) const {
    return std::to_string(escort) + (_escorts.contains(escort) ? "" : ", who is no holder");
  }

  void showCredential(size_t number) const {
    const IdentRecord& record = _databases.idents[number];
    std::string text = credentialText(record, _site, _options.withPins);
    const std::string key = keyText(record.cardnumber);
    if (mayBeFound(record) && text.find(key) == std::string::npos) text += ", key " + key;
    text += ", ident record " + std::to_string(number);
    if (record.deleted != 0) text += ", deleted";
    line(text);
  }

  void number(const char* name, uint32_t value) const {
    if (value != 0) line(name + (": " + std::to_string(value)));
  }
  void line(const std::string& text) const { _output << "  " << text << '\n'; }

  const ShowOptions& _options;
  Console& _console;
  std::ostream& _output;
  Site _site;
  AccessLevelSet _levels;
  uint32_t _now;
  Databases _databases;
  std::unordered_map<uint32_t, HolderRecords> _holders;
  std::unordered_set<uint32_t> _escorts;  // That are holders.
};

ExitStatus show(const ShowOptions& options, Console& console) {
  return Show(options, console).run();
}

}  // namespace

Run addShow(Options options) {
  const auto given = std::make_shared<ShowOptions>();
  options.describe("Show holders with all that they have", "badgemint-admin show 1001");
  options.words("HOLDER", "", given->holders, "Unique IDs of holders");
  options.texts("--card", "SET:NUMBER", given->cards, "The holder of a card");
  options.texts("--key", "HEX", given->keys, "The holder of a credential with this key");
  options.file("--levels", given->levels, "Tell what access levels open by this file");
  options.text("--at", "\"YYYY/MM/DD HH:MM:SS\"", given->at, "The time that counts as now, in UTC");
  options.databases(given->site);
  options.flag("--with-pins", given->withPins, "Show PINs, and find them by their keys");
  return [given](Console& console) { return show(*given, console); };
}

}  // namespace badgemint::admin
