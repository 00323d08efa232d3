// Several threads on one logger, for ThreadSanitizer: a program of its own, because that sanitizer
// goes with no other. Each single write must come out whole.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "support/testfiles.h"

namespace badgemint {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 200;
constexpr std::array<uint8_t, 3> kBytes = {0xDE, 0xAD, 0xBF};

std::string message(int thread) {
  return std::string(150, static_cast<char>('a' + thread)) + "\n";
}

void writeAll(Logger& logger, int thread) {
  for (int i = 0; i < kRounds; ++i) {
    logger.setThreshold(25 + static_cast<uint32_t>(i % 2) * 50);
    logger.write(25, "%s", message(thread).c_str());
    logger.write(75, "%s", message(thread).c_str());  // Now and then.
    if (logger.passes(25)) logger.dumpHex(25, kBytes);
    logger.dumpBits(25, kBytes);
  }
}

// Whether the texts of all writes stand in the log one after the other, none inside another.
bool isWhole(std::string_view log) {
  std::vector<std::string> texts = {"DE AD BF ", "11011110 10101101 10111111 "};
  for (int thread = 0; thread < kThreads; ++thread) texts.push_back(message(thread));
  int lines = 0;
  for (size_t length = 0; !log.empty(); log.remove_prefix(length)) {
    length = 0;
    for (const std::string& text : texts)
      if (log.starts_with(text)) length = text.size();
    if (length == 0) return false;
    lines += length == message(0).size();
  }
  return lines >= kThreads * kRounds;
}

}  // namespace
}  // namespace badgemint

int main() {
  using namespace badgemint;
  const TestFolder folder;
  Logger logger(folder.path("log").c_str(), 25);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread)
    threads.emplace_back([&logger, thread] { writeAll(logger, thread); });
  for (std::thread& thread : threads) thread.join();
  if (isWhole(folder.read("log"))) return EXIT_SUCCESS;
  std::puts("A text stands inside another");
  return EXIT_FAILURE;
}
