// How the three kinds of format files are read, and the file and the set of a site's formats.

#include <regex>

#include "formats/EffCardFormat.h"
#include "formats/fmtfile.h"
#include "formats/formatfile.h"

namespace badgemint::formats_test {

// Each row is a valid file with one line or record replaced.
TEST(FormatFiles, ReportWhatIsWrong) {
  const std::string n100(100, 'N'), vff = "[25 VffCardFormat] Error in VFF file f, need ",
                                    date = "[25 CdfCardFormat] bad date in format file f ";
  const std::tuple<std::string, size_t, std::string, int32_t, std::string> rows[] = {
      {"CDF", 2, "0", 0, date + "(00/01/2026)\n"},
      {"EFF", 2, "13", 0, date + "(13/01/2026)\n"},
      {"CDF", 3, "x", 0, date + "(01/00/2026)\n"},
      {"CDF", 3, "32", 0, date + "(01/32/2026)\n"},
      {"CDF", 4, "20", 0, date + "(01/01/1920)\n"},
      {"CDF", 4, "1969", 0, date + "(01/01/1969)\n"},
      {"CDF", 4, "2038", 0, date + "(01/01/2038)\n"},
      {"CDF", 8, "@", -303, "[25 CdfCardFormat] Error reading cdf file f, need A-H, got @\n"},
      {"EFF", 8, "I", -303, "[25 CdfCardFormat] Error reading cdf file f, need A-H, got I\n"},
      {"CDF", 30, n100, -338, "[25 CdfCardFormat] Error reading CDF file\n"},
      {"EFF", 30, n100, 0, ""},
      {"EFF", 30, n100 + "N", -335, "[25 EffCardFormat] Error reading EFF file\n"},
      {"VFF", 6, "0 1", 0, ""},
      {"VFF", 6, "144 8 x y z", 0, ""},
      {"VFF", 6, "-1 1", -435, vff + "0-144 bits, got -1\n"},
      {"VFF", 6, "145 1", -435, vff + "0-144 bits, got 145\n"},
      {"VFF", 6, "26", -435, vff + "card number field 1-8, got 0\n"},
      {"VFF", 6, "26 9", -435, vff + "card number field 1-8, got 9\n"},
  };
  for (const auto& [kind, line, text, result, log] : rows) {
    TestFormat test(kind, 25);
    FormatLines lines = linesOf(kind, {"B"});
    lines[line - 1] = text;
    EXPECT_EQ(test.load(fileOf(kind, lines)), result) << line << text;
    EXPECT_EQ(test.log.take(), log) << line << text;
  }
}

// After each line or record a file ends, with half a character or a '^', or cannot be read on.
TEST(FormatFiles, EndAfterLastLinesOnly) {
  const std::tuple<std::string, size_t, int32_t, int32_t, std::string> kinds[] = {
      {"CDF", 50, -302, -338, "[25 CdfCardFormat] Error reading CDF file\n"},
      {"EFF", 50, -302, -335, "[25 EffCardFormat] Error reading EFF file\n"},
      {"VFF", 17, -434, -435, "[25 VffCardFormat] Error reading vff file\n"},
  };
  for (const auto& [kind, count, unopened, failed, message] : kinds) {
    TestFormat test(kind, 25);
    EXPECT_EQ(test.format->loadFormatFile("none"), unopened);
    EXPECT_EQ(test.log.take(), message.substr(0, 19) + "Error opening " + kind + " file none\n");
    FormatLines lines = linesOf(kind, {"B"});
    for (size_t n = count + 1; n-- > 0;) {
      lines.resize(n);
      const std::string file = fileOf(kind, lines);
      const bool mayEnd = n == count || (kind != "VFF" && (n == 30 || n == 40));
      for (const std::string& end : {std::string(), std::string("x"), twoBytes("^")}) {
        if (kind == "CDF" && !end.empty()) continue;
        ASSERT_EQ(test.load(file + end), mayEnd ? 0 : failed) << kind << n;
        ASSERT_EQ(test.log.take(), mayEnd || kind != "CDF" ? "" : message) << kind << n;
      }
      const ArmedFault fault({"read", n == 0 ? 1 : 2});
      ASSERT_EQ(test.load(file), n == count ? 0 : failed) << kind << n;
      ASSERT_EQ(test.log.take(), n == count ? "" : message) << kind << n;
    }
  }
}

// What printing logs, at level 100 and without its prefix, after the field values are set.
void expectPrinted(const std::string& kind, const FormatLines& lines, const FormatLines& parts) {
  TestFormat test(kind);
  EXPECT_EQ(test.load(fileOf(kind, lines)), 0);
  for (int f = 0; f < 8; ++f) test.format->setFieldValue(f, 100 + f);
  test.log.take();
  test.format->printInfo();
  test.log.logger().setThreshold(99);
  test.format->printInfo();  // Nothing is below level 100.
  const std::regex prefix("\\[100 [CV][df]fCardFormat\\] ");
  const std::string info = std::regex_replace(test.log.take(), prefix, "");
  for (const std::string& part : parts) EXPECT_TRUE(contains(info, part));
}

TEST(FormatFiles, ArePrinted) {
  const std::string n35 = "A name of thirty-five characters or", n144(144, 'n'), n30(30, 'n');
  FormatLines lines = {n35 + "x\r", "12", " 31x", "19", "-3", "4", "8", "B", "12", "6", "7", "G"};
  for (const char* const field :
       {"Card,0,99,MSB,BIN", "A label of twenty let,-5,2x,LSB,BCD,x", "F, 1,2, MSB,MSD"})
    lines.push_back(field);
  lines.resize(20, " F,1,2,MSB,BIN");
  lines.insert(lines.end(), {"AB", "01", "0", "1", "2", "3", "4", "5", "6", "7"});
  const std::string field = "\n   currentval=10";
  expectPrinted(
      "CDF", lines,
      {"Card Format Info:\n_formatID=7\n_customerName=" + n35 + "\n_creationDate=12 31 2019\n",
       "\n_formatRevision=-3\n_customerNumber=4\n_numberActiveFields=8\n_cardNumberField=1\n",
       "\n_numberParityBits=8\n_offset=6\n_cardStyleFlag=7\n_errorDetectionField=6\n",
       "_fieldDefs  n=8\n   ii=0, label=Card\n   minval=0 maxval=99" + field + "0\n   dir=1 ftyp=1",
       "ii=1, label=A label of twenty le\n   minval=-5 maxval=2" + field + "1\n   dir=2 ftyp=2\n",
       "ii=2, label=F\n   minval=1 maxval=2" + field + "2\n   dir=0 ftyp=3\n",
       "ii=7, label=\n   minval=0 maxval=0" + field + "7\n   dir=0 ftyp=0\n_outputBitMask=AB\n",
       "\n_fixedBitMask=01\n_parityMasks  n=8\n   ii=0 _parityMasks=0\n   ii=1 _parityMasks=1\n",
       "\n   ii=7 _parityMasks=7\n_numberOfBits=2\n\n"});
  lines = {n144, n30 + 'v', n30 + 'd', n30 + 't', n144, "26 2 LSB MSD"};
  lines.resize(17, "4711");
  expectPrinted("VFF", lines,
                {"Card Format Info:\n_formatID=7\n_filename=" + n144 + "\n_version=" + n30,
                 "\n_dateCreated=" + n30 + "\n_templateID=" + n30 + "\n_cardNumberField=1\n",
                 "\n_numberParityBits=8\n_fixedFieldDetails=" + n144 + "\n_fieldDefs  n=8\n",
                 "_numberOfBits=26\n\n_checkSum=4711\n\n"});
}

TEST(Fmtfile, ReadsEntries) {
  const std::string n98(98, 'n');  // The 101st character begins a line of its own.
  const std::pair<std::string, std::string> rows[] = {
      {"# only\n\n =\t=\r\n5 = A.CDF\n5\tB.CDF#x\n5 C.CDF extra", "5:A.CDF 5:B.CDF 5:C.CDF "},
      {"7=dir/sub/Card.cdf\n0 /\n4294967295 B\n", "7:Card.cdf 0: 4294967295:B "},
      {"-1 A\n", "[25 fmtfile] line 1: ID out of range"},
      {"4294967296 A\n", "[25 fmtfile] line 1: ID out of range"},
      {"1 A\n2 B\n\n7\n3 C\n", "1:A 2:B 3:C [25 fmtfile] line 2: too few args\n"},
      {"1 " + n98 + "2 B\n", "1:" + n98 + " 2:B "},
  };
  TestLog log(25);
  fmtfile file;
  uint32_t id = 0;
  FormatFileName name;
  for (const auto& [text, expected] : rows) {
    writeFile("f", text);
    EXPECT_EQ(file.open("f"), 0);
    std::string entries;
    while (file.readEntryBaseName(id, name) == 0)
      entries += std::to_string(id) + ':' + name.data() + ' ';
    EXPECT_EQ(entries + log.take(), expected);
  }
  EXPECT_EQ(file.readEntry(id, name), 1);
  file.close();
  EXPECT_EQ(file.readEntry(id, name), -371);
}

TEST(CardFormatSet, ReadsTheKindFromTheName) {
  CardFormatSet set;
  EXPECT_NE(dynamic_cast<EffCardFormat*>(set.addFormat(0, "a.vff.EFFECT")), nullptr);
  EXPECT_NE(dynamic_cast<CdfCardFormat*>(set.addFormat(1, "A.VFF.eff.cDf")), nullptr);
  EXPECT_EQ(set.addFormat(1, "acdf"), nullptr);
}

}  // namespace badgemint::formats_test
