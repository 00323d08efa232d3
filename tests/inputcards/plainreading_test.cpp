// Random sites against a plain reading of their cards: each line by one formatted scan, duplicates
// by a sort and a scan. It says the result, the log and both databases; fuzz/cards_file.cpp builds
// their dumps again.

#include <cstdarg>
#include <map>
#include <sstream>

#include "support/result.h"
#include "support/testsite.h"

namespace badgemint::plainreading_test {

__attribute__((format(printf, 1, 2))) std::string print(const char* format, ...) {
  char text[300];
  va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  return text;
}

// One card or PIN.
struct Entry {
  char type = 0;
  int line = 0, csid = 0;
  unsigned uniqid = 0;
  long long number = 0;
  CardPattern key{};
  std::string pin;
};

// Digits at the front of so many bytes.
template <typename Bytes>
Bytes packed(const std::string& digits) {
  Bytes bytes{};
  for (size_t i = 0; i < std::min(digits.size(), 2 * bytes.size()); ++i)
    bytes[i / 2] |=
        static_cast<uint8_t>(std::stoi(digits.substr(i, 1), nullptr, 16) << (4 - i % 2 * 4));
  return bytes;
}

Entry readCardOrPin(const char* line, int lineNumber) {
  Entry e;
  e.type = *line;
  e.line = lineNumber;
  char number[100] = "", pin[100] = "";
  if (e.type == 'c' || e.type == 'n') {
    std::sscanf(line, "%*c%d%99s%99s%u", &e.csid, number, pin, &e.uniqid);
  } else {
    std::sscanf(line, "%*c%99s%u", pin, &e.uniqid);
  }
  e.pin = pin;
  if (e.type == 'c') e.number = std::atoll(number);
  if (e.type == 'n') e.csid = 0;
  e.key = packed<CardPattern>(e.type == 'c'   ? print("%08llX", e.number)
                              : e.type == 'n' ? number
                                              : e.pin + "F");
  return e;
}

std::vector<Entry> readCards(const std::string& cards) {
  std::vector<Entry> entries;
  std::istringstream lines(cards);
  std::string line;
  for (int n = 1; std::getline(lines, line); ++n) {
    int csid = 0, first = 0, count = 0, uniqid = 0, level = 0;
    std::sscanf(line.c_str(), "d%d%d%d%d%d", &csid, &first, &count, &uniqid, &level);
    for (int i = 0; i < count; ++i) {
      const std::string card = print("c %d %d 0 %d %d", csid, first + i, uniqid + i, level);
      entries.push_back(readCardOrPin(card.c_str(), n));
      entries.back().type = 'd';
    }
    if (line.find_first_of("cnpo") == 0) entries.push_back(readCardOrPin(line.c_str(), n));
  }
  return entries;
}

// What is reported of one entry, with commas or without.
std::string entryText(const std::string& label, const Entry& e, const char* comma = ",") {
  const std::string info = "[25 cardindex] " + label + " - ";
  std::string text = info + print("uniqid=%u, linetype=%c%s line#=%d%s csid=%d%s cardno=%lld\n",
                                  e.uniqid, e.type, comma, e.line, comma, e.csid, comma, e.number);
  if (e.type == 'p' || e.type == 'o') text += info + "pin=" + e.pin + "\n";
  if (e.type != 'n') return text;
  text += info + "hexcardno=";
  for (const uint8_t byte : e.key) text += print("%02X ", byte);
  return text + "\n";
}

// The result of the first pass, and what it says.
std::pair<int32_t, std::string> check(std::vector<Entry> entries) {
  std::vector<Entry> byKey = entries;
  std::ranges::stable_sort(byKey, {}, &Entry::key);
  if (const auto e = std::ranges::adjacent_find(byKey, {}, &Entry::key); e != byKey.end())
    return {kDuplicateCardKey, "[25 cardindex] Error - Duplicate hex card number\n" +
                                   entryText("First card info", *e, "") +
                                   entryText("Second card info", e[1], "")};
  std::ranges::stable_sort(entries, {}, &Entry::uniqid);
  for (size_t i = 1; i < entries.size(); ++i) {
    const Entry &before = entries[i - 1], &entry = entries[i];
    const bool shared = before.uniqid == entry.uniqid;
    const bool after = i + 1 < entries.size() && entries[i + 1].uniqid == entry.uniqid;
    if (entry.type == 'o' && !shared && !after)
      return {kUnpairedPinIdent,
              "[25 cardindex] Error - Unpaired 'o' line\n" + entryText("card info", entry)};
    const bool hasPin = before.type == 'p' || entry.type == 'p';
    if (!shared || (!hasPin && (before.type == 'o') != (entry.type == 'o'))) continue;
    return {kDuplicateUniqueId, "[25 cardindex] Error - Duplicate unique ID\n" +
                                    entryText("First card info", before) +
                                    entryText("Second card info", entry)};
  }
  return {kSuccess, ""};
}

class RandomCards {
 public:
  explicit RandomCards(unsigned seed) : _random(seed) {}

  // A few lines of all types, or a few blocks of many cards; values are often near each other.
  std::string cards(bool large) {
    std::string text = "f 12 2\nf 13\t2 # no more\r\n";
    for (int lines = 1 + pick(large ? 3 : 12); lines > 0; --lines)
      text += large ? print("d 13 %d %d %d\n", pick(20000), pick(4000), pick(20000)) : line();
    return text;
  }

