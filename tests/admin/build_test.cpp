// The verb `build`: what it replaces and keeps, what it refuses, and what it reports. What happens
// when calls fail, signals arrive or power is lost stands in sweeps_test.cpp.
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <csignal>

#include "admin/buildsite.h"
#include "support/textutil.h"

namespace badgemint::admin::build_test {

class BuildTest : public testing::Test, public BuildSite {
 protected:
  // The build ends with this status and message, and all files are as they were.
  void expectNothingChanged(const std::string& options, int status, const std::string& error,
                            const Fault& fault = {}) {
    const auto before = allFiles();
    const AdminRun run = runAdmin("build " + options, fault);
    EXPECT_EQ(run.status, status);
    EXPECT_TRUE(contains(run.errors, error));
    EXPECT_EQ(allFiles(), before);
  }
};

TEST_F(BuildTest, ReplacesAllThreeWithTheirModes) {
  fs::permissions("access.db", fs::perms(0640));
  fs::permissions("cardsets.txt", fs::perms(0640));
  const AdminRun run = runAdmin("build --keep --log build.log --level 0");
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_TRUE(contains(run.output, "\ncredentials: 9 added, 1 removed, 0 changed\n"));
  EXPECT_TRUE(contains(run.output, "\nholders: 7 added, 0 removed, 1 changed\n"));
  EXPECT_TRUE(isNew() && hasKept(_old));
  EXPECT_EQ(fs::status("access.db").permissions(), fs::perms(0640));
  EXPECT_EQ(fs::status("ident.db").permissions(), fs::perms(0600));
  EXPECT_EQ(fs::status("build.log").permissions(), fs::perms(0600));
  EXPECT_TRUE(contains(contentOf("build.log"), "BadgeMint Complete, result=0"));
  EXPECT_TRUE(takeSleeps() == std::vector<unsigned>{0}) << "no pause";

  const AdminRun again = runAdmin("build --keep");
  EXPECT_TRUE(contains(again.output, "are up to date; nothing was replaced\n"));
  EXPECT_TRUE(again.status == 0 && hasKept(_old));
}

TEST_F(BuildTest, RefusesWhenTooManyHoldersLoseSomething) {
  // A sed script, and what is lost; empty for nothing.
  const std::pair<std::string, std::string> kCases[] = {
      {"s/^c 2 8/c 2 9/", "1 of 3 holders would lose something (1 without a key they had)"},
      {"/^c 2 7/d", "(1 gone)"},
      {"s/^c 2 7/c 2 0/; s/^c 2 8/c 2 7/", "(2 without a key they had)"},
      {"s/^c 2 7 4711/c 2 7 0/", "(1 without a PIN they had)"},
      {"s/^p 1234/p 4321/", "(1 without a PIN they had)"},
      {"s/ 0 2 1/ 0 2 0/", "(1 without an access level they had)"},
      {"/^p/s/0 0 0 0 0 0$/0 0 2001\\/1\\/1 0 0 0/", "(1 no longer valid)"},
      {"/^p/s/0 0 0 0 0 0$/2037\\/1\\/1 0 0 0 0 0/", "(1 no longer valid)"},
      {"s/ 0 2 1/ 0 2 0/; s/^p 1234/p 4321/; /^c 2 7/d", "3 of 3 holders would lose something (1 "},
      {"/^f/a p 99 9 1", ""},
      {"/^f/a o 0099 1", ""},
      {"s/ 0 2 1 0/ 0 2 7 1/", ""},
      {"/^p/s/0 0 0 0 0 0$/0 0 2037\\/1\\/1 0 0 0/", ""},
  };
  for (const auto& [change, loss] : kCases) {
    SCOPED_TRACE(change);
    makeOld();
    cards(kOldCards);
    ASSERT_EQ(std::system(("sed -i '" + change + "' cards.txt").c_str()), 0);
    if (loss.empty())
      EXPECT_NE(runAdmin("build --max-removed 0").status, 2);
    else
      expectNothingChanged("--max-removed 0", 2, loss);
  }
}

TEST_F(BuildTest, GivesAGroupNothingThatTheOldFileDidNot) {
  const Fault kNone = {.call = "fchown", .nth = 99}, kFirst = {.call = "fchown"};
  const Fault kAll = {.call = "fchown", .forEver = true};
  // Owner, group; then owner, group and mode of the new file.
  const std::tuple<unsigned, unsigned, Fault, unsigned, unsigned, unsigned> kCases[] = {
      {1, 2, kNone, 1, 2, 0660},
      {1, 2, kFirst, 0, 2, 0660},
      {0, 2, kAll, 0, 0, 0600},
      {1, 0, kAll, 0, 0, 0660}};
  for (const auto& [owner, group, fault, newOwner, newGroup, mode] : kCases) {
    makeOld();
    fs::permissions("access.db", fs::perms(0660));
    if (chown("access.db", owner, group) != 0) GTEST_SKIP() << "only root can change the owner";
    EXPECT_EQ(runAdmin("build", fault).status, 0);
    struct stat status;
    ASSERT_EQ(stat("access.db", &status), 0);
    EXPECT_EQ(status.st_mode & 0777, mode);
    EXPECT_TRUE(status.st_uid == newOwner && status.st_gid == newGroup);
  }
}

TEST_F(BuildTest, StopsWhenAnotherProgramReplacesAFile) {
  std::signal(SIGUSR1, [](int) {
    if (rename("other", "ident.db") != 0) unlink("ident.db");
  });
  const std::tuple<std::string, int, bool, bool> kCases[] = {{"linkat", 2, true, true},
                                                             {"renameat", 1, true, true},
                                                             {"renameat", 1, true, false},
                                                             {"renameat", 1, false, true},
                                                             {"fchmod", 2, false, true}};
  for (const auto& [call, nth, isThere, isOther] : kCases) {
    SCOPED_TRACE(testing::Message() << call << isThere << isOther);
    makeOld();
    const std::string access = contentOf("access.db");
    if (!isThere) fs::remove("ident.db");
    if (isOther) writeFile("other", "other");
    const AdminRun run = runAdmin("build", {.call = call, .nth = nth, .signal = SIGUSR1});
    EXPECT_EQ(run.status, 2);
    EXPECT_TRUE(contains(
        run.errors, "ident.db was replaced by another program meanwhile: nothing was changed"));
    EXPECT_EQ(fs::exists("ident.db") ? contentOf("ident.db") : "", isOther ? "other" : "");
    EXPECT_EQ(contentOf("access.db"), access);
  }
}

TEST_F(BuildTest, ReportsFilesThatAreNotItsOwnAndGoesOn) {
  ASSERT_EQ(std::system("mkdir -m 711 .badgemint-admin; touch .badgemint-admin/other"), 0);
  EXPECT_EQ(runAdmin("build --dry-run").status, 1);
  EXPECT_EQ(fs::status(".badgemint-admin").permissions(), fs::perms::owner_all);
  const AdminRun run = runAdmin("build");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.errors,
            "badgemint-admin: .badgemint-admin/other does not belong there; remove it\n");
  EXPECT_TRUE(isNew() && fs::exists(".badgemint-admin/other"));
  fs::remove_all(kPrivateFolder);
  cards(kOldCards);
  const AdminRun tried = runAdmin("build --dry-run --max-removed 100%",
                                  {.call = "unlinkat", .nth = 1, .forEver = true});
  EXPECT_EQ(tried.status, 1);
  EXPECT_TRUE(contains(tried.errors, ".badgemint-admin/new.access cannot be removed"));
}

