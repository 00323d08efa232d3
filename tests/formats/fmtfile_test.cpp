// The formats file, and the set of formats.
#include "formats/fmtfile.h"

#include "formats/CardFormatSet.h"
#include "formats/EffCardFormat.h"
#include "support/masterconfiguration.h"
#include "support/testfiles.h"

namespace badgemint {

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
  const WorkFolder here;
  TestLog log(25);
  fmtfile file;
  uint32_t id = 0;
  FormatFileName name;
  here.write("named", "fmts f");
  here.write("empty", "");
  MasterConfiguration named(1, "named"), empty(1, "empty");
  for (const auto& [text, expected] : rows) {
    here.write("f", text);
    EXPECT_EQ(file.openFromConfiguration(named), 0);
    std::string entries;
    while (file.readEntryBaseName(id, name) == 0)
      entries += std::to_string(id) + ':' + name.data() + ' ';
    EXPECT_EQ(entries + log.take(), expected);
  }
  EXPECT_EQ(file.readEntry(id, name), 1);
  file.close();
  EXPECT_EQ(file.readEntry(id, name), -371);
  EXPECT_EQ(file.openFromConfiguration(empty), -370);
  EXPECT_EQ(log.take(), "[report 1/15 \"fmts\"]\n[report 1/21 \"\"]\n");
}

TEST(CardFormatSet, TakesTheKindFromTheNameAndFindsTheFirstOfAnId) {
  CardFormatSet set;
  EXPECT_NE(dynamic_cast<EffCardFormat*>(set.addFormat(0, "a.vff.EFFECT")), nullptr);
  for (uint32_t id = 1; id < 24; ++id) {
    const CardFormat* const format = set.addFormat(id, "A.VFF.eff.cDf");
    EXPECT_NE(dynamic_cast<const CdfCardFormat*>(format), nullptr);
    set.addFormat(id, ".vff");
    EXPECT_EQ(set.findFormat(id), format);
  }
  EXPECT_EQ(set.addFormat(1, "acdf"), nullptr);
  EXPECT_EQ(set.findFormat(24), nullptr);
}

}  // namespace badgemint
