// The verb `why`: whether a holder may pass a door, and for which reasons.
#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <span>

#include "admin/arguments.h"
#include "admin/records/site.h"
#include "admin/records/wording.h"
#include "admin/verbs/verb.h"
#include "site/accesslevel.h"

namespace badgemint::admin {

namespace {

struct WhyOptions {
  SitePaths site;
  std::string holder, card, key;  // One of them: a unique ID, "SET:NUMBER", hexadecimal.
  std::string door;               // The door group.
  std::string levels;             // The access levels file.
  std::string at;                 // The time that counts as now; empty for the clock.
  bool json = false;
  bool withPins = false;
};

// The answer: the first reason decides, and all others apply as well.
struct Verdict {
  ExitStatus status;
  std::vector<std::string> reasons;

  bool isGranted() const { return status == ExitStatus::kAllWell; }
  bool operator==(const Verdict&) const = default;
};

// The door group stands for its readers, and every schedule counts as active.
struct DoorGroupReaders final : Readers {
  bool has(uint32_t) const override { return true; }
};
struct SameDoorGroup final : DoorGroups {
  bool contains(uint32_t group, uint32_t reader) const override { return group == reader; }
};
struct ActiveSchedules final : Schedules {
  ScheduleState state(uint32_t) const override { return ScheduleState::kActive; }
};

// What was asked about.
struct Subject {
  std::string name;                        // "card 15890 of card set 1".
  std::optional<uint32_t> uniqid{};        // None when nobody has the credential.
  std::vector<IdentRecord> credentials{};  // All of a holder, or those with one key.
};

[[noreturn]] void failUntold(const std::string& why) {
  throw Failure(ExitStatus::kNotDone, "{}", why);
}

class Decision {
 public:
  Decision(const AccessLevelSet& levels, uint32_t door, uint32_t now)
      : _levels(levels), _door(door), _now(now) {}

  Verdict decide(const Subject& subject, const Databases& databases) const {
    const Holder holder = databases.holder(subject.uniqid.value_or(0));
    const auto accesses = subject.uniqid ? holder.accesses : std::span<const AccessRecord>();
    if (subject.credentials.empty() && accesses.empty())
      return {ExitStatus::kRefused, {subject.name + " is not in the databases"}};
    std::vector<std::string> refusals = credentialRefusals(subject);
    if (accesses.empty()) {
      refusals.push_back(fmt::format("holder {} has no access record", *subject.uniqid));
      return {ExitStatus::kFound, refusals};
    }
    Verdict verdict = decide(accesses.front(), refusals);
    for (const AccessRecord& other : accesses)
      if (decide(other, refusals) != verdict)
        failUntold(
            fmt::format("holder {} has several access records, and they disagree", other.uniqid));
    return verdict;
  }

 private:
  static std::vector<std::string> credentialRefusals(const Subject& subject) {
    if (subject.credentials.empty()) return {subject.name + " has no credential"};
    const auto isDeleted = [](const IdentRecord& record) { return record.deleted != 0; };
    if (!std::ranges::all_of(subject.credentials, isDeleted)) return {};
    return {subject.name.starts_with("holder")
                ? "every credential of " + subject.name + " is marked as deleted"
                : subject.name + " is marked as deleted"};
  }

  Verdict decide(const AccessRecord& record, std::vector<std::string> refusals) const {
    if (_now < record.starttime)
      refusals.push_back(fmt::format("not valid before {} UTC", timeText(record.starttime).data()));
    if (record.endtime != 0 && _now > record.endtime)
      refusals.push_back(fmt::format("expired since {} UTC", timeText(record.endtime + 1).data()));
    const std::vector<std::string> grants = grantsOf(record);
    if (grants.empty())
      refusals.push_back(fmt::format("no access level opens door group {}", _door));
    if (refusals.empty()) return {ExitStatus::kAllWell, grants};
    return {ExitStatus::kFound, refusals};
  }

  std::vector<std::string> grantsOf(const AccessRecord& record) const {
    const DoorGroupReaders readers;
    const SameDoorGroup doorGroups;
    const ActiveSchedules schedules;
    const AccessChecker checker(_levels, readers, doorGroups, schedules);
    std::vector<std::string> grants;
    std::set<uint16_t> known = {0};
    for (const uint16_t level : record.acclevel) {
      if (!known.insert(level).second || checker.checkAccess(level, _door) != kReasonGranted)
        continue;
      for (const AccessPair& pair : _levels.level(_levels.findLevel(level)).pairs())
        if (pair.doorgroup == _door)
          grants.push_back(
              fmt::format("by access level {} while schedule {} is active", level, pair.schedule));
    }
    return grants;
  }

