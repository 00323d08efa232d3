// Everything fails once, and for ever after: each allocation and each system call, in each entry
// function. A run then ends in a failure that its log reports, or in 0 with complete output; it
// logs its end line and pauses, whatever failed.

#include <regex>
#include <sstream>

#include "support/testsite.h"
#include "tools/badgemint.h"

namespace badgemint::sweeps_test {

using Lines = std::set<std::string>;

char pattern[33];

// The second log fails as well, which costs messages but no result.
constexpr int32_t (*kRuns[])() = {
    [] { return BadgeMint("", "cards", "ident", "access", "formats", "sets", "stdout", 25); },
    [] { return BadgeMint("", "cards", "ident", "access", "formats", "sets", "log", 75); },
    [] { return DumpCardFile("", "id", "acc", "formats", "sets.in", "dumped", "stdout", 25); },
    [] {
      return ComputeCardBitPattern(1, "7", "", "formats", "sets.in", "stdout", 25, pattern, 33);
    },
    [] { return ComputeCardBitPattern2("7", "f 1 1", "", "26.cdf", "stdout", 25, pattern, 33); },
};

// A site of all line types with `more` formats and card sets beside the two, and a block of
// `cards`; built once for the runs that read databases.
void makeSite(int more, int cards) {
  fs::copy(BADGEMINT_EXAMPLE_SITE, ".");
  std::string formats = contentOf("formats") + "3 long37.eff\n4 pad.vff\n";
  std::string lines = "f 1 1 A 21\nf 2 2\nc 1 7 4711 1 1 2 3\nn 0 1A2B 0 2 1\np 1234 3 1\no 99 1\n";
  for (int i = 0; i < more; ++i) {
    formats += std::to_string(i + 5) + " 26.cdf\n";
    lines += "f " + std::to_string(i + 3) + " 1 A 7\n";
  }
  writeFile("formats", formats);
  std::ofstream("cards") << lines << "d 2 1 " << cards << " 100\n# end\n";
  ASSERT_EQ(BadgeMint("", "cards", "id", "acc", "formats", "sets.in", "log", 25), 0);
  takeSleeps();
}

// How a run went, as its caller and its operator see it.
struct Outcome {
  int32_t result;
  bool faultOccurred;
  std::string log;     // Standard output: no fault in a call can suppress it.
  std::string output;  // What it returns and all files that it writes.
};

Outcome outcomeOf(int32_t (*run)(), const Fault& fault) {
  std::fill(std::begin(pattern), std::end(pattern), '\0');
  testing::internal::CaptureStdout();
  const ArmedFault armed(fault);
  Outcome outcome = {run(), armed.hasOccurred(), testing::internal::GetCapturedStdout(), pattern};
  for (const char* const name : {"ident", "access", "sets", "dumped"}) {
    outcome.output += contentOf(name) + "|";
    fs::remove(name);
  }
  EXPECT_EQ(takeSleeps().size(), 1);
  return outcome;
}

// Fails call after call of a run until there is none left. Collects what was reported: the
// lines that no good run has, its end line aside, each after the result.
void sweep(int32_t (*run)(), Fault fault, Lines& reported) {
  const Outcome good = outcomeOf(run, {});
  EXPECT_EQ(good.result, 0);
  for (fault.nth = 1;; ++fault.nth) {
    SCOPED_TRACE(testing::Message() << good.log << fault.call << ' ' << fault.nth);
    const Outcome outcome = outcomeOf(run, fault);
    if (!outcome.faultOccurred) return;
    const std::string result = std::to_string(outcome.result);
    bool isReported = outcome.result == 0 || outcome.log.empty();
    std::istringstream lines(outcome.log);
    for (std::string line; std::getline(lines, line);) {
      if (good.log.find(line + "\n") != good.log.npos || line.ends_with(", result=" + result))
        continue;
      reported.insert(result + " " + line);
      isReported = true;
    }
    EXPECT_TRUE(isReported) << "a failure without a message";
    EXPECT_TRUE(outcome.log.empty() || outcome.log.ends_with(" Complete, result=" + result + "\n"));
    EXPECT_TRUE(outcome.result == 0 || pattern[0] == '\0') << "a failure writes no pattern";
    EXPECT_TRUE(outcome.result != 0 || outcome.output == good.output) << "success over lost data";
  }
}

// All runs, when one call fails and when all later ones do as well.
Lines sweepAll(Fault fault) {
  Lines reported;
  for (const auto run : kRuns)
    for (const bool forEver : {false, true}) {
      // Nothing ends a write that is interrupted for ever but the operator.
      if (forEver && fault.call == "write" && fault.error == EINTR) break;
      fault.forEver = forEver;
      sweep(run, fault, reported);
    }
  return reported;
}

// The site has more formats, card sets and cards than their tables have at first.
TEST(Sweeps, EveryAllocationFails) {
  const TestSite site;
  makeSite(20, 1001);
  const std::regex known(
      "(0|-100|-504|-505|-510|-1006) .25 (CardFormatSet|cardsets|identfile|accessfile|inputcards|"
      "cardindex|badgemintdump). (Not enough memory to create (card index|card formats|card sets|"
      "access index|input cards|ident file|access file|(input|input cards|output file|ident|access|"
      "formats?|cardsets|card sets?) filename)|Error adding cardset ID 21, line#=25)");
  const Lines reported = sweepAll({.call = "allocate"});
  EXPECT_EQ(reported.size(), 34);
  for (const std::string& line : reported) EXPECT_TRUE(std::regex_match(line, known)) << line;
}

TEST(Sweeps, EveryCallFails) {
  const TestSite site;
  makeSite(1, 3);
  const std::set<int> reading = {-335, -338, -341, -348, -371, -383, -435, -502};
  const std::set<int> writing = {-348, -385, -513};  // Records that fail once are written again.
  const std::pair<Fault, std::set<int>> rows[] = {
      {{.call = "read"}, reading},
      {{.call = "read", .error = EINTR}, reading},
      {{.call = "read", .isShort = true}, {}},  // Is read on.
      {{.call = "write"}, writing},
      {{.call = "write", .error = EINTR}, {-348, -513}},
      {{.call = "write", .isShort = true}, writing},
      {{.call = "open"}, {-302, -340, -347, -370, -382, -434, -501, -513}},
      {{.call = "lseek"}, {-383}},
      {{.call = "close"}, {-342, -348, -385, -513, 0}},
      {{.call = "stat"}, {-340}},
      {{.call = "fstat"}, {-502}},
      {{.call = "chmod"}, {0}},
  };
  Lines all;
  for (const auto& [fault, expected] : rows) {
    const Lines reported = sweepAll(fault);
    std::set<int> results;
    for (const std::string& line : reported) results.insert(std::stoi(line));
    EXPECT_EQ(results, expected) << fault.call;
    all.insert(reported.begin(), reported.end());
  }
  for (const char* const shownHereAlone : {
           "-348 [25 cardsets] Error reading card sets file sets.in",
           "-371 [25 fmtfile] Error reading formats file",
           "-502 [25 inputcards] Error reading input cards file",
           "0 [25 inputcards] Error restricting access to its owner",
           "0 [25 inputcards] Error restricting ident to its owner",
       })
    EXPECT_TRUE(all.contains(shownHereAlone)) << shownHereAlone;
}

}  // namespace badgemint::sweeps_test
