// The verb `build`: three files are replaced by proved ones, all or none, whatever fails and
// whenever it is killed.
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "admin/adminrun.h"
#include "admin/files/buildfiles.h"
#include "admin/files/process.h"
#include "admin/files/replacement.h"
#include "admin/records/expected.h"
#include "support/testsite.h"
#include "support/textutil.h"

namespace badgemint::admin {
namespace {

namespace fs = std::filesystem;

// Levels, flags, escort, validity, elevator and relay group; cards have one flag more.
const std::string kHolder = " 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0";
const std::string kCardHolder = kHolder + " 0\n";
const std::string kOldCards =
    "f 2 2\nc 2 7 4711 1" + kCardHolder + "c 2 8 0 2" + kCardHolder + "p 1234 3" + kHolder + "\n";
const std::string kNewCards =
    "f 1 1 A=21\nf 2 2\nc 1 15890 12345678 1 1 2 0 0 0 0 0 8 1 0 1 2 2024/1/1 0 2031/12/31 "
    "23:59:58 3 4 1\no 0099 1\nn 0 1A2b30 0 2" +
    kCardHolder + "p 1234 3" + kHolder +
    "\nd 2 2147483640 3 4294967290 9\nd 2 9 3 100 65535\n# end\n";
constexpr char kWrongCards[] = "x\n";

// A site with databases of the old cards and with new cards.
class BuildTest : public testing::Test {
 protected:
  BuildTest() {
    fs::rename("formats", "formats.txt");
    cards(kOldCards);
    EXPECT_EQ(runAdmin("build").status, 0);
    _old = databases();
    cards(kNewCards);
  }
  void makeOld() {
    fs::remove_all(kPrivatePlace);
    cards(kNewCards);
    if (isOld()) return;
    for (size_t start = 0; const char* const name : kTargets) {
      const size_t end = _old.find('|', start);
      fs::remove(name);
      _site.folder.write(name, _old.substr(start, end - start));
      start = end + 1;
    }
  }
  void cards(const std::string& text) const {
    fs::remove("cards.txt");  // Files cut to nothing are slow: they are written through.
    _site.folder.write("cards.txt", text);
  }

  static constexpr const char* kTargets[] = {"access.db", "ident.db", "cardsets.txt"};
  static std::string databases(const std::string& front = "", const std::string& back = "") {
    std::string all;
    for (const char* const name : kTargets) all += contentOf(front + name + back) + '|';
    return all;
  }
  bool isOld() const { return databases() == _old; }
  bool isNew() {
    if (_new.empty()) {  // Built once by the library alone.
      fs::create_directory("new");
      InputCards loader("cards.txt", "new/ident.db", "new/access.db", "new/cardsets.txt");
      EXPECT_EQ(loader.loadFormats("", "formats.txt") | loader.pass1() | loader.pass2(), 0);
      _new = databases("new/");
      fs::remove_all("new");
    }
    return databases() == _new;
  }
  static bool nothingLiesAbout() {
    return std::distance(fs::directory_iterator("."), fs::directory_iterator()) == 7;
  }

  // A run that gets a signal before its nth system call; whether it came so far.
  static bool killedAt(int nth, int signal = SIGKILL) {
    const pid_t child = fork();
    if (child == 0) {
      runAdmin("build", {.call = "any", .nth = nth, .signal = signal});
      _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFSIGNALED(status);
  }
  // What a next run does that finds the files wrong: it only clears up.
  void expectClearedUp(bool isProved) {
    const bool wasCutShort = fs::exists(kPrivatePlace);
    cards(kWrongCards);
    const AdminRun run = runAdmin("build");
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.errors.find("cut short") != run.errors.npos, wasCutShort) << run.errors;
    cards(kNewCards);
    EXPECT_TRUE(isProved ? isNew() : isOld() || isNew()) << "a mixture, or lost";
    EXPECT_TRUE(nothingLiesAbout());
  }
  static bool isProved() { return fs::exists(".badgemint-admin/journal"); }

