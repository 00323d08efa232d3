// What is found in a cards file: how a build of it ends, compared with a build, and what a build
// accepts silently. The manual's example, which is run too, shows each rule once with its text and
// place; what is here goes beyond it.
#include "admin/adminrun.h"
#include "admin/check/sitecheck.h"

namespace badgemint::admin::check_cards_test {

using namespace std::string_literals;

// Before the lines of a case, which begin with line 3.
const std::string kBefore =
    "f 1 1 A=21\n"
    "c 1 90 0 9 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n";
// A right line, in which each case changes a word.
const std::string kCard =
    "c 1 5 4711 8 11 12 13 14 15 16 17 18 0 1 00 9 2024/01/02 07:30:00 2030/12/30 18:00:00 20 21 0";

std::string card(const std::string& word, const std::string& wrong) {
  std::string line = kCard;
  return line.replace(line.find(word), word.size(), wrong);
}

// The example site with a cards file of our own.
class CardsCheck : public testing::Test {
 protected:
  CardsCheck() { fs::copy(BADGEMINT_EXAMPLE_SITE, "."); }

  static Findings check(const std::string& cards, const std::string& levels = "") {
    Findings findings;
    writeFile("c", cards);
    checkSite({"c", "formats.txt", levels, false}, findings);
    return findings;
  }

