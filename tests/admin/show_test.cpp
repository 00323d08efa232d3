// The verb `show`: what it says of records that no build writes, and of words that are wrong.
#include "admin/adminrun.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

TEST(Show, SaysWhatNoBuildWrites) {
  const TestSite site;
  site.folder.write("levels", "3 1 2\n4\n");
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
  for (const char* const says :
       {"holder 8\n  2 access records: a build writes one for each card\n  access record\n",
        "  access level 2: 3, opens door group/schedule 1/2\n  access level 3: 4, opens no door\n",
        "  validity: until 1970/01/01 00:03:20 UTC, valid\n  flag 0 (not in the line)\n",
        "1970/01/01 00:03:20 UTC, never valid\n  escort: 77, who is not a holder\n",
        "  elevator access: 1\n  output relay group: 2\n  issue level: 7\n  output mode: 8\n",
        "  card with key 02000000000000000000000000000000 of card set 7\n  PIN **** alone\n",
        "until 1970/01/01 00:03:19 UTC, expired\n  no credential: nothing to open a door with\n",
        "holder 5\n  no access record: no door opens\n",
        " of card set 1, deleted\n  PIN **** beside a card\n",
        "\nthere is no credential with key 4711f\n\n"})
    EXPECT_NE(run.output.find(says), std::string::npos) << says << run.output;
  const std::string pins =
      runAdmin("show 6 --key 4711F --with-pins --at \"1970/1/1 0:1:39\"").output;
  for (const char* const says : {"4711 alone, key 4711F", "20 UTC, never valid", "19 UTC, valid"})
    EXPECT_NE(pins.find(says), std::string::npos) << says;
}

TEST(Show, FindsRangesAndCardsOfAnySet) {
  const TestSite site("formats.txt");
  site.folder.write("cardsets.txt", "f 1 1 A=21\nf 2 2\n");
  writeRecords<IdentRecord>("ident.db",
                            {{{0x02, 0x2A, 0x7C, 0x24}, 5, 1}, {{0, 0, 0x3E, 0x12}, 7, 2}});
  writeRecords<AccessRecord>("access.db", {{.uniqid = 6}, {.uniqid = 9}});
  const struct {
    const char* words;
    const char* holders;
  } kCases[] = {
      {"5-7", "holder 5 holder 6 holder 7 "},
      {"0-4294967295", "holder 5 holder 6 holder 7 holder 9 "},
      {"8-8 9", "there is no holder 8-8 holder 9 "},
      {"--card 15890", "holder 5 holder 7 "},
      {"--card 70000", "there is no card 70000 "},
  };
  for (const auto& [words, holders] : kCases) {
    std::istringstream output(runAdmin(std::string("show ") + words).output);
    std::string found;
    for (std::string line; std::getline(output, line);)
      if (!line.empty() && line[0] != ' ') found += line + ' ';
    EXPECT_EQ(found, holders) << words;
  }
}

TEST(Show, RefusesWordsThatMeanNothing) {
  const TestSite site("formats.txt");
  site.folder.write("cardsets.txt", "f 1 1 A=21\nf 7 9\nf 254 2\n");
  writeRecords<IdentRecord>("ident.db", {});
  writeRecords<AccessRecord>("access.db", {});
  expectRefusals(
      "show",
      {{"", 3, "no holder given; write a unique ID, a --card or a --key\n"},
       {"4294967296", 3, "\"4294967296\" is not a unique ID, a number from 0 to 4294967295\n"},
       {"4294967295 --card 1:65535 --ident none", 3, "none: No such file"},
       {"7-5", 3, "\"7-5\" is not a range: its end is before its start\n"},
       {"--card x", 2, "card number \"x\""},
       {"--card 2:7", 2, "there is no card set \"2\""},
       {"--card 7:7", 2, "format 9 of card set 7 is not there"},
       {"--card 1:65536", 2, "card number 65536 does not fit field B of 16 bits"},
       {"--key 0X0g", 3, "\"0X0g\" is not a key of 1 to 32 hexadecimal digits\n"},
       {"1 --at \"2026/02/30 10:00:00\"", 3, "is not a time; write it as \"2026/01/31"}});
}

}  // namespace
}  // namespace badgemint::admin