  TestSite _site;
  std::string _old, _new;
};

TEST_F(BuildTest, ReplacesAllThreeAndSaysWhatChanged) {
  for (const char* const name : {"access.db", "cardsets.txt"})
    fs::permissions(name, fs::perms(0640));
  static_cast<void>(!chown("ident.db", 1, 2));  // Which root alone can do.
  struct stat before, after;
  ASSERT_EQ(stat("ident.db", &before), 0);
  const AdminRun tried = runAdmin("build --dry-run");
  EXPECT_TRUE(isOld() && nothingLiesAbout());
  const AdminRun run = runAdmin("build --keep --log build.log --level 0");
  EXPECT_EQ(run.status, 0) << run.errors;
  const std::string changes =
      "replaced\n"
      "credentials: 9 added, 2 removed, 0 changed\n"
      "holders: 6 added, 0 removed, 1 changed\n";
  const std::string found = "no errors, 0 warnings; 10 credentials of 9 holders\n";
  EXPECT_EQ(run.output, found + "access.db, ident.db and cardsets.txt are " + changes);
  EXPECT_EQ(tried.output, found + "access.db, ident.db and cardsets.txt would be " + changes);
  EXPECT_TRUE(isNew());
  EXPECT_EQ(databases("", ".old"), _old);
  ASSERT_EQ(stat("ident.db", &after), 0);
  EXPECT_TRUE(after.st_uid == before.st_uid && after.st_gid == before.st_gid);
  EXPECT_EQ(fs::status("access.db").permissions(), fs::perms(0640));
  EXPECT_EQ(fs::status("ident.db").permissions(), fs::perms(0600));
  EXPECT_EQ(fs::status("build.log").permissions(), fs::perms(0600));
  EXPECT_NE(contentOf("build.log").find("BadgeMint Complete, result=0"), std::string::npos);
  EXPECT_TRUE(takeSleeps() == std::vector<unsigned>{0}) << "no pause";
}

TEST_F(BuildTest, LeavesAllOldOrAllNewWhateverFails) {
  for (const char* const call : {"any", "allocate", "new", "write"}) {
    for (int nth = 1; !HasFailure(); ++nth) {
      SCOPED_TRACE(testing::Message() << call << ' ' << nth);
      makeOld();
      const bool isShort = std::string(call) == "write";
      const AdminRun run = runAdmin("build", {.call = call, .nth = nth, .isShort = isShort});
      if (!run.struck) break;
      EXPECT_TRUE(run.status <= 1 ? isNew() : isOld() && !run.errors.empty())
          << run.status << run.errors;
      expectClearedUp(false);
    }
  }
}

TEST_F(BuildTest, LosesNothingWhenItIsKilledAtAnyCall) {
  int firstMixture = 0;
  int nth = 1;
  for (; killedAt(nth) && !HasFailure(); ++nth) {
    SCOPED_TRACE(nth);
    if (firstMixture == 0 && !isOld() && !isNew()) firstMixture = nth;
    expectClearedUp(isProved());
    makeOld();
  }
  ASSERT_GT(firstMixture, 0);
  for (int again = 1; !HasFailure(); ++again) {  // And the run that finishes it, too.
    SCOPED_TRACE(again);
    makeOld();
    killedAt(firstMixture);
    cards(kWrongCards);
    const bool killed = killedAt(again);
    expectClearedUp(isProved() || killed);
    if (!killed) break;
  }
}

TEST_F(BuildTest, EndsCleanlyWhenItIsAskedToEnd) {
  for (int nth = 1; killedAt(nth, SIGTERM); nth += 5) {
    EXPECT_TRUE((isOld() || isNew()) && nothingLiesAbout()) << nth;
    makeOld();
  }
}

TEST_F(BuildTest, ChangesNothingWhenItIsAskedToEnd) {
  std::signal(SIGTERM, [](int) {});
  const Fault asked = {.call = "flock", .nth = 1, .signal = SIGTERM};
  const AdminRun run = runAdmin("build", asked);
  EXPECT_EQ(run.status, 3);
  EXPECT_NE(run.errors.find("interrupted: nothing was changed"), std::string::npos);
  EXPECT_TRUE(isOld() && nothingLiesAbout());
  const HeldSignals caller;  // Who holds a signal does not want it to end anything.
  EXPECT_EQ(runAdmin("build", asked).status, 0);
}

TEST_F(BuildTest, TakesBackFilesThatWereNotThere) {
  for (int nth = 1; !HasFailure(); ++nth) {
    for (const char* const name : kTargets) fs::remove(name);
    const AdminRun run = runAdmin("build --keep", {.call = "renameat", .nth = nth});
    if (!run.struck) break;
    EXPECT_EQ(run.status, 3);
    for (const char* const name : kTargets) EXPECT_FALSE(fs::exists(name)) << nth << name;
  }
  EXPECT_TRUE(isNew() && nothingLiesAbout());
}

TEST_F(BuildTest, LeavesToTheNextRunWhatItCannotTakeBack) {
  const AdminRun run = runAdmin("build", {.call = "renameat", .nth = 3, .forEver = true});
  EXPECT_EQ(run.status, 3);
  EXPECT_NE(run.errors.find("could not be put back either"), std::string::npos) << run.errors;
  const std::string mixture = databases();
  for (int nth = 1; !HasFailure(); ++nth) {
    const bool struck = runAdmin("build --dry-run", {.call = "any", .nth = nth}).struck;
    EXPECT_TRUE(isProved() && databases() == mixture) << nth;
    if (!struck) break;
  }
  for (const unsigned mode : {0700U, 0711U}) {
    if (geteuid() != 0) break;  // Another user sees the private place at most.
    fs::permissions(".", fs::perms(mode));
    EXPECT_EQ(seteuid(1), 0);
    EXPECT_EQ(noteOfCutShort(".").empty(), mode == 0700);
    EXPECT_EQ(seteuid(0), 0);
  }
  expectClearedUp(true);
  EXPECT_EQ(noteOfCutShort("."), "");
}

TEST_F(BuildTest, GivesWayToWhoReplacesAFileMeanwhile) {
  std::signal(SIGUSR1, [](int) {
    if (rename("other", "ident.db") != 0) unlink("ident.db");
  });
  const struct {
    const char* call;
    int nth;
    bool isThere, isOther;
  } kCases[] = {{"linkat", 2, true, true},
                {"renameat", 1, true, true},
                {"renameat", 1, true, false},
                {"renameat", 1, false, true},
                {"fchmod", 2, false, true}};
  for (const auto& [call, nth, isThere, isOther] : kCases) {
    SCOPED_TRACE(testing::Message() << call << isThere << isOther);
    makeOld();
    const std::string access = contentOf("access.db");
    if (!isThere) fs::remove("ident.db");
    if (isOther) _site.folder.write("other", "other");
    const AdminRun run = runAdmin("build", {.call = call, .nth = nth, .signal = SIGUSR1});
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.errors.find("ident.db was replaced by somebody else"), std::string::npos);
    EXPECT_EQ(fs::exists("ident.db") ? contentOf("ident.db") : "", isOther ? "other" : "");
    EXPECT_EQ(contentOf("access.db"), access);
  }
}

TEST_F(BuildTest, LeavesAJournalThatIsNotItsOwn) {
  const std::string unread = "its journal cannot be read", head = "badgemint-admin replaces:\n";
  const std::pair<std::string, std::string> kCases[] = {
      {"", unread},
      {head + "../a\nb\nc\n\nend", unread},
      {"other\na\nb\nc\n\nend", unread},
      {head + "a\nb\nc\n\nen", unread},
      {head + "a\nb\nc\n\nend", "a is neither its old nor its new file"}};
  ASSERT_EQ(std::system("mkdir -m 700 .badgemint-admin"), 0);
  for (const auto& [journal, says] : kCases) {
    _site.folder.write(".badgemint-admin/journal", journal);
    const AdminRun run = runAdmin("build");
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.errors.find(says), std::string::npos) << run.errors;
    EXPECT_TRUE(isOld() && contentOf(".badgemint-admin/journal") == journal);
  }
}

