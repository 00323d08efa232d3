// What is found in a cards file: how a build of it ends, judged by the build, and what a build
// takes without a word. The manual's example, which is run too, shows the common findings.
#include <gtest/gtest.h>

#include <random>

#include "admin/adminrun.h"
#include "admin/check/sitecheck.h"
#include "inputcards/inputcards.h"
#include "support/testfiles.h"

namespace badgemint::admin {
namespace {

// The example site with a cards file of our own.
class CardsCheck : public testing::Test {
 protected:
  CardsCheck() { std::filesystem::current_path(BADGEMINT_EXAMPLE_SITE); }
  ~CardsCheck() override { std::filesystem::current_path("/"); }

  void check(const std::string& cards, Findings& findings) const {
    checkSite({folder.write("c", cards), "formats.txt", "", false}, findings);
  }

  // Of the cards file, a line each, "LINE:COLUMN [KIND] TEXT", without whom it is about and up to
  // 90 characters.
  std::string findingsIn(const std::string& cards) const {
    Findings findings;
    check(cards, findings);
    std::string all;
    for (const Finding& finding : findings.sorted()) {
      if (findings.fileName(finding.place.file) != folder.path("c")) continue;
      std::string text = finding.text;
      if (const size_t at = text.find(" ("); at != text.npos)
        text.erase(at, text.find(')', at) + 1 - at);
      const std::string kind(finding.isError() ? std::to_string(finding.code) : finding.rule);
      const std::string place = findings.placeText(finding.place).substr(folder.path("c:").size());
      all += (place + " [" + kind + "] " + text).substr(0, 90) + '\n';
    }
    return all;
  }

