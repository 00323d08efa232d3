// Random sites against a plain reading of their cards: each line by one formatted scan, duplicates
// by a sort and a scan. It says the result, the log and both databases; their dump builds them
// again.
#include <gtest/gtest.h>

#include <bit>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <map>
#include <random>
#include <sstream>
#include <vector>

#include "support/faults.h"
#include "support/testsite.h"
#include "tools/badgemint.h"

namespace badgemint {
namespace {

__attribute__((format(printf, 1, 2))) std::string print(const char* format, ...) {
  char text[300];
  va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  return text;
}

// One card or PIN; keys and packed PINs as hexadecimal digits.
struct Entry {
  char type = 0;
  int line = 0, csid = 0;
  unsigned uniqid = 0, escort = 0, start = 0, end = 0;
  long long number = 0;
  std::string key, pin = "0";
  int levels[8] = {}, elevator = 0, group = 0;
  int flags[4] = {};  // Of bits 5, 1, 2 and 4.
};

// Card set 12 has format 1 and facility code 21, card set 13 has format 2.
std::string encoded(int csid, long long number) {
  const auto low = static_cast<unsigned>(number);
  if (csid == 13) return print("%08X%024d", low, 0);
  const unsigned body = 21 << 16 | low;
  const bool even = std::popcount(body >> 12) % 2 != 0, odd = std::popcount(body & 0xFFF) % 2 == 0;
  return print("%08X%024d", unsigned{even} << 25 | body << 1 | unsigned{odd}, 0);
}

std::string packed(const std::string& pin, size_t digits) {
  return (pin + "F" + std::string(digits, '0')).substr(0, digits);
}

unsigned seconds(const std::string& date, const std::string& time, const char* ofZero) {
  tm t{};
  const std::string text = date + "-" + (time == "0" ? ofZero : time);
  if (std::sscanf(text.c_str(), "%d/%d/%d-%d:%d:%d", &t.tm_year, &t.tm_mon, &t.tm_mday, &t.tm_hour,
                  &t.tm_min, &t.tm_sec) < 6)
    return 0;
  t.tm_year -= 1900;
  --t.tm_mon;
  return static_cast<unsigned>(timegm(&t));
}

Entry readCardOrPin(const char* line) {
  Entry e;
  e.type = *line;
  char number[100] = "", pin[100] = "", dates[4][15] = {};
  int at = 0;
  if (std::strchr("cn", e.type) != nullptr) {
    std::sscanf(line, "%*c%d%99s%99s%u%n", &e.csid, number, pin, &e.uniqid, &at);
  } else {
    std::sscanf(line, "%*c%99s%u%n", pin, &e.uniqid, &at);
  }
  int* const l = e.levels;
  if (at > 0 && e.type != 'o')
    std::sscanf(line + at, "%d%d%d%d%d%d%d%d%d%d%d%u%14s%14s%14s%14s%d%d%d", l, l + 1, l + 2, l + 3,
                l + 4, l + 5, l + 6, l + 7, &e.flags[2], &e.flags[1], &e.flags[3], &e.escort,
                dates[0], dates[1], dates[2], dates[3], &e.elevator, &e.group, &e.flags[0]);
  e.start = seconds(dates[0], dates[1], "00:00:00");
  e.end = seconds(dates[2], dates[3], "23:59:59");
  e.pin = pin;
  e.key = packed(e.pin, 32);
  if (e.type == 'c') {
    e.number = std::atoll(number);
    e.key = encoded(e.csid, e.number);
  } else if (e.type == 'n') {
    e.csid = 0;
    e.key = std::string(number) + std::string(32 - std::strlen(number), '0');
    for (char& digit : e.key) digit = static_cast<char>(std::toupper(digit));
  } else {
    e.flags[0] = 0;
  }
  return e;
}

std::vector<Entry> readBlock(const char* line) {
  int csid = 0, first = 0, count = 0, uniqid = 0, level = 0;
  std::sscanf(line, "d%d%d%d%d%d", &csid, &first, &count, &uniqid, &level);
  std::vector<Entry> block;
  for (int i = 0; i < count; ++i) {
    Entry e;
    e.type = 'd';
    e.csid = csid;
    e.uniqid = static_cast<unsigned>(uniqid + i);
    e.number = static_cast<long long>(first) + i;
    e.key = encoded(csid, e.number);
    e.levels[0] = level;
    block.push_back(e);
  }
  return block;
}

std::vector<Entry> readCards(const std::string& cards) {
  std::vector<Entry> entries;
  std::istringstream lines(cards);
  std::string line;
  for (int n = 1; std::getline(lines, line); ++n) {
    std::vector<Entry> read;
    if (line.starts_with('d')) read = readBlock(line.c_str());
    if (std::strchr("cnpo", line[0]) != nullptr && !line.empty())
      read = {readCardOrPin(line.c_str())};
    for (Entry& e : read) e.line = n;
    entries.insert(entries.end(), read.begin(), read.end());
  }
  return entries;
}

// What is told of one entry, with commas or without.
std::string told(const std::string& label, const Entry& e, const char* comma = ",") {
  const std::string info = "[25 cardindex] " + label + " - ";
  std::string text = info + print("uniqid=%u, linetype=%c%s line#=%d%s csid=%d%s cardno=%lld\n",
                                  e.uniqid, e.type, comma, e.line, comma, e.csid, comma, e.number);
  if (e.type == 'p' || e.type == 'o') text += info + "pin=" + e.pin + "\n";
  if (e.type != 'n') return text;
  text += info + "hexcardno=";
  for (size_t i = 0; i < 32; i += 2) text += e.key.substr(i, 2) + " ";
  return text + "\n";
}

int sharedKey(std::vector<Entry> entries, std::string& log) {
  std::ranges::stable_sort(entries, {}, &Entry::key);
  const auto first = std::ranges::adjacent_find(entries, {}, &Entry::key);
  if (first == entries.end()) return 0;
  log = "[25 cardindex] Error - Duplicate hex card number\n" + told("First card info", *first, "") +
        told("Second card info", first[1], "");
  return -1011;
}

int sharedUniqid(std::vector<Entry> entries, std::string& log) {
  std::ranges::stable_sort(entries, {}, &Entry::uniqid);
  for (size_t i = 1; i < entries.size(); ++i) {
    const Entry &before = entries[i - 1], &entry = entries[i];
    const bool shared = before.uniqid == entry.uniqid;
    const bool behind = i + 1 < entries.size() && entries[i + 1].uniqid == entry.uniqid;
    if (entry.type == 'o' && !shared && !behind) {
      log = "[25 cardindex] Error - Unpaired 'o' line\n" + told("card info", entry);
      return -500;
    }
    const std::string types = {before.type, entry.type};
    if (!shared || (types.find('p') == types.npos && (before.type == 'o') != (entry.type == 'o')))
      continue;
    log = "[25 cardindex] Error - Duplicate unique ID\n" + told("First card info", before) +
          told("Second card info", entry);
    return -1001;
  }
  return 0;
}

// A number of a record, lowest byte first.
std::string bytes(long long number, int count) {
  std::string text;
  for (; count > 0; --count, number >>= 8)
    text += print("%02X", static_cast<unsigned>(number & 255));
  return text;
}

std::string identRecord(const Entry& e) {
  const int code = e.type == 'n' ? 254 : e.type == 'o' ? 255 : e.csid;
  return e.key + bytes(e.uniqid, 4) + bytes(code, 4) + bytes(0, 4) + "\n";
}

std::string accessRecord(const Entry& e) {
  std::string text = bytes(e.uniqid, 4) + (e.type == 'p' ? "00000000" : packed(e.pin, 8));
  for (const int level : e.levels) text += bytes(level, 2);
  text += bytes(e.start, 4) + bytes(e.end, 4) + bytes(e.escort, 4) + bytes(0, 4);
  const int flags =
      (e.flags[1] ? 2 : 0) | (e.flags[2] ? 4 : 0) | (e.flags[3] ? 16 : 0) | (e.flags[0] ? 32 : 0);
  return text + bytes(flags, 1) + bytes(e.elevator, 1) + bytes(e.group, 1) + "00\n";
}

class RandomCards {
 public:
  explicit RandomCards(unsigned seed) : _random(seed) {}