  // The findings in a file, "LINE:COLUMN RULE" each.
  static std::string placesIn(const std::string& name, const Findings& findings) {
    std::string all;
    for (const Finding& finding : findings.sorted()) {
      const std::string place = findings.placeText(finding.place);
      if (!place.starts_with(name + ':')) continue;
      all += (all.empty() ? "" : ", ") + place.substr(name.size() + 1) + ' ' + finding.kind();
    }
    return all;
  }
  // Those of these lines after kBefore.
  static std::string found(const std::string& lines) {
    return placesIn("c", check(kBefore + lines + "\n"));
  }
  static void expectFound(const std::vector<std::pair<std::string, std::string>>& cases) {
    for (const auto& [lines, places] : cases) EXPECT_EQ(found(lines), places) << lines;
  }
};

// The result of a build's first pass, and the line that its log names last, if it names one.
std::pair<int32_t, std::string> build(TestLog& log) {
  log.publish();
  InputCards loader("c", "i", "a", "s");
  int32_t result = loader.loadFormats("", "formats.txt");
  if (result == 0) result = loader.pass1();
  theLogger = nullptr;
  const std::string text = log.take();
  const size_t line = text.rfind("line#=");
  return {result, line == std::string::npos ? "" : std::to_string(std::atoi(&text[line + 6]))};
}

TEST_F(CardsCheck, EndsAsABuild) {
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
    const Findings findings = check(cards);
    const auto [result, line] = build(log);
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

// Sites that are right in every line, in all notations that a build reads right.
std::string rightLine(std::mt19937& random, int number) {
  const auto oneOf = [&random](std::initializer_list<const char*> texts) {
    return std::string(texts.begin()[random() % texts.size()]);
  };
  const std::string id = std::to_string(1000 + number), uniqid = oneOf({"", "0", "00", "+"}) + id;
  std::string holder = std::string(" ").append(uniqid);
  for (int i = 0; i < 8; ++i) holder += oneOf({" ", "  ", "\t"}) + oneOf({"0", "1", "065535"});
  for (int i = 0; i < 3; ++i) holder += oneOf({" 0", " 1", " 01"});
  holder += oneOf({" 0 ", " 9 "}) +
            oneOf({"0 0", "2024/01/02 0", "2024/1/2 7:3:0", "02024/01/31 0"}) +
            oneOf({" 0 0", " 2030/12/31 0", " 2037/2/28 23:59:59"}) + oneOf({" 0 255", " 7 0"});
  const std::string end = oneOf({"", " ", " # 2024", "\t#", "\r"});
  switch (random() % 5) {
    case 0:
      return oneOf({"c1 ", "c 01 "}) + id + oneOf({" 0", " 4711", " 12345678"}) + holder + " 1" +
             end;
    case 1:
      return "n 0 ABcd" + id + oneOf({" 0", " 4711"}) + holder + " 0" + end;
    case 2:
      return "p 77" + id + holder + end;
    case 3:
      return "d 1 " + std::to_string(30000 + number) + " 1 " + id + oneOf({" 0", " 7", " +7#"}) +
             oneOf({"", " ", " # x"});
    default:
      return "n 0 1A" + id + " 0" + holder + " 0\no 88" + id + " " + uniqid + end;
  }
}

TEST_F(CardsCheck, FindsNothingInRightSites) {
  std::mt19937 random(3);
  std::string lines = "f 2\t2 A 4711 # stripe\n\n  \n#\n";
  for (int i = 0; i < 3000; ++i) lines += rightLine(random, i) + '\n';
  EXPECT_EQ(found(lines), "");
}

TEST_F(CardsCheck, FindsEveryBrokenWordOnItsLine) {
  const std::string pin = "p 4712 10 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0";
  for (const std::string& right :
       {kCard, "n 0 AB 0" + kCard.substr(10), pin, "d 1 700 3 700 1"s, "o 4713 9"s}) {
    for (size_t at = 2; at < right.size(); at = right.find(' ', at) + 1) {
      const size_t end = std::min(right.find(' ', at), right.size());
      const std::string broken = right.substr(0, at) + "x" + right.substr(end);
      if (right[0] != 'n' || at > 2) {
        EXPECT_TRUE(found(broken).starts_with("3:" + std::to_string(at + 1) + ' ')) << broken;
        EXPECT_FALSE(contains(found(broken), ",")) << broken;
      }
      if (end == right.size()) break;
    }
  }
}

// What a build accepts silently, by rules.

TEST_F(CardsCheck, Date) {
  const std::string dates = "2024/01/02 07:30:00 2030/12/30 18:00:00";
  expectFound({{card("2024/01/02", "2024/01//2"), "3:47 date"},
               {card("2024/01/02", "2024/01/02-07:30:00"), "3:47 date"},
               {card("2024/01/02 07:30:00", "0 07:30:00"), "3:49 date"},
               {card("07:30:00", "07:30:00:00"), "3:58 date"},
               {card(dates, "02.01.2024 0 30.12.2030 0"), "3:47 date"},
               {card(dates, "2024/01/02 0 30.12.2030 0") +
                    "\np 7 22 0 0 0 0 0 0 0 0 0 0 0 0 0 0 30.12.2030 0 0 0",
                "3:60 date, 4:36 date"},
               {card(dates, "2024-01-31 0 30.12.2030 0"), "3:47 date, 3:60 date"}});
}

TEST_F(CardsCheck, Day) {
  expectFound({{card("2024/01/02", "2023/02/29"), "3:47 day"},
               {card("2024/01/02", "2024/02/29"), ""},
               {card("2030/12/30 18:00:00", "2030/12/30 0:0:0"), "3:78 day"},
               {card("07:30:00", "00:00:00"), ""}});
}

TEST_F(CardsCheck, Period) {
  expectFound({{card("2030/12/30", "2024/01/02"), ""}});
}

TEST_F(CardsCheck, Number) {
  expectFound({{card(" 8 ", " 8x "), "3:12 number"},
               {card(" 21 0", " 21 0# x"), ""},
               {"d 1 5 2 10 1x", "3:12 number"},
               {"f 2x 2x A=1", "3:3 number, 3:6 number"}});
}

TEST_F(CardsCheck, Range) {
  expectFound({{card(" 1 ", " 4294967297 "), "3:3 range"},
               {card(" 9 ", " 4294967305 "), "3:45 range"},
               {card(" 20 21 0", " 256 21 0# x"), "3:87 range"},
               {"d 1 4294967304 1 20 1", "3:5 range"},
               {"d 1 8 4294967297 20 1", "3:7 range"},
               {"d 1 8 2 4294967294 1", ""},
               {"d 1 8 2 4294967295 1", "3:9 range"}});
}

TEST_F(CardsCheck, Flag) {
  expectFound({{card(" 21 0", " 21 -1"), "3:93 flag"}});
}

TEST_F(CardsCheck, Zero) {
  expectFound({{card(" 5 ", " 00 "), "3:5 zero"},
               {card(" 8 ", " 0 "), "3:12 zero"},
               {"d 1 8 1 0 1", "3:9 zero"}});
}

TEST_F(CardsCheck, Fields) {
  expectFound({{"p", "3 fields"},
               {kCard + " 0", "3:95 fields"},
               {"d 1 8 1 20 1 0", "3:14 fields"},
               {card(" 12 ", " 12 12 "), "3 fields"}});
}

TEST_F(CardsCheck, Block) {
  expectFound({{"d 1 1000 1001 2000 1", "3:10 block"},
               {"d 1 1001 1000 2000 1", ""},
               {"d 1 8 1 20 # x", "3 block"}});
}

TEST_F(CardsCheck, Text) {
  expectFound({{card(" 00 ", " # "), "3:42 text"},
               {"d 1 8 1 # 20", "3:9 text"},
               {"#\r" + kCard, "3:2 text"},
               {"o 2468 9\xA0", "3:9 text"},
               {"# x\0y"s, "3:4 text"},
               {"#" + std::string(299, '-') + "o 3 9", "3:301 text"}});
}

TEST_F(CardsCheck, Pair) {
  expectFound({{"o 5 7", "3 pair"},
               {"o 5 9\nd 1 1 1 9 1", "4 pair"},
               {"o 5 20\nd 1 1 1 20 1\no 6 20", "5 pair"}});
}

TEST_F(CardsCheck, Escort) {
  const auto escorted = [](const std::string& holder, const std::string& by) {
    return "n 0 A" + holder + " 0 " + holder + " 0 0 0 0 0 0 0 0 0 0 0 " + by + " 0 0 0 0 0 0 0\n";
  };
  const std::string ring = escorted("101", "102") + escorted("102", "103");
  expectFound({{card(" 9 ", " 10 "), "3:45 escort"},
               {card(" 9 ", " 10 ") + "\nd 1 1 1 10 1", ""},
               {ring + escorted("104", "101") + escorted("103", "101"), "6:38 escort"}});
}

TEST_F(CardsCheck, SiteValue) {
  expectFound({{"f 2 1", "3 site-value"},
               {"f 2 1 A=1 A=2", "3:11 site-value"},
               {"f 2 1 A=-1 B=1 C=2", "3:9 site-value, 3:12 site-value, 3:16 site-value"},
               {"f 2 1 A=2x", "3:9 site-value"}});
  EXPECT_FALSE(contains(check("f 2 1 A=47110815\n").sorted().at(0).text, "4711"));
}

TEST_F(CardsCheck, CardSet) {
  expectFound({{"f 1 1 A=21", ""}, {"f 1 2", "3 card-set"}, {"f 2 1 A=22", ""}});
}

TEST_F(CardsCheck, Errors) {
  expectFound({{"f 2 2 x=1", "3:7 -1006"},
               {"f 9 9\nd 9 1 2 20 1\no 6 21\nd 9 3 1 22 1", "4:5 -1007"},
               {"d1 8 1 20 1", "3 -1006, 3:2 text"},
               {"F 3 1 A=1\nc 3 15 # 5", "3:1 -503, 4:8 -1004"}});
}

// The PIN is 9364..., in mistakes that put it where another word or another file is expected.
TEST_F(CardsCheck, NoVerbShowsAPin) {
  EXPECT_EQ(runAdmin("build").status, 0);
  writeFile("listed", "1 wrong.cdf\n");
  for (const std::string line :
       {"c,1,15890,9364,1001", "c 1 15890a9364 1001", "c 1\24015890\2409364\2401001",
        "c 1 15890 9364x 1001", "c 1 15890 936493649 1001", "c 9364 1001 1", "f 1 15890 9364 1001",
        "f 2 2 9364=1", "f 2 2 A=1,9364", "d 93641358 1001 3 0 0", "d 1 15890 1,9364 1001",
        "n 0 1A;9364 1001", "p 9364;1001 1", "p93649364936493649 1001", "o 9364:1001",
        "o 9364 1001 9364", "9364 1001", "p 1 10 1 93649364 0 0",
        "c 1 5 1 1001 0 0 0 0 0 0 0 0 9364 0 0 0 0 0 0 0 0 0 0"}) {
    writeFile("wrong.cdf", kBefore + line + "\n");
    for (const char* const verb :
         {"check --all --json", "build --dry-run --changes", "verify --all --json", "dump",
          "diff . . --json", "list --json", "show 1001", "why 1001 --door 1", "decode 022A7C24",
          "pattern 1 15890", "format wrong.cdf"})
      for (const char* const option :
           {" --cards wrong.cdf", " --formats wrong.cdf", " --formats listed",
            " --cardsets wrong.cdf", " --levels wrong.cdf", ""}) {
        const AdminRun run = runAdmin(verb + std::string(option));
        EXPECT_FALSE(contains(run.output + run.errors, "936")) << verb << option << ": " << line;
      }
  }
}

// One finding for a file that is no cards file at all.
TEST_F(CardsCheck, OtherFiles) {
  const auto only = [](const std::string& cards) { return placesIn("c", check(cards)); };
  EXPECT_EQ(only("# holders\nc,1,15890,4711,1001\nc;1;15891;4712;1002\n"), "2 -1006");
  EXPECT_EQ(only("\377\376f\0 \0\n"s), "1 -503");
  EXPECT_EQ(only("\0c\0 \0\n"s), "1 text");
}

TEST_F(CardsCheck, Empty) {
  EXPECT_EQ(check("# nobody\nf 1 1 A=21\n").sorted().at(0).rule, "empty");
}

TEST_F(CardsCheck, JsonNamesWhatAFindingIsAbout) {
  const std::array<std::string, 3> cases[] = {
      {"f 1 2", "", R"(ignored","set":1})"},
      {"d 1 65535 2 20 1", "", R"("holder":21,"set":1,"card":"65536"})"},
      {"d 1 89 2 20 1", "", R"("set":1,"card":"90","key":"022A00B5000000000000000000000000"})"},
      {"o 5 9\no 5 9", "", R"(in line 3","holder":9})"},
      {"o 5 9\no 5 9", " --with-pins", R"(9,"key":"5F000000000000000000000000000000"})"},
  };
  for (const auto& [lines, options, json] : cases) {
    writeFile("c", kBefore + lines + "\n");
    EXPECT_TRUE(contains(runAdmin("check --json --cards c" + options).output, json));
  }
}

