// The formats file, the set of formats, and the step that loads both.
#include "formats/loadformats.h"

#include <gtest/gtest.h>

#include "formats/fmtfile.h"
#include "formats/formatfiles.h"
#include "support/result.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

// Entries as "id:name|", then the final result and the log.
std::string entries(const std::string& content) {
  TestFolder folder;
  TestLog log;
  fmtfile file;
  EXPECT_EQ(file.open(folder.write("formats", content).c_str()), kSuccess);
  std::string text;
  uint32_t id = 0;
  FormatFileName name;
  int32_t rc = kSuccess;
  while ((rc = file.readEntryBaseName(id, name)) == kSuccess)
    text += std::to_string(id) + ":" + name.data() + "|";
  file.close();
  EXPECT_EQ(file.readEntry(id, name), kFormatsReadFailed);
  return text + std::to_string(rc) + "\n" + log.take();
}

TEST(Fmtfile, ReadsEntries) {
  const std::string tooFew = "[fmtfile] line 1: too few args\n";
  const std::string range = "[fmtfile] line 1: ID out of range";
  const std::string longLine = "1 " + std::string(97, 'n');
  const std::pair<std::string, std::string> rows[] = {
      {"", "1\n"},
      {"# only\n\n \t=\r\n", "1\n"},
      {"5 = A.CDF\n5 B.CDF extra\r\n5\tC.CDF # x\n5 D.CDF#x",
       "5:A.CDF|5:B.CDF|5:C.CDF|5:D.CDF|1\n"},
      {"7=dir/sub/Card.cdf\n+8 /\n", "7:Card.cdf|8:|1\n"},
      {"abc A.CDF\n4294967295 A.CDF\n9x B", "0:A.CDF|4294967295:A.CDF|9:B|1\n"},
      {"-1 A.CDF\n", "1\n" + range},
      {"4294967296 A.CDF\n", "1\n" + range},
      {"1 A.CDF\n2 B.CDF\n7\n", "1:A.CDF|2:B.CDF|1\n" + tooFew},
      {"\n7\n-1 A\n1 B\n",
       "1:B|1\n[fmtfile] line 2: too few args\n[fmtfile] line 3: ID out of range"},
      {longLine + "m2 B\n", "1:" + std::string(97, 'n') + "m|2:B|1\n"},
  };
  for (const auto& [content, expected] : rows) EXPECT_EQ(entries(content), expected) << content;
}

TEST(Fmtfile, ReportsWhatItCannotRead) {
  TestFolder folder;
  TestLog log;
  fmtfile file;
  uint32_t id = 0;
  FormatFileName name;
  EXPECT_EQ(file.open("no/such/file"), kFormatsOpenFailed);
  EXPECT_EQ(file.readEntry(id, name), kFormatsReadFailed);
  EXPECT_EQ(file.open(folder.path("").c_str()), kSuccess);
  EXPECT_EQ(file.readEntry(id, name), kFormatsReadFailed);
  EXPECT_EQ(log.take(),
            "[fmtfile] Error opening formats file no/such/file\n"
            "[fmtfile] Error reading formats file\n");
}

TEST(CardFormatSet, ChoosesTheKindByTheName) {
  TestLog log;
  CardFormatSet formats;
  ASSERT_EQ(formats.create(1), kSuccess);
  const std::pair<const char*, const char*> rows[] = {
      {"a.cDf", "Cdf"}, {"A.CDF.VFF", "Cdf"}, {"a.vff.eff", "Cdf"}, {"X.EFFECT", "Cdf"},
      {"a.vff", "Vff"}, {"acdf", nullptr},    {".cd", nullptr},     {"", nullptr}};
  for (const auto& [name, kind] : rows) {
    CardFormat* const format = formats.addFormat(7, name);
    ASSERT_EQ(format != nullptr, kind != nullptr) << name;
    log.take();
    if (format != nullptr) format->printInfo();
    EXPECT_TRUE(format == nullptr || log.take().starts_with(std::string("[") + kind)) << name;
  }
  EXPECT_EQ(formats.addFormat(7, "none"), nullptr);
  EXPECT_EQ(log.take(), "[CardFormatSet] Invalid format file none\n");
  EXPECT_EQ(formats.count(), 5);
}

TEST(LoadFormats, LoadsTheSite) {
  TestFolder folder;
  TestLog log(75);
  std::string list;
  for (int i = 1; i <= 12; ++i) list += std::to_string(i) + " x/\\a.cdf\n";
  const std::string path = folder.write("formats", list + "12 \\b.eff\n");
  folder.write("\\a.cdf", TestLayout().cdf());
  folder.write("\\b.eff", TestLayout().eff());
  CardFormatSet formats;
  ASSERT_EQ(formats.create(10), kSuccess);
  const std::string base = folder.path("");
  ASSERT_EQ(loadFormats("caller", base.c_str(), path.c_str(), formats), kFormatFileOpenFailed);
  EXPECT_EQ(formats.count(), 1);
  log.take();

  std::string name = base + "\\a.cdf";
  CardFormatSet site;
  const std::string one = folder.write("formats", "3 a.cdf\n3 b.eff\n4294967295 a.cdf\n5 a.txt\n");
  EXPECT_EQ(loadFormats("caller", base.c_str(), one.c_str(), site), kFormatNotAdded);
  EXPECT_EQ(site.count(), 3);
  ASSERT_NE(site.findFormat(3), nullptr);
  EXPECT_EQ(site.findFormat(5), nullptr);
  EXPECT_TRUE(
      log.take().starts_with("[caller] Load fmtid=3 fmtfile=" + name +
                             "\n"
                             "[CdfCardFormat] load format file " +
                             name +
                             "\n"
                             "[CdfCardFormat] format loaded\n[caller] Load fmtid=3 fmtfile="));
  EXPECT_EQ(loadFormats("caller", "", "none", site), kFormatsOpenFailed);
  EXPECT_EQ(loadFormats("caller", "", folder.write("empty", "#\n").c_str(), site), kSuccess);
}

}  // namespace
}  // namespace badgemint
