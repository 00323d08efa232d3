// The verb `why`: one verdict with its reasons.
#include "admin/adminrun.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

// Holders have cards of card set 2 with their numbers; levels 1 and 2 open door group 4.
class Why : public testing::Test {
 protected:
  Why() {
    _site.folder.write("cardsets.txt", "f 2 2\n");
    _site.folder.write("levels", "1 4 3 5 8\n2 4 7 4 6\n3 5 3\n");
    const IdentRecord pin = {{0x47, 0x11, 0xF0}, 1, kPinIdentCode};
    writeRecords<IdentRecord>(
        "ident.db", {card(1), card(2), card(3), card(4), card(5, 1), card(6), card(8), pin});
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

  static AdminRun why(const std::string& subject) {
    return runAdmin("why " + subject + " --levels levels --at \"1970/01/01 00:03:20\"");
  }

 private:
  TestSite _site{"formats.txt"};
};

TEST_F(Why, GivesTheVerdictWithItsReasons) {
  const struct {
    const char* subject;
    int status;
    const char* output;
  } kCases[] = {
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
      {"--key 4711F --with-pins --door 5", 0,
       "granted by access level 3 while schedule 3 is active\n"
       "  by access level 1 while schedule 8 is active\n"},
  };
  for (const auto& [subject, status, output] : kCases) {
    const AdminRun run = why(subject);
    EXPECT_EQ(run.output, output) << subject;
    EXPECT_EQ(run.status, status) << subject << run.errors;
  }
}

TEST_F(Why, ReportsWhatItCannotTell) {
  expectRun("why 1 --door 4 --levels cardsets.txt", 3, "", "no line defines an access level");
  expectRefusals("why --levels levels",
                 {{"8 --door 4", 3, "several access records, and they disagree"},
                  {"1", 3, "write the door group with --door"},
                  {"--door 4", 3, "write one unique ID, one --card or one --key"},
                  {"1 --door x", 3, "write the door group with --door, a number"},
                  {"1 --door 4 --ident access.db", 3, "access.db ends within a record"}});
}

}  // namespace
}  // namespace badgemint::admin
