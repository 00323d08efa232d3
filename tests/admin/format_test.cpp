// The verb `format`: format files drawn so that two can be compared.
#include <gtest/gtest.h>

#include "admin/adminrun.h"
#include "formats/formatfile.h"

namespace badgemint::admin {
namespace {

TEST(AdminFormat, ShowsFieldsMasksAndACard) {
  const WorkFolder folder;
  FormatLines lines = linesOf("CDF", {"PAAAAAAAAABBBB.P", "..............1.", "EXXXX...........",
                                      "......XXXXXXXXX.", "..............XO"});
  std::fill(lines.begin() + 12, lines.begin() + 20, "");
  lines[12] = "Si\x01te,12,15,LSB,BCD";
  lines[13] = "Number,5,12,MSB,BIN";
  lines[14] = "C,-1,0,MSB,MSD";
  folder.write("a.cdf", fileOf("CDF", lines));
  const std::string shown =
      "a.cdf: CDF\n16 bits, card number in field B\n"
      "field  type     bits  range                     label\n"
      "A      BCD LSB  9     12 to 15                  Si\\x01te\n"
      "B      BIN MSB  4     5 to 12                   Number\n"
      "C      MSD MSB  0     -1 to 0                   C\n"
      "card 12, A=12: key A4320000000000000000000000000000\n"
      "          0         1\n"
      "bit       0123456789012345\n"
      "output    PAAAAAAAAABBBB.P\n"
      "fixed     ..............1.\n"
      "parity 1  EXXXX...........\n"
      "parity 2  ......XXXXXXXXX.\n"
      "parity 3  ..............XO\n"
      "card      1010010000110010\n"
      "a.cdf:24:7: warning: a mask without E or O sets no parity bit [mask]\n"
      "a.cdf:25:16: warning: parity mask 3 is not applied: the format uses only the first 2 "
      "[mask]\n";
  EXPECT_EQ(runAdmin("format a.cdf").output, shown);
}

TEST(AdminFormat, DrawsAPicture) {
  const WorkFolder folder;
  FormatLines lines = linesOf("CDF", {"PABBBBBBBP.", "..........1", "EX", "........XO"});
  lines[12] = "<Site> & more,0,1,MSB,BIN";
  folder.write("a.cdf", fileOf("CDF", lines));
  umask(022);
  EXPECT_EQ(runAdmin("format --svg a.svg a.cdf").status, 0);
  EXPECT_EQ(std::filesystem::status("a.svg").permissions(), std::filesystem::perms(0644));
  const std::string svg = contentOf("a.svg");
  for (const std::string part :
       {"<svg xmlns=\"http://www.w3.org/2000/svg\" ",
        ">a.cdf: 11 bits, card number in field B</text>",
        ">A      BIN MSB  1     0 to 1                    &lt;Site&gt; &amp; more</text>",
        ">card 123, A=0: key ", ">parity 2</text>", "</svg>\n"})
    EXPECT_NE(svg.find(part), std::string::npos) << part << svg;
}

TEST(AdminFormat, EndsWithTheWorstOfItsFiles) {
  const WorkFolder folder;
  folder.write("good.cdf", fileOf("CDF", linesOf("CDF", {"AABBBB"})));
  folder.write("hole.EFF", fileOf("EFF", linesOf("EFF", {"BBBB.BBBBBBBBBB"})));
  folder.write("text.txt", "");
  folder.write("long.vff", fileOf("VFF", linesOf("VFF", {std::string(100, '*') + 'P', "", "X"})));
  folder.write("cut.eff", fileOf("EFF", {"1"}));
  const struct {
    const char* files;
    int status;
    const char *output, *errors;
  } cases[] = {
      {"good.cdf", 0, "\ncard 12, A=0: key 0C00", ""},
      {"hole.EFF good.cdf", 1, "not counted as a bit [mask]\n\ngood", ""},
      {"long.vff", 1, "101 bits, card number in field *\nfield  type     bits  range", ""},
      {"long.vff", 1, "0\n          9         10\nbit       01234567890\noutput    **********P\n",
       ""},
      {"cut.eff good.cdf", 2, "cut.eff: does not load\ncut.eff:2: error: the format ends here", ""},
      {"text.txt hole.EFF", 2, "text.txt: does not load\ntext.txt: error: ", ""},
      {"none.cdf gone.vff cut.eff", 3, "cut.eff: does", "gone.vff: cannot be opened: No such"},
      {"--svg good.cdf good.cdf", 2, "good.cdf: CDF\n", "good.cdf"},
      {"--svg hole.EFF good.cdf", 2, "good.cdf: CDF\n", "hole.EFF is there already"},
      {"--svg a.svg good.cdf good.cdf", 3, "", "--svg draws one format file; 2 are given"},
  };
  for (const auto& [files, status, output, errors] : cases)
    expectRun(std::string("format ") + files, status, output, errors);
}

}  // namespace
}  // namespace badgemint::admin
