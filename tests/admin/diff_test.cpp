// The verb `diff`.
#include <gtest/gtest.h>

#include "admin/adminrun.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

using Idents = std::vector<IdentRecord>;
using Accesses = std::vector<AccessRecord>;

IdentRecord credential(uint8_t key, uint32_t uniqid, uint32_t code, uint32_t deleted = 0) {
  return {.cardnumber = {0, 0, 0, key}, .uniqid = uniqid, .cardsetcode = code, .deleted = deleted};
}
IdentRecord card(uint8_t number, uint32_t uniqid) {
  return credential(number, uniqid, 2);
}
IdentRecord deletedCard(uint8_t number, uint32_t uniqid) {
  return credential(number, uniqid, 2, 1);
}
AccessRecord holder(uint32_t uniqid, uint16_t level = 0) {
  return {.uniqid = uniqid, .acclevel = {level}};
}

AdminRun diffOf(const Idents& oldIdents, const Accesses& oldAccesses, const Idents& newIdents,
                const Accesses& newAccesses, const std::string& options = "") {
  writeRecords("i", oldIdents);
  writeRecords("a", oldAccesses);
  writeRecords("i2", newIdents);
  writeRecords("a2", newAccesses);
  return runAdmin("diff --formats formats --cardsets sets --old i a --new i2 a2 " + options);
}

// Each case begins with "holder 1: " as it is printed.
TEST(Diff, PrintsWhatBecameOfACredential) {
  const TestSite site;
  site.folder.write("sets", "f 2 2\n");
  const IdentRecord card7 = card(7, 1), deleted7 = deletedCard(7, 1);
  const IdentRecord pin = credential(5, 1, kPinIdentCode), pin6 = credential(6, 1, kPinIdentCode);
  const IdentRecord pinAlone = credential(5, 1, kPinOnlyCode);
  const IdentRecord raw7 = credential(7, 5, kFormatlessCode);
  const struct {
    Idents before, now;
    const char* printed;
  } kCases[] = {
      {{}, {card7}, "card 7 of card set 2 added\n"},
      {{}, {deleted7}, "card 7 of card set 2 added, deleted\n"},
      {{card7}, {}, "card 7 of card set 2 removed\n"},
      {{card7}, {card(7, 5)}, "card 7 of card set 2 moved to holder 5\n"},
      {{card7}, {card(7, 0)}, "card 7 of card set 2 moved to holder 0\n"},
      {{card7}, {raw7}, "card 7 of card set 2 moved to holder 5 as card 00000007 without format\n"},
      {{card7}, {deleted7}, "card 7 of card set 2 deleted\n"},
      {{deleted7}, {card7}, "card 7 of card set 2 restored\n"},
      {{pinAlone}, {pin}, "PIN **** alone -> PIN **** beside a card\n"},
      {{pin}, {pin6}, "PIN changed\n"},
      {{pin, pin6},
       {credential(9, 1, kPinIdentCode)},
       "PIN changed\nholder 1: PIN **** beside a card removed\n"},
      {{pinAlone}, {pin6}, "PIN **** alone removed\nholder 1: PIN **** beside a card added\n"},
      {{card7, card(7, 2)},
       {card(7, 3)},
       "card 7 of card set 2 moved to holder 3\nholder 2: card 7 of card set 2 removed\n"},
  };
  for (const auto& [before, now, printed] : kCases) {
    const AdminRun run = diffOf(before, {}, now, {});
    EXPECT_EQ(run.output, std::string("holder 1: ") + printed);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "");
  }
  EXPECT_EQ(diffOf({card7}, {}, {card7}, {}).status, 0);
}

TEST(Diff, PrintsHoldersInOrderWithTheirCredentials) {
  const TestSite site;
  site.folder.write("sets", "\nx\nf 2 2\nf 3\n");
  const Idents before = {card(9, 9), card(1, 1)}, now = {card(6, 6)};
  const Accesses old = {holder(9), holder(2), holder(3), holder(2)};
  const Accesses fresh = {holder(6), holder(3, 65535), holder(2, 7)};
  const AdminRun run = diffOf(before, old, now, fresh);
  EXPECT_EQ(run.output,
            "holder 1: card 1 of card set 2 removed\n"
            "holder 2: changed: access records: 2 -> 1, access level 1: 0 -> 7\n"
            "holder 3: changed: access level 1: 0 -> 65535\n"
            "holder 6: added\n"
            "holder 6: card 6 of card set 2 added\n"
            "holder 9: removed\n"
            "holder 9: card 9 of card set 2 removed\n");
  EXPECT_EQ(run.errors,
            "badgemint-admin: sets:2: this line is not a card set as a build writes it "
            "(2 such lines)\n");
  EXPECT_EQ(diffOf(before, old, now, fresh, "--stat").output,
            "holders: 1 added, 1 removed, 2 changed\n"
            "credentials: 1 added, 2 removed, 0 moved, 0 deleted, 0 restored, 0 changed\n");
}

constexpr char kOtherKey[] =
    "holder 1001: card 15890 of card set 1: key 022A7C24000000000000000000000000 -> "
    "022C7C24000000000000000000000000, A=21 -> A=22\n";

// Each side with the card sets and formats beside its databases.
TEST(Diff, PrintsACardWhoseKeyAloneHasChanged) {
  const TestSite site("formats.txt");
  site.folder.write("cards.txt", "f 1 1 A=21\nc 1 15890 0 1001\n");
  runAdmin("build");
  site.folder.write("cards.txt", "f 1 1 A=22\nc 1 15890 0 1001\n");
  runAdmin("build --keep --max-removed 100%");
  EXPECT_EQ(runAdmin("diff --kept").output, kOtherKey);
  std::filesystem::create_directory("old");
  for (const std::string name : {"ident.db", "access.db", "cardsets.txt"})
    std::filesystem::copy(name + ".old", "old/" + name);
  EXPECT_EQ(runAdmin("diff old .").output, kOtherKey);
}

TEST(Diff, PrintsJson) {
  const TestSite site;
  site.folder.write("sets", "f 2 2\n");
  EXPECT_EQ(
      diffOf({card(7, 1)}, {holder(1), holder(2)}, {card(7, 5)}, {holder(1, 3)}, "--json").output,
      R"({"holder":1,"change":"changed","fields":[{"field":"access level 1","old":0,"new":3}]})"
      "\n"
      R"({"holder":1,"change":"moved","to":5,"kind":"card","set":2,"card":"7",)"
      R"("key":"00000007000000000000000000000000"})"
      "\n"
      R"({"holder":2,"change":"removed"})"
      "\n");
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
}

TEST(Diff, ReportsWhatItCannotCompare) {
  const TestSite site;
  writeRecords<IdentRecord>("ident.db", {card(1, 1)});
  writeRecords<AccessRecord>("access.db", {holder(1), holder(2)});
  site.folder.write("cut", std::string(27, 'x'));
  EXPECT_EQ(runAdmin("diff . .").status, 0);
  expectRefusals("diff",
                 {{". none", 3, "badgemint-admin: none/ident.db: No such file or directory"},
                  {"--old ident.db access.db --new cut access.db", 2, "cut ends within a record"},
                  {"--old ident.db access.db", 3, "give two folders to compare, or --old IDENT"},
                  {". . --new ident.db access.db", 3, "give two folders to compare"},
                  {"", 3, "give two folders to compare"},
                  {".", 3, "FOLDERS: "},
                  {"ident.db ident.db", 3, "is not a folder; for files write --old IDENT ACCESS"},
                  {"--kept", 3, "ident.db.old: No such file or directory"}});
}

}  // namespace
}  // namespace badgemint::admin
