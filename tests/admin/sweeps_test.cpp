// What the verbs do when calls fail, signals arrive, the process is killed or power is lost: each
// call of a run in turn, and one rule for what may come of it.
#include <fcntl.h>

#include <climits>
#include <csignal>
#include <optional>

#include "admin/buildsite.h"

namespace badgemint::admin::sweeps_test {

// Runs a command with the fault at its next call; nothing when there is no such call. Reading the
// command line takes most of the memory, in many alike pieces.
std::optional<AdminRun> failNext(const std::string& command, Fault& fault) {
  static const int kOfCommandLine = runAdmin("--version", {.call = "new", .nth = INT_MAX}).calls;
  if (testing::Test::HasFailure()) {
    ADD_FAILURE() << command << ": " << fault.call << " before " << fault.nth << ' '
                  << fault.forEver << fault.signal;
    return {};
  }
  const AdminRun run =
      fault.signal != 0 ? runAdminProcess(command, fault) : runAdmin(command, fault);
  if (!run.faultOccurred) return {};
  EXPECT_EQ(run.signal, fault.signal);
  fault.nth += fault.call == "new" && fault.nth < kOfCommandLine ? 20 : 1;
  return run;
}

class BuildSweep : public testing::Test, public BuildSite {
 protected:
  // What a build reports about the files is so.
  void expectTrueReport(const AdminRun& run, const std::string& command) {
    if (contains(run.errors, "cut short")) return;
    const bool isChanged =
        (run.signal == 0 && run.status <= 1) || contains(run.errors, "all files are replaced");
    const bool isReplaced = isChanged && !contains(command, "--dry-run");
    EXPECT_TRUE(isReplaced ? isNew() : isOld());
    EXPECT_TRUE(hasKept(isReplaced && contains(command, "--keep") ? _old : kFormer));
    EXPECT_TRUE(isChanged || contains(run.errors, ": nothing was changed\n") ||
                run.errors == "badgemint-admin: not enough memory\n")
        << run.errors;
  }

  // The next build finds old or new files, or makes them so before it does anything else, and
  // reports which.
  void expectRecovery() {
    if ((isOld() || isNew()) && hasNoOtherFiles()) return;  // There is nothing to recover.
    const bool wasOld = isOld(), wasNew = isNew();
    const bool hadJournal = fs::exists(".badgemint-admin/journal");
    cards(kWrongCards);
    const AdminRun run = runAdmin("build --keep");
    EXPECT_EQ(run.status, 2);
    cards(kNewCards);
    EXPECT_TRUE(hasNoOtherFiles());
    EXPECT_TRUE(isNew() || (isOld() && !hadJournal)) << "a mixture, or lost";
    EXPECT_TRUE(wasOld || !contains(run.errors, "changed nothing"));
    EXPECT_TRUE(wasNew || !contains(run.errors, "after it had replaced all files"));
    EXPECT_EQ(contains(run.errors, "it is finished now"), hadJournal);
    EXPECT_TRUE(isOld() || hasKept(_old) || hasKept(kFormer));
  }
  void build(const std::string& text) {
    cards(text);
    runAdmin("build --max-removed 100%");
  }
};

constexpr const char* kBuilds[] = {"build", "build --keep", "build --dry-run"};

TEST_F(BuildSweep, EachCallFailsOrIsInterrupted) {
  const Fault kFaults[] = {{.call = "any"},
                           {.call = "any", .forEver = true},
                           {.call = "any", .signal = SIGTERM},
                           {.call = "read", .error = EINTR},
                           {.call = "write", .error = EINTR},
                           {.call = "write", .isShort = true},
                           {.call = "allocate"},
                           {.call = "new"},
                           {.call = "new", .forEver = true}};
  for (const std::string command : kBuilds)
    for (Fault fault : kFaults) {
      // What a build does without --keep it does with it, too.
      if (command == "build" && (fault.forEver || fault.call != "any")) continue;
      if (command == "build --dry-run" && fault.call == "new") continue;
      for (makeOld(); const auto run = failNext(command, fault); makeOld()) {
        expectTrueReport(*run, command);
        EXPECT_EQ(contains(run->errors, "interrupted: "), fault.signal != 0) << run->errors;
        EXPECT_TRUE(fault.signal == 0 || hasNoOtherFiles());
        expectRecovery();
      }
    }
}

TEST_F(BuildSweep, ItIsKilledBeforeEachCall) {
  for (const std::string command : kBuilds) {
    Fault killed = {.call = "any", .signal = SIGKILL};
    for (makeOld(); failNext(command, killed); makeOld()) {
      const bool isSeenByAll = fs::status(kPrivateFolder).permissions() == fs::perms(0711);
      EXPECT_TRUE(!fs::exists(".badgemint-admin/journal") || isSeenByAll);
      if (!isOld() && !isNew() && killed.nth % 2 == 0) {  // What finishes it is killed, too.
        cards(kWrongCards);
        runAdminProcess("build", {.call = "any", .nth = killed.nth / 4, .signal = SIGKILL});
        cards(kNewCards);
      }
      expectRecovery();
    }
  }
}

// A disk to which changes were made in order, and which a power cut may leave in many states: what
// was synced is there, of what was not any part may be there. A file that was not synced is empty.
class DiskModel {
 public:
  // Takes over the files of the current folder as they are.
  DiskModel() {
    for (const auto& entry : fs::directory_iterator(".")) {
      const std::string name = entry.path().filename().string();
      const uint64_t file = inodeOf(AT_FDCWD, name);
      _synced[{_root, name}] = file;
      _contents[file] = contentOf(name);
    }
  }

