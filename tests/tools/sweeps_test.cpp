// Everything fails once, and for ever after: each allocation and each system call, in each entry
// function and each index load. A run then ends in a failure that its log tells, or in 0 with
// complete output; it logs its end line and pauses, whatever failed.
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <sstream>

#include "support/faults.h"
#include "support/result.h"
#include "support/testsite.h"
#include "tools/badgemint.h"

namespace badgemint {
namespace {

// How a run went, as its caller and its operator see it.
struct Outcome {
  int32_t result = 0;
  std::string log;     // Standard output: no fault in a call can suppress it.
  std::string output;  // All files that it writes, and what it returns.
  std::vector<unsigned> pauses;
};

struct Scenario {
  const char* name;
  std::function<int32_t()> run;
  std::vector<const char*> outputs;
  std::vector<unsigned> pauses;
  int fewestAllocations;
};

char pattern[33];

int32_t loadIdentIndex() {
  Logger logger("stdout", 25);
  theLogger = &logger;
  IdentFile file;
  const int32_t result = file.loadIndex("ident.in", 5) ? kSuccess : kNotFound;
  theLogger = nullptr;
  return result;
}

int32_t loadAccessIndex() {
  Logger logger("stdout", 25);
  theLogger = &logger;
  AccessFile file;
  const int32_t result = file.loadIndex("access.in", 5);
  theLogger = nullptr;
  return result;
}

const Scenario kScenarios[] = {
    {"build",
     [] { return BadgeMint("", "cards", "ident", "access", "formats", "sets", "stdout", 25); },
     {"ident", "access", "sets"},
     {5},
     55},
    {"dump",
     [] {
       return DumpCardFile("", "ident.in", "access.in", "formats", "sets.in", "dumped", "stdout",
                           25);
     },
     {"dumped"},
     {5},
     35},
    {"pattern",
     [] {
       return ComputeCardBitPattern(1, "15890", "", "formats", "sets.in", "stdout", 25, pattern,
                                    sizeof pattern);
     },
     {},
     {1},
     30},
    {"pattern of a format",
     [] {
       return ComputeCardBitPattern2("15890", "f 1 1 A 21", "", "26.cdf", "stdout", 25, pattern,
                                     sizeof pattern);
     },
     {},
     {1},
     5},
    {"ident index", loadIdentIndex, {}, {}, 3},
    {"access index", loadAccessIndex, {}, {}, 2},
};

class Sweeps : public testing::Test {
 protected:
  // A site of all line types with `more` formats and card sets beside the two, and a block of
  // `cards`; built once for the runs that read databases.
  void makeSite(int more, int cards) {
    std::ostringstream formats, lines;
    formats << "1 26.cdf\n2 32.cdf\n3 37.eff\n4 34.vff\n";
    lines << "f 1 1 A 21\nf 2 2\nc 1 15890 4711 1 1 2 3\nn 0 1A2B 0 2 1\np 1234 3 1\no 99 1\n";
    for (int i = 0; i < more; ++i) {
      formats << i + 5 << " 26.cdf\n";
      lines << "f " << i + 3 << " 1 A 7\n";
    }
    lines << "d 2 1 " << cards << " 100\n# end\n";
    std::filesystem::copy(std::string(BADGEMINT_EXAMPLE_SITE) + "/long37.eff", "37.eff");
    std::filesystem::copy(std::string(BADGEMINT_EXAMPLE_SITE) + "/pad.vff", "34.vff");
    _site.folder.write("formats", formats.str());
    _site.folder.write("cards", lines.str());
    ASSERT_EQ(BadgeMint("", "cards", "ident.in", "access.in", "formats", "sets.in", "log", 25), 0);
    takeSleeps();
  }

  Outcome run(const Scenario& scenario) {
    for (const char* const name : scenario.outputs) std::filesystem::remove(name);
    std::fill(std::begin(pattern), std::end(pattern), '\0');
    testing::internal::CaptureStdout();
    Outcome outcome;
    outcome.result = scenario.run();
    outcome.log = withoutLineNumbers(testing::internal::GetCapturedStdout());
    outcome.output = pattern;
    outcome.pauses = takeSleeps();
    return outcome;
  }

  std::string filesOf(const Scenario& scenario) const {
    std::string content;
    for (const char* const name : scenario.outputs) content += _site.folder.read(name) + "|";
    return content;
  }

  // The lines of a log that no good run has, the end line aside.
  static std::string newLines(const std::string& log, const std::string& goodLog) {
    std::istringstream lines(log);
    std::string line, found;
    while (std::getline(lines, line)) {
      if (goodLog.find(line + "\n") == goodLog.npos && line.find(" Complete, ") == line.npos)
        found += line + "\n";
    }
    return found;
  }

