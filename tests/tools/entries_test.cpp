// The four entry functions by their transcripts. Their pauses are what they asked `sleep` for.
#include <gtest/gtest.h>

#include "carddb/databases.h"
#include "support/faults.h"
#include "support/script.h"
#include "tools/badgemint.h"

namespace badgemint {
namespace {

// Runs an entry function, which uses a log of its own, and tells its result, pause and log.
template <typename Entry>
void run(Step& c, Entry entry) {
  std::filesystem::remove("run.log");
  Logger* const ours = std::exchange(theLogger, nullptr);
  c.out << entry();
  theLogger = ours;
  for (const unsigned seconds : takeSleeps()) c.out << ", pause " << seconds;
  c.out << '\n' << contentOf("run.log");
}

// The words of a step, or what stands in their place; "-" leaves a word out.
const char* wordOr(const Step& c, size_t i, const char* other) {
  return c.word(i).empty() || c.words[i] == "-" ? other : c.name(i);
}

TEST(EntryFunctions, FollowTheTranscripts) {
  std::string buffer;
  Commands on;
  on["example-site"] = [](Step&) { std::filesystem::copy(BADGEMINT_EXAMPLE_SITE, "."); };
  on["rename"] = [](Step& c) { std::filesystem::rename(c.word(0), c.word(1)); };
  on["same"] = [](Step& c) { c.out << (contentOf(c.name(0)) == contentOf(c.name(1))); };
  // Level, cards, formats, log, base directory.
  on["build"] = [](Step& c) {
    run(c, [&] {
      return BadgeMint(wordOr(c, 4, ""), wordOr(c, 1, "cards"), "ident", "access",
                       wordOr(c, 2, "formats"), "cardsets", wordOr(c, 3, "run.log"),
                       c.as<uint32_t>(0));
    });
  };
  // Level, ident, access, formats, card sets, output, log.
  on["dump"] = [](Step& c) {
    run(c, [&] {
      return DumpCardFile("", wordOr(c, 1, "ident"), wordOr(c, 2, "access"),
                          wordOr(c, 3, "formats"), wordOr(c, 4, "cardsets"), wordOr(c, 5, "dump"),
                          wordOr(c, 6, "run.log"), c.as<uint32_t>(0));
    });
  };
  // Size of the buffer, level, card set, number, formats, card sets, log.
  on["pattern"] = [&](Step& c) {
    buffer.assign(40, '!');
    run(c, [&] {
      return ComputeCardBitPattern(c.as<uint32_t>(2), c.name(3), "", wordOr(c, 4, "formats"),
                                   wordOr(c, 5, "cardsets"), wordOr(c, 6, "run.log"),
                                   c.as<uint32_t>(1), buffer.data(), c.as<int32_t>(0));
    });
    c.out << buffer.c_str();
  };
  // Size of the buffer, level, number, format, log; the card set is the input.
  on["pattern2"] = [&](Step& c) {
    buffer.assign(40, '!');
    run(c, [&] {
      return ComputeCardBitPattern2(c.name(2), c.input.c_str(), "", c.name(3),
                                    wordOr(c, 4, "run.log"), c.as<uint32_t>(1), buffer.data(),
                                    c.as<int32_t>(0));
    });
    c.out << buffer.c_str();
  };

  addRecordCommands(on);
  for (const char* const part : {"round-trip", "bit-patterns", "failures"})
    play(std::string("tools/") + part + ".txt", on);
}

}  // namespace
}  // namespace badgemint