  const AccessLevelSet& _levels;
  const uint32_t _door, _now;
};

// Card set and number of "SET:NUMBER".
std::pair<std::string, std::string> splitCard(const std::string& word) {
  const size_t colon = word.find(':');
  return {word.substr(0, colon), word.substr(colon + 1)};
}

// What was asked for and is in neither database.
void addMissing(JsonObject& object, const WhyOptions& options) {
  if (!options.key.empty()) object.add("key", keyText(parseKey(options.key)));
  if (options.card.empty()) return;
  const auto [set, number] = splitCard(options.card);
  if (const auto csid = numberOf(set)) object.add("set", *csid);
  object.add("card", number);
}

// Throws Failure (refused) when no credential can be what was asked for.
Subject findSubject(const WhyOptions& options, const Site& site) {
  const Databases& databases = site.databases();
  if (!options.holder.empty()) {
    const auto credentials = databases.holder(parseHolder(options.holder)).credentials;
    return {"holder " + options.holder,
            parseHolder(options.holder),
            {credentials.begin(), credentials.end()}};
  }
  const bool isCard = !options.card.empty();
  const CardPattern key = isCard ? parseCard(options.card, site) : parseKey(options.key);
  Subject subject{fmt::format("the credential with key {}", keyText(key))};
  for (const IdentRecord& record : databases.idents)
    if (record.cardnumber == key && (options.withPins || !isPinEntry(record)))
      subject.credentials.push_back(record);
  if (isCard) {
    const auto [set, number] = splitCard(options.card);
    subject.name = fmt::format("card {} of card set {}", number, set);
  } else if (!subject.credentials.empty()) {
    subject.name = credentialText(subject.credentials.front(), site, options.withPins);
  }
  for (const IdentRecord& record : subject.credentials) {
    if (subject.uniqid.value_or(record.uniqid) != record.uniqid)
      failUntold(subject.name + " belongs to several holders");
    subject.uniqid = record.uniqid;
  }
  return subject;
}

void printVerdict(const Verdict& verdict, const WhyOptions& options, const Subject& subject,
                  const Site& site, Console& console) {
  if (options.json) {
    JsonObject object;
    object.add("granted", verdict.isGranted());
    if (subject.uniqid) object.add("holder", *subject.uniqid);
    if (options.holder.empty() && !subject.credentials.empty())
      addCredential(object, subject.credentials.front(), site, options.withPins);
    else
      addMissing(object, options);
    return console.printJson(object.add("reasons", verdict.reasons));
  }
  console.print("{}{}\n",
                verdict.isGranted() ? "granted " : "denied: ", printable(verdict.reasons.front()));
  for (size_t i = 1; i < verdict.reasons.size(); ++i)
    console.print("  {}\n", printable(verdict.reasons[i]));
}

uint32_t parseDoor(const std::string& word) {
  const auto door = numberOf(word);
  if (!door)
    throw Failure(ExitStatus::kNotDone,
                  "--door {} is not a door group, a number from 0 to 4294967295", inQuotes(word));
  return *door;
}

ExitStatus why(const WhyOptions& options, Console& console) {
  if (!options.holder.empty() + !options.card.empty() + !options.key.empty() != 1)
    failUntold("write one unique ID, one --card or one --key");
  if (options.door.empty() || options.levels.empty())
    failUntold("write the door group with --door and the access levels file with --levels");
  AccessLevelSet levels;
  openLevels(options.levels, levels);
  const Decision decision(levels, parseDoor(options.door), parseTimeOrNow("--at", options.at));
  const SitePaths& paths = options.site;
  using enum Site::Formats;  // Only a card number needs them.
  Site site(paths, options.card.empty() ? kOptional : kRequired);
  if (site.databases().identRest != 0) failUntold(paths.ident + " ends within a record");
  if (site.databases().accessRest != 0) failUntold(paths.access + " ends within a record");
  site.databases().sort();
  Subject subject;
  Verdict verdict;
  try {
    subject = findSubject(options, site);
    verdict = decision.decide(subject, site.databases());
  } catch (const Failure& failure) {
    if (failure.status() != ExitStatus::kRefused) throw;
    verdict = {ExitStatus::kRefused, {failure.what()}};
  }
  printVerdict(verdict, options, subject, site, console);
  return verdict.status;
}

}  // namespace

Run addWhy(Options options) {
  const auto given = std::make_shared<WhyOptions>();
  options.describe("Say whether a holder may pass a door, and why",
                   "badgemint-admin why 1001 --door 4 --levels levels.txt");
  options.text("HOLDER", "", given->holder, "The unique ID of the holder");
  options.text("--card", "SET:NUMBER", given->card, "The card that is shown to the reader");
  options.text("--key", "HEX", given->key, "The key of the credential");
  options.text("--door", "GROUP", given->door, "The door group");
  options.file("--levels", given->levels, "The access levels file");
  options.text("--at", "\"YYYY/MM/DD HH:MM:SS\"", given->at, "The time that counts as now, in UTC");
  options.databases(given->site);
  options.flag("--json", given->json, "Print a JSON object");
  options.flag("--with-pins", given->withPins, "Find PINs by their keys");
  return [given](Console& console) { return why(*given, console); };
}

}  // namespace badgemint::admin
