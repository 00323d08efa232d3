// The verb `format`: format files drawn so that two can be compared.
#include "admin/adminrun.h"
#include "formats/formatfile.h"

namespace badgemint::admin {
namespace {

TEST(AdminFormat, DrawsAPictureThatOthersMayRead) {
  const WorkFolder folder;
  FormatLines lines = linesOf("CDF", {"PABBBBBBBP.", "..........1", "X", "EX", "........XO"});
  lines[12] = "<Si\x01te> & more,0,1,LSB,BCD";
  folder.write("a.cdf", fileOf("CDF", lines));
  umask(022);
  const std::string shown = runAdmin("format --svg a.svg a.cdf").output, svg = contentOf("a.svg");
  EXPECT_EQ(std::filesystem::status("a.svg").permissions(), std::filesystem::perms(0644));
  EXPECT_NE(svg.find("0 to 1                    &lt;Si\\x01te&gt; &amp; more<"), svg.npos) << svg;
  EXPECT_NE(shown.find("0 to 1                    <Si\\x01te> & more\n"), shown.npos) << shown;
  EXPECT_NE(shown.find("\nfixed     ..........1\n"), shown.npos) << shown;
  EXPECT_NE(shown.find(" mask 3 is not applied: the format uses only the first 2"), shown.npos);
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
      {"hole.EFF good.cdf", 1, "not counted as a bit [mask]\n\ngood", ""},
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
