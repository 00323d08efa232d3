// Random cards files: what was written into each line, and a plain search for duplicates, give the
// result, the log and both databases. fuzz/cards_file.cpp builds their dumps again.

#include <cstdarg>

#include "support/testsite.h"

namespace badgemint::randomcards_test {

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

// The result of the first pass, and what it reports.
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

// A cards file of a few lines of all types, or of a few blocks of many cards, with its entries;
// values are often near each other.
class RandomCards {
 public:
  explicit RandomCards(unsigned seed) : _random(seed) {
    const bool large = seed % 40 == 39;
    for (const int last = 3 + pick(large ? 3 : 12); _line <= last; ++_line)
      if (large)
        addBlock(13, pick(20000), pick(4000), pick(20000));
      else
        addLine();
  }

  std::string text = "f 12 2\nf 13\t2 # no more\r\n";
  std::vector<Entry> entries;

 private:
  int pick(int below) { return static_cast<int>(_random() % static_cast<unsigned>(below)); }
  std::string pin() { return print("%0*d", 1 + pick(8), pick(200)).substr(0, 8); }
  void add(char type, int csid, int uniqid, int number, const std::string& digits,
           const std::string& pin) {
    const auto key = packed<CardPattern>(digits);
    entries.push_back({type, _line, csid, static_cast<unsigned>(uniqid), number, key, pin});
  }
  void addBlock(int csid, int first, int count, int uniqid) {
    text += print("d %d %d %d %d", csid, first, count, uniqid);
    text += pick(2) ? "\n" : print(" %d\r\n", pick(9));
    for (int i = 0; i < count; ++i)
      add('d', csid, uniqid + i, first + i, print("%08X", first + i), "0");
  }
  void addLine() {
    if (pick(3) != 0) _uniqid = pick(9) ? pick(90) : -pick(3);
    const int csid = 12 + pick(2), number = pick(3) ? pick(65536) : 7;
    const std::string space = pick(4) == 0 ? " \t " : " ", id = print(" %u", unsigned(_uniqid)),
                      shortPin = pin(), longPin = pin() + pin();
    const std::string digits = print("%0*x%0*X", 1 + pick(23), pick(99), 1 + pick(9), pick(9));
    const std::string holder =
        pick(4) == 0 ? "\n" : print(" %d 0 %d 0 0\t9 0 0 0 %d\n", pick(9), pick(90000), pick(2));
    switch (pick(8)) {
      case 0:
        text += "o" + space + shortPin + id + "\n";
        return add('o', 0, _uniqid, 0, shortPin + "F", shortPin);
      case 1:
        text += "p " + longPin + space + id + holder;
        return add('p', 0, _uniqid, 0, longPin + "F", longPin);
      case 2:
        text += print("n %d ", pick(999)) + digits + space + shortPin + id + holder;
        return add('n', 0, _uniqid, 0, digits, shortPin);
      case 3:
        return addBlock(csid, pick(60000), pick(6) - 1, _uniqid);
      case 4:
        text += std::array{"# c 12 1 0 1\n", "f 12 1 A 3\n", " \t\n"}[static_cast<size_t>(pick(3))];
        return;
      default:
        text += print("c%*d%s0%d ", pick(4), csid, space.c_str(), number) + shortPin + id + holder;
        add('c', csid, _uniqid, number, print("%08X", number), shortPin);
    }
  }

  std::mt19937 _random;
  int _line = 3, _uniqid = 5;
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
std::pair<int32_t, std::string> build(const std::string& cards, uint32_t level,
                                      long room = kAllRoom) {
  testing::internal::CaptureStdout();
  Logger logger("stdout", level);
  theLogger = &logger;
  diskRoom = room;
  const int32_t result = buildCards(cards);
  diskRoom = kAllRoom;
  theLogger = nullptr;
  return {result, testing::internal::GetCapturedStdout()};
}

// The disk has room for any part of the databases: the first record that finds none ends the build,
// and its line is not logged. At level 75 records are appended one by one; at level 25, where they
// are written together, the end has to be the same.
void expectEndOnFullDisk(const std::string& cards) {
  static std::mt19937 random(1);
  const std::string idents = contentOf("ident"), accesses = contentOf("access");
  const auto room = static_cast<long>(random() % (idents.size() + accesses.size()));
  SCOPED_TRACE(room);
  const std::string good = build(cards, 75).second;
  std::set<std::string> ends;
  for (const uint32_t level : {75U, 25U}) {
    const auto [result, log] = build(cards, level, room);
    const std::string ident = contentOf("ident"), access = contentOf("access");
    const std::string kind = result == kIdentWriteFailed ? "ident" : "access";
    const std::string error = "[25 " + kind + "file] Error writing to " + kind + " file " + kind;
    EXPECT_TRUE(result == kIdentWriteFailed || result == kAccessWriteFailed);
    EXPECT_TRUE(log.ends_with(error + "\n"));
    EXPECT_TRUE(level == 25 || good.starts_with(log.substr(0, log.rfind("[25"))));
    EXPECT_TRUE(idents.starts_with(ident) && accesses.starts_with(access));
    EXPECT_EQ(ident.size() % 28 + access.size() % 44, 0);
    ends.insert(kind + ident + access);
  }
  EXPECT_EQ(ends.size(), 1);
}

TEST(RandomCards, AreBuiltAsTheirLinesDescribe) {
  const TestSite site;
  std::ofstream("formats", std::ios::app) << "2 26.cdf\n";  // The first format of an ID counts.
  std::map<int, int> results;
  for (unsigned seed = 0; seed < 400 && !HasFailure(); ++seed) {
    const RandomCards random(seed);
    const auto& [cards, entries] = std::tie(random.text, random.entries);
    SCOPED_TRACE(cards);
    const auto [result, said] = check(entries);
    ++results[result];
    EXPECT_EQ(build(cards, UINT32_MAX), std::pair(result, std::string()));
    const std::string number = print("[0 inputcards] Number of cards=%zu\n", entries.size());
    EXPECT_EQ(build(cards, 25), std::pair(result, said + number));
    if (result != 0) continue;
    expectDatabases(entries);
    if (!entries.empty()) expectEndOnFullDisk(cards);
  }
  for (const auto& [result, times] : results) EXPECT_GT(times, 30) << result;
}

}  // namespace badgemint::randomcards_test
