#include "carddb/databases.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "cardsets/cardsets.h"
#include "site/accesslevel.h"

namespace badgemint {
namespace {

TEST(IdentFile, FollowsTheTranscript) {
  IdentFile file;
  Commands on;
  addIdentCommands(on, file);
  on["pipe"] = [](Step& c) { c.out << mkfifo(c.name(0), 0600); };
  on["umask"] = [](Step& c) { umask(c.as<mode_t>(0)); };
  on["stats"] = [&](Step& c) {
    uint32_t count = 0, capacity = 0;
    file.indexStats(count, capacity);
    c.out << count << '/' << capacity;
  };
  on["unloaded-card-sets"] = [&](Step& c) {
    cardsets sets;
    const int32_t loaded = sets.load(c.name(0));
    c.out << loaded << ' ' << file.countUnloadedCardSets(sets);
  };
  play("carddb/identfile.txt", on);
}

TEST(AccessFile, FollowsTheTranscript) {
  AccessFile file;
  Commands on;
  addAccessCommands(on, file);
  on["check-levels"] = [&](Step& c) {
    AccessLevelSet levels;
    for (size_t i = 0; i < c.words.size(); ++i)
      EXPECT_TRUE(levels.add(std::make_unique<AccessLevel>(c.as<uint32_t>(i))));
    c.out << file.checkAccessLevels(levels);
  };
  play("carddb/accessfile.txt", on);
}

}  // namespace
}  // namespace badgemint
