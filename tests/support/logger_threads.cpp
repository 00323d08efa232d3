// Several threads on one logger, for ThreadSanitizer: a program of its own, because that sanitizer
// goes with no other. Each single write must come out whole.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <span>
#include <thread>
#include <vector>

#include "support/testfiles.h"

namespace badgemint {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 200;
constexpr size_t kSize = 27;  // Of each text: nine bytes as hexadecimal digits, or three as bits.
constexpr std::array<uint8_t, 9> kBytes = {0xDE, 0xAD, 0xBF};

std::string message(int thread) {
  return std::string(kSize - 1, static_cast<char>('a' + thread)) + "\n";
}

void writeAll(Logger& logger, int thread) {
  for (int i = 0; i < kRounds; ++i) {
    logger.setThreshold(25 + static_cast<uint32_t>(i % 2) * 50);
    logger.write(25, "%s", message(thread).c_str());
    logger.write(75, "%s", message(thread).c_str());  // Now and then.
    if (logger.passes(25)) logger.dumpHex(25, kBytes);
    logger.dumpBits(25, std::span(kBytes).first(3));
  }
}

// Whether the texts of all writes stand in the log one after the other, none inside another.
bool isWhole(const std::string& log) {
  std::set<std::string> texts = {"DE AD BF 00 00 00 00 00 00 ", "11011110 10101101 10111111 "};
  for (int thread = 0; thread < kThreads; ++thread) texts.insert(message(thread));
  for (size_t at = 0; at < log.size(); at += kSize)
    if (!texts.contains(log.substr(at, kSize))) return false;
  return log.size() >= kSize * kThreads * kRounds * 3;
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
