// Everything fails once, and for ever after: each allocation and each system call, in each entry
// function. A run then ends in a failure that its log tells, or in 0 with
// complete output; it logs its end line and pauses, whatever failed.
#include <gtest/gtest.h>

#include <set>

#include "support/faults.h"
#include "support/testsite.h"
#include "tools/badgemint.h"

namespace badgemint {
namespace {

char pattern[33];

const struct Scenario {
  const char* name;
  int32_t (*run)();
} kScenarios[] = {
    {"build",
     [] { return BadgeMint("", "cards", "ident", "access", "formats", "sets", "stdout", 25); }},
    // Its log fails as well, which costs messages but no result.
    {"build with log file",
     [] { return BadgeMint("", "cards", "ident", "access", "formats", "sets", "log", 75); }},
    {"dump",
     [] {
       return DumpCardFile("", "ident.in", "access.in", "formats", "sets.in", "dumped", "stdout",
                           25);
     }},
    {"pattern",
     [] {
       return ComputeCardBitPattern(1, "15890", "", "formats", "sets.in", "stdout", 25, pattern,
                                    sizeof pattern);
     }},
    {"pattern of a format",
     [] {
       return ComputeCardBitPattern2("15890", "f 1 1 A 21", "", "26.cdf", "stdout", 25, pattern,
                                     sizeof pattern);
     }},
};

// A site of all line types with `more` formats and card sets beside the two, and a block of
// `cards`; built once for the runs that read databases.
void makeSite(int64_t more, int64_t cards) {
  std::ofstream formats("formats");
  formats << "1 26.cdf\n2 32.cdf\n3 37.eff\n4 34.vff\n";
  std::ofstream lines("cards");
  lines << "f 1 1 A 21\nf 2 2\nc 1 15890 4711 1 1 2 3\nn 0 1A2B 0 2 1\np 1234 3 1\no 99 1\n";
  for (int i = 0; i < more; ++i) {
    formats << i + 5 << " 26.cdf\n";
    lines << "f " << i + 3 << " 1 A 7\n";
  }
  lines << "d 2 1 " << cards << " 100\n# end\n";
  const auto replace = std::filesystem::copy_options::overwrite_existing;
  std::filesystem::copy(BADGEMINT_EXAMPLE_SITE "/long37.eff", "37.eff", replace);
  std::filesystem::copy(BADGEMINT_EXAMPLE_SITE "/pad.vff", "34.vff", replace);
  lines.close();
  formats.close();
  ASSERT_EQ(BadgeMint("", "cards", "ident.in", "access.in", "formats", "sets.in", "log", 25), 0);
  takeSleeps();
}

// How a run went, as its caller and its operator see it.
struct Outcome {
  int32_t result = 0;
  bool struck = false;
  std::string log;     // Standard output: no fault in a call can suppress it.
  std::string output;  // What it returns and all files that it writes.
  std::vector<unsigned> pauses;
};

Outcome run(const Scenario& scenario, const Fault& fault) {
  constexpr const char* kOutputs[] = {"ident", "access", "sets", "dumped"};
  for (const char* const name : kOutputs) std::filesystem::remove(name);
  std::fill(std::begin(pattern), std::end(pattern), '\0');
  Outcome outcome;
  {
    const ArmedFault armed(fault);
    outcome.result = scenario.run();
    outcome.struck = armed.struck();
  }
  outcome.log = testing::internal::GetCapturedStdout();
  testing::internal::CaptureStdout();
  outcome.output = pattern;
  for (const char* const name : kOutputs) outcome.output += contentOf(name) + "|";
  outcome.pauses = takeSleeps();
  return outcome;
}

// The lines of a log that no good run has, its end line aside, each behind the result.
std::set<std::string> newLines(const Outcome& outcome, const std::string& goodLog) {
  std::set<std::string> found;
  std::istringstream lines(outcome.log);
  for (std::string line; std::getline(lines, line);)
    if (goodLog.find(line + "\n") == goodLog.npos && line.find(" Complete, ") == line.npos)
      found.insert(std::to_string(outcome.result) + " " + line);
  return found;
}

// Strikes call after call of a scenario until a run has no such call left. Collects what the runs
// told.
void sweep(const Scenario& scenario, Fault fault, std::set<std::string>& told) {
  const Outcome good = run(scenario, {});
  EXPECT_EQ(good.result, 0);
  for (fault.nth = 1;; ++fault.nth) {
    SCOPED_TRACE(testing::Message() << scenario.name << ", " << fault.call << ' ' << fault.nth);
    const Outcome outcome = run(scenario, fault);
    if (!outcome.struck) return;
    EXPECT_EQ(outcome.pauses, good.pauses);
    const std::string end = " Complete, result=" + std::to_string(outcome.result) + "\n";
    const bool hasLog = !outcome.log.empty();
    EXPECT_TRUE(!hasLog || outcome.log.ends_with(end));
    EXPECT_TRUE(outcome.result == 0 || pattern[0] == '\0') << "a failure writes no pattern";
    EXPECT_TRUE(outcome.result != 0 || outcome.output == good.output) << "success over lost data";
    const std::set<std::string> lines = newLines(outcome, good.log);
    EXPECT_TRUE(outcome.result == 0 || !hasLog || !lines.empty()) << "a failure without a message";
    told.insert(lines.begin(), lines.end());
  }
}

// All scenarios, when one call fails and when all later ones do as well.
std::set<std::string> sweepAll(Fault fault) {
  std::set<std::string> told;
  testing::internal::CaptureStdout();
  for (const Scenario& scenario : kScenarios) {
    for (const bool forEver : {false, true}) {
      // Nothing ends a write that is interrupted for ever but the operator.
      if (forEver && fault.call == "write" && fault.error == EINTR) break;
      fault.forEver = forEver;
      sweep(scenario, fault, told);
    }
  }
  testing::internal::GetCapturedStdout();
  return told;
}

// The results alone.
std::set<int> resultsOf(const std::set<std::string>& told) {
  std::set<int> results;
  for (const std::string& line : told) results.insert(std::stoi(line));
  return results;
}

// The site has more formats, card sets and cards than their tables have at first.
TEST(Sweeps, EveryAllocationFails) {
  const TestSite site;
  makeSite(20, 1001);
  const struct {
    const char *result, *module;
    std::vector<const char*> things;
  } cases[] = {
      {"-100", "badgemintdump", {"input cards filename", "ident filename", "access filename"}},
      {"-100", "badgemintdump", {"formats filename", "card sets filename", "cardsets filename"}},
      {"-100", "badgemintdump", {"output file filename", "input cards", "format filename"}},
      {"-510", "inputcards", {"input filename", "ident filename", "access filename"}},
      {"-510", "inputcards", {"card set filename", "ident file", "access file"}},
      {"-510", "identfile", {"ident filename"}},
      {"-510", "accessfile", {"access filename"}},
      {"-510", "CardFormatSet", {"card formats"}},
      {"-510", "cardsets", {"card sets"}},
      {"-100", "inputcards", {"format filename", "card index"}},
      {"-505", "CardFormatSet", {"card formats"}},
      {"-504", "cardindex", {"card index"}},
      {"-100", "cardindex", {"card index"}},
      {"-1006", "cardsets", {"card sets"}},
      {"-100", "CardFormatSet", {"card formats"}},
      {"-100", "cardsets", {"card sets"}},
      {"0", "cardsets", {"card sets"}},
      {"-100", "identfile", {"ident filename"}},
      {"-100", "accessfile", {"access filename", "access index"}},
  };
  std::set<std::string> expected{"-1006 [25 inputcards] Error adding cardset ID 21, line#=25"};
  for (const auto& [result, module, things] : cases)
    for (const std::string thing : things)
      expected.insert(std::string(result) + " [25 " + module + "] Not enough memory to create " +
                      thing);
  EXPECT_EQ(sweepAll({.call = "allocate"}), expected);
}

TEST(Sweeps, EveryCallFails) {
  const TestSite site;
  makeSite(1, 3);
  using Lines = std::set<std::string>;
  using Results = std::set<int>;
  const Lines reading = {
      "-335 [25 EffCardFormat] Error reading EFF file",
      "-338 [25 CdfCardFormat] Error reading CDF file",
      "-341 [25 accessfile] Error reading access file access.in",
      "-341 [25 accessindx] Error reading access file access.in",
      "-348 [25 cardsets] Error reading card sets file sets.in",
      "-371 [25 fmtfile] Error reading formats file",
      "-383 [25 identfile] Error reading ident file ident.in",
      "-435 [25 VffCardFormat] Error reading vff file",
      "-502 [25 inputcards] Error reading input cards file",
  };
  const Lines writing = {
      "-342 [25 accessfile] Error writing to access file access",
      "-348 [25 cardsets] Error reading card sets file sets",
      "-385 [25 accessfile] Error writing to access file access",
      "-385 [25 identfile] Error writing to ident file ident",
      "-513 [25 badgemintdump] Error writing output cards file dumped",
  };
  const Lines restricting = {"0 [25 inputcards] Error restricting access to its owner",
                             "0 [25 inputcards] Error restricting ident to its owner"};
  const Results opening = {-302, -340, -347, -370, -382, -434, -501, -513};
  EXPECT_EQ(sweepAll({.call = "read"}), reading);
  EXPECT_EQ(sweepAll({.call = "read", .error = EINTR}), reading);
  EXPECT_EQ(sweepAll({.call = "read", .isShort = true}), Lines{}) << "a short read is read on";
  EXPECT_EQ(sweepAll({.call = "write"}), writing);
  EXPECT_EQ(resultsOf(sweepAll({.call = "write", .error = EINTR})), (Results{-348, -513}));
  EXPECT_EQ(sweepAll({.call = "write", .isShort = true}), writing);
  EXPECT_EQ(sweepAll({.call = "chmod"}), restricting);
  EXPECT_EQ(resultsOf(sweepAll({.call = "open"})), opening);
  EXPECT_EQ(resultsOf(sweepAll({.call = "lseek"})), (Results{-341, -383}));
  EXPECT_EQ(resultsOf(sweepAll({.call = "close"})), (Results{-342, -348, -385, -513, 0}));
  EXPECT_EQ(resultsOf(sweepAll({.call = "unlink"})), Results{});
  EXPECT_EQ(resultsOf(sweepAll({.call = "stat"})), Results{-340});
  EXPECT_EQ(resultsOf(sweepAll({.call = "fstat"})), Results{-502});
}

}  // namespace
}  // namespace badgemint
