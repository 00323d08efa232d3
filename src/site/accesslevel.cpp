#include "site/accesslevel.h"

#include <algorithm>
#include <new>
#include <utility>

#include "support/fieldscanner.h"
#include "support/linereader.h"
#include "support/log.h"
#include "support/masterconfiguration.h"
#include "support/textutil.h"
#include "support/tokenizer.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "accesslevel";
constexpr char kEntryName[] = "accesslvls";
constexpr int kLineLimit = 600;

constexpr uint16_t kReportArea = 2;
constexpr uint16_t kReportOutOfRange = 17;
constexpr uint16_t kReportScheduleMissing = 2001;

enum class Outcome { kAccepted, kRejected, kOutOfMemory };

// Reads a level number or an ID, `what` as the log calls it. False when it is out of range.
bool readId(const char* word, const char* what, uint32_t lineNumber, uint32_t& id) {
  const int64_t value = textToInt64(word);
  id = static_cast<uint32_t>(value);
  if (value == int64_t{id}) return true;
  LOG(kLogProgress, "accesslevel:load line %u, %s out of range (%lld)\n", lineNumber, what,
      static_cast<long long>(value));
  reportSystemError(kReportArea, kReportOutOfRange);
  return false;
}

Outcome readPairs(Tokenizer& words, uint32_t lineNumber, AccessLevel& level) {
  while (const char* const group = words.next()) {
    AccessPair pair;
    if (!readId(group, "groupID", lineNumber, pair.doorgroup)) return Outcome::kRejected;
    const char* const schedule = words.next();
    if (schedule == nullptr) {
      LOG(kLogProgress, "accesslevel:load line %u, missing scheduleID\n", lineNumber);
      reportSystemError(kReportArea, kReportScheduleMissing);
      return Outcome::kAccepted;
    }
    if (!readId(schedule, "schedID", lineNumber, pair.schedule)) return Outcome::kRejected;
    if (!level.add(pair)) return Outcome::kOutOfMemory;
  }
  return Outcome::kAccepted;
}

}  // namespace

AccessLevelSet::~AccessLevelSet() {
  for (AccessLevel* const level : _levels.elements()) delete level;
}

bool AccessLevelSet::loadAccessLevels(MasterConfiguration& configuration) {
  const MasterConfiguration::Entry* const entry = configuration.find(kEntryName);
  if (entry == nullptr) {
    reportSystemError(kReportArea, kReportEntryMissing);
    return false;
  }
  LineReader reader;
  return reader.open(entry->value.data()) && readAccessLevels(reader);
}

bool AccessLevelSet::readAccessLevels(LineReader& reader) {
  LOG(kLogRecord, "accesslevel: Reading %s ...\n", kEntryName);
  Tokenizer words;
  for (uint32_t number = 1; reader.readLine(kLineLimit) == LineReader::Status::kLine; ++number) {
    words.split(reader.line(), kWordDelimiters);
    if (addLine(words, number)) continue;
    LOG(kLogError, "Not enough memory to create access levels\n");
    return false;
  }
  return true;
}

// Adds the level of a line, unless the line is empty or dropped. False when memory runs out.
bool AccessLevelSet::addLine(Tokenizer& words, uint32_t lineNumber) {
  const char* const word = words.next();
  uint32_t number = 0;
  if (word == nullptr || !readId(word, "ID", lineNumber, number)) return true;
  LOG(kLogRecord, "accesslevel:load - level %u\n", number);
  std::unique_ptr<AccessLevel> level(new (std::nothrow) AccessLevel(number));
  if (!level) return false;
  const Outcome outcome = readPairs(words, lineNumber, *level);
  return outcome == Outcome::kRejected || (outcome == Outcome::kAccepted && add(std::move(level)));
}

bool AccessLevelSet::add(std::unique_ptr<AccessLevel> level) {
  if (!_levels.add(level.get())) return false;
  level.release();
  return true;
}

int32_t AccessLevelSet::findLevel(uint32_t number) const {
  const auto levels = _levels.elements();
  const auto found = std::find_if(levels.begin(), levels.end(), [number](const AccessLevel* level) {
    return level->number() == number;
  });
  return found != levels.end() ? static_cast<int32_t>(found - levels.begin()) : -1;
}

int32_t AccessChecker::checkAccess(uint32_t levelNumber, uint32_t readerId) const {
  const int32_t position = _levels.findLevel(levelNumber);
  if (position < 0) {
    LOG(kLogDecision, "access level %d, not configured\n", static_cast<int32_t>(levelNumber));
    return kReasonLevelNotConfigured;
  }
  LOG(kLogDecision, "access level %d, found\n", static_cast<int32_t>(levelNumber));
  const bool known = _readers.has(readerId);
  int32_t reason = kReasonLevelNotConfigured;
  for (const AccessPair& pair : _levels.level(position).pairs()) {
    LOG(kLogProgress, "dgid = %u, schid= %u\n", pair.doorgroup, pair.schedule);
    reason = reasonAfter(pair, known && _doorGroups.contains(pair.doorgroup, readerId), reason);
    if (reason == kReasonGranted) break;
  }
  LOG(kLogProgress, "reason denied = %d\n", reason);
  return reason;
}

// The reason after one more pair.
int32_t AccessChecker::reasonAfter(const AccessPair& pair, bool inDoorGroup, int32_t reason) const {
  if (!inDoorGroup) return reason == kReasonNoActiveSchedule ? reason : kReasonNotInDoorGroup;
  LOG(kLogProgress, "reader is in doorgroup \n");
  const ScheduleState state = _schedules.state(pair.schedule);
  if (state == ScheduleState::kActive) return kReasonGranted;
  if (state == ScheduleState::kInactive) return kReasonNoActiveSchedule;
  LOG(kLogSummary, "schedule %u not found\n", pair.schedule);
  return reason;
}

}  // namespace badgemint