  void apply(const DiskChange& change) {
    if (change.synced == 0) return _pending.push_back(change);
    _contents[change.synced] = change.content;
    std::erase_if(_pending, [&](const DiskChange& pending) {
      const bool isSynced =
          std::ranges::count(pending.entries, change.synced, &DiskChange::Entry::folder) > 0;
      if (isSynced) enter(pending, _synced);
      return isSynced;
    });
  }

  // Some more for each pending change.
  size_t rounds() const { return 1 + 4 * _pending.size(); }

  // Makes the current folder what is left when only some of the pending changes have come to pass:
  // in the first rounds none, then more and more, then all.
  void restore(size_t round) {
    Entries entries = _synced;
    for (const DiskChange& change : _pending)
      if (_random() % 4 < round % 5) enter(change, entries);
    for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry.path());
    if (entries.contains({_root, kPrivateFolder})) {
      fs::create_directory(kPrivateFolder);
      fs::permissions(kPrivateFolder, fs::perms::owner_all);
    }
    std::map<uint64_t, fs::path> paths;
    for (const auto& [place, file] : entries) {
      const fs::path folder = place.first == _root ? "." : kPrivateFolder;
      if (place.second == kPrivateFolder || !fs::exists(folder)) continue;
      const auto [first, isNew] = paths.emplace(file, folder / place.second);
      const auto content = _contents.find(file);
      if (isNew)
        std::ofstream(first->second) << (content == _contents.end() ? "" : content->second);
      else
        fs::create_hard_link(first->second, folder / place.second);
    }
  }

 private:
  using Entries = std::map<std::pair<uint64_t, std::string>, uint64_t>;

  static void enter(const DiskChange& change, Entries& entries) {
    for (const auto& [folder, name, file] : change.entries) {
      entries[{folder, name}] = file;
      if (file == 0) entries.erase({folder, name});
    }
  }

  const uint64_t _root = inodeOf(AT_FDCWD, "");
  Entries _synced;
  std::map<uint64_t, std::string> _contents;
  std::vector<DiskChange> _pending;
  std::mt19937 _random{19};
};

// Runs a command and goes through the states in which a power cut at any of its changes may leave
// the disk: `expect` is called in each, with whether the command has ended.
template <typename Expect>
void forEachPowerCut(const std::string& command, const Fault& fault, Expect expect) {
  DiskModel disk;
  std::vector<DiskChange> changes;
  {
    const DiskRecorder recorder;
    runAdmin(command, fault);
    changes = recorder.changes;
  }
  for (size_t made = 0; made <= changes.size(); ++made) {
    for (size_t round = 0; round < disk.rounds(); ++round) {
      SCOPED_TRACE(command + " after change " + std::to_string(made));
      disk.restore(round);
      expect(made == changes.size());
      if (testing::Test::HasFailure()) return;
    }
    if (made < changes.size()) disk.apply(changes[made]);
  }
}

TEST_F(BuildSweep, PowerIsLostAfterEachCall) {
  const std::tuple<std::string, Fault, bool> kRuns[] = {
      {"build", {}, false},
      {"build --keep", {}, false},
      {"build --keep", {.call = "renameat", .nth = 7}, true}};  // The card sets file; is undone.
  for (const auto& [command, fault, isUndone] : kRuns) {
    const bool keeps = contains(command, "--keep");
    size_t states = 0;
    makeOld();
    forEachPowerCut(command, fault, [&, isUndone = isUndone](bool hasEnded) {
      ++states;
      EXPECT_TRUE(!hasEnded || (isUndone ? isOld() : isNew()));
      EXPECT_TRUE(!hasEnded || !fs::exists(kPrivateFolder));
      EXPECT_TRUE(!keeps || isUndone || isOld() || hasKept(_old));
      expectRecovery();
      EXPECT_TRUE(hasKept(keeps && isNew() ? _old : kFormer));
    });
    EXPECT_GT(states, 100u);
  }
}

