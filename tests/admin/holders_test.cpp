// The verbs `list`, `show` and `why`: whom they find, what they print of records that no build
// writes, and what they and `diff` refuse.
#include <regex>

#include "admin/adminrun.h"
#include "admin/json.h"

namespace badgemint::admin::holders_test {

class Holders : public testing::Test {
 protected:
  Holders() {
    writeFile("cardsets.txt", "f 1 1 A=21\nf 2 2\nf 7 9\nf 254 2\n");
    const std::vector<IdentRecord> idents = {{{0, 0, 0x3E, 0x12}, 5, 2},
                                             {{0, 0, 0, 7}, 2, 2},
                                             {{0x0A}, 2, kFormatlessCode, 1},
                                             {{0x47, 0x11, 0xF0}, 2, kPinIdentCode},
                                             {{1}, 3, 7},
                                             {{0x02, 0x2A, 0x7C, 0x24}, 3, 1}};
    const AccessRecord two = {
        .uniqid = 2, .pincode = {0x1F}, .acclevel = {3, 0, 1}, .endtime = 200};
    writeRecords("ident.db", idents);
    writeRecords<AccessRecord>("access.db",
                               {two,
                                {.uniqid = 4, .pincode = {0x0F}, .escortid = 2},
                                {.uniqid = 5, .pincode = {0x0F}, .starttime = 0xF0000000}});
    fs::create_directory("old");
    writeRecords("old/ident.db", idents);
    writeRecords<AccessRecord>("old/access.db",
                               {two, {.uniqid = 4, .pincode = {0x0F}}, {.uniqid = 9}});
  }

