// The files of a site's configuration. Input: M and a master configuration, A and an access levels
// file, or L and a list of log levels.
#include "fuzz.h"
#include "site/accesslevel.h"
#include "support/masterconfiguration.h"

namespace badgemint {
namespace {

class AnyReader : public Readers {
 public:
  bool has(uint32_t id) const override { return id != 3; }
};
class EvenDoorGroups : public DoorGroups {
 public:
  bool contains(uint32_t group, uint32_t reader) const override {
    return (group + reader) % 2 == 0;
  }
};
class SomeSchedules : public Schedules {
 public:
  ScheduleState state(uint32_t id) const override { return static_cast<ScheduleState>(id % 3); }
};

void useConfiguration(const char* path) {
  MasterConfiguration configuration(1, path);
  for (const char* const name : {"fmts", "ident", "", "ACCESS"}) {
    const MasterConfiguration::Entry* const entry = configuration.find(name);
    require(configuration.number(name) == (entry != nullptr ? entry->number : 0),
            "a number is that of its entry");
  }
  configuration.setValue("cardsets", path);
  LineReader reader;
  configuration.openEntryFile("cardsets", reader);
  configuration.entryFileExists("cardsets");
  require(configuration.save("saved"), "the configuration is saved");

  MasterConfiguration again(1, "saved");
  require(again.save("saved again"), "and saved again");
  require(WorkFolder::read("saved") == WorkFolder::read("saved again"), "as it was");
}

void useAccessLevels(const char* path) {
  WorkFolder::write("configuration", std::string("accesslvls ") + path);
  MasterConfiguration configuration(1, "configuration");
  AccessLevelSet levels;
  require(levels.loadAccessLevels(configuration), "a wrong line does not stop the file");
  const AnyReader readers;
  const EvenDoorGroups doorGroups;
  const SomeSchedules schedules;
  const AccessChecker checker(levels, readers, doorGroups, schedules);
  for (int32_t i = 0; i < levels.count(); ++i) {
    const uint32_t number = levels.level(i).number();
    const int32_t found = levels.findLevel(number);
    require(found >= 0 && found <= i, "a level is found by its number");
    for (uint32_t reader = 1; reader < 4; ++reader) {
      const int32_t reason = checker.checkAccess(number, reader);
      require(reason == kReasonGranted || reason == kReasonNotInDoorGroup ||
                  reason == kReasonNoActiveSchedule || reason == kReasonLevelNotConfigured,
              "a decision has a reason");
    }
  }
}

void useLevelList(const char* path) {
  Logger logger("/dev/null", LevelList{path});
  require(logger.isOpen(), "every list can be read");
  for (const int32_t level : {INT32_MIN, 0, 25, 100, INT32_MAX})
    logger.write(level, "%s", "a message\n");
}

}  // namespace
}  // namespace badgemint

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace badgemint;
  static const WorkFolder folder;
  if (size == 0) return 0;
  const DroppedLog log;
  const MemoryFile file(textOf(data + 1, size - 1));
  if (*data == 'M') useConfiguration(file.path());
  if (*data == 'A') useAccessLevels(file.path());
  if (*data == 'L') useLevelList(file.path());
  return 0;
}