  TestFolder folder;
};

// The result of a build's first pass, and the line that its log names last, if it names one.
std::pair<int32_t, std::string> build(const std::string& cards, TestLog& log) {
  log.publish();
  InputCards loader(cards.c_str(), "i", "a", "s");
  const int32_t loaded = loader.loadFormats("", "formats.txt");
  const int32_t result = loaded < 0 ? loaded : loader.pass1();
  theLogger = nullptr;
  const std::string text = log.take();
  const size_t line = text.rfind("line#=");
  return {result, line == std::string::npos ? "" : std::to_string(std::atoi(&text[line + 6]))};
}

TEST_F(CardsCheck, SaysHowABuildEnds) {
  const char* const starts[] = {"c 1 ",   "c 2 ",   "n 0 ", "p ", "o ", "d 1 ",
                                "f 2 2 ", "f 1 1 ", "#",    "x",  " "};
  const char* const words[] = {"1 ",         "2 ",  "3 ",  "0 ",   "12 ", "65530 ",
                               "000000009 ", "-1 ", "1A ", "A=3 ", "# ",  "\t"};
  std::mt19937 random(7);
  TestLog log(25);
  theLogger = nullptr;
  const auto oneOf = [&random](const auto& texts) { return texts[random() % std::size(texts)]; };
  std::map<int32_t, int> results;
  for (int i = 0; i < 1000; ++i) {
    std::string cards = random() % 8 == 0 ? "" : "f 1 1 A=21\n";
    for (size_t lines = random() % 5; lines > 0; --lines) {
      cards += oneOf(starts);
      for (size_t count = random() % 4 + 1; count > 0; --count)
        cards += words[random() % (random() % 4 == 0 ? 12 : 5)];
      cards += "\n";
    }
    Findings findings;
    check(cards, findings);
    const auto [result, line] = build(folder.path("c"), log);
    ++results[result];
    const Place place = findings.verdict().place;
    ASSERT_EQ(findings.verdict().result, result) << cards;
    if (!line.empty()) {  // A block that does not fit is logged without its line.
      ASSERT_EQ(line, std::to_string(place.line)) << cards;
    }
    ASSERT_EQ(findings.errors() > 0, result < 0) << cards;
  }
  EXPECT_GE(results.size(), 10U);
}

TEST_F(CardsCheck, TellsOfLines) {
  EXPECT_EQ(findingsIn(R"(f 1 1 A=21
f
f 2 0
ff 2 2
f 4 1
f 5 1 A:2 B
f 6 1 A=1 A=2
f 7 1 A=-1 B=1 C=2
f 2x 2x A=4294967297
f 9 9
c 9 1 0 10 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0
d 9 2 1 11 1
c 1 1 0 11 0 0 0 0 0 0 0 0 0 0 0 0 2024/01/31-07:30:00 0 0 0 0 0 0
c 1 2 0 12 0 0 0 0 0 0 0 0 0 0 0 0 2024/02/30 24:00:00 2038/01/01 0 0 0 0
c 1 3 0 13 0 0 0 0 0 0 0 0 0 0 0 0 0 7:30:00 2023/2/28 6:3:0 0 0 0
c 1 4 0 14 0 0 0 0 0 0 0 0 0 0 0 0 2023/02/29 7:3:0 2023/3/1 6:3:0 0 0 0
c 1 5 0 15 0 0 0 0 0 0 0 0 +0 00 -1 4294967297 0 0 0 0 256 O1 0
c 1 6 0 16 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0# x
c 1 7 0 17 0 0 0 0 0 0 0 0 0 0 # 0 0 0 0 0 0 0 0
c 4294967297 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0
c 1
c1 8
n 0 AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA
o 1 30
o 2 30
d 1 10 2 40 1
d 1 10 2 41 1
d 1 14 4 40 1
d1 16 1 44 1
d 1 0 1 46 # x
d 1 19 2 4294967295 65536
d 1 8 1
)"),
            R"(2 [-508] the card set is missing
3:5 [-1006] format 0 is not 1 to 4294967295
4:1 [-1006] "ff" is no line type
5 [site-value] field A gets no value: it is 0 on every card of the set
6:7 [site-value] "A:2" is taken for field A: a field is one letter
7:11 [site-value] field A is given twice: the last value counts
8:9 [site-value] value -1 of field A is negative: the card sets file does not keep it
8:12 [site-value] field B is the card number's: its value is not used
8:16 [site-value] the format has no field C
9:3 [number] "2x" is not wholly a number: the card set is read as 2
9:6 [number] "2x" is not wholly a number: the format is read as 2
9:11 [site-value] value 4294967297 of field A is read as 1
11:5 [-1007] the formats file has no format 9, which card set 9 is of; further lines with 
13:36 [date] "2024/01/31-07:30:00" has more than 14 characters: the rest is read as the ne
14:47 [date] start time "24:00:00" is not hours:minutes:seconds: card 2 of holder 12 is va
14:56 [date] end date "2038/01/01" is no day from 1970 to 2037: card 2 of holder 12 never 
15:38 [date] start time "7:30:00" is ignored: the start date of card 3 of holder 13 is 0
16:36 [day] start date 2023/02/29 is no day of its month and runs on into the next
16:53 [period] end 2023/3/1 lies before the start: card 4 of holder 14 is never valid
17:34 [flag] third flag -1 is taken for 1: a flag is 0 or 1
17:37 [range] escort 4294967297 is not 0 to 4294967295: it is read as 1
17:56 [range] elevator access 256 is not 0 to 255: it is read as 0
17:60 [number] "O1" is no number: the output relay group and all behind it are 0
19:32 [text] a # where the third flag is due: a remark may stand only behind the last fiel
20:3 [range] card set 4294967297 is read as 1
20:14 [zero] card number 0 of holder 0
20:18 [zero] unique ID 0
21 [-1010] the card number is missing
22 [fields] the PIN is missing: it and all behind it are 0
22 [-1001] card 8 of holder 0 has the unique ID of line 20
23:5 [-1003] card number of 33 digits, at most 32 are allowed
25 [-1001] the PIN of holder 30 has the unique ID of line 24
27 [-1011] card 10 of holder 41 and 1 more of the block have keys of line 26
27 [-1001] card 10 of holder 41 has the unique ID of line 26
28 [-1001] card 14 of holder 40 and 2 more of the block have unique IDs of line 26 and of 
29:1 [-1006] "d1" is read as d: the card set is the next word
30 [-1011] card 0 of holder 46 has the key of line 20
30:5 [zero] card number 0
31 [-1001] card 20 of holder 0 has the unique ID of line 20
31:10 [range] the unique IDs of the block run past 4294967295 and on from 0
31:21 [range] access level 65536 is not 0 to 65535: it is read as 0
32 [-507] the first unique ID is missing
)");
}

TEST_F(CardsCheck, TellsOfWhatAnEyeDoesNotSee) {
  EXPECT_EQ(findingsIn("\xEF\xBB\xBF f 1 1 A=21\n c 1 5 0 8\nC 1 6 0 7\no 1 8\nf 2 1 A=1\ro 2 8\n"
                       "c 1 5\xA0\x31# # \xA0\n#\r# x\nd 1\t8\no 9\xC2\xA0 8\no 2 9\r\n" +
                       std::string("#\0\n#", 4) + std::string(299, '-') + "o 3 9\n"),
            R"(1:1 [-503] the file begins with a byte order mark, which is no line type
2:1 [-503] white space before the line type
3:1 [-503] "C" is no line type: a line begins with f, c, n, p, o, d or #
5:11 [-1006] "o" stands where a field's letter A to H is due; column 10 has a carriage ret
6:5 [-1003] card number "5\xA01#" is not digits alone
6:10 [-1004] a # where the PIN is due: a remark may stand only behind the last field; colu
7:2 [text] a carriage return within a line: what follows is no line of its own
8 [-507] the first card is missing; column 4 has a tab in a 'd' line: it does not separate
9:3 [-1004] PIN is not digits alone; column 4 has a no-break space: it is no blank and bel
11:2 [text] a NUL byte: a build reads the line only up to here
12 [-1001] the PIN of holder 9 has the unique ID of line 10
12:301 [text] a line of more than 300 characters: what follows is read as a line of its ow
)");
}

TEST_F(CardsCheck, TellsOfFields) {
  EXPECT_EQ(findingsIn(R"(f 1 1 A=21
c x 1 0 5
c # 1 0 5
c 300 1 0 5
c 0 1 0 5
c 1x 5
c 1 99999 0 6
c 1 99999999999999999999 0 6
c 1 5 12x 7
n 0 5 12x 8
c 1 6 0 9x
c 1 7 0 10 12A 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0
c 1 8 0 11 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 5x 0 0
c 1 9 0 12 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 -1 +1 1x
c 1 10 0 13 0 0 0 0 0 0 0 0 0 0 0 0 2024/001/1 0 2024/13/01 0 0 0 0
c 1 11 0 14 0 0 0 0 0 0 0 0 0 0 0 0 2024/01//1 0 2024/0/1 0 0 0 0
c 1 12 0 15 0 0 0 0 0 0 0 0 0 0 0 0 2024/01/1x 0 2024/01/+1 0 0 0 0
c 1 13 0 16 0 0 0 0 0 0 0 0 0 0 0 0 2024/1/1-7:3:0 0 2024/01/02 07:30:0x 0 0 0
c 1 14 0 17 0 0 0 0 0 0 0 0 0 0 0 0 2024/01/02 07:30.00 2024/01/02 7:30:000 0 0 0
p 15 18 0 0 0 0 0 0 0 0 0 0 0 0 2024-01-01 0 0 0 0 0
c 1 16 0 19 0 0 0 0 0 0 0 0 0 0 0 20 0 0 0 0 0 0 0
c 1 17 0 20 0 0 0 0 0 0 0 0 0 0 0 5 0 0 0 0 0 0 0
c 1 18 0 21 0 0 0 0 0 0 0 0 0 0 0 22 0 0 0 0 0 0 0
p 1 23 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 1
p 2 24 0 0 0 0 0 0 0 0 0 0 0 0 2024/01/02 7:3:0 2024/01/03 07:30:00 0 0
d 1 1A 1 50
d 1 20 1x 60
)"),
            R"(2:3 [-1006] "x" stands where the card set is due, which is a number
3:3 [-1006] a # where the card set is due: a remark may stand only behind the last field
4 [fields] access level 1 is missing: it and all behind it are 0
4:3 [-1006] card set 300 is not 1 to 253
5 [fields] access level 1 is missing: it and all behind it are 0
5:3 [-1006] card set 0 is not 1 to 253
6:3 [-1003] "1x" stands where the card set is due, which is a number
7 [fields] access level 1 is missing: it and all behind it are 0
7:5 [-506] card 99999 of holder 6 does not fit format 1: it would come back as card 34463
8 [fields] access level 1 is missing: it and all behind it are 0
8:5 [-506] card 99999999999999999999 of holder 6 does not fit format 1: it would come back
9 [fields] access level 1 is missing: it and all behind it are 0
9:7 [-1004] PIN is not digits alone
10 [fields] access level 1 is missing: it and all behind it are 0
10:7 [-1004] PIN is not digits alone
11:9 [number] "9x" is not wholly a number: the unique ID ends within it, and the rest is t
12:12 [number] "12A" is not wholly a number: access level 1 ends within it, and the rest i
13:44 [number] "5x" is not wholly a number: the elevator access ends within it, and the re
14:44 [range] elevator access -1 is not 0 to 255: it is read as 255
14:50 [number] "1x" is not wholly a number: the last flag ends within it, and the rest is 
15:50 [date] end date "2024/13/01" is no day from 1970 to 2037: card 10 of holder 13 never
16:37 [date] start date "2024/01//1" is not year/month/day: card 11 of holder 14 is valid 
16:50 [date] end date "2024/0/1" is no day from 1970 to 2037: card 11 of holder 14 never e
17:37 [date] start date "2024/01/1x" is not year/month/day: card 12 of holder 15 is valid 
18:37 [date] start date "2024/1/1-7:3:0": "-00:00:00" behind the seconds is ignored
18:65 [date] end time "07:30:0x": "x" behind the seconds is ignored
19:48 [date] start time "07:30.00" is not hours:minutes:seconds: card 14 of holder 17 is v
20:33 [date] start date "2024-01-01" is not year/month/day: PIN of holder 18 is valid from
23:35 [escort] escort 22 of holder 21 is no holder of this file
24:44 [fields] "0" behind the last field is ignored
26:5 [-1003] card number "1A" is not digits alone
27:8 [number] "1x" is not wholly a number: the number of cards is read as 1
)");
  // Lines at the end of a file that does not end with a newline.
  EXPECT_EQ(findingsIn("c 12"), "1 [-1010] the card number is missing\n");
  EXPECT_EQ(findingsIn("c 12 5"), "1 [-1006] card set 12 has no 'f' line before this line\n");
  EXPECT_EQ(findingsIn("o 5 6").substr(0, 16), "1 [pair] the PIN");
  EXPECT_EQ(findingsIn("p 5 6x").substr(0, 37), "1:5 [number] \"6x\" is not wholly a num");
}

TEST_F(CardsCheck, TellsOfPartners) {
  EXPECT_EQ(findingsIn(R"(f 1 1 A=21
d 1 50 1 30
o 7 30
d 1 50 1 30
o 8 31
d 1 51 1 31
o 9 31
d 1 52 2 32
o 10 32
o 11 33
d 1 54 2 32
d 1 52 1 34
d 1 51 1 35
d 1 49 1 36
d 1 49 1 37
 d 1 60 2 700
 n 0 5 0 702
 p 5 703
 o 5 704
o 20 701
o 21 702
o 22 703
o 23 704
o 24 705
)"),
            R"(4 [-1011] card 50 of holder 30 has the key of line 2
7 [pair] the PIN of holder 31: two PINs of one holder pass only because a card stands betw
11 [pair] card 54 of holder 32: two cards of one holder pass only because a PIN stands bet
12 [-1011] card 52 of holder 34 has the key of line 8
13 [-1011] card 51 of holder 35 has the key of line 6
15 [-1011] card 49 of holder 37 has the key of line 14
16:1 [-503] white space before the line type
17:1 [-503] white space before the line type
18:1 [-503] white space before the line type
19:1 [-503] white space before the line type
24 [-500] the PIN of holder 705 has no card: no 'c', 'd' or 'n' line is of this holder
)");
}

TEST_F(CardsCheck, HoldsValuesAgainstTheirFormat) {
  const std::string format = contentOf("site26.cdf"), facility = "Facility code,0,255,MSB,BIN";
  const auto write = [&](const char* name, const char* definition) {
    folder.write(name,
                 std::string(format).replace(format.find(facility), facility.size(), definition));
  };
  write("a.cdf", "Facility code,100,255,MSB,BIN");
  write("b.cdf", "");
  folder.write("formats.txt", "1 = a.cdf\n2 = b.cdf\n");
  std::filesystem::current_path(folder.path(""));
  EXPECT_EQ(findingsIn("f 1 1 A=99\nf 2 1 A=100\nf 3 1 A=256\nf 4 2 A=7\n"),
            R"(1:9 [site-value] value 99 of field A is not 100 to 255, as its format says
3:9 [site-value] value 256 of field A is not 100 to 255, as its format says
)");
}

TEST_F(CardsCheck, EndsWithAStatus) {
  folder.write("levels", "1 1 1\n");
  const auto check = [this](const std::string& cards, const std::string& options = "") {
    return admin::runAdmin("check --cards " + folder.write("c", cards) + options);
  };
  const std::string levels = " --levels " + folder.path("levels");
  const std::string rest = " 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n";
  EXPECT_EQ(check("p 1 5 00" + rest, levels + " --strict").status, 0);
  EXPECT_EQ(check("p 1 5 2" + rest).status, 0);
  EXPECT_EQ(check("p 1 5 2" + rest, levels).status, 1);
  EXPECT_EQ(check("p 1 5 2" + rest, levels + " --strict").status, 2);
  EXPECT_EQ(check("p 1 5 65536" + rest, levels).output.find("not defined"), std::string::npos);
  EXPECT_EQ(check("o 1x 5\n").output.find("1x"), std::string::npos);
  EXPECT_NE(check("o 1x 5\n", " --with-pins").output.find(": \"1x\""), std::string::npos);
  for (const char* const levelsFile : {"/none", "/"})
    EXPECT_EQ(check("", " --levels " + folder.path(levelsFile)).status, 3);
}

TEST_F(CardsCheck, TellsWhenMemoryOrAFileIsMissing) {
  folder.write("levels", "1 1 1\n");
  std::string cards = "f 1 1 A=21\nd 1 1 2 1 1\no 7 2\n", said;
  for (int set = 2; set <= 21; ++set) cards += "f " + std::to_string(set) + " 4\n";
  const std::string command =
      "check --cards " + folder.write("c", cards) + " --levels " + folder.path("levels");
  EXPECT_EQ(admin::runAdmin(command).status, 0);
  for (const char* const call : {"allocate", "new", "open"}) {
    bool struck = true;
    for (int nth = 1; struck; ++nth) {
      const admin::AdminRun run = admin::runAdmin(command, {.call = call, .nth = nth});
      struck = run.struck;
      said += run.output;
      if (struck) {
        EXPECT_GE(run.status, 2) << call << nth << run.output;
      }
    }
  }
  EXPECT_NE(said.find("cannot be taken"), std::string::npos);

  machinePages = 1;  // Memory for 80 cards.
  for (const char* const tooMany : {"d 1 1 81 1\n", "d 1 1 80 1\no 7 1\n"}) {
    folder.write("c", std::string("f 1 1 A=21\n") + tooMany);
    EXPECT_EQ(admin::runAdmin(command).status, 3) << tooMany;
  }
  machinePages = 0;
}

TEST_F(CardsCheck, PrintsAHundredOfAKind) {
  std::string cards;
  while (cards.size() < 300) cards += "x\n";
  cards += "x\ry\n";  // What is added to an error that is not kept.
  const std::string command = "check --cards " + folder.write("c", cards);
  const admin::AdminRun run = admin::runAdmin(command);
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(std::ranges::count(run.output, '\n'), 102);
  EXPECT_NE(run.output.find("51 more findings [-503] (--all prints them)\n151 errors"),
            std::string::npos);
  EXPECT_EQ(std::ranges::count(admin::runAdmin(command + " --all").output, '\n'), 152);
}

}  // namespace
}  // namespace badgemint::admin
