// The formats file, the set of formats, and the step that loads both.
#include "formats/loadformats.h"

#include <gtest/gtest.h>

#include "formats/fmtfile.h"
#include "formats/formatfiles.h"
#include "support/masterconfiguration.h"
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
  const std::string base = folder.path(""), name = base + "\\a.cdf";
  folder.write("\\a.cdf", TestLayout().cdf());
  std::string list = "3 x/a.cdf\n4 a.cdf\n3 a.cdf\n";
  for (int i = 0; i < 9; ++i) list += "9 a.cdf\n";
  CardFormatSet site;
  EXPECT_EQ(site.create(10), kSuccess);
  EXPECT_EQ(loadFormats("caller", base.c_str(), folder.write("f", list).c_str(), site), kSuccess);
  EXPECT_EQ(site.count(), 12);
  EXPECT_TRUE(log.take().starts_with("[caller] Load fmtid=3 fmtfile=" + name +
                                     "\n[CdfCardFormat] load format file " + name +
                                     "\n[CdfCardFormat] format loaded\n[caller] Load fmtid=4 "));
  EXPECT_EQ(site.findFormat(5), nullptr);
  CardFormat* const first = site.findFormat(3);
  ASSERT_NE(first, nullptr);
  first->setFormatID(4);
  EXPECT_EQ(site.findFormat(4), first);

  const std::pair<const char*, int32_t> failures[] = {
      {"#\n", kSuccess},
      {"5 a.txt\n", kFormatNotAdded},
      {"5 b.cdf\n6 a.cdf\n", kFormatFileOpenFailed}};
  for (const auto& [content, rc] : failures)
    EXPECT_EQ(loadFormats("caller", base.c_str(), folder.write("f", content).c_str(), site), rc);
  EXPECT_EQ(site.count(), 13);
  EXPECT_EQ(loadFormats("caller", "", "none", site), kFormatsOpenFailed);
}

TEST(Fmtfile, OpensWhatTheConfigurationNames) {
  TestFolder folder;
  const std::string fmts = "fmts " + folder.write("f", "1 A.CDF\n") + "\n";
  fmtfile file;
  uint32_t id = 0;
  FormatFileName name;
  MasterConfiguration with(1, folder.write("with", fmts).c_str());
  ASSERT_EQ(file.openFromConfiguration(with), kSuccess);
  EXPECT_EQ(file.readEntry(id, name), kSuccess);
  MasterConfiguration without(1, folder.write("without", "").c_str());
  EXPECT_EQ(file.openFromConfiguration(without), kFormatsOpenFailed);
}

}  // namespace
}  // namespace badgemint
