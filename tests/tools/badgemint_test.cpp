// The entry functions: the build and the dump of a whole site there and back, the files that they
// need, and their failures; the bits of one card, from a site's files and from one format file.
#include <sys/stat.h>

#include <regex>

#include "support/testsite.h"
#include "tools/badgemint.h"

namespace badgemint::badgemint_test {

struct Names {
  const char *base = "", *cards = "cards", *ident = "ident", *access = "access";
  const char *formats = "formats", *sets = "sets", *log = "log";
  uint32_t level = 25;
};

int32_t build(const Names& n) {
  return BadgeMint(n.base, n.cards, n.ident, n.access, n.formats, n.sets, n.log, n.level);
}
int32_t dump(const Names& n) {
  return DumpCardFile(n.base, n.ident, n.access, n.formats, n.sets, n.cards, n.log, n.level);
}

// Every line type, each field different from its neighbours.
constexpr const char* kCards = R"(f 12 2 A=21 # site
f 13 2
c12 15890 4711 5001 1 2 3 4 5 6 7 65544 1 0 1 9 2024/01/31 07:30:00 2030/12/31 0 3 260 1
n 999 1a2B3 0 5002 8 7 0 0 0 0 0 0 0 -1 0 0 0 0 1969/1/1 0 0 0 0
p 1234567890123456 6001 3 0 0 0 0 0 0 0 1 1 1 4294967295 0 9 2024/1/1 0:0:1 1 2
o 2468 5001
d 13 100 2 -1 4
)";

TEST(Build, WritesAndLogsEverythingOfASite) {
  const TestSite site;
  writeFile("cards", kCards);
  writeFile("formats", "2 32.cdf\n");
  const mode_t mask = umask(0);
  ASSERT_EQ(build({.level = 100}), 0);
  const std::regex below("(\\[(75|0) .*|1A .*|.*cardsets:getcardset.*)\n");  // In badgemint.1.
  EXPECT_EQ(std::regex_replace(logOf("BadgeMint", 5, 0), below, ""),
            "[100 inputcards] pcd=0 acclvl[0]=8 \n"
            "[100 inputcards] unqid=5002 acclvl[1]=7 \n"
            "[100 inputcards] multicards fmt 2 fcard 100 ncards 2 lcard 101, line#=7 \n");
  EXPECT_EQ(contentOf("sets"), "f 12 2 A 21 \nf 13 2 \n");

  EXPECT_EQ(dump({.cards = "dump", .level = 75}), 0);
  const std::string log = logOf("DumpCardFile", 5, 0);
  EXPECT_TRUE(log.starts_with("[75 badgemintdump] Files:\n[75 badgemintdump] Cards file=dump\n"));
  EXPECT_TRUE(log.ends_with("[75 badgemintdump] Dump card#=6\n"));
  EXPECT_TRUE(contains(log, "Dump card#=2\n[75 badgemintdump] nofmt cardno=1A2B30\n"));
  EXPECT_EQ(contentOf("dump"),
            "f 12 2 A 21 \n"
            "c 12 15890 4711 5001 1 2 3 4 5 6 7 8 1 0 1 9 "
            "2024/01/31 07:30:00 2030/12/31 23:59:59 3 4 1\n"
            "n 0 1A2B30 0 5002 8 7 0 0 0 0 0 0 0 1 0 0 0 0 0 0 0 0 0\n"
            "p 1234567890123456 6001 3 0 0 0 0 0 0 0 1 1 1 4294967295 0 0 "
            "2024/01/01 00:00:01 1 2\n"
            "o 2468 5001\n"
            "f 13 2 \n"
            "c 13 100 0 4294967295 4 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
            "f 13 2 \n"
            "c 13 101 0 0 4 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n");
  umask(mask);
  for (const auto& [name, mode] :
       {std::pair("ident", 0600), {"access", 0600}, {"sets", 0666}, {"dump", 0666}})
    EXPECT_EQ(fs::status(name).permissions(), fs::perms(mode)) << name;
  writeFile("access", contentOf("access").replace(4, 1, 1, '\xF0'));  // A PIN without a digit.
  EXPECT_EQ(dump({.cards = "dump"}), 0);
  EXPECT_TRUE(contains(contentOf("dump"), "\nc 12 15890 0 5001 "));
}

// The old databases are gone as soon as there is a log.
TEST(Build, LeavesNoDatabasesOfBeforeWhenItFails) {
  const TestSite site;
  for (const char* const name : {"cards", "ident", "access"}) writeFile(name, "");
  EXPECT_EQ(build({.log = "none/log"}), -509);
  EXPECT_EQ(takeSleeps(), std::vector{5u});
  EXPECT_TRUE(fs::exists("ident") && fs::exists("access"));
  EXPECT_EQ(build({.cards = "none"}), -501);
  EXPECT_EQ(logOf("BadgeMint", 5, -501), "[25 inputcards] Error opening input cards files none\n");
  EXPECT_FALSE(fs::exists("ident") || fs::exists("access"));
}