 private:
  TestSite _site{"formats.txt"};
};

TEST_F(Holders, AreFoundByFiltersIdsAndCards) {
  const std::map<std::string, std::vector<std::string>> kLines = {
      {"2 3 4 5 ", {"list", "show 0-4294967295"}},
      {"2 ",
       {"list --level 3", "list --set 254", "list --expired", "list --deleted", "show --card 0a",
        "list --pin --with-pins", "list --expires-before \"1970/01/01 00:03:21\""}},
      {"2 5 ", {"list --set 2"}},
      {"3 4 5 ", {"list --no-level", "list --no-pin --with-pins"}},
      {"3 5 ", {"show --card 015890"}},
      {"4 ", {"list --no-credential", "list --escort 2", "show 4"}},
      {"4 5 ", {"list --changed-since old", "show 4-7"}},
      {"5 ", {"list --not-yet-valid", "list --no-level --set 2"}},
      {"",
       {"list --level 0", "list --expires-before \"1970/01/01 00:03:20\"", "show 8-8",
        "show --card 70000"}}};
  for (const auto& [holders, lines] : kLines)
    for (const std::string& line : lines) {
      const AdminRun run = runAdmin(line + " --json");
      const std::regex json("\\{\"holder\":(\\d+),.*\n");
      EXPECT_EQ(std::regex_replace(run.output, json, "$1 "), holders) << line << run.errors;
      EXPECT_EQ(run.status, holders.empty() ? 1 : 0) << line;
    }
  EXPECT_EQ(runAdmin("show 8-8 4").status, 1);
}

TEST_F(Holders, AreListedWhateverTheyHave) {
  const std::string listed = runAdmin("list --set 254").output + runAdmin("list --set 7").output;
  EXPECT_TRUE(listed.starts_with("2          2:7,0A(deleted),PIN  3,1 ")) << listed;
  EXPECT_TRUE(listed.ends_with(" - (0 access records)\n")) << listed;
  const std::string json = runAdmin("list --set 254 --json").output;
  EXPECT_TRUE(contains(json, R"({"kind":"card without format","card":"0A",)"));
}

TEST_F(Holders, AreNotFoundByWordsThatMeanNothing) {
  expectRuns({
      {"show", 3, "", "no holder given; write a unique ID, a --card or a --key\n"},
      {"show 4294967296", 3, "", "is not a unique ID, a number from 0 to 4294967295\n"},
      {"show 4294967295 --card 1:65535 --ident none", 3, "", "none: No such file"},
      {"show 7-5", 3, "", "\"7-5\" is not a range: its end is before its start\n"},
      {"show --card 7:7", 2, "", "format 9 of card set 7 is not available"},
      {"show --card 1:65536", 2, "", "card number 65536 does not fit field B of 16 bits"},
      {"show --key 0X0g", 3, "", "\"0X0g\" is not a key of 1 to 32 hexadecimal digits\n"},
      {"show 1 --at \"2026/02/30 10:00:00\"", 3, "", "is not a time; write it as \"2026/01/31"},
      {"diff --old ident.db access.db --new access.db ident.db", 2, "", "ends within a record"},
      {"diff --old ident.db access.db", 3, "", "give two folders to compare, or --old IDENT"},
      {"diff ident.db ident.db", 3, "", "is not a folder; for files write --old IDENT ACCESS"},
      {"diff --kept", 3, "", "ident.db.old: No such file or directory"},
      {"list --no-pin", 3, "", "--pin and --no-pin need --with-pins"},
      {"list --csv --count", 3, "", "only one of --count, --csv and --json"},
      {"list --level 65536", 3, "", "--level \"65536\" is not a number from 0 to 65535"},
      {"list --expires-before 0", 3, "", "--expires-before \"0\" is not a time"},
      {"list --changed-since none", 3, "", "none/ident.db: No such file"},
  });
}

TEST(Show, PrintsWhatNoBuildWrites) {
  const TestSite site;
  writeFile("levels", "3 1 2\n4\n");
  writeRecords<IdentRecord>("ident.db", {{{0x02, 0x2A, 0x7C, 0x24}, 5, 1, 1},
                                         {{0x12, 0xF0}, 5, kPinIdentCode},
                                         {{0x47, 0x11, 0xF0}, 8, kPinOnlyCode},
                                         {{0x02}, 8, 7}});
  writeRecords<AccessRecord>("access.db", {{8, {}, {0, 3, 4, 5}, 0, 200, 6, 0, 0xC1, 0, 0, 0},
                                           {6, {0x12, 0xF0}, {}, 0, 199, 0, 0, 0, 0, 0, 0},
                                           {8, {}, {}, 201, 200, 77, 7, 0, 1, 2, 8}});
  const AdminRun run = runAdmin(
      "show 8 6 --key 0x022A7C24 --key 4711f --levels levels --at \"1970/01/01 00:03:20\"");
  EXPECT_EQ(run.status, 1);
  for (const char* const text :
       {"holder 8\n  one of 2 access records\n",
        "  access level 2: 3, opens door group/schedule 1/2\n  access level 3: 4, opens no door\n",
        "  validity: until 1970/01/01 00:03:20 UTC, valid\n  flag 0 (not in the line)\n",
        "1970/01/01 00:03:20 UTC, never valid\n  escort: 77, who does not exist\n",
        "  elevator access: 1\n  output relay group: 2\n  issue level: 7\n  output mode: 8\n",
        "  card with key 02000000000000000000000000000000 of card set 7\n  PIN **** without a "
        "card\n",
        "until 1970/01/01 00:03:19 UTC, expired\n  no credential: nothing to open a door with\n",
        "holder 5\n  no access record: no door opens\n",
        " of card set 1, deleted\n  PIN **** beside a card\n",
        "\nthere is no credential with key 4711f\n\n"})
    EXPECT_TRUE(contains(run.output, text)) << text;
  const AdminRun pins = runAdmin("show 6 --key 4711F --with-pins --at \"1970/1/1 0:1:39\"");
  EXPECT_TRUE(contains(pins.output, "19 UTC, valid\n"));
  EXPECT_TRUE(contains(pins.output, "4711 without a card, key 4711F"));
}

// Holders have cards of card set 2 with their numbers; levels 1 and 2 open door group 4.
class Why : public testing::Test {
 protected:
  Why() {
    writeFile("cardsets.txt", "f 2 2\n");
    writeFile("levels", "1 4 3 5 8\n2 4 7 4 6\n3 5 3\n");
    const IdentRecord pin = {{0x47, 0x11, 0xF0}, 1, kPinIdentCode};
    writeRecords<IdentRecord>(
        "ident.db", {card(8), card(2), card(3), card(4), card(5, 1), card(6), card(1), pin});
    writeRecords<AccessRecord>("access.db", {{.uniqid = 1, .acclevel = {3, 1, 2, 1}},
                                             {.uniqid = 2, .acclevel = {1}, .endtime = 199},
                                             {.uniqid = 3, .acclevel = {1}, .starttime = 201},
                                             {.uniqid = 4, .acclevel = {3, 99}},
                                             {.uniqid = 5, .acclevel = {1}},
                                             {.uniqid = 8, .acclevel = {1}},
                                             {.uniqid = 8, .acclevel = {3}},
                                             {.uniqid = 10, .acclevel = {1}, .starttime = 200}});
  }

