// Runs a target once with each file of the given folders, so that the ordinary tests can run the
// seeds, with every input that ever found a fault, with any compiler. With -mixed=N it then runs N
// lines of words from these seeds, combined at random but always in the same way.
#include <random>
#include <sstream>

#include "fuzz.h"

namespace {

void run(const std::string& input) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
}

std::string mixedLine(const std::vector<std::string>& words, std::mt19937& random) {
  static const char* const kBlanks[] = {" ", "  ", "\t", "\v\f", "\r", "\n", "", "\xA0"};
  std::string line;
  for (size_t n = random() % 12; n > 0; --n)
    line += kBlanks[random() % std::size(kBlanks)] + words[random() % words.size()];
  return line;
}

}  // namespace

int main(int argc, char* argv[]) {
  int mixed = 0;
  std::vector<std::string> words;
  int inputs = 0;
  for (int i = 1; i < argc; ++i) {
    std::sscanf(argv[i], "-mixed=%d", &mixed);
    if (*argv[i] == '-') continue;  // Other options are for the fuzzer.
    for (const auto& seed : std::filesystem::directory_iterator(argv[i])) {
      std::ifstream file(seed.path(), std::ios::binary);
      const std::string input{std::istreambuf_iterator<char>(file),
                              std::istreambuf_iterator<char>()};
      run(input);
      std::istringstream text(input);
      for (std::string word; text >> word;) words.push_back(word);
      ++inputs;
    }
  }
  std::mt19937 random(20240131);
  for (int i = 0; i < mixed && !words.empty(); ++i, ++inputs) run(mixedLine(words, random));
  std::printf("%d inputs\n", inputs);
  return inputs > 0 ? 0 : 1;
}
