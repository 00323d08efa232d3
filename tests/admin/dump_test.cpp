// The verb `dump`: what it writes builds the same databases again, or it says that it does not.
#include <gtest/gtest.h>

#include <csignal>

#include "admin/adminrun.h"
#include "admin/records/databases.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

namespace fs = std::filesystem;

const std::string kVerb =
    "dump --formats formats --ident ident --access access --cardsets cardsets";
// Levels, flags, escort, validity, elevator and relay group; cards have one flag more.
const std::string kHolder = " 1 2 3 4 5 6 7 65535 1 0 1 9 2010/2/3 1:2:3 2037/12/31 0 255 1";

TEST(AdminDump, ReportsWhatACardsFileCannotSay) {
  const TestSite site;
  const std::string cards = "f 1 1 A=21\nf 2 2 A=-1\nc 1 15890 4711 1" + kHolder +
                            " 0\nd 2 5 11 100 7\no 99 1\nf 3 1\nf 253 9 H=5\n";
  ASSERT_EQ(buildCards(cards), 0);
  Databases built;
  built.readIdents("ident");
  built.readAccesses("access");
  const struct {
    void (*change)(Databases&);
    const char *errors, *output;
  } kCases[] = {
      {[](auto& d) { d.idents[0].deleted = 2; }, "record 0 (holder 1) is marked as deleted",
       "\n# deleted: c 1 15890 *"},
      {[](auto& d) { d.idents[1].cardsetcode = 9; }, "card set 9 or its format is not known",
       "\n# left out: card with"},
      {[](auto& d) {
         for (auto& ident : d.idents) ident.cardsetcode = 256;
       },
       "and 3 more: records that are left out\n", ": card with key **** of card"},
      {[](auto& d) { d.idents[0].uniqid = 8; },
       "holder 8) is left out: there is no access record\n", "f 2 2\n"},
      {[](auto& d) { d.idents[0].cardnumber[2] = 0; },
       "key 022A0024000000000000000000000000; a build makes 022A0025", "c 1 18 *"},
      {[](auto& d) { d.idents[1].uniqid = 1; },
       "record 1 (holder 1) shares its access record: a build makes one", ""},
      {[](auto& d) {
         for (auto& ident : d.idents) ident.uniqid = 1;
       },
       "result -1001: two credentials have the same unique ID (verify", ""},
      {[](auto& d) { std::swap(d.accesses[0], d.accesses[1]); },
       "record 1 (holder 100): its access record stands before others", ""},
      {[](auto& d) { d.accesses.push_back({}); }, "record 12 (holder 0) has no credential", ""},
      {[](auto& d) { d.accesses[0].pincode[0] = 0x4A; },
       "its line: its PIN contains a digit above 9\n", "c 1 15890 *"},
      {[](auto& d) { d.accesses[0].pincode[0] = 0xF0; }, "access: record 0 (holder 1): PIN ", ""},
      {[](auto& d) {
         for (auto& access : d.accesses) access.bitflds = 1;
       },
       "and 2 more: flag 0 (not in the line)\n", "c 2 5 * 100 7 0"},
      {[](auto& d) { d.accesses[0].cardissuelevel = 3; },
       "access: record 0 (holder 1): issue level 3; a build makes 0\n", ""},
      {[](auto& d) { d.accesses[0].starttime = 0xFF000000; },
       "start 2105/07/28 02:08:00; a build makes 0\n",
       "c 1 15890 * 1 1 2 3 4 5 6 7 65535 1 0 1 9 2105/07/28 02:08:00"},
  };
  for (const auto& [change, errors, output] : kCases) {
    SCOPED_TRACE(errors);
    Databases databases = built;
    change(databases);
    writeRecords("ident", databases.idents);
    writeRecords("access", databases.accesses);
    const AdminRun run = runAdmin(kVerb);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find(errors), std::string::npos) << run.errors;
    EXPECT_NE(run.output.find(output), std::string::npos) << run.output;
    EXPECT_TRUE(run.output.ends_with("f 3 1 A=0\nf 253 9 H=5\n"));
  }
}

TEST(AdminDump, WarnsWhenOthersCanReadPins) {
  const TestSite site;
  ASSERT_EQ(buildCards("p 1234 3" + kHolder), 0);
  EXPECT_EQ(runAdmin(kVerb + " --with-pins").errors, "");
  fs::permissions(".", fs::perms(0755));
  fs::permissions("access", fs::perms(0644));
  EXPECT_EQ(runAdmin(kVerb).errors, "");
  const AdminRun run = runAdmin(kVerb + " --with-pins");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors,
            "badgemint-admin: access contains PINs and can be read by other users (chmod o-r "
            "access)\n");
}

TEST(AdminDump, WritesItsFileWholeOrNotAtAll) {
  const TestSite site;
  ASSERT_EQ(buildCards("f 1 2\np 1234 3" + kHolder), 0);
  const std::string dumped = runAdmin(kVerb).output;
  for (int nth = 1; !HasFailure(); ++nth) {
    ASSERT_EQ(std::system("rm -f out out.new; echo old >out"), 0);
    const AdminRun run = runAdmin(kVerb + " --output out --force", {.call = "any", .nth = nth});
    if (!run.struck) break;
    const bool isOld = contentOf("out") == "old\n";
    EXPECT_TRUE(isOld ? run.status > 1 : contentOf("out") == dumped) << nth;
    EXPECT_EQ(run.status == 0, run.errors.empty());
  }
  std::signal(SIGTERM, [](int) {});
  const Fault asked = {.call = "openat", .nth = 1, .signal = SIGTERM};
  EXPECT_EQ(runAdmin(kVerb + " --output ended", asked).status, 3);
  EXPECT_FALSE(fs::exists("ended") || fs::exists("ended.new"));
  const struct {
    const char *prepare, *options;
    int status;
    const char *errors, *left;
  } kCases[] = {
      {"", "", 0, "", ""},
      {"echo old >out", "", 2, "out is there already (--force replaces it)", "old\n"},
      {"echo old >out", "--force", 0, "", ""},
      {"mkdir out", "--force", 2, "out is not a regular file", ""},
      {"ln -s none out", "--force", 2, "out is not a regular file", ""},
      {"ln -s cardsets out", "--force", 2, "cardsets and out are one file", "f 1 2 \n"},
      {"touch out.new", "", 2, "out.new is there: another run writes it", ""},
      {"mv ident away", "", 3, "ident: No such file", ""},
      {"mv away ident; mv cardsets away", "", 3, "cardsets: No such file", ""},
      {"echo old >26.cdf; ln 26.cdf out", "--force", 2, "26.cdf and out are one file", "old\n"},
      {"mv away cardsets; rm 26.cdf", "", 3, "26.cdf: cannot be opened", ""},
  };
  for (const auto& [prepare, options, status, errors, left] : kCases) {
    SCOPED_TRACE(std::string(prepare) + options);
    ASSERT_EQ(std::system(("rm -rf out out.new;" + std::string(prepare)).c_str()), 0);
    const AdminRun run = runAdmin(kVerb + " --output out " + options);
    EXPECT_EQ(run.status, status);
    EXPECT_NE(run.errors.find(errors), std::string::npos) << run.errors;
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(fs::is_regular_file("out") ? contentOf("out") : "", status == 0 ? dumped : left);
    EXPECT_EQ(fs::status("out").permissions() == fs::perms(0600), status == 0);
  }
}

}  // namespace
}  // namespace badgemint::admin