  static IdentRecord card(uint8_t number, uint32_t deleted = 0) {
    return {{0, 0, 0, number}, number, 2, deleted};
  }

 private:
  TestSite _site{"formats.txt"};
};

TEST_F(Why, GivesTheVerdictWithItsReasons) {
  const std::tuple<std::string, int, std::string> kCases[] = {
      {"1 --door 4", 0,
       "granted by access level 1 while schedule 3 is active\n"
       "  by access level 2 while schedule 7 is active\n"
       "  by access level 2 while schedule 6 is active\n"},
      {"2 --door 4", 1, "denied: expired since 1970/01/01 00:03:20 UTC\n"},
      {"3 --door 4", 1, "denied: not valid before 1970/01/01 00:03:21 UTC\n"},
      {"4 --door 4", 1, "denied: no access level opens door group 4\n"},
      {"--card 2:5 --door 4", 1, "denied: card 5 of card set 2 is marked as deleted\n"},
      {"5 --door 4", 1, "denied: every credential of holder 5 is marked as deleted\n"},
      {"--card 2:6 --door 4", 1, "denied: holder 6 has no access record\n"},
      {"10 --door 4", 1, "denied: holder 10 has no credential\n"},
      {"77 --door 4", 2, "denied: holder 77 is not in the databases\n"},
      {"--card 2:77 --door 4", 2, "denied: card 2:77 is not in the databases\n"},
      {"--card 9:1 --door 4", 2, "denied: there is no card set \"9\"\n"},
      {"--key 4711F --door 4", 2,
       "denied: the credential with key 4711F000000000000000000000000000 is not in the "
       "databases\n"},
      {"--key 4711F --with-pins --door 5", 0,
       "granted by access level 3 while schedule 3 is active\n"
       "  by access level 1 while schedule 8 is active\n"},
  };
  for (const auto& [subject, status, output] : kCases) {
    const std::string when = " --levels levels --at \"1970/01/01 00:03:20\"";
    const AdminRun run = runAdmin("why " + subject + when);
    EXPECT_EQ(run.output, output) << subject;
    EXPECT_EQ(run.status, status) << subject << run.errors;
  }
}

TEST_F(Why, RefusesWhatItCannotDecide) {
  expectRuns({
      {"why 1 --door 4 --levels cardsets.txt", 3, "", "no line defines an access level"},
      {"why 8 --door 4 --levels levels", 3, "", "several access records, and they disagree"},
      {"why 1 --levels levels", 3, "", "write the door group with --door"},
      {"why --door 4 --levels levels", 3, "", "give a unique ID, --card or --key, only one"},
      {"why 1 --door x --levels levels", 3, "", "write the door group with --door, a number"},
  });
}

TEST(Json, EscapesWhatTextCannotHold) {
  EXPECT_EQ(JsonObject()
                .add("text", "\"\\\n\xC3\xBC\xE2\x82\xAC\x80\xED\xA0\x80\xF5")
                .add("flag", false)
                .text(),
            R"({"text":"\"\\\u000A)"
            "\xC3\xBC\xE2\x82\xAC"
            R"(\\x80\\xED\\xA0\\x80\\xF5","flag":false})");
}

}  // namespace badgemint::admin::holders_test
