// The hot operations, each next to an operation with which it is compared. The environment variable
// BADGEMINT_SITE names a folder with a site of `generate mixed` and its databases.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "cardsets/card_functions.h"
#include "formats/CardFormatSet.h"
#include "inputcards/cardindex.h"
#include "inputcards/cardline.h"
#include "inputcards/databasesink.h"
#include "support/datetime.h"
#include "support/log.h"
#include "tools/badgemint.h"

namespace badgemint {
namespace {

constexpr char kLogModule[] = "benchmark";
constexpr const char* kLine =
    "c 4 58425 0470 2248822661 70 2 0 0 0 0 0 0 0 0 1 20 2024/07/03 06:30:00 2030/12/03 0 6 2 1\n";

std::string site(const char* name) {
  const char* const folder = std::getenv("BADGEMINT_SITE");
  return std::string(folder != nullptr ? folder : ".") + "/" + name;
}

void scanLine(benchmark::State& state) {
  for (auto _ : state) {
    FieldScanner scanner(kLine + 1);
    benchmark::DoNotOptimize(scanCardLine(scanner));
    benchmark::DoNotOptimize(scanHolderFields(scanner));
  }
}
BENCHMARK(scanLine);

void scanLineWithSscanf(benchmark::State& state) {
  for (auto _ : state) {
    char type, words[6][100];
    int n[16];
    unsigned u[2];
    benchmark::DoNotOptimize(std::sscanf(
        kLine, "%c%d%99s%99s%u%d%d%d%d%d%d%d%d%d%d%d%u%14s%14s%14s%14s%d%d%d", &type, &n[0],
        words[0], words[1], &u[0], &n[1], &n[2], &n[3], &n[4], &n[5], &n[6], &n[7], &n[8], &n[9],
        &n[10], &n[11], &u[1], words[2], words[3], words[4], words[5], &n[12], &n[13], &n[14]));
  }
}
BENCHMARK(scanLineWithSscanf);

void parseDate(benchmark::State& state) {
  for (auto _ : state) {
    uint32_t seconds = 0;
    benchmark::DoNotOptimize(parsePeriodEnd(PeriodEnd::kStart, "2024/07/03", "06:30:00", seconds));
  }
}
BENCHMARK(parseDate);

// The 86-bit format of the benchmark site.
CardEncoder encoder(CardFormatSet& formats) {
  CardFormat* const format = formats.addFormat(2, site("86.cdf").c_str());
  if (format == nullptr || format->loadFormatFile(site("86.cdf").c_str()) < 0) std::exit(1);
  return {format, format->encodeSite({4711})};
}

void encodeCard(benchmark::State& state) {
  CardFormatSet formats;
  const CardEncoder cards = encoder(formats);
  int64_t number = 5413157653660210664;
  for (auto _ : state) benchmark::DoNotOptimize(cards.encode(++number));
}
BENCHMARK(encodeCard);

void decodeCard(benchmark::State& state) {
  CardFormatSet formats;
  const CardEncoder cards = encoder(formats);
  const CardPattern pattern = cards.encode(5413157653660210664);
  for (auto _ : state) benchmark::DoNotOptimize(cards.decode(pattern));
}
BENCHMARK(decodeCard);

void fillIndex(CardIndex& index, int32_t cards) {
  CardPattern key{};
  for (int32_t i = 0; i < cards; ++i) {
    const uint64_t mixed = static_cast<uint64_t>(i) * 0x9E3779B97F4A7C15;
    std::memcpy(key.data(), &mixed, sizeof mixed);
    if (index.add(key, static_cast<uint32_t>(i) * 2654435761u, 'c', i, 1, i) < 0) std::exit(1);
  }
}

void addToIndex(benchmark::State& state) {
  for (auto _ : state) {
    CardIndex index;
    fillIndex(index, 1'000'000);
  }
  state.SetItemsProcessed(state.iterations() * 1'000'000);
}
BENCHMARK(addToIndex)->Unit(benchmark::kMillisecond);

void checkIndex(benchmark::State& state) {
  CardIndex index;
  fillIndex(index, 1'000'000);
  for (auto _ : state)
    benchmark::DoNotOptimize(index.checkDuplicateKeys() + index.checkDuplicateUniqueIds());
  state.SetItemsProcessed(state.iterations() * 1'000'000);
}
BENCHMARK(checkIndex)->Unit(benchmark::kMillisecond);

// Opens a new file that the benchmark writes.
template <typename File>
void create(File& file, const std::string& path) {
  if (file.setFileName(path.c_str()) < 0 || file.openFile(01101) < 0) std::exit(1);
}

void putRecords(benchmark::State& state) {
  const std::string identPath = site("ident.tmp"), accessPath = site("access.tmp");
  IdentFile identFile;
  AccessFile accessFile;
  create(identFile, identPath);
  create(accessFile, accessPath);
  DatabaseSink databases(identFile, accessFile);
  databases.startGathering();
  const IdentRecord ident;
  const AccessRecord access;
  for (auto _ : state) benchmark::DoNotOptimize(databases.put(ident, &access));
  std::filesystem::remove(identPath);
  std::filesystem::remove(accessPath);
}
BENCHMARK(putRecords)->Iterations(1'000'000);

void filteredMessage(benchmark::State& state) {
  Logger logger(25u);
  theLogger = &logger;
  for (auto _ : state) LOG(kLogStep, "dupcard line#=%d\n", 1);
  theLogger = nullptr;
}
BENCHMARK(filteredMessage);

void writtenMessage(benchmark::State& state) {
  const std::string path = site("log.tmp");
  Logger logger(path.c_str(), 75u);
  theLogger = &logger;
  for (auto _ : state) LOG(kLogStep, "dupcard line#=%d\n", 1);
  theLogger = nullptr;
  std::filesystem::remove(path);
}
BENCHMARK(writtenMessage);

void writtenMessageWithStdio(benchmark::State& state) {
  const std::string path = site("log.tmp");
  const auto append = [&path](const char* text) {
    std::FILE* const file = std::fopen(path.c_str(), "a");
    std::fputs(text, file);
    std::fflush(file);
    std::fclose(file);
  };
  char text[200];
  for (auto _ : state) {
    std::snprintf(text, sizeof text, "%s %d ", kLogModule, __LINE__);
    append(text);
    std::snprintf(text, sizeof text, "dupcard line#=%d\n", 1);
    append(text);
  }
  std::filesystem::remove(path);
}
BENCHMARK(writtenMessageWithStdio);

void loadIdentIndex(benchmark::State& state) {
  const std::string path = site("ident");
  for (auto _ : state) {
    IdentFile file;
    if (file.loadIndex(path.c_str(), 0) != 1) std::exit(1);
  }
}
BENCHMARK(loadIdentIndex)->Unit(benchmark::kMillisecond);

std::vector<IdentIndexEntry> identEntries() {
  IdentFile file;
  std::vector<IdentIndexEntry> entries;
  if (file.setFileName(site("ident").c_str()) < 0 || file.openFile(0) < 0) std::exit(1);
  IdentRecord record;
  while (file.readNext(record) == 0)
    entries.push_back({record.cardnumber, static_cast<uint32_t>(entries.size()), {}});
  return entries;
}

void sortIdentEntries(benchmark::State& state) {
  const std::vector<IdentIndexEntry> entries = identEntries();
  for (auto _ : state) {
    std::vector<IdentIndexEntry> sorted = entries;
    std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
      return std::memcmp(a.key.data(), b.key.data(), a.key.size()) < 0;
    });
    benchmark::DoNotOptimize(sorted.data());
  }
}
BENCHMARK(sortIdentEntries)->Unit(benchmark::kMillisecond);

