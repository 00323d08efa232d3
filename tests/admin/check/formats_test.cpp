// What is found in the formats file and in format files: good ones with one thing changed.
#include <gtest/gtest.h>

#include <map>

#include "admin/check/formatrules.h"
#include "admin/check/formatscheck.h"
#include "formats/formatfile.h"
#include "support/faults.h"
#include "support/result.h"

namespace badgemint::admin {
namespace {

// The findings and the verdict.
std::string textOf(const Findings& findings) {
  std::string text;
  for (const Finding& finding : findings.sorted())
    text += findings.placeText(finding.place) + ": " + finding.text + " [" +
            (finding.isError() ? std::to_string(finding.code) : std::string(finding.rule)) + "]\n";
  const Verdict& verdict = findings.verdict();
  if (verdict.result != 0)
    text += std::to_string(verdict.result) + " at " + findings.placeText(verdict.place) + '\n';
  return text.substr(0, text.rfind('\n'));
}

// What is found in a formats file of the current folder and in what it lists.
std::string findingsIn(const std::string& formatsFile) {
  Findings findings;
  CardFormatSet formats;
  checkFormats(formatsFile, formats, findings);
  return textOf(findings);
}

// A folder with a good format file of each kind.
class FormatsCheck : public testing::Test {
 protected:
  FormatsCheck() {
    std::filesystem::current_path(folder.path(""));
    for (size_t record = 8; record < 16; ++record) vff[record].resize(144, '.');
    for (const std::string kind : {"CDF", "EFF", "VFF"})
      folder.write("f." + kind, fileOf(kind, kind == "VFF" ? vff : cdf));
  }
  ~FormatsCheck() override { std::filesystem::current_path("/"); }

  std::string findingsOf(const std::string& formats) const {
    folder.write("list", formats);
    return findingsIn("list");
  }
  // In a format file, the name of which is left out of their places.
  std::string findingsOfFile(const std::string& kind, const std::string& bytes) const {
    folder.write("f." + kind, bytes);
    std::string found = findingsOf("1 f." + kind);
    for (size_t at = 0; (at = found.find("f.", at)) != std::string::npos;) found.erase(at, 6);
    return found;
  }

