// Runs a target once over each file of the folders that it is given: how the seeds, which hold
// every input that ever found something, are run by the ordinary tests, with any compiler.
#include "fuzz.h"

int main(int argc, char* argv[]) {
  int inputs = 0;
  for (int i = 1; i < argc; ++i) {
    if (*argv[i] == '-') continue;  // An option of the fuzzer.
    for (const auto& seed : std::filesystem::directory_iterator(argv[i])) {
      std::ifstream file(seed.path(), std::ios::binary);
      const std::string input{std::istreambuf_iterator<char>(file),
                              std::istreambuf_iterator<char>()};
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
      ++inputs;
    }
  }
  std::printf("%d inputs\n", inputs);
  return inputs > 0 ? 0 : 1;
}