TEST_F(BuildTest, GivesAGroupNothingThatTheOldFileDidNot) {
  const struct {
    uid_t owner;
    gid_t group;
    bool forEver;
    unsigned mode;
    gid_t newGroup;
  } kCases[] = {{0, 2, false, 0660, 2}, {0, 2, true, 0600, 0}, {1, 0, true, 0660, 0}};
  for (const auto& [owner, group, forEver, mode, newGroup] : kCases) {
    makeOld();
    fs::permissions("access.db", fs::perms(0660));
    if (chown("access.db", owner, group) != 0) GTEST_SKIP() << "only root can change the owner";
    EXPECT_EQ(runAdmin("build", {.call = "fchown", .nth = 1, .forEver = forEver}).status, 0);
    struct stat status;
    ASSERT_EQ(stat("access.db", &status), 0);
    EXPECT_EQ(status.st_mode & 0777, mode);
    EXPECT_EQ(status.st_gid, newGroup);
  }
}

TEST_F(BuildTest, TakesAnyNameForItsLogThatIsNotTooLong) {
  for (const std::string name : {"stdout", "stderr", "stdout"}) {
    const AdminRun run = runAdmin("build --level 0 --log " + name);
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(contentOf(name).find("BadgeMint Complete, result=0"), std::string::npos);
  }
  const AdminRun run = runAdmin("build --log " + std::string(kMaxJoinedPath + 1, 'x'));
  EXPECT_EQ(run.status, 3);
  EXPECT_NE(run.errors.find("too long"), std::string::npos);
  EXPECT_EQ(splitPath("/file").folder, "/");
  for (const char* const path : {"", "sub/", ".", "sub/..", "a\nb"})
    EXPECT_THROW(splitPath(path), Failure) << path;
}

