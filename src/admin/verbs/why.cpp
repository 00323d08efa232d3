// The verb `why`: whether a holder may pass a door, and for which reasons.
#include <set>

#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

struct WhyOptions {
  SitePaths site;
  std::string holder, card, key;  // One of them: a unique ID, "SET:NUMBER", hexadecimal.
  std::string door;               // The door group.
  std::string levels;             // The access levels file.
  std::string at;                 // The time that counts as now; empty for the clock.
  bool json = false, withPins = false;
};

// The answer: the first reason decides, and all others apply as well.
struct Decision {
  ExitStatus status;
  std::vector<std::string> reasons;

  bool operator==(const Decision&) const = default;
};

// The door group stands for its readers, and every schedule counts as active.
struct DoorOfGroup final : Readers, DoorGroups, Schedules {
  bool has(uint32_t) const override { return true; }
  bool contains(uint32_t group, uint32_t reader) const override { return group == reader; }
  ScheduleState state(uint32_t) const override { return ScheduleState::kActive; }
};

// What was asked about: a holder, or the credentials of one that have a key.
struct Subject {
  std::string name;  // "card 15890 of card set 1".
  Holder holder;
};

// Where and when.
struct Question {
  const AccessLevelSet& levels;
  uint32_t door, now;
};

std::vector<std::string> grantsOf(const AccessRecord& record, const Question& question) {
  const DoorOfGroup door;
  const AccessChecker checker(question.levels, door, door, door);
  std::vector<std::string> grants;
  std::set<uint16_t> known = {0};
  for (const uint16_t level : record.acclevel) {
    if (!known.insert(level).second || checker.checkAccess(level, question.door) != kReasonGranted)
      continue;
    const int32_t position = question.levels.findLevel(level);
    for (const AccessPair& pair : question.levels.level(position).pairs())
      if (pair.doorgroup == question.door)
        grants.push_back(
            fmt::format("by access level {} while schedule {} is active", level, pair.schedule));
  }
  return grants;
}

Decision decide(const AccessRecord& record, const Question& question,
                std::vector<std::string> refusals) {
  if (question.now < record.starttime)
    refusals.push_back(fmt::format("not valid before {} UTC", timeText(record.starttime).data()));
  if (record.endtime != 0 && question.now > record.endtime)
    refusals.push_back(fmt::format("expired since {} UTC", timeText(record.endtime + 1).data()));
  const std::vector<std::string> grants = grantsOf(record, question);
  if (grants.empty())
    refusals.push_back(fmt::format("no access level opens door group {}", question.door));
  if (refusals.empty()) return {ExitStatus::kAllWell, grants};
  return {ExitStatus::kFound, refusals};
}

Decision decide(const Subject& subject, const Question& question) {
  const auto& [uniqid, accesses, credentials] = subject.holder;
  std::vector<std::string> refusals;
  if (credentials.empty())
    refusals.push_back(subject.name + " has no credential");
  else if (std::ranges::count(credentials, 0U, &IdentRecord::deleted) == 0)
    refusals.push_back((subject.name.starts_with("holder") ? "every credential of " : "") +
                       subject.name + " is marked as deleted");
  if (accesses.empty()) {
    refusals.push_back(fmt::format("holder {} has no access record", uniqid));
    return {ExitStatus::kFound, refusals};
  }
  Decision decision = decide(accesses.front(), question, refusals);
  for (const AccessRecord& other : accesses)
    if (decide(other, question, refusals) != decision)
      throw NotDone("holder {} has several access records, and they disagree", uniqid);
  return decision;
}

// Throws Failure (refused) when it is in neither database.
Subject findSubject(const WhyOptions& options, const Site& site) {
  const Databases& databases = site.databases();
  if (!options.holder.empty()) {
    const Holder holder = databases.holder(parseHolder(options.holder));
    if (holder.exists()) return {fmt::format("holder {}", holder.uniqid), holder};
    throw Refused("holder {} is not in the databases", holder.uniqid);
  }
  const bool isCard = !options.card.empty();
  const CardPattern key = isCard ? parseCard(options.card, site) : parseKey(options.key);
  const auto isWanted = hasKey(key, options.withPins);
  const auto& idents = databases.idents;  // In the order of unique IDs, then of keys.
  const auto first = std::ranges::find_if(idents, isWanted);
  if (first == idents.end())
    throw Refused("{} is not in the databases",
                  isCard ? "card " + options.card : "the credential with key " + keyText(key));
  const auto last = std::find_if(idents.rbegin(), idents.rend(), isWanted);
  const std::string name = credentialText(*first, site, options.withPins);
  if (last->uniqid != first->uniqid) throw NotDone("{} belongs to several holders", name);
  return {name, {first->uniqid, databases.holder(first->uniqid).accesses, {first, last.base()}}};
}

// What was asked for and is in neither database.
void addMissing(JsonObject& object, const WhyOptions& options) {
  if (!options.holder.empty()) object.add("holder", parseHolder(options.holder));
  if (!options.key.empty()) object.add("key", keyText(parseKey(options.key)));
  if (options.card.empty()) return;
  const size_t colon = options.card.find(':');
  if (const auto csid = numberOf(options.card.substr(0, colon))) object.add("set", *csid);
  object.add("card", options.card.substr(colon + 1));
}

void printDecision(const Decision& decision, const WhyOptions& options, const Holder& holder,
                   const Site& site, Console& console) {
  const auto& [status, reasons] = decision;
  const bool isGranted = status == ExitStatus::kAllWell;
  if (options.json) {
    JsonObject object;
    object.add("granted", isGranted);
    if (holder.exists()) object.add("holder", holder.uniqid);
    if (!holder.exists())
      addMissing(object, options);
    else if (options.holder.empty())
      addCredential(object, holder.credentials.front(), site, options.withPins);
    return console.printJson(object.add("reasons", reasons));
  }
  console.print("{}{}\n", isGranted ? "granted " : "denied: ", printable(reasons.front()));
  for (size_t i = 1; i < reasons.size(); ++i) console.print("  {}\n", printable(reasons[i]));
}

ExitStatus why(const WhyOptions& options, Console& console) {
  if (!options.holder.empty() + !options.card.empty() + !options.key.empty() != 1)
    throw NotDone("give a unique ID, --card or --key, only one of them");
  const auto door = numberOf(options.door);
  if (!door || options.levels.empty())
    throw NotDone(
        "write the door group with --door, a number from 0 to 4294967295, and the access levels "
        "file with --levels");
  AccessLevelSet levels;
  openLevels(options.levels, levels);
  const Question question{levels, *door, parseTimeOrNow("--at", options.at)};
  // Only a card number needs formats.
  const Site site(
      options.site,
      {.formats = !options.card.empty(), .wholeRecords = ExitStatus::kNotDone, .sorted = true});
  Subject subject;
  Decision decision;
  try {
    subject = findSubject(options, site);
    decision = decide(subject, question);
  } catch (const Failure& failure) {
    if (failure.status() != ExitStatus::kRefused) throw;
    decision = {ExitStatus::kRefused, {failure.what()}};
  }
  printDecision(decision, options, subject.holder, site, console);
  return decision.status;
}

}  // namespace

Run addWhy(Options options) {
  const auto given = std::make_shared<WhyOptions>();
  options.describe("Show whether a holder may pass a door, and why",
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
