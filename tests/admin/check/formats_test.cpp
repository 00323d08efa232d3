// The rules of the formats file and of format files. A case changes lines of a valid file; what it
// has to find is "line:column" of each finding, all of the rule that the test is named after.
#include "admin/adminrun.h"
#include "admin/check/sitecheck.h"

namespace badgemint::admin::check_formats_test {

using namespace std::string_literals;

struct Case {
  std::string kind;
  std::map<size_t, std::string> changes;
  std::string places;
};

constexpr const char* kEven = "EXXXXXXXXXXXX";
constexpr const char* kOdd = ".............XXXXXXXXXXXXO";

std::string dots(size_t count) {
  return std::string(count, '.');
}

// A folder with a valid format file of each kind.
class FormatsCheck : public testing::Test {
 protected:
  FormatsCheck() {
    for (size_t record = 8; record < 16; ++record) vff[record].resize(144, '.');
    for (const std::string kind : {"CDF", "EFF", "VFF"})
      writeFile("f." + kind, fileOf(kind, kind == "VFF" ? vff : cdf));
  }

  static Findings check(const std::string& formatsFile) {
    Findings findings;
    CardFormatSet formats;
    checkFormats(formatsFile, formats, findings);
    return findings;
  }
  static Findings checkLines(const std::string& lines) {
    writeFile("list", lines + '\n');
    return check("list");
  }
  static Findings checkFile(const std::string& kind, const std::string& bytes) {
    writeFile("f." + kind, bytes);
    return checkLines("1 f." + kind);
  }
  Findings checkChanged(const Case& row) const {
    FormatLines lines = row.kind == "VFF" ? vff : cdf;
    for (const auto& [line, text] : row.changes) {
      lines.resize(std::max(lines.size(), line));
      lines[line - 1] = text;
    }
    return checkFile(row.kind, fileOf(row.kind, lines));
  }
  // The places of all findings of the rule or code, without the name of the file, and all that is
  // known of other findings.
  static std::string placesOf(const Findings& findings, const std::string& rule = "") {
    std::string places;
    for (const Finding& finding : findings.sorted()) {
      const std::string place = findings.placeText(finding.place);
      if (!places.empty()) places += ' ';
      places += place.substr(std::min(place.size(), place.find(':') + 1));
      if (finding.kind() != rule) places += fmt::format("[{}]: {}", finding.kind(), finding.text);
    }
    return places;
  }
  void expectRule(const std::string& rule, const std::vector<Case>& rows) const {
    for (const Case& row : rows)
      EXPECT_EQ(placesOf(checkChanged(row), rule), row.places)
          << row.kind << ' ' << row.changes.begin()->second;
  }