// New keys go before all others, so that the whole table moves each time.
void insertIntoIndex(benchmark::State& state) {
  IdentFile file;
  if (file.loadIndex(site("ident").c_str(), 0) != 1) std::exit(1);
  CardPattern key{};
  uint8_t next = 100;
  for (auto _ : state) {
    key[15] = --next;
    benchmark::DoNotOptimize(file.addIndexKey(key));
  }
}
BENCHMARK(insertIntoIndex)->Iterations(50)->Unit(benchmark::kMicrosecond);

void moveIndexTable(benchmark::State& state) {
  std::vector<IdentIndexEntry> entries = identEntries();
  entries.resize(entries.size() + 100);
  for (auto _ : state) {
    std::memmove(entries.data() + 1, entries.data(), (entries.size() - 100) * sizeof entries[0]);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(moveIndexTable)->Iterations(50)->Unit(benchmark::kMicrosecond);

// Pauses five seconds, which need no CPU time.
void dumpDatabases(benchmark::State& state) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(site(""));  // Where the format files are looked up.
  for (auto _ : state)
    if (DumpCardFile("", "ident", "access", "formats.txt", "cardsets", "dump.tmp", "log", 25) != 0)
      std::exit(1);
  state.SetItemsProcessed(
      static_cast<int64_t>(std::filesystem::file_size("ident") / IdentRecord::kSize));
  std::filesystem::remove("dump.tmp");
  std::filesystem::current_path(before);
}
BENCHMARK(dumpDatabases)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace badgemint
