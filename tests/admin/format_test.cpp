// The verb `format`: format files drawn so that two can be compared.
#include "admin/adminrun.h"

namespace badgemint::admin::format_test {

TEST(AdminFormat, DrawsAPictureThatOthersMayRead) {
  FormatLines lines = linesOf("CDF", {"PABBBBBBBP.", "..........1", "X", "EX", "........XO"});
  lines[12] = "<Si\x01te> & more,0,1,LSB,BCD";
  writeFile("a.cdf", fileOf("CDF", lines));
  writeFile("a.svg", "<svg> of before");
  umask(022);
  const std::string shown = runAdmin("format --svg a.svg a.cdf").output, svg = contentOf("a.svg");
  EXPECT_EQ(fs::status("a.svg").permissions(), fs::perms(0644));
  EXPECT_TRUE(contains(svg, "0 to 1                    &lt;Si\\x01te&gt; &amp; more<"));
  EXPECT_TRUE(contains(shown, "0 to 1                    <Si\\x01te> & more\n"));
  EXPECT_TRUE(contains(shown, "\nfixed     ..........1\n"));
  EXPECT_TRUE(contains(shown, " mask 3 is not applied: the format uses only the first 2"));
}

TEST(AdminFormat, EndsWithTheWorstOfItsFiles) {
  writeFile("good.cdf", fileOf("CDF", linesOf("CDF", {"AABBBB"})));
  writeFile("hole.EFF", fileOf("EFF", linesOf("EFF", {"BBBB.BBBBBBBBBB"})));
  writeFile("text.txt", "");
  fs::create_directory("d.cdf");
  writeFile("long.vff", fileOf("VFF", linesOf("VFF", {std::string(100, '*') + 'P', "", "X"})));
  writeFile("cut.eff", fileOf("EFF", {"1"}));
  expectRuns({
      {"format hole.EFF good.cdf", 1, "not counted as a bit [mask]\n\ngood"},
      {"format long.vff", 1,
       "0\n          9         10\nbit       01234567890\noutput    **********P\n", ""},
      {"format cut.eff good.cdf", 2,
       "cut.eff: does not load\ncut.eff:2: error: the format ends here"},
      {"format text.txt hole.EFF", 2, "text.txt: does not load\ntext.txt: error: "},
      {"format none.cdf gone.vff cut.eff", 3, "cut.eff: does",
       "gone.vff: cannot be opened: No such"},
      {"format --svg hole.EFF good.cdf", 2, "good.cdf: CDF\n", "hole.EFF already exists and"},
      {"format --svg text.txt good.cdf", 2, "good.cdf: CDF\n", "text.txt already exists and"},
      {"format d.cdf good.cdf", 3, "\ngood.cdf: CDF", "d.cdf is not a regular file"},
      {"format --svg a.svg good.cdf good.cdf", 3, "", "--svg draws one format file, but 2 were"},
  });
}

}  // namespace badgemint::admin::format_test
