// The access levels of a site and the access decision. An access level names pairs of a door group
// and a schedule: its holders may pass the readers of the door group while the schedule is active.
#ifndef BADGEMINT_SITE_ACCESSLEVEL_H
#define BADGEMINT_SITE_ACCESSLEVEL_H

#include <cstdint>
#include <memory>
#include <span>

#include "support/exported.h"
#include "support/steparray.h"

namespace BADGEMINT_EXPORTED badgemint {

class LineReader;
class MasterConfiguration;
class Tokenizer;

struct AccessPair {
  uint32_t doorgroup = 0;  // IDs.
  uint32_t schedule = 0;
};

// A level number and its pairs, in the order of the file.
class AccessLevel {
 public:
  explicit AccessLevel(uint32_t number) : _number(number) {}

  uint32_t number() const { return _number; }
  std::span<const AccessPair> pairs() const { return _pairs.elements(); }

  // False when there is no memory, with the pairs as they were.
  [[nodiscard]] bool add(const AccessPair& pair) { return _pairs.add(pair); }

 private:
  uint32_t _number;
  StepArray<AccessPair, 5> _pairs;
};

// Owns the levels of a site, in the order of the file.
class AccessLevelSet {
 public:
  AccessLevelSet() = default;
  ~AccessLevelSet();
  AccessLevelSet(const AccessLevelSet&) = delete;
  AccessLevelSet& operator=(const AccessLevelSet&) = delete;

  // Adds the levels of the file that the configuration names under "accesslvls". A line (of at most
  // 600 characters: what is longer is a line of its own) is a level number and any number of pairs,
  // a door group ID and a schedule ID each, as words of the Tokenizer. IDs and numbers are 0 to
  // 4294967295. A line with a number out of range is dropped; one whose last pair lacks its
  // schedule keeps the pairs before it; a number that is there already is added again.
  //
  // False when there is no such entry (error 15 of area 2) or its file cannot be opened, and when
  // memory runs out, with the levels read until then.
  //
  // Logs "accesslevel: Reading %s ...\n" and "accesslevel:load - level %u\n" for each level at 100;
  // "accesslevel:load line %d, ID out of range (%lld)\n", "... groupID out of range (%lld)\n",
  // "... schedID out of range (%lld)\n" and "... missing scheduleID\n" at 20; "Not enough memory to
  // create access levels\n" at 25.
  [[nodiscard]] bool loadAccessLevels(MasterConfiguration& configuration);

  // The same from a file that is open. False when memory runs out.
  [[nodiscard]] bool readAccessLevels(LineReader& reader);

  // False, with the level gone and the set as it was, when there is no memory.
  [[nodiscard]] bool add(std::unique_ptr<AccessLevel> level);

  // The position of the first level of this number; -1 when there is none.
  int32_t findLevel(uint32_t number) const;

  int32_t count() const { return _levels.count(); }

  // The level at a position from 0 to count - 1.
  const AccessLevel& level(int32_t position) const { return *_levels[position]; }

 private:
  [[nodiscard]] bool addLine(Tokenizer& words, uint32_t lineNumber);

  StepArray<AccessLevel*, 5> _levels;
};

// What the decision asks of the rest of the site. Every ID may be asked for.
class Readers {
 public:
  virtual ~Readers() = default;
  virtual bool has(uint32_t readerId) const = 0;
};

class DoorGroups {
 public:
  virtual ~DoorGroups() = default;
  // Whether the reader belongs to the door group. A door group that does not exist has no readers.
  virtual bool contains(uint32_t groupId, uint32_t readerId) const = 0;
};

enum class ScheduleState { kMissing, kInactive, kActive };

class Schedules {
 public:
  virtual ~Schedules() = default;
  // The state of the schedule at the time of the call.
  virtual ScheduleState state(uint32_t scheduleId) const = 0;
};

// The reason codes of the access decision.
inline constexpr int32_t kReasonGranted = 0;
inline constexpr int32_t kReasonNotInDoorGroup = -2;       // The reader is in none of the level's.
inline constexpr int32_t kReasonNoActiveSchedule = -3;     // It is, but not at this time.
inline constexpr int32_t kReasonLevelNotConfigured = -16;  // Or the level has no pairs.

// Answers whether the holders of a level may pass a reader now. Keeps references only: the levels
// and the collaborators must outlive it.
class AccessChecker {
 public:
  AccessChecker(const AccessLevelSet& levels, const Readers& readers, const DoorGroups& doorGroups,
                const Schedules& schedules)
      : _levels(levels), _readers(readers), _doorGroups(doorGroups), _schedules(schedules) {}

  // A reason code. The pairs are tried in order until one grants access; once the reader was found
  // in a door group whose schedule is not active, a later pair can only turn the refusal into a
  // grant. A schedule that is not found leaves the reason as it is: -16 when no other pair decides.
  // A reader that the site does not have is in no door group.
  //
  // Logs at 5 "access level %d, not configured\n" or "access level %d, found\n"; at 20 "dgid = %u,
  // schid= %u\n" for each pair, "reader is in doorgroup \n", and for a level that was found, also
  // when access is granted, "reason denied = %d\n"; at 10 "schedule %u not found\n".
  int32_t checkAccess(uint32_t levelNumber, uint32_t readerId) const;

 private:
  int32_t reasonAfter(const AccessPair& pair, bool inDoorGroup, int32_t reason) const;

  const AccessLevelSet& _levels;
  const Readers& _readers;
  const DoorGroups& _doorGroups;
  const Schedules& _schedules;
};

}  // namespace badgemint

#endif  // BADGEMINT_SITE_ACCESSLEVEL_H