TEST_F(BuildTest, FinishesWhatWasCutShortOnlyWhereItIsSafe) {
  int nth = 1;
  for (; killedAt(nth) && (isOld() || isNew()); ++nth) makeOld();
  EXPECT_NE(noteOfCutShort(".").find("cut short"), std::string::npos);
  EXPECT_NE(runAdmin("build --dry-run").errors.find("cut short"), std::string::npos);
  EXPECT_FALSE(isOld() || isNew()) << "a try finishes nothing";
  _site.folder.write("other", "other");
  fs::rename("other", "cardsets.txt");
  const AdminRun run = runAdmin("build");
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.errors.find("cut short"), std::string::npos);
  EXPECT_EQ(contentOf("cardsets.txt"), "other");
  EXPECT_TRUE(isProved());
}

TEST_F(BuildTest, RefusesAndChangesNothing) {
  const struct {
    const char *prepare, *options;
    int status;
    const char* says;
  } kCases[] = {
      {"echo 'p 1234 9' >>cards.txt", "", 2, "refused for what was found"},
      {"", "--ident ./cards.txt", 2, "cards.txt and ./cards.txt are one file"},
      {"ln cards.txt link", "--log link", 2, "one file"},
      {"", "--access ident.db", 2, "one file"},
      {"", "--log 26.cdf", 2, "one file"},
      {"", "--keep --log ident.db.old", 2, "one file"},
      {"", "--log ./.badgemint-admin/log", 2, "stands where builds clean up"},
      {"ln -s cards.txt link", "--access link", 2, "one file"},
      {"ln -s none link", "--access link", 2, "link is a link, or no file"},
      {"ln -s none link", "--log link", 2, "link is a link, or no file"},
      {"mkdir sub", "--access sub", 2, "sub is a link, or no file"},
      {"mkdir sub", "--access sub/access.db", 2, "do not stand in one folder"},
      {"", "--access /proc/access.db", 2, "do not stand in one folder"},
      {"", "--cards /dev/null", 2, "no credential"},
      {"sed -i '/^p/!d' cards.txt; mkdir sub; cp cards.txt sub/ident.db", "--cards sub/ident.db", 2,
       "2 of 3 holders would be gone"},
      {"touch sub; ln sub link", "--log link", 2, "link is a link, or no file"},
      {"", "--access none/access.db", 3, "none: No such file"},
      {"", "--access none/", 3, "no name of a file"},
      {"ln -s /tmp .badgemint-admin", "", 2, "no private folder"},
      {"mkdir -m 755 .badgemint-admin", "", 2, "no private folder"},
      {"mkdir -m 700 .badgemint-admin; chown 1 .badgemint-admin || chmod 755 .badgemint-admin", "",
       2, "no private folder"},
      {"mkdir -m 700 .badgemint-admin", "--dry-run", 0, "the next one removes its files"},
      {"echo '# none' >cards.txt", "", 2, "no credential (--allow-empty)"},
      {"echo '# none' >cards.txt", "--allow-empty", 2, "3 of 3 holders would be gone"},
      {"sed -i '/^p/!d' cards.txt", "", 2, "2 of 3 holders would be gone"},
      {"sed -i '/^p/!d' cards.txt", "--max-removed 1", 2, "2 of 3"},
      {"sed -i '/^p/!d' cards.txt", "--max-removed 66%", 2, "2 of 3"},
      {"echo >>ident.db", "", 2, "ident.db ends within a record"},
      {"echo >>ident.db", "--max-removed 3", 2, "(--max-removed 100% replaces it all the same)"},
      {"echo >>ident.db", "--max-removed 100", 2, "(--max-removed 100% replaces it all the same)"},
      {"yes | head -c 28 >ident.db", "", 2, "ident.db is not such a database"},
      {"(head -c 24 /dev/zero; echo 222) >ident.db", "", 2, "ident.db is not such a database"},
      {"yes | head -c 44 >access.db", "", 2, "access.db is not such a database"},
      {"", "--max-removed half", 3, "neither a number nor a percentage"},
      {"", "--max-removed 1x", 3, "neither a number nor a percentage"},
      {"", "--max-removed 101%", 3, "neither a number nor a percentage"},
  };
  for (const auto& [prepare, options, status, says] : kCases) {
    SCOPED_TRACE(std::string(prepare) + " / " + options);
    makeOld();
    ASSERT_EQ(std::system(prepare), 0);
    const std::string before = databases();
    const AdminRun run = runAdmin(std::string("build ") + options);
    EXPECT_EQ(run.status, status);
    EXPECT_NE(run.errors.find(says), std::string::npos) << run.errors;
    EXPECT_EQ(databases(), before);
    ASSERT_EQ(std::system("rm -rf link sub .badgemint-admin"), 0);
  }
}

