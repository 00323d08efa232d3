#include "site/accesslevel.h"

#include "support/masterconfiguration.h"
#include "support/testfiles.h"

namespace badgemint::accesslevel_test {

// Group 1 has the readers 30 and 31, the site has only 30. Schedule 5 is inactive, 6 active.
struct Site final : Readers, DoorGroups, Schedules {
  bool has(uint32_t readerId) const override { return readerId == 30; }
  bool contains(uint32_t groupId, uint32_t) const override { return groupId == 1; }
  ScheduleState state(uint32_t scheduleId) const override {
    if (scheduleId == 5) return ScheduleState::kInactive;
    return scheduleId == 6 ? ScheduleState::kActive : ScheduleState::kMissing;
  }
};

bool load(AccessLevelSet& levels, const std::string& lines) {
  writeFile("levels", lines);
  writeFile("conf", "AccessLvls=levels");
  MasterConfiguration table(1, "conf");
  return levels.loadAccessLevels(table);
}

TEST(AccessLevelSet, ReadsLevelsAndTheirPairs) {
  const std::array<std::string, 3> cases[] = {
      {"7=1 5\t2 6\r\n7 2 2\nx y z\n", "7 1/5 2/6, 7 2/2, 0 0/0, ", ""},
      {"\n# 1 2\n8 1 2 3 4 5 6 7 8 9 10 11 12", "8 1/2 3/4 5/6 7/8 9/10 11/12, ", ""},
      {"1\n2\n3\n4\n5\n4294967295 4294967295 0", "1, 2, 3, 4, 5, 4294967295 4294967295/0, ", ""},
      {std::string("7 1").append(596, ' ') + "23\n9", "7 1/2, 3, 9, ", ""},
      {"7 1 5 2\n8", "7 1/5, 8, ", "1, missing scheduleID\n[report 2/2001 \"\"]\n"},
      {"\n7 1 -1\n8 1 1", "8 1/1, ", "2, schedID out of range (-1)\n[report 2/17 \"\"]\n"},
      {"7 4294967296 1", "", "1, groupID out of range (4294967296)\n[report 2/17 \"\"]\n"},
      {"-1 1 1\n8", "8, ", "1, ID out of range (-1)\n[report 2/17 \"\"]\n"},
  };
  TestLog log(20);
  for (const auto& [lines, levels, fault] : cases) {
    AccessLevelSet set;
    EXPECT_TRUE(load(set, lines));
    std::string found;
    for (int32_t i = 0; i < set.count(); ++i, found += ", ") {
      found += std::to_string(set.level(i).number());
      for (const auto& [group, schedule] : set.level(i).pairs())
        found += ' ' + std::to_string(group) + '/' + std::to_string(schedule);
    }
    EXPECT_EQ(found, levels);
    EXPECT_EQ(log.take(), (fault.empty() ? "" : "[20 accesslevel] accesslevel:load line ") + fault);
  }
  log.logger().setThreshold(25);
  AccessLevelSet set;
  for (int nth = 1; nth <= 3; ++nth) {  // A level, its pairs, and its place in the set.
    const ArmedFault armed({.call = "allocate", .nth = nth});
    EXPECT_FALSE(load(set, "7 1 5"));
    EXPECT_EQ(log.take(), "[25 accesslevel] Not enough memory to create access levels\n");
  }
}

// Every level of two pairs, by what each alone decides: a grant is enough, and the wrong time
// outweighs the wrong place, which outweighs a schedule that is missing.
TEST(AccessChecker, GrantsByOnePairAndRefusesByAllOfThem) {
  const std::map<std::string, int32_t> kinds = {{"", -16},     {" 1 5", -3}, {" 1 6", 0},
                                                {" 1 9", -16}, {" 2 5", -2}, {" 2 6", -2}};
  const Site site;
  AccessLevelSet levels;
  const AccessChecker checker(levels, site, site, site);
  for (uint32_t number = 1; const auto& [a, byA] : kinds)
    for (const auto& [b, byB] : kinds) {
      EXPECT_TRUE(load(levels, std::to_string(number) + a + b));
      int32_t expected = -16;
      for (const int32_t reason : {-2, -3, 0})
        if (byA == reason || byB == reason) expected = reason;
      EXPECT_EQ(checker.checkAccess(number++, 30), expected) << a << b;
    }
  TestLog log(5);  // badgemint-maintain(3) shows what is logged of a level that is there.
  EXPECT_EQ(checker.checkAccess(778, 30), -16);
  EXPECT_EQ(log.take(), "[5 accesslevel] access level 778, not configured\n");
}

}  // namespace badgemint::accesslevel_test
