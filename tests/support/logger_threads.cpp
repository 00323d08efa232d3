// Several threads on one logger, for ThreadSanitizer: a program of its own, because that sanitizer
// goes with no other. Each single write must come out whole.
#include <array>
#include <cstdlib>
#include <thread>

#include "support/testfiles.h"

using namespace badgemint;

// Fails unless the texts of all writes stand in the log one after the other, none inside another.
int main() {
  constexpr size_t kSize = 27;  // Of each text: nine bytes as hexadecimal digits, or three as bits.
  constexpr std::array<uint8_t, 9> kBytes = {0xDE, 0xAD, 0xBF};
  const TestFolder folder;
  Logger logger(folder.path("log").c_str(), 25);
  std::set<std::string> texts = {"DE AD BF 00 00 00 00 00 00 ", "11011110 10101101 10111111 "};
  std::vector<std::thread> threads;
  for (const char letter : {'a', 'b', 'c', 'd'})
    threads.emplace_back([&, own = *texts.insert(std::string(kSize, letter)).first] {
      for (uint32_t i = 0; i < 200; ++i) {
        logger.setThreshold(25 + i % 2 * 50);
        logger.write(75, "%s", own.c_str());  // Now and then.
        logger.dumpHex(25, kBytes);
        logger.dumpBits(25, std::span(kBytes).first(3));
      }
    });
  for (std::thread& thread : threads) thread.join();
  const std::string log = contentOf(folder.path("log"));
  bool whole = log.size() >= kSize * 4 * 200 * 2;
  for (size_t at = 0; at < log.size(); at += kSize)
    whole = whole && texts.contains(log.substr(at, kSize));
  return whole ? EXIT_SUCCESS : EXIT_FAILURE;
}