TEST_F(BuildTest, PassesWhatItsOptionsAllow) {
  for (const char* const options :
       {"--max-removed 67%", "--max-removed 2", "--max-removed 100% --allow-empty"}) {
    makeOld();
    cards("p 1 1" + kHolder);
    EXPECT_EQ(runAdmin(std::string("build ") + options).status, 0) << options;
  }
  _site.folder.write("access.db", "no database");
  EXPECT_EQ(runAdmin("build --max-removed 100%").status, 0);
  cards("");
  const mode_t mask = umask(027);
  EXPECT_EQ(runAdmin("build --max-removed 1 --allow-empty").status, 0);
  EXPECT_EQ(umask(mask), 027u);
}

TEST_F(BuildTest, TakesNothingThatCannotBeReadForEmpty) {
  cards("p 1 1" + kHolder);
  for (int nth = 1; !HasFailure(); ++nth) {
    const AdminRun run = runAdmin("build", {.call = "read", .nth = nth});
    if (!run.struck) break;
    EXPECT_GE(run.status, 2) << nth;
  }
  EXPECT_TRUE(isOld());
}

TEST_F(BuildTest, NoticesInputsThatChange) {
  const BuildInputs inputs({.cards = "cards.txt", .formats = "formats.txt"});
  EXPECT_EQ(inputs.names(),
            (std::vector<std::string>{"26.cdf", "32.cdf", "formats.txt", "cards.txt"}));
  inputs.demandUnchanged();
  _site.folder.write("26.cdf", "other");
  EXPECT_THROW(inputs.demandUnchanged(), Failure);
}

TEST_F(BuildTest, KeepsItsStatusWithoutStandardOutput) {
  std::ostringstream output, errors;
  output.setstate(std::ios::badbit);
  Console console(output, errors, false);
  const char* const argv[] = {"badgemint-admin", "build"};
  EXPECT_EQ(run(2, argv, console), 0);
  EXPECT_NE(errors.str().find("standard output cannot be written"), std::string::npos);
  EXPECT_TRUE(isNew());
}

TEST_F(BuildTest, OneRunAtATime) {
  const int folder = open(".", O_RDONLY);
  EXPECT_EQ(flock(folder, LOCK_EX), 0);
  const AdminRun run = runAdmin("build");
  close(folder);
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.errors.find("another build is at work"), std::string::npos);
  EXPECT_TRUE(isOld() && nothingLiesAbout());
}

TEST_F(BuildTest, ProvesEveryByte) {
  cards(
      "f 2 2\nc 2 7 4711 1 1 2 3 4 5 6 7 8 1 0 1 5 2024/01/01 0 2031/12/31 1:2:3 3 4 1\n"
      "n 0 1A2b3 0 2 1\np 1234 3 65535\no 0099 2\nd 2 9 2 100 4\n");
  ASSERT_LE(runAdmin("build").status, 1);
  const ProvedFiles files = {"cards.txt", "formats.txt", "ident.db", "access.db", "cardsets.txt"};
  EXPECT_EQ(prove(files), 6);
  for (const std::string& name : {files.ident, files.access, files.cardSets}) {
    const std::string good = contentOf(name);
    for (size_t i = 0; i < good.size(); ++i) {
      if (good[i] == ' ' || good[i] == '\n') continue;  // Blanks of the card sets file.
      std::string bad = good;
      bad[i] = static_cast<char>(bad[i] ^ 1);
      _site.folder.write(name, bad);
      EXPECT_THROW(prove(files), Failure) << name << ' ' << i;
    }
    _site.folder.write(name, good + good);
    EXPECT_THROW(prove(files), Failure) << name << " twice";
    _site.folder.write(name, good.substr(0, good.size() / 2));
    EXPECT_THROW(prove(files), Failure) << name << " cut";
    if (name == files.cardSets) continue;
    _site.folder.write(name, good + 'x');
    EXPECT_THROW(prove(files), Failure) << name << " goes on";
    _site.folder.write(name, good);
  }
}

}  // namespace
}  // namespace badgemint::admin
