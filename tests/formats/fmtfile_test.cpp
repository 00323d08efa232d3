// The formats file, the set of formats, and the step that loads all of them.
#include "formats/fmtfile.h"

#include <gtest/gtest.h>

#include "formats/CdfCardFormat.h"
#include "formats/EffCardFormat.h"
#include "formats/VffCardFormat.h"
#include "formats/formatfile.h"
#include "formats/loadformats.h"
#include "support/faults.h"
#include "support/masterconfiguration.h"

namespace badgemint {
namespace {

// The entries, how reading ended, and the log.
std::string read(fmtfile& file, TestLog& log) {
  uint32_t id = 0;
  FormatFileName name;
  std::string text;
  int32_t rc = 0;
  while ((rc = file.readEntryBaseName(id, name)) == 0)
    text += std::to_string(id) + ':' + name.data() + ' ';
  return text + std::to_string(rc) + log.take();
}

TEST(Fmtfile, ReadsEntries) {
  const std::string n98(98, 'n');  // The 101st character begins a line of its own.
  const std::pair<std::string, std::string> rows[] = {
      {"# only\n\n =\t=\r\n", "1"},
      {"5 = A.CDF\n5\tB.CDF#x\n5 C.CDF extra", "5:A.CDF 5:B.CDF 5:C.CDF 1"},
      {"7=dir/sub/Card.cdf\n+8 /\n", "7:Card.cdf 8: 1"},
      {"abc A\n4294967295 B\n", "0:A 4294967295:B 1"},
      {"-1 A\n", "1[25 fmtfile] line 1: ID out of range"},
      {"4294967296 A\n", "1[25 fmtfile] line 1: ID out of range"},
      {"1 A\n2 B\n\n7\n3 C\n", "1:A 2:B 3:C 1[25 fmtfile] line 2: too few args\n"},
      {"1 " + n98 + "2 B\n", "1:" + n98 + " 2:B 1"},
  };
  const TestFolder folder;
  TestLog log(25);
  fmtfile file;
  for (const auto& [text, expected] : rows) {
    EXPECT_EQ(file.open(folder.write("f", text).c_str()), 0);
    EXPECT_EQ(read(file, log), expected);
  }
  EXPECT_EQ(file.open(folder.path("f").c_str()), 0);
  {
    const ArmedFault fault({"read", 1});
    EXPECT_EQ(read(file, log), "-371[25 fmtfile] Error reading formats file\n");
  }
  file.close();
  EXPECT_EQ(read(file, log), "-371");
  EXPECT_EQ(file.open("/none"), -370);
  EXPECT_EQ(log.take(), "[25 fmtfile] Error opening formats file /none\n");
}

TEST(Fmtfile, IsNamedByTheConfiguration) {
  const TestFolder folder;
  TestLog log(25);
  fmtfile file;
  const std::string path = folder.write("f", "1 A\n");
  MasterConfiguration named(1, folder.write("named", "fmts " + path).c_str());
  EXPECT_EQ(file.openFromConfiguration(named), 0);
  EXPECT_EQ(read(file, log), "1:A 1");
  MasterConfiguration empty(1, folder.write("empty", "").c_str());
  EXPECT_EQ(file.openFromConfiguration(empty), -370);
  EXPECT_EQ(log.take(), "[report 1/15 \"fmts\"]\n[report 1/21 \"\"]\n");
}

TEST(CardFormatSet, TakesTheKindFromTheName) {
  TestLog log(25);
  CardFormatSet set;
  const auto kind = [&](const char* name) -> std::string {
    const CardFormat* const format = set.addFormat(1, name);
    if (format == nullptr) return log.take();
    if (dynamic_cast<const EffCardFormat*>(format) != nullptr) return "EFF";
    return dynamic_cast<const CdfCardFormat*>(format) != nullptr ? "CDF" : "VFF";
  };
  EXPECT_EQ(kind("a.cDf"), "CDF");
  EXPECT_EQ(kind("A.VFF.eff.CDF"), "CDF");
  EXPECT_EQ(kind("a.vff.EFFECT"), "EFF");
  EXPECT_EQ(kind(".vff"), "VFF");
  EXPECT_EQ(kind("acdf"), "[25 CardFormatSet] Invalid format file acdf\n");
  EXPECT_EQ(kind(""), "[25 CardFormatSet] Invalid format file \n");
}

TEST(CardFormatSet, FindsTheFirstOfAnId) {
  TestLog log(25);
  CardFormatSet set;
  ASSERT_EQ(set.create(1), 0);
  std::vector<CardFormat*> formats;
  for (uint32_t i = 0; i < 25; ++i) formats.push_back(set.addFormat(i % 20, ".cdf"));
  for (uint32_t i = 0; i < 20; ++i) EXPECT_EQ(set.findFormat(i), formats[i]);
  EXPECT_EQ(set.findFormat(20), nullptr);
  EXPECT_EQ(set.count(), 25);
  for (int nth = 1; nth <= 2; ++nth) {
    CardFormatSet small;
    const ArmedFault fault({"allocate", nth});
    EXPECT_EQ(small.addFormat(1, ".cdf"), nullptr);
    EXPECT_EQ(log.take(), "[25 CardFormatSet] Not enough memory to create card formats\n");
    EXPECT_EQ(small.count(), 0);
  }
  const ArmedFault fault({"allocate", 1});
  EXPECT_EQ(set.create(100), -100);
}

TEST(LoadFormats, StopsAtTheFirstFailure) {
  TestFormat test("CDF", 75);
  ASSERT_EQ(test.load(fileOf("CDF", cdfLines("B"))), 0);
  std::filesystem::rename("f", "base\\f.cdf");
  test.log.take();
  const auto load = [&](const std::string& entries) {
    test.folder.write("list", entries);
    const int32_t rc = loadFormats("me", "base", "list", test.set);
    return std::to_string(rc) + ", " + std::to_string(test.set.count()) + '\n' + test.log.take();
  };
  EXPECT_EQ(load("#"), "0, 1\n");
  EXPECT_EQ(load("3 x/f.cdf"),
            "0, 2\n[75 me] Load fmtid=3 fmtfile=base\\f.cdf\n"
            "[75 CdfCardFormat] load format file base\\f.cdf\n[75 CdfCardFormat] format loaded\n");
  EXPECT_EQ(load("4 f.txt\n5 f.cdf"),
            "-505, 2\n[75 me] Load fmtid=4 fmtfile=base\\f.txt\n"
            "[25 CardFormatSet] Invalid format file base\\f.txt\n");
  EXPECT_EQ(load("4 g.vff\n5 f.cdf"),
            "-434, 3\n[75 me] Load fmtid=4 fmtfile=base\\g.vff\n[75 VffCardFormat] load VFF file "
            "base\\g.vff\n[25 VffCardFormat] Error opening VFF file base\\g.vff\n");
  const ArmedFault fault({"allocate", 1});
  EXPECT_EQ(load(""), "-100, 3\n[25 me] Not enough memory to create format filename\n");
}

}  // namespace
}  // namespace badgemint
