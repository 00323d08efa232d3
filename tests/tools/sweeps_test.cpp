// Everything fails once, and for ever after: each allocation and each system call, in each entry
// function and each index load. A run then ends in a failure that its log tells, or in 0 with
// complete output; it logs its end line and pauses, whatever failed.
#include <gtest/gtest.h>

#include <set>

#include "support/script.h"
#include "support/testsite.h"
#include "tools/badgemint.h"

namespace badgemint {
namespace {

char pattern[33];

// Loads an index as another program does.
int32_t withLog(bool (*load)()) {
  Logger logger("stdout", 25);
  theLogger = &logger;
  return load() ? 0 : -1;
}

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
    {"ident index", [] { return withLog([] { return IdentFile().loadIndex("ident.in", 5); }); }},
    {"access index",
     [] { return withLog([] { return AccessFile().loadIndex("access.in", 5) == 0; }); }},
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

// What a run that failed told its operator: the lines of its log that no good run has, the end line
// aside.
std::string messages(const std::string& log, const std::string& goodLog) {
  std::istringstream lines(log);
  std::string line, found;
  while (std::getline(lines, line)) {
    line += '\n';
    if (goodLog.find(line) == goodLog.npos && line.find(" Complete, ") == line.npos) found += line;
  }
  return found.empty() ? "\n" : ' ' + found;
}

// Strikes call after call of a scenario until a run has no such call left. Returns the kinds of
// outcome.
std::vector<std::string> sweep(const Scenario& scenario, Fault fault) {
  std::vector<std::string> outcomes;
  const Outcome good = run(scenario, {});
  EXPECT_EQ(good.result, 0);
  for (fault.nth = 1;; ++fault.nth) {
    SCOPED_TRACE(testing::Message() << scenario.name << ", call " << fault.nth);
    const Outcome outcome = run(scenario, fault);
    if (!outcome.struck) return outcomes;
    EXPECT_EQ(outcome.pauses, good.pauses);
    const std::string result = std::to_string(outcome.result);
    EXPECT_TRUE(good.pauses.empty() || outcome.log.empty() ||
                outcome.log.ends_with(std::string(" Complete, result=") + result + "\n"));
    EXPECT_TRUE(outcome.result == 0 || pattern[0] == '\0') << "a failure writes no pattern";
    EXPECT_TRUE(outcome.result != 0 || outcome.output == good.output) << "success over lost data";
    outcomes.push_back(scenario.name + (": " + result) + messages(outcome.log, good.log));
  }
}

TEST(Sweeps, FollowTheTranscript) {
  Commands on;
  on["site"] = [](Step& c) { makeSite(c.number(0), c.number(1)); };
  // Each kind of outcome of each scenario, when one call fails and when all later ones do.
  on["sweep"] = [](Step& c) {
    Logger* const ours = theLogger;
    std::set<std::string> told;
    for (const Scenario& scenario : kScenarios) {
      for (const bool forEver : {false, true}) {
        Fault fault = c.fault();
        // Nothing ends a write that is interrupted for ever but the operator.
        if (forEver && fault.call == "write" && fault.error == EINTR) break;
        fault.forEver = forEver;
        for (const std::string& outcome : sweep(scenario, fault))
          if (told.insert(outcome).second) c.out << outcome;
      }
    }
    theLogger = ours;
  };
  play("tools/sweeps.txt", on);
}

}  // namespace
}  // namespace badgemint
