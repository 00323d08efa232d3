// The verb `list`: which holders filters choose, and the forms of the list.
#include <gtest/gtest.h>

#include "admin/adminrun.h"
#include "admin/json.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

class List : public testing::Test {
 protected:
  List() {
    _site.folder.write("cardsets.txt", "f 2 2\n");
    const std::vector<IdentRecord> idents = {{{0, 0, 0, 9}, 5, 2},
                                             {{0, 0, 0, 7}, 2, 2},
                                             {{0x1A}, 2, kFormatlessCode, 1},
                                             {{0x47, 0x11, 0xF0}, 2, kPinIdentCode},
                                             {{1}, 3, 7}};
    const AccessRecord two = {.uniqid = 2,
                              .pincode = {0x12, 0xF0},
                              .acclevel = {3, 0, 1},
                              .starttime = 100,
                              .endtime = 200,
                              .bitflds = 6};
    writeRecords("ident.db", idents);
    writeRecords<AccessRecord>("access.db",
                               {two,
                                {.uniqid = 4, .pincode = {0x0F}, .escortid = 2},
                                {.uniqid = 5, .pincode = {0x0F}, .starttime = 0xF0000000}});
    std::filesystem::create_directory("old");
    writeRecords("old/ident.db", idents);
    writeRecords<AccessRecord>("old/access.db",
                               {two, {.uniqid = 4, .pincode = {0x0F}}, {.uniqid = 9}});
  }

 private:
  TestSite _site{"formats.txt"};
};

TEST_F(List, ChoosesHoldersByFilters) {
  const struct {
    const char* filters;
    const char* holders;
  } kCases[] = {
      {"", "2 3 4 5"},
      {"--level 3", "2"},
      {"--level 0", ""},
      {"--set 2", "2 5"},
      {"--set 254", "2"},
      {"--expired", "2"},
      {"--not-yet-valid", "5"},
      {"--expires-before \"1970/01/01 00:03:20\"", ""},
      {"--expires-before \"1970/01/01 00:03:21\"", "2"},
      {"--no-level", "3 4 5"},
      {"--no-credential", "4"},
      {"--escort 2", "4"},
      {"--deleted", "2"},
      {"--pin --with-pins", "2"},
      {"--no-pin --with-pins", "3 4 5"},
      {"--changed-since old", "4 5"},
      {"--no-level --set 2", "5"},
  };
  for (const auto& [filters, holders] : kCases) {
    const AdminRun run = runAdmin(std::string("list ") + filters);
    std::istringstream lines(run.output);
    std::string listed;
    for (std::string line; std::getline(lines, line);) {
      if (!listed.empty()) listed += ' ';
      listed += line.substr(0, line.find(' '));
    }
    EXPECT_EQ(listed, holders) << filters << run.errors;
    EXPECT_EQ(run.status, listed.empty() ? 1 : 0) << filters;
    const size_t count = static_cast<size_t>(std::ranges::count(run.output, '\n'));
    EXPECT_EQ(runAdmin(std::string("list --count ") + filters).output,
              std::to_string(count) + '\n');
  }
}

TEST_F(List, PrintsColumnsCsvOrJson) {
  EXPECT_EQ(
      runAdmin("list --level 3").output,
      "2          2:7,1A(deleted),PIN  3,1             1970/01/01 00:01:40 1970/01/01 00:03:20 "
      "1,2\n");
  EXPECT_EQ(runAdmin("list --no-level --set 7").output,
            "3          7:01000000000000000000000000000000 -               -                   -"
            "                   - (0 access records)\n");
  EXPECT_TRUE(runAdmin("list --level 3 --csv").output.ends_with(",\"1,2\",1\r\n"));
  EXPECT_EQ(runAdmin("list --level 3 --json").output,
            R"({"holder":2,"access":[{"access_levels":[3,1],"flags":[1,2],)"
            R"("start":"1970/01/01 00:01:40","end":"1970/01/01 00:03:20","pin":"****",)"
            R"("validity":"expired"}],"credentials":[)"
            R"({"kind":"card","set":2,"card":"7","key":"00000007000000000000000000000000"},)"
            R"({"kind":"card without format","card":"1A","key":"1A000000000000000000000000000000",)"
            R"("deleted":true},{"kind":"PIN beside a card","pin":"****"}]})"
            "\n");
}

TEST_F(List, RefusesWordsThatMeanNothing) {
  expectRefusals("list", {{"--no-pin", 3, "--pin and --no-pin need --with-pins"},
                          {"--csv --count", 3, "only one of --count, --csv and --json"},
                          {"--level 65536", 3, "--level \"65536\" is not a number from 0 to 65535"},
                          {"--expired --expired", 3, "--expired"},
                          {"--expires-before 0", 3, "--expires-before \"0\" is not a time"},
                          {"--changed-since none", 3, "none/ident.db: No such file"}});
}

TEST(Json, EscapesWhatTextCannotHold) {
  EXPECT_EQ(
      JsonObject().add("text", "\"\\\n\xC3\xBC\x80\xED\xA0\x80\xF5").add("flag", false).text(),
      R"({"text":"\"\\\u000A)"
      "\xC3\xBC"
      R"(\\x80\\xED\\xA0\\x80\\xF5","flag":false})");
}

}  // namespace
}  // namespace badgemint::admin
