// The verb `list`: which holders filters choose, and the forms of the list.
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
    const AccessRecord two = {
        .uniqid = 2, .pincode = {0x1F}, .acclevel = {3, 0, 1}, .endtime = 200};
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
  }
}

TEST_F(List, PrintsWhatNoBuildWrites) {
  const std::string listed = runAdmin("list --set 254").output + runAdmin("list --set 7").output;
  EXPECT_TRUE(listed.starts_with("2          2:7,1A(deleted),PIN  3,1 ")) << listed;
  EXPECT_TRUE(listed.ends_with(" - (0 access records)\n")) << listed;
  const std::string json = runAdmin("list --set 254 --json").output;
  EXPECT_NE(json.find(R"({"kind":"card without format","card":"1A",)"), json.npos) << json;
}

TEST_F(List, RefusesWordsThatMeanNothing) {
  expectRefusals("list", {{"--no-pin", 3, "--pin and --no-pin need --with-pins"},
                          {"--csv --count", 3, "only one of --count, --csv and --json"},
                          {"--level x", 3, "--level \"x\" is not a number from 0 to 4294967295"},
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
