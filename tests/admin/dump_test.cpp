// The verb `dump`: what it writes builds the same databases again, or it says that it does not.
#include <gtest/gtest.h>

#include <csignal>

#include "admin/adminrun.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

namespace fs = std::filesystem;

const std::string kVerb =
    "dump --formats formats --ident ident --access access --cardsets cardsets";
// Levels, flags, escort, validity, elevator and relay group; cards have one flag more.
const std::string kHolder = " 1 2 3 4 5 6 7 65535 1 0 1 9 2010/2/3 1:2:3 2037/12/31 0 255 1";

void put(const std::string& name, const std::string& content) {
  fs::remove(name);  // Files cut to nothing are slow: they are written through.
  std::ofstream(name) << content;
}

TEST(AdminDump, SaysWhatTheTextCannotSay) {
  const TestSite site;
  const std::string cards = "f 1 1 A=21\nf 2 2 A=-1\nc 1 15890 4711 1" + kHolder +
                            " 0\nd 2 5 11 100 7\no 99 1\nf 3 1\nf 253 9 H=5\n";
  ASSERT_EQ(buildCards(cards), 0);
  const std::string ident = contentOf("ident"), access = contentOf("access");
  const struct {
    bool inIdent;
    size_t from, step;  // The bytes that get this value.
    int value;
    const char *errors, *output;
  } kCases[] = {
      {true, 24, 999, 2, "record 0 (holder 1) is marked as deleted", "\n# deleted: c 1 15890 *"},
      {true, 48, 999, 9, "card set 9 or its format is not known", "\n# left out: card with"},
      {true, 49, 28, 1, "and 2 more: records that are left out\n", ": card with key **** of card"},
      {true, 16, 999, 8, "record 0 (holder 8) is left out: there is no access record\n", "f 2 2\n"},
      {true, 2, 999, 0, "key 022A0024000000000000000000000000; a build makes 022A0025", "c 1 18 *"},
      {true, 44, 999, 1, "record 1 (holder 1) shares its access record: a build makes one", ""},
      {false, 4, 999, 0x4A, "its line: its PIN contains a digit above 9\n", "c 1 15890 *"},
      {false, 4, 999, 0xF0, "access: record 0 (holder 1): PIN none; a build makes none\n", ""},
      {false, 40, 44, 1, "and 2 more: flag 0 (not in the line)\n", "c 2 5 * 100 7 0"},
      {false, 36, 999, 3, "access: record 0 (holder 1): issue level 3; a build makes 0\n", ""},
      {false, 27, 999, 255, "; a build makes 0\n", "c 1 15890 * 1 1 2 3 4 5 6 7 65535 1 0 1 9 21"},
      {true, 44, 28, 1, "result -1001: two credentials have the same unique ID (verify", ""},
  };
  for (const auto& [inIdent, from, step, value, errors, output] : kCases) {
    SCOPED_TRACE(errors);
    std::string changed = inIdent ? ident : access;
    for (size_t at = from; at < changed.size(); at += step) changed[at] = static_cast<char>(value);
    put("ident", inIdent ? changed : ident);
    put("access", inIdent ? access : changed);
    const AdminRun run = runAdmin(kVerb);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find(errors), std::string::npos) << run.errors;
    EXPECT_NE(run.output.find(output), std::string::npos) << run.output;
    EXPECT_TRUE(run.output.ends_with("f 3 1 A=0\nf 253 9 H=5\n"));
  }
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
      {"mkdir out", "--force", 2, "out is no regular file", ""},
      {"ln -s none out", "--force", 2, "out is no regular file", ""},
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