TEST_F(BuildTest, ReportsFilesThatOtherUsersCanRead) {
  fs::permissions(".", fs::perms(0711));
  fs::permissions("cards.txt", fs::perms(0604));
  fs::permissions("ident.db", fs::perms(0640));
  const AdminRun run = runAdmin("build");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors,
            "badgemint-admin: cards.txt contains PINs and can be read by other users (chmod o-r "
            "cards.txt)\n");
  fs::permissions("access.db", fs::perms(0604));
  EXPECT_EQ(runAdmin("dump").errors, "");
  expectRuns(
      {{"dump --with-pins", 0, "\np 1234 3 1 ", "access.db contains PINs and can be read by"}});
  cards(kNewCards + "p 99 7");  // A warning.
  EXPECT_TRUE(contains(runAdmin("build --quiet").errors, "(chmod o-r cards.txt)"));
  fs::permissions(".", fs::perms(0700));
  EXPECT_EQ(runAdmin("build").errors, "");
}

TEST_F(BuildTest, WritesItsLogToTheFileItHasChecked) {
  fs::create_directory("foo.badgemint-admin");
  for (const std::string name : {"stdout", "stderr", "stdout", "foo.badgemint-admin/x"}) {
    const AdminRun run = runAdmin("build --level 0 --log " + name);
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_TRUE(contains(contentOf(name), "BadgeMint Complete, result=0"));
  }
  expectNothingChanged("--log " + std::string(kMaxJoinedPath + 1, 'x'), 3, "the path is too long");
  makeOld();
  struct rlimit before;
  getrlimit(RLIMIT_FSIZE, &before);
  const struct rlimit small = {1000, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  std::signal(SIGXFSZ, SIG_IGN);
  const AdminRun cut = runAdmin("build --level 125 --log log");
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(cut.status, 1);
  EXPECT_TRUE(contains(cut.errors, "the log log is incomplete: it could not be written"));
  EXPECT_TRUE(isNew());
}

TEST_F(BuildTest, RefusesAndChangesNothing) {
  const std::string kFolder = "mkdir -m 700 .badgemint-admin; cd .badgemint-admin; ";
  const std::string kJournal = kFolder + "printf >journal 'badgemint-admin replaces:";
  const std::tuple<std::string, std::string, int, std::string> kCases[] = {
      {"echo 'p 1234 9' >>cards.txt", "", 2, "refused because of these findings: nothing was"},
      {"", "--ident ./cards.txt", 2, "cards.txt and ./cards.txt are the same file"},
      {"", "--log 26.cdf", 2, "are the same file"},
      {"", "--keep --log ident.db.old", 2, "are the same file"},
      {"", "--log ./.badgemint-admin/./log", 2, "is in the folder that builds clean up"},
      {"ln -s none link", "--access link", 2, "link is a link or not a file"},
      {"mkdir sub", "--access sub/access.db", 2, "are not in one folder"},
      {"rm access.db.old; mkdir access.db.old", "--keep --dry-run", 2, "access.db.old is a link"},
      {"", "--cards /dev/null", 3, "/dev/null is not a regular file"},
      {"mkfifo sub.cdf; echo 3 sub.cdf >sub", "--formats sub", 3, "sub.cdf is not a regular file"},
      {"mkdir sub; grep ^p cards.txt >sub/ident.db", "--cards sub/ident.db", 2, "2 of 3 holders"},
      {"touch sub; ln sub link", "--log link", 2, "link is a link or not a file"},
      {"", "--access none/access.db", 3, "none: No such file"},
      {"", "--access none/", 3, "is not the name of a file"},
      {"ln -s /tmp .badgemint-admin", "", 2, "is not a private folder"},
      {kFolder + "mkdir journal", "", 3,
       "journal: Is a directory; remove the cause and build again"},
      {kFolder + "touch journal", "", 3, "cannot be finished"},
      {kJournal + "\n../a\nb\nc\n\nend'", "", 3, "journal is invalid"},
      {kJournal + "\na\nb\nc\n\nen'", "", 3, "journal is invalid"},
      {kJournal + "\na\nb\nc\n\nend'", "", 3, "cannot be finished: a was replaced by another"},
      {kFolder + "mkdir new.ident", "", 3,
       "new.ident cannot be removed (Is a directory); remove it"},
      {kFolder + "chown 1 . || chmod 755 .", "", 2, "is not a private folder"},
      {"echo '# none' >cards.txt", "", 2, "no credential (--allow-empty"},
      {"echo '# none' >cards.txt", "--allow-empty", 2, "3 of 3 holders would lose something"},
      {"sed -i '/^p/!d' cards.txt", "--max-removed 66%", 2, "2 of 3"},
      {"echo >>ident.db", "", 2, "ident.db ends within a record"},
      {"echo >>ident.db", "--max-removed 100", 2, "(--max-removed 100% replaces it all the same)"},
      {"(head -c 24 /dev/zero; echo 222) >ident.db", "", 2, "ident.db is not an ident database"},
      {"yes | head -c 44 >access.db", "", 2, "access.db is not an access database"},
      {"", "--max-removed 1x", 3, "neither a number nor a percentage"},
      {"", "--max-removed 101%", 3, "neither a number nor a percentage"},
  };
  for (const auto& [prepare, options, status, error] : kCases) {
    SCOPED_TRACE(prepare + " / " + options);
    makeOld();
    ASSERT_EQ(std::system(prepare.c_str()), 0);
    expectNothingChanged(options, status, error);
    ASSERT_EQ(std::system("rm -rf link sub* .badgemint-admin access.db.old"), 0);
  }
}

TEST_F(BuildTest, PassesWhatItsOptionsAllow) {
  for (const char* const options :
       {"--max-removed 67%", "--max-removed 2", "--max-removed 100% --allow-empty"}) {
    makeOld();
    cards("p 1234 3" + kHolder + "\n");
    EXPECT_EQ(runAdmin(std::string("build ") + options).status, 0) << options;
  }
  writeFile("access.db", "no database");
  EXPECT_EQ(runAdmin("build --max-removed 100%").status, 0);
  cards("");
  EXPECT_EQ(runAdmin("build --max-removed 1 --allow-empty --strict").status, 0);
}

TEST_F(BuildTest, KeepsItsStatusWithoutStandardOutputAsOtherVerbsDoNot) {
  std::ostringstream output, errors;
  output.setstate(std::ios::badbit);
  EXPECT_EQ(runAdmin("build", {}, output, errors).status, 0);
  EXPECT_TRUE(isNew());
  EXPECT_EQ(runAdmin("help", {}, output, errors).status, 3);
  const std::string message = "badgemint-admin: standard output cannot be written\n";
  EXPECT_EQ(errors.str(), message + message);
}

TEST_F(BuildTest, NoticesOtherRunsAndInputsThatChange) {
  std::signal(SIGUSR1, [](int) { utimes("26.cdf", nullptr); });
  expectNothingChanged("", 2, "26.cdf changed during the build: nothing was changed",
                       {.call = "mkdirat", .signal = SIGUSR1});
  const int folder = open(".", O_RDONLY);
  EXPECT_EQ(flock(folder, LOCK_EX), 0);
  expectNothingChanged("", 2, "another build is running in .: nothing was changed");
  close(folder);
}

TEST_F(BuildTest, PrintsNothingMoreThanTheChangesWhenQuiet) {
  fs::permissions(".", fs::perms(0711));
  fs::create_directory("before");
  for (const char* const name : kTargets) fs::copy(name, std::string("before/") + name);
  const AdminRun run = runAdmin("build --changes --quiet");
  EXPECT_TRUE(contains(run.output, "card 15890 of card set 1 added"));
  EXPECT_EQ(run.output + run.errors, runAdmin("diff before .").output);
  cards(kOldCards + "p 99 7");
  const AdminRun refused = runAdmin("build --changes --quiet --max-removed 0");
  for (const char* const text : {" removed\n", " warnings; "})
    EXPECT_TRUE(contains(refused.output, text));
}

}  // namespace badgemint::admin::build_test