TEST_F(CardsCheck, BoundsOfAFormat) {
  FormatLines format = linesOf("CDF", {"AAAAAAAABBBBBBBBBBBBBBBB", "", "", ""});
  format[12] = "Facility code,20,255,MSB,BIN";
  format[13] = "Card number,10,500,MSB,BIN";
  writeFile("a.cdf", fileOf("CDF", format));
  writeFile("formats.txt", "1 = a.cdf\n");
  expectFound({{"f 4 1 A=19\nf 5 1 A=20\nf 6 1 A=256", "3:9 site-value, 5:9 site-value"},
               {card(" 5 ", " 9 "), "3:5 range"},
               {card(" 5 ", " 500 "), ""},
               {"d 1 499 3 20 1", "3:5 range"}});
}

TEST_F(CardsCheck, EndsWithAStatus) {
  const std::string rest = " 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n";
  writeFile("levels", "1 1 1\n");
  writeFile("good", "p 1 5 00" + rest);
  writeFile("warned", "p 1 5 2" + rest);
  writeFile("wrong", "o 1x 5\n");
  expectRuns({{"check --cards good --levels levels --strict", 0, "no errors"},
              {"check --cards warned", 0, "no errors"},
              {"check --cards warned --levels levels", 1, "[level]"},
              {"check --cards warned --levels levels --strict", 2, "[level]"},
              {"check --cards wrong --with-pins", 2, ": \"1x\""},
              {"check --levels none", 3, "", "none"},
              {"check --levels .", 3, "", "."}});
}