  // Strikes call after call until a run has no such call left; `judge` looks at each failure.
  // Returns how many calls were struck.
  int sweep(const Scenario& scenario, Fault fault,
            const std::function<void(int32_t, const std::string&)>& judge) {
    const Outcome good = run(scenario);
    const std::string goodFiles = filesOf(scenario);
    EXPECT_EQ(good.result, 0);
    for (fault.nth = 1;; ++fault.nth) {
      SCOPED_TRACE(testing::Message()
                   << scenario.name << " call " << static_cast<int>(fault.call) << " nth "
                   << fault.nth << " for ever " << fault.forEver << " short " << fault.isShort);
      std::optional<ArmedFault> armed(fault);
      const Outcome outcome = run(scenario);
      const bool struck = armed->struck();
      armed.reset();
      if (!struck) return fault.nth - 1;

      EXPECT_LE(outcome.result, 0);
      EXPECT_EQ(outcome.pauses, scenario.pauses);
      if (!scenario.pauses.empty() && !outcome.log.empty()) {
        const std::string end = " Complete, result=" + std::to_string(outcome.result) + "\n";
        EXPECT_TRUE(outcome.log.ends_with(end)) << outcome.log;
      }
      if (outcome.result == 0) {
        EXPECT_EQ(outcome.output, good.output);
        EXPECT_EQ(filesOf(scenario), goodFiles);
      } else {
        EXPECT_EQ(outcome.output, "") << "a failure writes no pattern";
        judge(outcome.result, newLines(outcome.log, good.log));
      }
      if (HasFailure()) return 0;
    }
  }

  TestSite _site;
};

TEST_F(Sweeps, EveryAllocationFails) {
  const std::set<int32_t> codes = {kOutOfMemory,    kLogNotOpen,     kLoaderNotInitialised,
                                   kFormatNotAdded, kInvalidCardSet, kCardIndexNotInitialised,
                                   kNotFound};
  makeSite(20, 1001);
  for (const Scenario& scenario : kScenarios) {
    for (const bool forEver : {false, true}) {
      const int calls = sweep(
          scenario, {.call = Call::kAllocate, .forEver = forEver},
          [&](int32_t result, const std::string& message) {
            EXPECT_TRUE(codes.contains(result)) << result;
            // Without a log there is only the result.
            const bool hasLog =
                result != kLogNotOpen && !(result == kOutOfMemory && message.empty());
            const bool tells = message.find("Not enough memory to create ") != message.npos ||
                               message.find("ident index allocation failure") != message.npos ||
                               message.find("unable to create idrecs") != message.npos;
            EXPECT_TRUE(tells || !hasLog) << result << message;
          });
      EXPECT_GE(calls, scenario.fewestAllocations) << scenario.name;
    }
  }
}

TEST_F(Sweeps, EverySystemCallFails) {
  const Fault faults[] = {
      {.call = Call::kOpen, .error = EMFILE},  {.call = Call::kRead, .error = EIO},
      {.call = Call::kRead, .error = EINTR},   {.call = Call::kRead, .isShort = true},
      {.call = Call::kWrite, .error = ENOSPC}, {.call = Call::kWrite, .error = EINTR},
      {.call = Call::kWrite, .isShort = true}, {.call = Call::kSeek, .error = EIO},
      {.call = Call::kClose, .error = EIO},    {.call = Call::kUnlink, .error = EIO},
      {.call = Call::kChmod, .error = EIO},    {.call = Call::kStat, .error = EIO}};
  makeSite(1, 3);
  for (Fault fault : faults) {
    int calls = 0;
    for (const Scenario& scenario : kScenarios) {
      // A short read of the ident database is its end, as for every reader of records.
      if (fault.isShort && fault.call == Call::kRead && scenario.name == std::string("dump"))
        continue;
      for (fault.forEver = false;; fault.forEver = true) {
        // Nothing ends a write that is interrupted for ever but the operator.
        if (fault.forEver && fault.call == Call::kWrite && fault.error == EINTR) break;
        calls += sweep(scenario, fault, [](int32_t result, const std::string& message) {
          EXPECT_NE(message, "") << result;
        });
        if (fault.forEver) break;
      }
    }
    EXPECT_GT(calls, 0) << static_cast<int>(fault.call);
  }
}

// The log in a file: its own calls fail as well, which costs messages but no result.
TEST_F(Sweeps, ALogThatFailsStopsNothing) {
  makeSite(0, 3);
  for (const Call call : {Call::kOpen, Call::kWrite, Call::kClose, Call::kAllocate}) {
    for (const bool forEver : {false, true}) {
      const Scenario build = {
          "build with log file",
          [] { return BadgeMint("", "cards", "ident", "access", "formats", "sets", "log", 75); },
          {"ident", "access", "sets"},
          {5},
          0};
      EXPECT_GT(sweep(build, {.call = call, .forEver = forEver}, [](int32_t, const auto&) {}), 0);
    }
  }
}

}  // namespace
}  // namespace badgemint
