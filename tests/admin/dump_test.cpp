// The verb `dump`: what it writes builds the same databases again, or it reports that it does not.
#include "admin/adminrun.h"
#include "admin/records/databases.h"

namespace badgemint::admin::dump_test {

// Levels, flags, escort, validity, elevator and relay group; cards have one flag more.
const std::string kHolder = " 1 2 3 4 5 6 7 65535 1 0 1 9 2010/2/3 1:2:3 2037/12/31 0 255 1";

TEST(AdminDump, ReportsWhatACardsFileCannotExpress) {
  const TestSite site;
  const std::string cards = "f 1 1 A=21\nf 2 2 A=-1\nc 1 15890 4711 1" + kHolder +
                            " 0\nd 2 5 11 100 7\no 99 1\nf 3 1\nf 253 9 H=5\n";
  ASSERT_EQ(buildCards(cards), 0);
  Databases built;
  built.readIdents("ident");
  built.readAccesses("access");
  // clang-format off
  const std::tuple<void (*)(Databases&), std::string, std::string> kCases[] = {
      {[](auto& d) { d.idents[0].deleted = 2; }, "is marked as deleted", "\n# deleted: c 1"},
      {[](auto& d) { d.idents[1].cardsetcode = 9; }, "card set 9 or its", "\n# left out: "},
      {[](auto& d) { d.idents[0].uniqid = 8; }, "there is no access record\n", "\n# left out: c"},
      {[](auto& d) { d.idents[0].cardnumber[2] = 0; }, "would write a different key\n", "c 1 18 *"},
      {[](auto& d) { d.idents[1].uniqid = 1; }, "its access record is shared", ""},
      {[](auto& d) { d.idents[2].cardnumber = d.idents[1].cardnumber; }, "result -1011 (", ""},
      {[](auto& d) { std::swap(d.accesses[0], d.accesses[1]); }, "or in another order", ""},
      {[](auto& d) { d.accesses.push_back({}); }, "record 12 (holder 0) has no credential", ""},
      {[](auto& d) { d.accesses[0].pincode[0] = 0x4A; }, "a build ends at its line with", "c 1 "},
      {[](auto& d) { for (auto& access : d.accesses) access.bitflds = 1; }, "flag 0 (", ""},
      {[](auto& d) { d.accesses[0].starttime = ~0U; }, "different start\n", ""},
  };
  // clang-format on
  for (const auto& [change, errors, output] : kCases) {
    SCOPED_TRACE(errors);
    Databases databases = built;
    change(databases);
    writeRecords("ident", databases.idents);
    writeRecords("access", databases.accesses);
    const AdminRun run = runAdmin("dump" + kSite);
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.errors, errors));
    EXPECT_TRUE(contains(run.output, output));
    EXPECT_TRUE(run.output.ends_with("f 3 1 A=0\nf 253 9 H=5\n"));
  }
}

TEST(AdminDump, ReplacesNoFileThatItShouldNot) {
  const TestSite site;
  ASSERT_EQ(buildCards("f 1 2\np 1234 3" + kHolder), 0);
  const std::string dumped = runAdmin("dump" + kSite).output;
  const std::tuple<std::string, std::string, int, std::string, std::string> kCases[] = {
      {"", "", 0, "", ""},
      {"echo old >out", "", 2, "out already exists (--force replaces it)", "old\n"},
      {"echo old >out", "--force", 0, "", ""},
      {"mkdir out", "--force", 2, "out is not a regular file", ""},
      {"ln -s none out", "--force", 2, "out is not a regular file", ""},
      {"ln -s cardsets out", "--force", 2, "cardsets and out are the same file", "f 1 2 \n"},
      {"touch out.new", "", 2, "out.new exists: another run writes it", ""},
      {"mv ident away", "", 3, "ident: No such file", ""},
      {"mv away ident; mv cardsets away", "", 3, "cardsets: No such file", ""},
      {"cp away cardsets; echo wrong >>cardsets", "", 1, "cardsets:2: this line", ""},
      {"echo old >26.cdf; ln 26.cdf out", "--force", 2, "26.cdf and out are the same", "old\n"},
      {"rm 26.cdf", "", 3, "26.cdf: cannot be read", ""},
  };
  for (const auto& [prepare, options, status, errors, left] : kCases) {
    SCOPED_TRACE(prepare + options);
    ASSERT_EQ(std::system(("rm -rf out out.new;" + prepare).c_str()), 0);
    const AdminRun run = runAdmin("dump" + kSite + " --output out " + options);
    EXPECT_EQ(run.status, status);
    EXPECT_TRUE(contains(run.errors, errors));
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(fs::is_regular_file("out") ? contentOf("out") : "", status <= 1 ? dumped : left);
    EXPECT_EQ(fs::status("out").permissions() == fs::perms(0600), status <= 1);
  }
}

}  // namespace badgemint::admin::dump_test
