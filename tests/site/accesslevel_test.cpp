#include "site/accesslevel.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "support/faults.h"
#include "support/masterconfiguration.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

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
  const TestFolder folder;
  const std::string path = folder.write("levels", lines);
  MasterConfiguration configuration(1, folder.write("conf", "AccessLvls=" + path).c_str());
  return levels.loadAccessLevels(configuration);
}

// The decision for level 7 of these lines.
int32_t decide(const std::string& lines, uint32_t reader) {
  AccessLevelSet levels;
  EXPECT_TRUE(load(levels, lines));
  const Site site;
  return AccessChecker(levels, site, site, site).checkAccess(7, reader);
}

TEST(AccessLevelSet, ReadsLevelsAndTheirPairs) {
  const std::array<std::string, 3> cases[] = {
      {"7=1 5\t2 6\r\n7 2 2\nx y z\n", "7 1/5 2/6, 7 2/2, 0 0/0", ""},
      {"\n =\t\r\n# 1 2\n8 1 2 3 4 5 6 7 8 9 10 11 12", "8 1/2 3/4 5/6 7/8 9/10 11/12", ""},
      {"1\n2\n3\n4\n5\n6", "1, 2, 3, 4, 5, 6", ""},
      {"4294967295 4294967295 0", "4294967295 4294967295/0", ""},
      {std::string("7 1").append(596, ' ') + "23\n9", "7 1/2, 3, 9", ""},
      {"7 1 5 2\n8", "7 1/5, 8", "1, missing scheduleID\n[report 2/2001 \"\"]\n"},
      {"\n7 1 -1\n8 1 1", "8 1/1", "2, schedID out of range (-1)\n[report 2/17 \"\"]\n"},
      {"7 4294967296 1", "", "1, groupID out of range (4294967296)\n[report 2/17 \"\"]\n"},
      {"-1 1 1\n8", "8", "1, ID out of range (-1)\n[report 2/17 \"\"]\n"},
  };
  for (const auto& [lines, levels, fault] : cases) {
    TestLog log(20);
    AccessLevelSet set;
    EXPECT_TRUE(load(set, lines));
    std::ostringstream found;
    for (int32_t i = 0; i < set.count(); ++i) {
      found << (i > 0 ? ", " : "") << set.level(i).number();
      for (const AccessPair& p : set.level(i).pairs())
        found << ' ' << p.doorgroup << '/' << p.schedule;
    }
    EXPECT_EQ(found.str(), levels);
    const std::string logged = "[20 accesslevel] accesslevel:load line " + fault;
    EXPECT_EQ(log.take(), fault.empty() ? "" : logged);
  }
}

TEST(AccessLevelSet, NeedsItsEntryItsFileAndMemory) {
  const TestFolder folder;
  TestLog log(25);
  AccessLevelSet levels;
  MasterConfiguration without(1, folder.write("conf", "others x").c_str());
  EXPECT_FALSE(levels.loadAccessLevels(without));
  EXPECT_EQ(log.take(), "[report 2/15 \"\"]\n");
  MasterConfiguration missing(1, folder.write("conf", "accesslvls none/file").c_str());
  EXPECT_FALSE(levels.loadAccessLevels(missing));
  for (int nth = 1; nth <= 3; ++nth) {  // A level, its pairs, and its place in the set.
    const ArmedFault armed({.call = "allocate", .nth = nth});
    EXPECT_FALSE(load(levels, "7 1 5"));
    EXPECT_EQ(log.take(), "[25 accesslevel] Not enough memory to create access levels\n");
  }
}

// Every level of up to three pairs, by what each alone decides: a grant is enough, and the wrong
// time outweighs the wrong place, which outweighs a schedule that is missing.
TEST(AccessChecker, GrantsByOnePairAndRefusesByAllOfThem) {
  const std::map<std::string, int32_t> kinds = {{"", -16},     {" 1 5", -3}, {" 1 6", 0},
                                                {" 1 9", -16}, {" 2 5", -2}, {" 2 6", -2}};
  for (const auto& [a, byA] : kinds)
    for (const auto& [b, byB] : kinds)
      for (const auto& [c, byC] : kinds) {
        int32_t expected = -16;
        for (const int32_t reason : {-2, -3, 0})
          if (byA == reason || byB == reason || byC == reason) expected = reason;
        EXPECT_EQ(decide("7" + a + b + c, 30), expected) << a << b << c;
      }
  EXPECT_EQ(decide("7 1 6", 31), -2);
  EXPECT_EQ(decide("1 1 6\n7 1 5\n7 1 6", 30), -3);  // The first of equal levels.
}

TEST(AccessChecker, LogsItsSteps) {
  TestLog log;
  EXPECT_EQ(decide("7 2 6 1 9 1 6", 30), 0);
  EXPECT_EQ(log.take(),
            "[100 accesslevel] accesslevel: Reading accesslvls ...\n"
            "[100 accesslevel] accesslevel:load - level 7\n"
            "[5 accesslevel] access level 7, found\n"
            "[20 accesslevel] dgid = 2, schid= 6\n"
            "[20 accesslevel] dgid = 1, schid= 9\n"
            "[20 accesslevel] reader is in doorgroup \n"
            "[10 accesslevel] schedule 9 not found\n"
            "[20 accesslevel] dgid = 1, schid= 6\n"
            "[20 accesslevel] reader is in doorgroup \n"
            "[20 accesslevel] reason denied = 0\n");
  log.logger().setThreshold(5);
  EXPECT_EQ(decide("", 30), -16);
  EXPECT_EQ(log.take(), "[5 accesslevel] access level 7, not configured\n");
}

}  // namespace
}  // namespace badgemint