  // A few lines of all types, or a few blocks of many cards; values are often near each other.
  std::string cards(bool large) {
    std::string text = "f 12 1 A=21\nf 13\t2 # no more\r\n";
    for (int lines = 1 + pick(large ? 3 : 12); lines > 0; --lines)
      text += large ? print("d 13 %d %d %d\n", pick(20000), pick(4000), pick(20000)) : line();
    return text;
  }

 private:
  int pick(int below) { return static_cast<int>(_random() % static_cast<unsigned>(below)); }
  std::string pin() { return print("%0*d", 1 + pick(8), pick(200)).substr(0, 8); }
  std::string date() {
    const time_t time = _random() % 2'100'000'000;
    tm t{};
    gmtime_r(&time, &t);
    const int width = 1 + pick(8);
    if (pick(3) == 0) return "0 " + std::to_string(pick(2));
    return print("%d/%0*d/%d ", t.tm_year + 1900, width, t.tm_mon + 1, t.tm_mday) +
           (pick(3) == 0 ? "0" : print("%d:%02d:%d", t.tm_hour, t.tm_min, t.tm_sec));
  }
  unsigned uniqid() {
    if (pick(3) != 0) _uniqid = static_cast<unsigned>(pick(9) ? pick(90) : -pick(3));
    return _uniqid;
  }