  TestFolder folder;
  static constexpr const char* kEven = "EXXXXXXXXXXXX";
  static constexpr const char* kOdd = ".............XXXXXXXXXXXXO";
  const FormatLines cdf = linesOf("CDF", {"PAAAAAAAABBBBBBBBBBBBBBBBP", "", kEven, kOdd});
  FormatLines vff = linesOf("VFF", {"P........****************P", ".00010101", kEven, kOdd});
};

TEST_F(FormatsCheck, FindsNothingInGoodFiles) {
  EXPECT_EQ(findingsOf("# f\n1=f.CDF # 1\r\n02 f.EFF # \xC2\xA0x\n+3\tf.VFF x\n4 ./f.CDF"), "");
  EXPECT_EQ(findingsOf("1 f.CDF" + std::string(93, ' ') + " # f\n"), "");
  std::filesystem::current_path(BADGEMINT_EXAMPLE_SITE);
  EXPECT_EQ(findingsIn("formats.txt"), "");
}

TEST_F(FormatsCheck, TellsOfTheFormatsFile) {
  std::filesystem::create_directory("d.cdf");
  folder.write("d.cdf/f.VFF", "");
  EXPECT_EQ(
      findingsOf("\xEF\xBB\xBF# all\n1 f.CDF\n1 f.EFF 2 f.VFF\n2 f.EFF# x\n3 f.CDF\r4 f.EFF\n"
                 "O5 f.CDF\n6\n4294967296 f.CDF\n7 d.cdf/f.VFF\n8 d.cdf\n9 x/\xC2\xA0.VFF\n1 x\n"
                 "10 f.CDF" +
                 std::string(92, ' ') + "11 f.CDF\n"),
      "list:1:6: \"all\" is no format file: its name holds no .cdf, .eff or .vff; a byte order "
      "mark makes the first word neither a number nor a comment [-505]\n"
      "list:3:1: format ID 1 is that of line 2 already: this format is never used [format-id]\n"
      "list:3:9: a second format in one line is not read [format-id]\n"
      "list:4:8: \"#\" without a blank before it begins no comment: reading goes on behind the "
      "word [text]\n"
      "list:5:8: a carriage return within the line does not end it [text]\n"
      "list:6:1: format ID \"O5\" is not a number: it is read as 0 [format-id]\n"
      "list:7:1: no file name: the line is left out [format-id]\n"
      "list:8:1: format ID \"4294967296\" is not 1 to 4294967295: the line is left out "
      "[format-id]\n"
      "list:9:3: the folder is dropped: \"f.VFF\" of the current folder is read, and is another "
      "file [format-id]\n"
      "list:12:3: \"x\" is no format file: its name holds no .cdf, .eff or .vff [-505]\n"
      "list:13:101: the line is longer than 100 characters: the rest is read as another line "
      "[text]\n"
      "d.cdf: cannot be read: Is a directory [-338]\n"
      "\\xC2\\xA0.VFF: cannot be opened: No such file or directory; named at list:11 as "
      "\"x/\\xC2\\xA0.VFF\", of which the folder is dropped; a no-break space is not a blank but "
      "part "
      "of the word [-434]\n"
      "-505 at list:1");
  EXPECT_EQ(findingsOf("-0 f.CDF\n6#\n7 f.CDF x y\n8 f.CDF" + std::string(93, ' ') + "9 f.CDF" +
                       std::string(93, ' ') + "10 f.CDF\n"),
            "list:1:1: format ID 0: IDs begin with 1 [format-id]\n"
            "list:2:2: \"#\" without a blank before it begins no comment: reading goes on behind "
            "the word [text]\n"
            "list:4:101: the line is longer than 100 characters: the rest is read as another line "
            "[text]");
  EXPECT_EQ(findingsIn("no"), "no: cannot be opened: No such file or directory [-370]\n-370 at no");
}

TEST_F(FormatsCheck, TellsOfFormatFiles) {
  const std::string b47(47, 'B');
  const std::string c101(101, '.');
  const struct {
    const char* kind;
    std::map<size_t, std::string> lines;
    std::string findings;
  } rows[] = {
      {"CDF",
       {{9, "9"},
        {13, "F,O,100,msb,BCD"},
        {14, "F,0,0,MSB, BIN"},
        {21, "PAAAAAAAA.BBBBBBBBBBBBBBBPPPPPP"},
        {23, "EXXXXXXXXXXXXXXXXXXXXXXXXXE"},
        {25, "XX"},
        {26, ".e"},
        {27, ".E"}},
       "9:1: 9 parity masks are declared, and there are eight [mask]\n"
       "13:3: minimum \"O\" is read as 0 [number]\n"
       "13:5: maximum 100 does not fit the 8 positions of field A: it is cut [field]\n"
       "13:9: direction \"msb\" is not known: field A is read as MSB [field]\n"
       "14:11: type \" BIN\" is not known: the card number (field B) is 0 on every card [field]\n"
       "21:10: 1 position not used between used ones: always 0, and not counted [mask]\n"
       "21:31: no parity mask sets this P: it is 0 on every card [mask]\n"
       "23:26: X covers the bit of parity mask 2, which is set later: it counts as 0 [mask]\n"
       "23:27: a second parity bit in one mask: only the first is set [mask]\n"
       "25:1: a mask without E or O sets no parity bit [mask]\n"
       "26:2: \"e\" means nothing here: X is covered, E or O is set [mask]\n"
       "27:2: no P stands here: the parity bit replaces another bit [mask]"},
      {"EFF",
       {{9, "1"},
        {13, " F,0,255,MSB,BIN"},
        {14, "F,,255,MSB,BIN"},
        {21, "PAAAAAAAABBBBBBBBBBBBBBBBp"},
        {22, "x...1......................0"}},
       "13:1: a blank at the front makes the line count as empty: field A is 0 on every card "
       "[field]\n"
       "14: fewer than five values, empty ones not counted: the card number (field B) is 0 on "
       "every card [field]\n"
       "21:26: \"p\" is no field: 1 position of the card left out [mask]\n"
       "22:1: \"x\" is neither 0 nor 1: it fixes no bit [mask]\n"
       "22:5: 1 position of field A fixed: the value of the field is lost there [mask]\n"
       "22:28: the output mask has no \".\" here: the fixed bit is none of the card [mask]\n"
       "24:26: parity mask 2 is not applied: line 9 declares 1 [mask]"},
      {"VFF",
       {{6, "27 2 msb BIN"}, {7, "P........****************P" + std::string(110, '*')}, {16, "E"}},
       "6:1: the card is given 27 bits, and its mask uses 136 positions [mask]\n"
       "6:6: direction \"msb\" is not known: read as MSB [field]\n"
       "7:129: the layout has 136 bits, and a card holds 128: the last are lost [mask]\n"
       "16:1: parity mask 8 is not applied: those in use come first, and the others are 144 dots "
       "[mask]"},
      {"CDF",
       {{8, "b"}, {31, " "}},
       "8:1: card number field \"b\" is not A to H [-303]\n"
       "32: the file ends here; a CDF file has 30, 40 or 50 lines, empty ones included [-338]\n"
       "-303 at 8"},
      {"EFF",
       {{22, "..^"}},
       "22:3: \"^\" marks an error here: the file is not read beyond it [-335]\n"
       "-335 at 22"},
      {"VFF",
       {{6, "145 9"}},
       "6:1: bit count 145 is not 0 to 144 [-435]\n"
       "6:1: card number field 9 is not 1 to 8 [-435]\n"
       "-435 at 6"},
      {"CDF",
       {{8, "C"}, {9, "1x"}, {13, "F,0,255,MSB,BIN\r\r"}, {51, "x"}},
       "8:1: no \"C\" in the mask: the card has no bit of its number [field]\n"
       "9:1: number of parity masks \"1x\" is read as 1 [number]\n"
       "13:16: a carriage return within the line does not end it: field A is 0 on every card "
       "[text]\n"
       "51: CDF files end with line 50: what follows is not read [text]"},
      {"CDF",
       {{13, ""}, {14, "F,0,0,MSB,MSD"}},
       "14:11: digits of type MSD take five positions each, and the card number (field B) has 16 "
       "[field]\n"
       "21:2: field A is not defined in line 13: it is 0 on every card [field]"},
      {"EFF",
       {{21, std::string(48, 'A') + "BB"}},
       "21:49: a line has 48 positions: the rest belongs in line 31 [mask]"},
      {"CDF", {{14, "F,0,99999999,MSB,BIN"}, {21, "P" + b47}, {24, ""}, {31, b47}, {51, ""}}, ""},
      {"CDF",
       {{9, ""}, {13, "F, +1 ,-1,MSB,BIN"}, {14, "F, ,0,MSB,BIN"}},
       "14:3: minimum \" \" is read as 0 [number]\n"
       "23:1: parity mask 1 is not applied: line 9 declares 0 [mask]"},
      {"CDF",
       {{9, "\xA0 2"}, {13, "F,\xA0,9,MSB,BIN"}, {14, "F,\xC3\xA0,9,MSB,BIN"}},
       "9:1: a no-break space is not a blank but part of the word [text]\n"
       "13:3: a no-break space is not a blank but part of the word [text]\n"
       "14:3: minimum \"\\xC3\\xA0\" is read as 0 [number]"},
      {"EFF",
       {{9, {"2\0", 2}}, {23, {"EXX\0X", 5}}, {51, "x"}},
       "23:4: a NUL byte: the rest of the line is not read [text]\n"
       "51: EFF files end with line 50: what follows is not read [text]"},
      {"CDF",
       {{21, ".pAAAAAAAAqqBBBBBBBBBBBBBBBBPP"},
        {22, ".1xx...x111.................1x"},
        {23, ".EXX"},
        {24, "............XXXXXXXXXXXXXXXXO"}},
       "21:2: \"p\" is no field: 1 position of the card left out [mask]\n"
       "21:11: \"q\" is no field: 2 positions of the card left out [mask]\n"
       "22:3: \"x\" is neither 0 nor 1: it fixes no bit [mask]\n"
       "22:8: \"x\" is neither 0 nor 1: it fixes no bit [mask]\n"
       "22:9: 2 positions of field A fixed: the value of the field is lost there [mask]\n"
       "22:30: \"x\" is neither 0 nor 1: it fixes no bit [mask]"},
      {"CDF",
       {{21, "."}, {23, ""}, {24, ""}},
       "8:1: no \"B\" in the mask: the card has no bit of its number [field]"},
      {"VFF",
       {{7, "P.........***************P"}, {8, ".00010101" + std::string(134, '.') + "x"}},
       "7:10: 1 position not used between used ones: always 0, and not counted [mask]\n"
       "8:144: \"x\" is neither 0 nor 1: it fixes no bit [mask]"},
      {"VFF",
       {{7, "P........................P"}},
       "7: no \"*\" in the mask: the card has no bit of its number [field]\n"
       "7:10: 16 positions not used between used ones: always 0, and not counted [mask]"},
      {"VFF",
       {{6, "26 2"}, {18, "x"}},
       "6: type \"\" is not known: the card number is 0 on every card [field]"},
      {"VFF", {{6, "-1 2"}}, "6:1: bit count -1 is not 0 to 144 [-435]\n-435 at 6"},
      {"VFF", {{6, "26 0"}}, "6:1: card number field 0 is not 1 to 8 [-435]\n-435 at 6"},
      {"VFF",
       {{6, "^"}},
       "6:1: \"^\" marks an error here: the file is not read beyond it [-435]\n-435 at 6"},
      {"CDF",
       {{1, c101}},
       "7:1: card number field \"\" is not A to H; line 1 is longer than 100 characters and counts "
       "as two [-303]\n-303 at 7"},
      {"CDF",
       {{49, c101}},
       "49:101: the line is longer than 100 characters: the rest is read as another line [text]"},
      {"EFF",
       {{22, c101}},
       "22: more than 100 characters without a \"~\" at their end [-335]\n-335 at 22"},
      {"EFF",
       {{31, ""}},
       "32: the file ends here; an EFF file has 30, 40 or 50 lines, empty ones included "
       "[-335]\n-335 at 32"},
  };
  for (const auto& row : rows) {
    FormatLines lines = row.kind[0] == 'V' ? vff : cdf;
    for (const auto& [line, text] : row.lines) {
      lines.resize(std::max(lines.size(), line));
      lines[line - 1] = text;
    }
    EXPECT_EQ(findingsOfFile(row.kind, fileOf(row.kind, lines)), row.findings) << row.kind;
  }
}

TEST_F(FormatsCheck, TellsOfBytesAtTheEnd) {
  EXPECT_EQ(findingsOfFile("VFF", fileOf("VFF", {"f", "1"})),
            "3: the file ends here; a VFF file has 17 records of 144 characters [-435]\n-435 at 3");
  const std::string whole = fileOf("EFF", cdf);
  EXPECT_EQ(findingsOfFile("EFF", whole + twoBytes("PAB")),
            "31: the line has no \"~\" at its end and is not read [text]");
  EXPECT_EQ(findingsOfFile("EFF", whole + twoBytes("PAZ")), "");
}

}  // namespace
}  // namespace badgemint::admin
