// The verb `diff`.
#include "admin/adminrun.h"

namespace badgemint::admin::diff_test {

using Idents = std::vector<IdentRecord>;
using Accesses = std::vector<AccessRecord>;

IdentRecord credential(uint8_t key, uint32_t uniqid, uint32_t code, uint32_t deleted = 0) {
  return {.cardnumber = {0, 0, 0, key}, .uniqid = uniqid, .cardsetcode = code, .deleted = deleted};
}
IdentRecord card(uint8_t number, uint32_t uniqid) {
  return credential(number, uniqid, 2);
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
  writeFile("sets", "f 2 2\n");
  const IdentRecord card7 = card(7, 1), deleted7 = credential(7, 1, 2, 1);
  const IdentRecord pin = credential(5, 1, kPinIdentCode), pin6 = credential(6, 1, kPinIdentCode),
                    pin9 = credential(9, 1, kPinIdentCode),
                    raw7 = credential(7, 5, kFormatlessCode),
                    pinAlone = credential(5, 1, kPinOnlyCode);
  const std::string kSeven = "card 7 of card set 2 ", kAlone = "PIN **** without a card ",
                    kBeside = "PIN **** beside a card ", kTwo = "\nholder 2: " + kSeven;
  const std::tuple<Idents, Idents, std::string> kCases[] = {
      {{}, {deleted7}, kSeven + "added, deleted"},
      {{card7}, {card(7, 0)}, kSeven + "moved to holder 0"},
      {{card7}, {raw7}, kSeven + "moved to holder 5, now card 00000007 without format"},
      {{card7}, {deleted7}, kSeven + "deleted"},
      {{deleted7}, {card7}, kSeven + "restored"},
      {{pinAlone}, {pin}, kAlone + "changed, now PIN **** beside a card"},
      {{pin, pin6}, {pin9}, kBeside + "changed\nholder 1: " + kBeside + "removed"},
      {{pinAlone}, {pin6}, kAlone + "removed\nholder 1: " + kBeside + "added"},
      {{card7, card(7, 2)}, {card(7, 3)}, kSeven + "moved to holder 3" + kTwo + "removed"},
  };
  for (const auto& [before, now, printed] : kCases) {
    const AdminRun run = diffOf(before, {}, now, {});
    EXPECT_EQ(run.output, std::string("holder 1: ").append(printed) + '\n');
    EXPECT_EQ(run.status, 1) << run.errors;
  }
  EXPECT_EQ(diffOf({card7}, {}, {card7}, {}).status, 0);
  EXPECT_TRUE(diffOf({card7}, {}, {card(7, 5)}, {}, "--json")
                  .output.starts_with(R"({"holder":1,"change":"moved","to":5,"kind":"card",)"));
}

TEST(Diff, PrintsHoldersInOrderWithTheirCredentials) {
  const TestSite site;
  writeFile("sets", "\nx\nf 2 2\nf 3\n");
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
  EXPECT_TRUE(contains(run.errors, ": sets:2: this line is not a card set"));
  EXPECT_TRUE(contains(run.errors, " (2 such lines)\n"));
}

constexpr char kOtherKey[] =
    "holder 1001: card 15890 of card set 1: key 022A7C24000000000000000000000000 -> "
    "022C7C24000000000000000000000000, A=21 -> A=22\n";

// Each side with the card sets and formats beside its databases.
TEST(Diff, PrintsACardWhoseKeyAloneHasChanged) {
  const TestSite site("formats.txt");
  writeFile("cards.txt", "f 1 1 A=21\nc 1 15890 0 1001\n");
  runAdmin("build");
  writeFile("cards.txt", "f 1 1 A=22\nc 1 15890 0 1001\n");
  EXPECT_TRUE(contains(runAdmin("build --keep --changes --max-removed 100%").output, kOtherKey));
  EXPECT_EQ(runAdmin("diff --kept").output, kOtherKey);
  ASSERT_EQ(std::system("mkdir old; for f in *.old; do cp $f old/${f%.old}; done"), 0);
  EXPECT_EQ(runAdmin("diff old .").output, kOtherKey);
}

}  // namespace badgemint::admin::diff_test
