// The verb `diff`.
#include <gtest/gtest.h>

#include "admin/adminrun.h"
#include "admin/records/wording.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

constexpr char kDiff[] = "diff --formats formats --cardsets sets --old i a --new i2 a2";

IdentRecord ident(uint8_t key, uint32_t uniqid, uint32_t code = 2, uint32_t deleted = 0) {
  return {.cardnumber = {0, 0, 0, key}, .uniqid = uniqid, .cardsetcode = code, .deleted = deleted};
}
AccessRecord holder(uint32_t uniqid, uint16_t level = 0) {
  return {.uniqid = uniqid, .acclevel = {level}};
}

TEST(Diff, TellsTheFateOfHoldersAndCredentials) {
  const TestSite site;
  site.folder.write("sets", "\nx\nf 2 2\nf 3\n");
  writeRecords<IdentRecord>(
      "i", {ident(9, 9), ident(1, 1), ident(2, 1), ident(3, 2), ident(4, 3, 2, 1), ident(5, 4, 7),
            ident(7, 8, 255), ident(8, 8, 255), ident(10, 10, 0), ident(11, 11, 2, 1), ident(9, 12),
            ident(13, 12), ident(14, 12, 0)});
  writeRecords<IdentRecord>(
      "i2", {ident(2, 5), ident(1, 1), ident(3, 2, 2, 1), ident(4, 3), ident(5, 4, 254),
             ident(6, 6), ident(2, 7, 2, 1), ident(11, 8, 255), ident(12, 10, 255),
             ident(11, 11, 2, 2), ident(13, 13, 254), ident(14, 12, 255)});
  writeRecords<AccessRecord>("a", {holder(1), holder(9), holder(2), holder(2), holder(3)});
  writeRecords<AccessRecord>("a2", {holder(6), holder(1), holder(2, 7), holder(3, 65535)});
  const AdminRun lines = runAdmin(kDiff);
  EXPECT_EQ(lines.status, 1);
  EXPECT_EQ(lines.errors,
            "badgemint-admin: sets:2: this line does not define a card set (2 such lines)\n");
  EXPECT_EQ(lines.output,
            "holder 1: card 2 of card set 2 moved to holder 5\n"
            "holder 2: changed: access records: 2 -> 1, access level 1: 0 -> 7\n"
            "holder 2: card 3 of card set 2 deleted\n"
            "holder 3: changed: access level 1: 0 -> 65535\n"
            "holder 3: card 4 of card set 2 restored\n"
            "holder 4: card with key 00000005000000000000000000000000 of card set 7 -> "
            "card 00000005 without format\n"
            "holder 6: added\n"
            "holder 6: card 6 of card set 2 added\n"
            "holder 7: card 2 of card set 2 added, deleted\n"
            "holder 8: PIN changed\n"
            "holder 8: PIN **** beside a card removed\n"
            "holder 9: removed\n"
            "holder 9: card 9 of card set 2 removed\n"
            "holder 10: PIN **** alone removed\n"
            "holder 10: PIN **** beside a card added\n"
            "holder 11: card 11 of card set 2 mark of deletion 1 -> 2\n"
            "holder 12: card 9 of card set 2 removed\n"
            "holder 12: card 13 of card set 2 moved to holder 13 as card 0000000D without format\n"
            "holder 12: PIN **** alone -> PIN **** beside a card\n");
  EXPECT_EQ(runAdmin(std::string(kDiff) + " --stat").output,
            "holders: 1 added, 1 removed, 2 changed\n"
            "credentials: 3 added, 4 removed, 2 moved, 2 deleted, 1 restored, 3 changed\n");
  const AdminRun keys = runAdmin("diff --old i a --new i2 a2 --formats none --cardsets none");
  EXPECT_NE(keys.output.find("holder 9: card with key 0000000900"), std::string::npos);
  EXPECT_EQ(keys.errors.substr(0, keys.errors.find('\n')),
            "badgemint-admin: none: cannot be opened: No such file or directory");
}

// Whatever byte of an access record differs, one field does, and it is named; a PIN is not shown.
TEST(Diff, NamesEachField) {
  const TestSite site;
  site.folder.write("sets", "");
  writeRecords<IdentRecord>("i", {});
  const AccessRecord record{.uniqid = 5, .pincode = {0x12, 0x34, 0xF0}};
  writeRecords<AccessRecord>("a", {record});
  std::string fields;
  for (size_t i = 4; i < AccessRecord::kSize; ++i) {
    auto image = encodeRecord(record);
    image[i] ^= 1;
    site.folder.write("a2", std::string(image.begin(), image.end()));
    const std::string line = runAdmin("diff --old i a --new i a2 --cardsets sets").output;
    const size_t start = std::string("holder 5: changed: ").size();
    const std::string field = line.substr(start, line.find_first_of(":\n", start) - start);
    EXPECT_EQ(line.find(" -> ") == line.npos, field == "PIN") << line;
    if (!fields.ends_with(field + '\n')) fields += field + '\n';
  }
  EXPECT_EQ(fields,
            "PIN\naccess level 1\naccess level 2\naccess level 3\naccess level 4\naccess level 5\n"
            "access level 6\naccess level 7\naccess level 8\nstart\nend\nescort\nissue level\n"
            "flag 0 (not in the line)\nelevator access\noutput relay group\noutput mode\n");
  EXPECT_EQ(runAdmin("diff --old i a --new i a2 --cardsets sets --stat --with-pins").status, 1);
}

TEST(Diff, SaysWhatItCannotCompare) {
  const TestSite site;
  writeRecords<IdentRecord>("ident.db", {ident(1, 1)});
  writeRecords<AccessRecord>("access.db", {holder(1), holder(2)});
  site.folder.write("cut", std::string(27, 'x'));
  const struct {
    const char* arguments;
    int status;
    const char* text;
  } cases[] = {
      {". .", 0, ""},
      {". none", 3, "none/ident.db: No such file or directory"},
      {"--old ident.db access.db --new cut access.db", 2, "cut ends within a record"},
      {"--old ident.db access.db --new ident.db ident.db", 2, "ident.db ends within a record"},
      {"--old ident.db access.db", 3, "give two folders to compare, or --old"},
      {". . --new ident.db access.db", 3, "give two folders to compare, or --old"},
      {"", 3, "give two folders to compare, or --old"},
      {".", 3, "FOLDERS: "},
  };
  for (const auto& [arguments, status, text] : cases) {
    const AdminRun run = runAdmin(std::string("diff ") + arguments);
    EXPECT_EQ(run.status, status) << arguments;
    EXPECT_EQ(run.output, "") << arguments;
    EXPECT_EQ(run.errors.substr(0, 17 + std::string(text).size()),
              status == 0 ? "" : std::string("badgemint-admin: ") + text);
  }
}

}  // namespace
}  // namespace badgemint::admin