  const FormatLines cdf = linesOf("CDF", {"PAAAAAAAABBBBBBBBBBBBBBBBP", "", kEven, kOdd});
  FormatLines vff = linesOf("VFF", {"P........****************P", ".00010101", kEven, kOdd});
};

TEST_F(FormatsCheck, FindsNothingInValidFiles) {
  EXPECT_EQ(placesOf(checkLines("# f\n1=f.CDF # 1\r\n02 f.EFF # \xC2\xA0x\n+3\tf.VFF x\n")), "");
  EXPECT_EQ(placesOf(checkLines("4 ./f.CDF" + std::string(93, ' ') + " # f\n")), "");
  const std::string b47(47, 'B');
  expectRule("",
             {{"CDF", {{9, " 2 masks"}}, ""},
              {"CDF", {{13, "F, +1 ,-1,MSB,BIN"}}, ""},
              {"CDF", {{14, "F,0,99,MSB,BIN"}, {21, "P" + b47}, {24, ""}, {31, b47}, {51, ""}}, ""},
              {"VFF", {{18, "anything"}}, ""}});
}

TEST_F(FormatsCheck, RuleMask) {
  const std::string wide = "P........" + std::string(127, '*');
  expectRule(
      "mask",
      {{"CDF", {{9, "9"}}, "9:1"},
       {"CDF", {{9, ""}}, "23:1"},
       {"CDF", {{21, "PAAAAAAA.BBBBBBBBBBBBBBBBP"}}, "21:9"},
       {"CDF", {{21, ".AAAAAAAABBBBBBBBBBBBBBBBP"}}, "23:1"},
       {"EFF", {{21, std::string(48, 'A') + "BB"}}, "21:49"},
       {"CDF", {{22, "....11.x"}}, "22:5 22:8"},
       {"CDF", {{22, dots(27) + "1"}}, "22:28"},
       {"CDF", {{23, ""}}, "21:1"},
       {"CDF", {{23, "EXXE"}}, "23:4"},
       {"CDF", {{23, "EXX......................X"}}, "23:26"},
       {"CDF", {{21, "PAAAAAAAABBBBBBBBBBBBBBBBPP"}, {23, "eXX"}}, "23:1"},
       {"VFF", {{6, "27 2 MSB BIN"}}, "7:1"},
       {"VFF", {{6, "136 2 MSB BIN"}, {7, wide}, {9, "EX" + dots(142)}, {10, dots(144)}}, "7:129"},
       {"VFF", {{7, "P.........***************P"}}, "7:10"},
       {"VFF", {{16, "E"}}, "16:1"}});
}

TEST_F(FormatsCheck, RuleField) {
  expectRule("field", {{"CDF", {{8, "C"}}, "8:1"},
                       {"CDF", {{13, " F,0,255,MSB,BIN"}}, "13"},
                       {"CDF", {{13, "F,0,255,msb,BIN"}}, "13:9"},
                       {"CDF", {{13, "F,0,256,MSB,BIN"}}, "13:5"},
                       {"EFF", {{13, "F,,255,MSB,BIN"}}, "13"},
                       {"CDF", {{14, "F,0,0,MSB,MSD"}}, "14:11"},
                       {"CDF", {{21, "."}, {23, ""}, {24, ""}}, "8:1"},
                       {"VFF", {{6, "26 2"}}, "6"},
                       {"VFF", {{6, "26 2 msb BIN"}}, "6:6"}});
}

TEST_F(FormatsCheck, RuleNumber) {
  expectRule("number", {{"CDF", {{13, "F,O,9,MSB,BIN"}, {14, "F, ,x,MSB,BIN"}}, "13:3 14:3 14:5"}});
}

TEST_F(FormatsCheck, RuleText) {
  expectRule("text", {{"CDF", {{49, dots(101)}}, "49:101"},
                      {"CDF", {{13, "F,0,255,MSB,BIN\r\r"}}, "13:16"},
                      {"CDF", {{9, "\xA0 2"}}, "9:1"},
                      {"EFF", {{23, {"EXX\0X", 5}}}, "23:4"}});
  const std::string text = fileOf("CDF", cdf);
  EXPECT_EQ(placesOf(checkFile("CDF", text.substr(0, text.size() - 1) + '.'), "text"), "30");
  FormatLines merged = cdf;
  merged.insert(merged.begin() + 24, {"<<<<<<< a", "=======", ">>>>>>> b"});
  merged.resize(40);
  EXPECT_EQ(placesOf(checkFile("CDF", fileOf("CDF", merged)), "text"), "25");
}

TEST_F(FormatsCheck, ErrorsOfFormatFiles) {
  expectRule("-303", {{"CDF", {{8, "b"}}, "8:1"}, {"CDF", {{1, dots(101)}}, "1:101"}});
  expectRule("-338", {{"CDF", {{31, " "}}, "32"}, {"CDF", {{31, "======="}}, "31"}});
  expectRule("-335", {{"EFF", {{22, "..^"}}, "22"}, {"EFF", {{31, ""}}, "32"}});
  expectRule("-435", {{"VFF", {{6, "145 1"}}, "6:1"}, {"VFF", {{6, "26 9"}}, "6:1"}});
  expectRule("-303", {{"CDF", {{1, "\xFF\xFE"}, {8, ""}}, "1"}});
  const Findings cut = checkFile("VFF", fileOf("VFF", {"f", "1"}));
  EXPECT_EQ(placesOf(cut, "-435"), "3");
  EXPECT_EQ(cut.placeText(cut.verdict().place), "f.VFF:3");
}

TEST_F(FormatsCheck, RulesOfTheFormatsFile) {
  fs::create_directory("d");
  writeFile("d/f.VFF", "");
  const std::array<std::string, 3> rows[] = {
      {"6", "format-id", "1:1"},
      {"-1 f.CDF\n4294967296 f.CDF\n4294967295 f.CDF", "format-id", "1:1 2:1"},
      {"7 d/f.VFF", "format-id", "1:3"},
      {"\xEF\xBB\xBF# \r\n", "text", "1:1"},
      {"# all\r1 f.CDF\r", "text", "1:6"},
      {"2 f.EFF# x", "text", "1:8"},
      {"1 f.CDF" + std::string(93, ' ') + "2 f.CDF", "text", "1:101"},
      {"\xFF\xFE \0d\0\n\0"s, "text", "1"},
      {"1 f.CDF\n<<<<<<< a\n2 f.EFF\n=======\n3 f.VFF\n>>>>>>> b", "-505", "2"},
      {"c 1 15890 4711 1001", "-505", "1:3"},
      {"1 d/x.cdf", "-302", "x.cdf"},
  };
  for (const auto& [lines, rule, places] : rows)
    EXPECT_EQ(placesOf(checkLines(lines), rule), places) << lines;
  EXPECT_EQ(placesOf(check("no"), "-370"), "no");
  writeFile("list", "1 f.CDF\n# end");
  EXPECT_EQ(placesOf(check("list"), "text"), "2");
  // A build loads no format after the first that it cannot load.
  const Findings two = checkLines("1 f.CDF\n2 x\n3 none.cdf\n");
  EXPECT_EQ(two.errors(), 2U);
  EXPECT_EQ(two.placeText(two.verdict().place), "list:2");
}

}  // namespace badgemint::admin::check_formats_test