 private:
  int pick(int below) { return static_cast<int>(_random() % static_cast<unsigned>(below)); }
  std::string pin() { return print("%0*d", 1 + pick(8), pick(200)).substr(0, 8); }
  std::string holder() {
    return pick(4) == 0 ? "\n" : print(" %d 0 %d 0 0\t9 0 0 0 %d\n", pick(9), pick(90000), pick(2));
  }
  std::string line() {
    if (pick(3) != 0) _uniqid = pick(9) ? pick(90) : -pick(3);
    const std::string space = pick(4) == 0 ? " \t " : " ", id = print(" %u", unsigned(_uniqid));
    switch (pick(8)) {
      case 0:
        return "o" + space + pin() + id + "\n";
      case 1:
        return "p " + pin() + pin() + space + id + holder();
      case 2:
        return print("n %d %0*x%0*X", pick(999), 1 + pick(23), pick(99), 1 + pick(9), pick(9)) +
               space + pin() + id + holder();
      case 3:
        return print("d %d %d %d %d", 12 + pick(2), pick(60000), pick(6) - 1, _uniqid) +
               (pick(2) ? "\n" : print(" %d\r\n", pick(9)));
      case 4:
        return pick(2) ? "# c 12 1 0 1\n" : pick(2) ? "f 12 2 B 3\n" : " \t\n";
      default:
        return print("c%*d%s0%d ", pick(4), 12 + pick(2), space.c_str(),
                     pick(3) ? pick(65536) : 7) +
               pin() + id + holder();
    }
  }

  std::mt19937 _random;
  int _uniqid = 5;
};

void expectDatabases(const std::vector<Entry>& entries) {
  const std::string access = contentOf("access");
  std::vector<IdentRecord> idents;
  size_t accesses = 0;
  for (const Entry& e : entries) {
    const int code = e.type == 'n' ? 254 : e.type == 'o' ? 255 : e.csid;
    idents.push_back({e.key, e.uniqid, static_cast<uint32_t>(code)});
    if (e.type == 'o') continue;
    const auto pin = packed<std::array<uint8_t, 4>>(e.type == 'p' ? "" : e.pin + "F");
    EXPECT_EQ(access.substr(44 * accesses++, 8),
              bytesOf<AccessRecord>({{e.uniqid, pin}}).substr(0, 8));
  }
  EXPECT_EQ(contentOf("ident"), bytesOf(idents));
  EXPECT_EQ(access.size(), 44 * accesses);
}

// The result and the log of a build on a disk with so much room.
std::pair<int32_t, std::string> buildOnDisk(const std::string& cards, uint32_t level,
                                            DiskRoom room) {
  testing::internal::CaptureStdout();
  Logger logger("stdout", level);
  theLogger = &logger;
  diskRoom = room;
  const int32_t result = buildCards(cards);
  diskRoom = {};
  return {result, testing::internal::GetCapturedStdout()};
}

// A disk, or each file on it, has room for any part of the databases: the first record that finds
// none ends the build, and its line is not logged. At level 75 records are appended one by one; at
// level 25, where they are written together, the end has to be the same.
void expectEndOnFullDisk(const std::string& cards) {
  static std::mt19937 random(1);
  const std::string idents = contentOf("ident"), accesses = contentOf("access");
  const auto part = [](size_t size) { return static_cast<long>(random() % size); };
  const DiskRoom room = random() % 2 == 0 ? DiskRoom{.all = part(idents.size() + accesses.size())}
                                          : DiskRoom{.each = part(idents.size())};
  SCOPED_TRACE(print("room %ld %ld", room.all, room.each));
  const std::string good = buildOnDisk(cards, 75, {}).second;
  std::string oneByOne;
  for (const uint32_t level : {75U, 25U}) {
    const auto [result, log] = buildOnDisk(cards, level, room);
    const std::string reported = log.substr(log.rfind("[25"));
    const std::string kind = result == kIdentWriteFailed ? "ident" : "access";
    EXPECT_TRUE(result == kIdentWriteFailed || result == kAccessWriteFailed);
    EXPECT_EQ(reported, "[25 " + kind + "file] Error writing to " + kind + " file " + kind + "\n");
    const std::string ident = contentOf("ident"), access = contentOf("access");
    EXPECT_TRUE(idents.starts_with(ident) && accesses.starts_with(access));
    EXPECT_EQ(ident.size() % 28 + access.size() % 44, 0);
    if (level == 75) oneByOne = ident + access + reported;
    EXPECT_EQ(ident + access + reported, oneByOne);
    EXPECT_TRUE(level != 75 || good.starts_with(log.substr(0, log.size() - reported.size())));
  }
}

TEST(RandomSites, AreBuiltAsAPlainReadingSays) {
  const TestSite site;
  TestLog log(25);
  std::map<int, int> results;
  for (unsigned seed = 0; seed < 400 && !testing::Test::HasFailure(); ++seed) {
    const std::string cards = RandomCards(seed).cards(seed % 40 == 39);
    SCOPED_TRACE(cards);
    const std::vector<Entry> entries = readCards(cards);
    const auto [result, said] = check(entries);
    ++results[result];
    log.logger().setThreshold(UINT32_MAX);
    EXPECT_EQ(buildCards(cards), result);
    log.logger().setThreshold(25);
    EXPECT_EQ(buildCards(cards), result);
    EXPECT_EQ(log.take(), said + print("[0 inputcards] Number of cards=%zu\n", entries.size()));
    if (result != 0) continue;
    expectDatabases(entries);
    if (!entries.empty()) expectEndOnFullDisk(cards);
    log.publish();
    log.take();
  }
  for (const auto& [result, times] : results) EXPECT_GT(times, 30) << result;
}

}  // namespace badgemint::plainreading_test