TEST(Build, JoinsAllNamesToTheBaseDirectory) {
  const TestSite site;
  fs::rename("32.cdf", "base\\32.cdf");
  writeFile("base\\formats", "5 dir/32.cdf\n");
  writeFile("base\\cards", "n 0 F");
  EXPECT_EQ(build({.base = "base"}), 0);
  EXPECT_EQ(dump({.base = "base", .cards = "dump"}), 0);
  EXPECT_TRUE(contentOf("base\\dump").starts_with("n 0 F" + std::string(31, '0') + " 0 0 0 0 "));
  for (const char* const name : {"log", "access", "ident", "sets"})
    EXPECT_TRUE(fs::exists(std::string("base\\") + name)) << name;
}

// What the dump needs, in its order; the lines before a failure stay.
TEST(Dump, ReportsWhatItLacks) {
  const TestSite site;
  writeFile("cards", "f 1 1 A=21\nn 0 AB 0 6\np 77 7\nc 1 1 0 5\no 1 5\n");
  ASSERT_EQ(build({}), 0);
  writeFile("sets2", "f 2 1\n");
  writeFile("sets9", "f 1 9\n");
  writeFile("one", contentOf("access").substr(0, 44));
  takeSleeps();
  const std::string full = "[25 badgemintdump] Error writing output cards file /dev/full\n";
  const std::string format = "[25 badgemintdump] Card format 9 not found, card set=1\n";
  const std::tuple<int32_t, int, Names, std::string> cases[] = {
      {-513, 0, {.cards = "no/x"}, "[25 badgemintdump] Error opening output cards files no/x\n"},
      {-513, 0, {.cards = "/dev/full"}, full},
      {-1007, 0, {.cards = "/dev/full", .sets = "sets9"}, format + full},
      {-1007, 2, {.sets = "sets9"}, format},
      {-1006, 2, {.sets = "sets2"}, "[25 badgemintdump] Card set 1 not found, card record no=3\n"},
      {-1105, 1, {.access = "one"}, "[25 accessfile] Access record not found for unique id=7\n"},
  };
  for (const auto& [result, lines, names, log] : cases) {
    SCOPED_TRACE(log);
    writeFile("cards", "");
    EXPECT_EQ(dump(names), result);
    EXPECT_EQ(logOf("DumpCardFile", 5, result), log);
    EXPECT_EQ(std::ranges::count(contentOf("cards"), '\n'), lines);
  }
}

// What an entry function does for a card: success gives a pattern, and a failure a message.
struct Case {
  int32_t result;
  std::string set, number, text;
  int32_t size = 40;           // Of the buffer for the pattern.
  const char* file = nullptr;  // The format, for a card without a site.
};

// A number that is cut decodes to itself in 64 bits, but is not the card's.
TEST(ComputeCardBitPattern, GivesThePatternOrReportsWhyNot) {
  const TestSite site;
  writeFile("sets", "f 12 1 A 21\nf 13 2\nf 253 9\n");
  writeFile("64.vff", fileOf("VFF", linesOf("VFF", {std::string(64, '*')})));
  const std::string mismatch = "[25 badgemintdump] Card mismatch cno=";
  const std::string most = "9223372036854775807", cut = mismatch + most + ",chkcardno=" + most;
  const std::string unparsed = "[25 cardset] Unable to parse fmtid in card set line f 12\n";
  const Case cases[] = {
      {0, "12", "15890", "022A7C24", 9},
      {-511, "12", "15890", "[25 badgemintdump] cardbitpatternsize=8 too small; requires 9\n", 8},
      {0, "13", "0", std::string(32, '0'), 33},
      {-1006, "0", "1", "[25 badgemintdump] Invalid cardset ID 0\n"},
      {-1006, "254", "1", "[25 badgemintdump] Invalid cardset ID 254\n"},
      {-1006, "252", "1", "[25 card_functions] Card set 252 not defined\n"},
      {-1007, "253", "1", "[25 card_functions] Format 9 not defined \n"},
      {-1010, "12", "", ""},
      {-506, "12", "65536", "[25 card_functions] Card mismatch cardno=65536,chkcardno=0\n"},
      {0, "f 12 3 A 21", "15890", "022A7C24", 9, "26.cdf"},
      {-514, "f 12", "1", unparsed, 9, "26.cdf"},
      {-506, "f 1 1", "65536", mismatch + "65536,chkcardno=0\n", 9, "26.cdf"},
      {-506, "f 1 1", "9223372036854775808", cut + "\n", 33, "64.vff"},
      {-1010, "f 1 1", "", "", 9, "26.cdf"},
      {-505, "f 1 1", "1", "[25 CardFormatSet] Invalid format file 26.txt\n", 9, "26.txt"},
  };
  for (const auto& [result, set, number, text, size, file] : cases) {
    SCOPED_TRACE(text);
    std::string buffer(40, '!');
    const char* const n = number.c_str();
    const int32_t actual =
        file == nullptr
            ? ComputeCardBitPattern(static_cast<uint32_t>(std::stoi(set)), n, "", "formats", "sets",
                                    "log", 25, buffer.data(), size)
            : ComputeCardBitPattern2(n, set.c_str(), "", file, "log", 25, buffer.data(), size);
    EXPECT_EQ(actual, result);
    const std::string name = file == nullptr ? "ComputeCardBitPattern" : "ComputeCardBitPattern2";
    EXPECT_EQ(logOf(name, 1, result), result == 0 ? "" : text);
    EXPECT_EQ(buffer.c_str(), result == 0 ? text : std::string(40, '!'));
  }
}

}  // namespace badgemint::badgemint_test
