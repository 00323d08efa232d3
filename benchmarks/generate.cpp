// Writes the sites that the benchmarks build: `generate mixed|blocks CARDS FOLDER`. It always
// writes the same files.
//
// mixed   CARDS `c` lines with all fields, half of them of a 26-bit format with a facility code and
//         half of an 86-bit one with a 64-position number, card numbers and unique IDs shuffled;
//         and in addition 10 % `o`, 5 % `n` and 5 % `p` lines.
// blocks  six `d` lines of CARDS cards together.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace {

constexpr uint64_t kNumbersPerFacility = 65535;  // 1 to 65535.
constexpr int kWideSet = 253;
constexpr int kBlocks = 6;

// A permutation of 0 to 2^32 - 1: shuffled values that never repeat.
uint32_t shuffled(uint32_t i, uint32_t key) {
  for (int round = 0; round < 3; ++round) {
    i = i * 0x9E3779B1u + key;
    i ^= i >> 15;
    i = i * 0x85EBCA77u;
    i ^= i >> 13;
  }
  return i;
}

// The same for 0 to n - 1: follows the cycle until a value is below n.
uint32_t shuffledBelow(uint32_t i, uint32_t n, uint32_t key) {
  uint32_t mask = 1;
  while (mask < n - 1) mask = mask * 2 + 1;
  do {
    i = (i * 0x9E3779B1u + key) & mask;
    i ^= i >> 7;
    i = (i * 0x85EBCA77u) & mask;
    i ^= i >> 9;
  } while (i >= n);
  return i;
}

void writeFormat(const std::filesystem::path& path, std::string_view widths, int parityAt,
                 int mostFacility) {
  // The output mask as letter and count pairs, in three pieces of 48 positions.
  std::string output;
  for (size_t i = 0; i < widths.size();) {
    const char letter = widths[i++];
    size_t count = 0;
    while (i < widths.size() && widths[i] >= '0' && widths[i] <= '9')
      count = count * 10 + static_cast<size_t>(widths[i++] - '0');
    output.append(count, letter);
  }
  const auto bits = static_cast<int>(output.size());
  std::string even(static_cast<size_t>(bits), '.');
  std::string odd(static_cast<size_t>(bits), '.');
  for (int p = 1; p < parityAt; ++p) even[static_cast<size_t>(p)] = 'X';
  for (int p = parityAt; p < bits - 1; ++p) odd[static_cast<size_t>(p)] = 'X';
  even.front() = 'E';
  odd.back() = 'O';

  std::ofstream file(path);
  file << "Benchmark\n1\n1\n2024\n1\n1\n2\nB\n2\n0\n0\n-\n"
       << "Facility,0," << mostFacility << ",MSB,BIN\nNumber,0,0,MSB,BIN\n\n\n\n\n\n\n";
  for (size_t from = 0; from < output.size(); from += 48) {
    const auto piece = [from](const std::string& mask) { return mask.substr(from, 48); };
    file << piece(output) << "\n\n" << piece(even) << '\n' << piece(odd) << "\n\n\n\n\n\n\n";
  }
}

void writeFormats(const std::filesystem::path& folder) {
  writeFormat(folder / "26.cdf", "P1A8B16P1", 13, 255);
  writeFormat(folder / "86.cdf", "P1A20B64P1", 43, 65535);
  std::ofstream(folder / "formats.txt") << "1 26.cdf\n2 86.cdf\n";
}

void writeCard(std::FILE* file, uint32_t i, uint32_t cards, uint32_t uniqid) {
  const uint32_t number = shuffledBelow(i / 2, (cards + 1) / 2, 77);
  if (i % 2 == 0) {
    std::fprintf(file, "c %u %u", 1 + static_cast<unsigned>(number / kNumbersPerFacility),
                 static_cast<unsigned>(number % kNumbersPerFacility + 1));
  } else {
    const uint64_t wide = (uint64_t{shuffled(number, 3)} << 31) | shuffled(number, 5) >> 1;
    std::fprintf(file, "c %d %llu", kWideSet, static_cast<unsigned long long>(wide));
  }
  const uint32_t any = shuffled(i, 11);
  std::fprintf(file,
               " %04u %u %u %u %u 0 0 0 0 0 %u 0 %u %u 2024/%02u/%02u %02u:30:00 2030/12/%02u 0 %u "
               "%u %u\n",
               any % 10000, uniqid, any % 100, any % 7, any % 3, any & 1, any >> 1 & 1,
               any % 50 == 0 ? 0 : shuffled(any % 50, 1), any % 12 + 1, any % 28 + 1, any % 24,
               any % 28 + 1, any % 8, any % 4, any >> 2 & 1);
}

void writeMixed(std::FILE* file, uint32_t cards) {
  for (unsigned facility = 0; facility * kNumbersPerFacility * 2 < cards; ++facility)
    std::fprintf(file, "f %u 1 A=%u\n", facility + 1, facility + 1);
  std::fprintf(file, "f %d 2 A=4711\n", kWideSet);
  for (uint32_t i = 0; i < cards; ++i) {
    const uint32_t uniqid = shuffled(i, 1);
    writeCard(file, i, cards, uniqid);
    if (i % 10 == 0) std::fprintf(file, "o 1%09u %u\n", i, uniqid);
    if (i % 20 == 1)
      std::fprintf(file, "n 0 F0%08X 0 %u 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n", i,
                   shuffled(cards + i, 1));
    if (i % 20 == 2)
      std::fprintf(file, "p 2%09u %u 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n", i,
                   shuffled(cards + i, 1));
  }
}

void writeBlocks(std::FILE* file, uint32_t cards) {
  std::fprintf(file, "f 1 2 A=4711\n");
  uint32_t first = 1;
  for (int block = 0; block < kBlocks; ++block) {
    const uint32_t count = cards / kBlocks + (static_cast<uint32_t>(block) < cards % kBlocks);
    std::fprintf(file, "d 1 %u %u %u 4\n", first, count, first);
    first += count;
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  const std::string_view kind = argc == 4 ? argv[1] : "";
  const unsigned long cards = argc == 4 ? std::strtoul(argv[2], nullptr, 10) : 0;
  if ((kind != "mixed" && kind != "blocks") || cards < 10 || cards > 30'000'000) {
    std::fputs("Usage: generate mixed|blocks CARDS FOLDER (10 to 30000000 cards)\n", stderr);
    return 1;
  }
  const std::filesystem::path folder = argv[3];
  std::filesystem::create_directories(folder);
  writeFormats(folder);
  std::FILE* const file = std::fopen((folder / "cards.txt").c_str(), "w");
  if (file == nullptr) return 1;
  kind == "mixed" ? writeMixed(file, static_cast<uint32_t>(cards))
                  : writeBlocks(file, static_cast<uint32_t>(cards));
  return std::fclose(file) == 0 ? 0 : 1;
}
