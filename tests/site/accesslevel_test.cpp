#include "site/accesslevel.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <utility>

#include "support/masterconfiguration.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

// The levels of a set, "number:group/schedule,... " each.
std::string textOf(const AccessLevelSet& levels) {
  std::string text;
  for (int32_t i = 0; i < levels.count(); ++i) {
    text += std::to_string(levels.level(i).number()) + ":";
    for (const AccessPair& pair : levels.level(i).pairs())
      text += std::to_string(pair.doorgroup) + "/" + std::to_string(pair.schedule) + ",";
    text += " ";
  }
  return text;
}

bool load(const TestFolder& folder, const std::string& file, AccessLevelSet& levels) {
  const std::string path = folder.write("levels", file);
  MasterConfiguration configuration(1, folder.write("conf", "AccessLvls=" + path).c_str());
  return levels.loadAccessLevels(configuration);
}

TEST(AccessLevelSet, LoadsTheLevelsFile) {
  const std::string at = "[accesslevel] accesslevel:load ";
  const std::string rows[][3] = {
      {"7=1 5\t2 6\r\n", "7:1/5,2/6, ", at + "- level 7\n"},
      {"\n = \t\r\n# 1 2 3\n8\n", "8: ", at + "- level 8\n"},
      {"7 1", "7: ", at + "- level 7\n" + at + "line 1, missing scheduleID\n"},
      {"7 1 5 2\n", "7:1/5, ", at + "- level 7\n" + at + "line 1, missing scheduleID\n"},
      {"\n7 1 -1\n8 1 1\n", "8:1/1, ",
       at + "- level 7\n" + at + "line 2, schedID out of range (-1)\n" + at + "- level 8\n"},
      {"7 4294967296 1\n", "",
       at + "- level 7\n" + at + "line 1, groupID out of range (4294967296)\n"},
      {"7 1 2 99999999999999999999 1\n", "",
       at + "- level 7\n" + at + "line 1, groupID out of range (9223372036854775807)\n"},
      {"-1 1 1\n4294967296\n", "",
       at + "line 1, ID out of range (-1)\n" + at + "line 2, ID out of range (4294967296)\n"},
      {"4294967295 4294967295 4294967295\n", "4294967295:4294967295/4294967295, ",
       at + "- level 4294967295\n"},
      {"7 1 1\n7 2 2\nx y z\n", "7:1/1, 7:2/2, 0:0/0, ",
       at + "- level 7\n" + at + "- level 7\n" + at + "- level 0\n"},
      // The 601st character begins a line of its own.
      {"7 1" + std::string(596, ' ') + "23\n9",
       "7:1/2, 3: 9: ", at + "- level 7\n" + at + "- level 3\n" + at + "- level 9\n"}};
  for (const auto& [file, text, messages] : rows) {
    const TestFolder folder;
    TestLog log;
    AccessLevelSet levels;
    EXPECT_TRUE(load(folder, file, levels)) << file;
    EXPECT_EQ(textOf(levels), text) << file;
    EXPECT_EQ(log.take(), "[accesslevel] accesslevel: Reading accesslvls ...\n" + messages);
  }
}

TEST(AccessLevelSet, FindsTheFirstOfManyLevels) {
  std::string file;
  for (int i = 0; i < 23; ++i) file += std::to_string(100 + i) + " 1 2 3 4 5 6 7 8 9 10 11 12\n";
  const TestFolder folder;
  AccessLevelSet levels;
  ASSERT_TRUE(load(folder, file + "105 9 9\n", levels));
  EXPECT_EQ(levels.findLevel(105), 5);
  EXPECT_EQ(levels.findLevel(122), 22);
  EXPECT_EQ(levels.level(22).pairs().size(), 6U);
  EXPECT_EQ(levels.findLevel(123), -1);
}

TEST(AccessLevelSet, NeedsItsEntryAndItsFile) {
  const TestFolder folder;
  for (const std::string line : {"others x\n", "accesslvls none/file\n"}) {
    TestLog log;
    MasterConfiguration configuration(1, folder.write("conf", line).c_str());
    EXPECT_FALSE(AccessLevelSet().loadAccessLevels(configuration));
    EXPECT_EQ(log.take(), "");
  }
}

// A site in memory.
struct Site final : Readers, DoorGroups, Schedules {
  std::set<uint32_t> readers;
  std::set<std::pair<uint32_t, uint32_t>> members;  // Door group and reader.
  std::map<uint32_t, bool> active;

  bool has(uint32_t readerId) const override { return readers.contains(readerId); }
  bool contains(uint32_t groupId, uint32_t readerId) const override {
    return members.contains({groupId, readerId});
  }
  ScheduleState state(uint32_t scheduleId) const override {
    const auto schedule = active.find(scheduleId);
    if (schedule == active.end()) return ScheduleState::kNotFound;
    return schedule->second ? ScheduleState::kActive : ScheduleState::kInactive;
  }
};

// What level 7 with these pairs says to a reader. Groups 1 and 3 have reader 30, schedule 5 is
// inactive and 6 active; reader 31 is in group 1, but no reader of the site.
int32_t decide(const std::string& pairs, uint32_t readerId = 30, uint32_t level = 7) {
  Site site;
  site.readers = {30};
  site.members = {{1, 30}, {3, 30}, {1, 31}};
  site.active = {{5, false}, {6, true}};
  AccessLevelSet levels;
  EXPECT_TRUE(load(TestFolder(), "7 " + pairs, levels));
  return AccessChecker(levels, site, site, site).checkAccess(level, readerId);
}

TEST(AccessDecision, TriesThePairsInOrder) {
  const std::pair<const char*, int32_t> rows[] = {
      {"", kReasonLevelNotConfigured},      {"1 6", kReasonGranted},
      {"1 5", kReasonNoActiveSchedule},     {"1 9", kReasonLevelNotConfigured},
      {"99 6", kReasonNotInDoorGroup},      {"1 5 2 6", kReasonNoActiveSchedule},
      {"2 6 1 5", kReasonNoActiveSchedule}, {"2 6 1 9", kReasonNotInDoorGroup},
      {"1 9 2 6", kReasonNotInDoorGroup},   {"1 5 1 9", kReasonNoActiveSchedule},
      {"2 6 1 5 1 9 3 6", kReasonGranted},  {"1 6 1 5 2 6", kReasonGranted}};
  for (const auto& [pairs, reason] : rows) EXPECT_EQ(decide(pairs), reason) << pairs;
  EXPECT_EQ(decide("1 6", 31), kReasonNotInDoorGroup);
}

TEST(AccessDecision, LogsItsSteps) {
  TestLog log(20);
  EXPECT_EQ(decide("2 6 1 9 1 6 1 5"), 0);
  EXPECT_EQ(log.take(),
            "[accesslevel] access level 7, found\n"
            "[accesslevel] dgid = 2, schid= 6\n"
            "[accesslevel] dgid = 1, schid= 9\n"
            "[accesslevel] reader is in doorgroup \n"
            "[accesslevel] schedule 9 not found\n"
            "[accesslevel] dgid = 1, schid= 6\n"
            "[accesslevel] reader is in doorgroup \n"
            "[accesslevel] reason denied = 0\n");
  log.logger().setThreshold(10);
  EXPECT_EQ(decide("1 9"), -16);
  EXPECT_EQ(log.take(),
            "[accesslevel] access level 7, found\n[accesslevel] schedule 9 not found\n");
  EXPECT_EQ(decide("1 6", 30, UINT32_MAX), -16);
  EXPECT_EQ(log.take(), "[accesslevel] access level -1, not configured\n");
}

}  // namespace
}  // namespace badgemint