TEST_F(CardsCheck, ChecksTheLevelsFile) {
  const auto foundIn = [](const std::string& levels) {
    writeFile("levels", levels);
    return placesIn("levels", check("o 1 5\n", "levels"));
  };
  EXPECT_EQ(foundIn("1 2 3 4 5\r\n\n# no\xC2\xA0level\n65535 = 1 1 # all\n"), "");
  EXPECT_EQ(foundIn("1 1 1\n2\n"), "2:1 level");
  EXPECT_EQ(foundIn("1 2 3 4\n"), "1:7 level");
  EXPECT_EQ(foundIn("1 1 1\n2 1 1\n1 2 2\n"), "3:1 level");
  EXPECT_EQ(foundIn("1 1 1\n0 1 1\n2 1 -1\n"), "2:1 level, 3:5 level");
  EXPECT_EQ(foundIn("1 1 O\n1 2A\n"), "1:5 number, 2:1 level, 2:3 number, 2:3 level");
  EXPECT_EQ(foundIn("<<<<<<< a\n1 1 1\n=======\n>>>>>>> b\n"), "1 text");
  EXPECT_EQ(foundIn("1 1 1\r2 2 2\n"), "1:6 text, 1:11 level");
  EXPECT_EQ(foundIn("\xEF\xBB\xBF 2 1 1\n1 1 1\n"), "1:1 text");
  std::string pairs = "1";
  for (int i = 0; i < 75; ++i) pairs += " 1 1";
  EXPECT_EQ(foundIn(pairs), "1:299 level");
  for (const char* const other : {"p 4711 5 1\n", "1 f.CDF\n", "# none\n", "\xFF\xFE\n"})
    EXPECT_THROW(foundIn(other), Failure) << other;
}

TEST_F(CardsCheck, PrintsAHundredOfAKind) {
  std::string cards;
  while (cards.size() < 300) cards += "x\n";
  cards += "x\ry\n";  // What is added to an error that is not kept.
  writeFile("c", cards);
  const AdminRun run = runAdmin("check --cards c");
  EXPECT_EQ(std::ranges::count(run.output, '\n'), 103);
  EXPECT_TRUE(contains(run.output, "51 more findings [-503] (--all prints them)\n151 errors"));
  EXPECT_EQ(std::ranges::count(runAdmin("check --cards c --all").output, '\n'), 153);
}

}  // namespace badgemint::admin::check_cards_test