// One of the two states as a whole; or nothing and a message, after five seconds of waiting that
// are much shorter here.
TEST_F(BuildSweep, ReadersSeeOneState) {
  std::map<std::string, int> seen;  // How often each output was there.
  for (const std::string& text : {kOldCards, kNewCards}) {
    build(text);
    for (const char* const verb : {"show 1", "dump"}) seen[runAdmin(verb).output] = 0;
  }
  const pid_t builder = fork();
  while (builder == 0) {
    build(kOldCards);
    build(kNewCards);
  }
  for (int i = 0; i < 1000; ++i) {
    const AdminRun run = runAdmin(i % 2 == 0 ? "show 1" : "dump");
    const bool isBusy = run.status == 3 && run.output.empty();
    EXPECT_TRUE(isBusy || seen.contains(run.output)) << run.output << run.errors;
    ++seen[run.output];
  }
  kill(builder, SIGKILL);
  waitpid(builder, nullptr, 0);
  for (const auto& [output, count] : seen) EXPECT_TRUE(output.empty() || count > 0) << output;
}

// The other verbs change nothing, and what fails is reported or does not matter.
class ReaderSweep : public testing::Test {
 protected:
  ReaderSweep() {
    writeFile("levels", "1 1 1\n");
    EXPECT_EQ(buildCards(kNewCards), 0);
  }

  const std::vector<std::string> kReaders = {
      "diff . ." + kSite,
      "show --card 1:15890 1" + kSite,
      "list" + kSite,
      "why 1 --door 1 --levels levels" + kSite,
      "verify --cards cards" + kSite,
      "dump" + kSite,
      "pattern 1 15890 --formats formats --cardsets cardsets",
      "decode 022A7C24 --formats formats --cardsets cardsets --ident ident",
      "check --cards cards --formats formats --levels levels",
      "format 26.cdf 32.cdf"};
  const TestSite _site;
};

TEST_F(ReaderSweep, EachCallFails) {
  const auto before = allFiles();
  const Fault kFaults[] = {{.call = "any"},
                           {.call = "any", .forEver = true},
                           {.call = "any", .error = EINTR},
                           {.call = "any", .signal = SIGTERM},
                           {.call = "new"},
                           {.call = "allocate"}};
  for (const std::string& reader : kReaders) {
    const AdminRun whole = runAdmin(reader);
    EXPECT_EQ(whole.errors, "");
    for (Fault fault : kFaults)
      while (const auto run = failNext(reader, fault)) {
        const bool isSame = run->status == whole.status && run->output == whole.output;
        EXPECT_TRUE(isSame || !run->errors.empty() || run->status == 2 || run->signal != 0);
        EXPECT_EQ(allFiles(), before);
      }
  }
}

// A file that a dump writes is complete or not there.
TEST_F(ReaderSweep, EachCallOfADumpFailsOrIsInterrupted) {
  const std::string dumped = runAdmin("dump" + kSite).output;
  const auto removeOutput = [] { fs::remove("out"), fs::remove("out.new"); };
  const std::string command = "dump --output out" + kSite;
  const Fault kFaults[] = {{.call = "any"},
                           {.call = "any", .forEver = true},
                           {.call = "any", .error = EINTR},
                           {.call = "any", .signal = SIGINT},
                           {.call = "any", .forEver = true, .signal = SIGINT},
                           {.call = "any", .signal = SIGKILL}};
  for (Fault fault : kFaults)
    for (removeOutput(); const auto run = failNext(command, fault); removeOutput()) {
      const bool isKilled = fault.signal == SIGKILL;
      EXPECT_TRUE(!fs::exists("out") || contentOf("out") == dumped);
      EXPECT_TRUE(isKilled || !run->errors.empty() || fs::exists("out"));
      EXPECT_TRUE(isKilled || fault.forEver || !fs::exists("out.new"));
    }
}

TEST_F(ReaderSweep, PowerIsLostAfterEachCallOfADump) {
  const std::string dumped = runAdmin("dump" + kSite).output;
  for (const std::string before : {"", "old"}) {
    writeFile("out", before);
    if (before.empty()) fs::remove("out");
    const std::string command = before.empty() ? "dump --output out" : "dump --force --output out";
    forEachPowerCut(command + kSite, {}, [&](bool hasEnded) {
      const std::string content = contentOf("out");
      EXPECT_TRUE(content == dumped || (!hasEnded && content == before)) << content;
    });
  }
}

TEST_F(ReaderSweep, AReplacementThatWasCutShortIsReported) {
  fs::create_directory(kPrivateFolder);
  EXPECT_FALSE(contains(runAdmin("dump" + kSite).errors, "was cut short"));
  writeFile(kPrivateFolder + std::string("/journal"), "");
  for (const std::string& reader : kReaders) {
    const bool readsDatabases = contains(reader, "--cardsets");
    const AdminRun run = runAdmin(reader);
    EXPECT_EQ(contains(run.errors, "was cut short"), readsDatabases) << reader;
    EXPECT_TRUE(!contains(reader, "--access") || (run.status == 3 && run.output.empty())) << reader;
  }
}

}  // namespace badgemint::admin::sweeps_test