  // What may be cut off at its end.
  std::string holder(bool isPin) {
    std::string text;
    for (int i = 0; i < 8; ++i) text += print(" %d", pick(4) ? 0 : pick(90000) - 9);
    for (int i = 0; i < 3; ++i) text += print(" %d", pick(3) - 1);
    text += print("\t%u ", pick(2) ? 0u : static_cast<unsigned>(_random())) + date() + " " + date();
    text += print(" %d %d", pick(300), pick(300)) + (isPin ? "" : print(" %d", pick(2)));
    return pick(4) == 0 ? text.substr(0, _random() % text.size()) : text;
  }
  std::string line() {
    const unsigned id = uniqid();
    const int csid = 12 + pick(2);
    const char* const space = pick(4) == 0 ? " \t " : " ";
    switch (pick(8)) {
      case 0:
        return print("o%s%s %u\n", space, pin().c_str(), id);
      case 1:
        return "p " + pin() + pin() + print("%s%u", space, id) + holder(true) + "\n";
      case 2:
        return print("n %d %0*x%0*X", pick(999), 1 + pick(23), pick(99), 1 + pick(9), pick(9)) +
               space + pin() + print(" %u", id) + holder(false) + "\n";
      case 3:
        return print("d %d %d %d %d", csid, pick(60000), pick(6) - 1, static_cast<int>(id)) +
               (pick(2) ? "\n" : print(" %d\r\n", pick(9)));
      case 4:
        return pick(2) ? "# c 12 1 0 1\n" : pick(2) ? "f 12 2 B 3\n" : " \t\n";
      default:
        return (pick(2) ? "c" : "c ") + print("%d%s0%d ", csid, space, pick(3) ? pick(65536) : 7) +
               pin() + print(" %u", id) + holder(false) + "\n";
    }
  }

  std::mt19937 _random;
  unsigned _uniqid = 5;
};

std::string records(const char* name, size_t size) {
  std::string text = hexLines(contentOf(name), size);
  std::erase(text, ' ');
  return text;
}

bool isSharedByHolders(std::vector<Entry> entries) {
  std::erase_if(entries, [](const Entry& e) { return e.type == 'o'; });
  std::ranges::sort(entries, {}, &Entry::uniqid);
  return std::ranges::adjacent_find(entries, {}, &Entry::uniqid) != entries.end();
}

void expectDatabases(const std::vector<Entry>& entries) {
  std::string idents, accesses;
  for (const Entry& e : entries) {
    idents += identRecord(e);
    if (e.type != 'o') accesses += accessRecord(e);
  }
  EXPECT_EQ(records("ident", 28), idents);
  EXPECT_EQ(records("access", 44), accesses);
}

TEST(RandomSites, AreBuiltDumpedAndBuiltAgainAsAPlainReadingSays) {
  const TestSite site;
  TestLog log(25);
  std::map<int, int> results;
  for (unsigned seed = 0; seed < 500 && !testing::Test::HasFailure(); ++seed) {
    const std::string cards = RandomCards(seed).cards(seed % 100 == 99);
    SCOPED_TRACE(cards);
    const std::vector<Entry> entries = readCards(cards);
    std::string said;
    int result = sharedKey(entries, said);
    if (result == 0) result = sharedUniqid(entries, said);
    ++results[result];
    EXPECT_EQ(buildCards(cards), result);
    EXPECT_EQ(log.take(), said + print("[0 inputcards] Number of cards=%zu\n", entries.size()));
    if (result != 0) continue;
    expectDatabases(entries);
    if (isSharedByHolders(entries)) continue;
    EXPECT_EQ(DumpCardFile("", "ident", "access", "formats", "cardsets", "dump", "run.log", 0), 0);
    takeSleeps();
    log.publish();
    EXPECT_EQ(buildCards(contentOf("dump")), 0);
    expectDatabases(entries);
    log.take();
  }
  for (const auto& [result, times] : results) EXPECT_GT(times, 30) << result;
}

}  // namespace
}  // namespace badgemint
