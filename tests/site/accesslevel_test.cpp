#include "site/accesslevel.h"

#include <gtest/gtest.h>

#include "support/masterconfiguration.h"
#include "support/script.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

// A site in memory: groups 1 and 3 have reader 30, schedule 5 is inactive and 6 active; reader 31
// is in group 1, but no reader of the site.
struct Site final : Readers, DoorGroups, Schedules {
  bool has(uint32_t readerId) const override { return readerId == 30; }
  bool contains(uint32_t groupId, uint32_t readerId) const override {
    return (readerId == 30 && (groupId == 1 || groupId == 3)) || (readerId == 31 && groupId == 1);
  }
  ScheduleState state(uint32_t scheduleId) const override {
    if (scheduleId == 5) return ScheduleState::kInactive;
    return scheduleId == 6 ? ScheduleState::kActive : ScheduleState::kMissing;
  }
};

TEST(AccessLevels, FollowTheTranscript) {
  const Site site;
  std::optional<AccessLevelSet> levels;
  const auto configure = [&](const std::string& text) {
    std::ofstream("conf") << text;
    MasterConfiguration configuration(1, "conf");
    return levels.emplace().loadAccessLevels(configuration);
  };
  Commands on;
  on["configure"] = [&](Step& c) { c.out << configure(c.input); };
  on["levels"] = [&](Step& c) {
    std::ofstream("levels") << c.input;
    EXPECT_TRUE(configure("AccessLvls=levels"));
    for (int32_t i = 0; i < levels->count(); ++i) {
      c.out << levels->level(i).number() << ':';
      for (const AccessPair& pair : levels->level(i).pairs())
        c.out << ' ' << pair.doorgroup << '/' << pair.schedule;
      c.out << '\n';
    }
  };
  on["find"] = [&](Step& c) {
    for (size_t i = 0; i < c.words.size(); ++i)
      c.out << levels->findLevel(c.as<uint32_t>(i)) << ' ';
  };
  on["decide"] = [&](Step& c) {  // Level and reader.
    c.out << AccessChecker(*levels, site, site, site)
                 .checkAccess(c.as<uint32_t>(0), c.as<uint32_t>(1));
  };
  play("site/accesslevels.txt", on);
}

}  // namespace
}  // namespace badgemint
