// Words, dates, paths and bits; text files that are written, and the master table. How lines,
// numbers, fields and dates are read, and dates written: fuzz/texts.cpp, whose lines all tests run.

#include "support/bits.h"
#include "support/datetime.h"
#include "support/linelist.h"
#include "support/linereader.h"
#include "support/masterconfiguration.h"
#include "support/testfiles.h"
#include "support/textutil.h"
#include "support/textwriter.h"
#include "support/tokenizer.h"

namespace badgemint {

TEST(Tokenizer, SplitsIntoAtMost150WordsUpToACommentAndTakesThemApart) {
  std::string blanks, bars;
  for (int i = 0; i < 150; ++i, blanks += "w ") bars += "w|";
  const std::pair<std::string, std::string> cases[] = {
      {"a=b\vc # d", "a|b\vc|"},
      {"abc#def ghi #", "abc|ghi|"},
      {blanks + "x", bars},
  };
  for (auto [line, expected] : cases) {
    std::string words;
    Tokenizer tokens;
    tokens.split(line.data(), kWordDelimiters);
    while (const char* const word = tokens.next()) words += word + std::string("|");
    EXPECT_EQ(words, expected);
    EXPECT_EQ(tokens.next(), nullptr);
  }
  Tokenizer tokens;
  for (std::string line : {"name= \"value\" 12x", "name value 12", ""}) {
    tokens.split(line.data(), " ");
    EXPECT_STREQ(tokens.stripEqualsFirst(), line.empty() ? nullptr : "name");
    EXPECT_STREQ(tokens.unquoteSecond(), line.empty() ? nullptr : "value");
    EXPECT_EQ(tokens.nextInt() + tokens.nextInt() + tokens.nextInt() + tokens.nextInt(),
              line.empty() ? 0 : 12);
  }
}

// Of ten lines at first; then a line, its place or both find no memory.
TEST(LineList, KeepsItsLinesWhenMemoryRunsOut) {
  TestLog log;
  LineList lines(0x10007, 0);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(lines.add("line"), i);
  for (const int nth : {1, 2}) {
    const ArmedFault fault({.call = "allocate", .nth = nth});
    EXPECT_EQ(lines.add("ten"), -100);
  }
  EXPECT_EQ(lines.add("ten"), 10);
  EXPECT_STREQ(lines.get(10), "ten");
  EXPECT_TRUE(lines.get(-1) == nullptr && lines.get(11) == nullptr);
  EXPECT_EQ(log.take(), "[report 7/2 \"_lines\"]\n[report 7/2 \"line\"]\n");
}

TEST(TextUtil, JoinsPathsAndPrintsBytes) {
  const std::string n256(256, 'n');
  EXPECT_EQ(joinedPath("", "name").get(), std::string("name"));
  EXPECT_EQ(joinedPath("d\\", "name").get(), std::string("d\\name"));
  EXPECT_EQ(joinedPath("d/", n256.c_str()).get(), "d/\\" + n256.substr(5));
  char kept[] = "kept";
  joinPath("d", kept, 0);
  EXPECT_STREQ(kept, "kept");
  testing::internal::CaptureStdout();
  std::array<uint8_t, 2> bytes = {0x00, 0xFF};
  for (const int32_t position : {-7, 0, 7}) setBit(bytes.data(), position);
  for (const int32_t position : {-7, 8, 15}) clearBit(bytes.data(), position);
  printHexLine(bytes);
  printBitLine(bytes);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "81 7E \n10000001  01111110  \n");
}

TEST(DateTime, JoinsAndSplitsDatesAndTimes) {
  const std::string d15(15, '2'), d16 = d15 + "3";
  EXPECT_STREQ(formatDateTime(0).data(), "0");
  EXPECT_STREQ(joinDateTime(PeriodEnd::kStart, "1/1/1", "0").data(), "1/1/1-00:00:00");
  EXPECT_STREQ(joinDateTime(PeriodEnd::kEnd, "1/1/1", "0").data(), "1/1/1-23:59:59");
  EXPECT_EQ(joinDateTime(PeriodEnd::kEnd, d15, d16).data(), d15 + "-" + d15.substr(1));
  EXPECT_EQ(splitDateTime(d16 + "-" + d16).date.data(), d15);
  EXPECT_STREQ(splitDateTime("1-2-3").time.data(), "2-3");
}

// The text goes on when the buffer is full to the byte.
TEST(TextWriter, WritesWhateverTheSizes) {
  const std::string full(16384, 'f');
  TextWriter writer;
  EXPECT_FALSE(writer.good());
  EXPECT_TRUE(writer.close() && writer.open("text"));
  writer.write(full);
  writer.write("text");
  writer.write(full.substr(4));
  writer.writeChar('c');
  writer.write(full.substr(1));
  writer.writeInt(INT64_MIN);
  EXPECT_TRUE(writer.good() && writer.close());
  EXPECT_EQ(contentOf("text"),
            full + "text" + full.substr(4) + 'c' + full.substr(1) + "-9223372036854775808");
  EXPECT_TRUE(writer.open("/dev/full"));
  writer.write(full);
  EXPECT_TRUE(writer.good());
  writer.writeChar('c');
  EXPECT_FALSE(writer.good() || writer.close());
}

TEST(MasterConfiguration, WritesBackWhatItReads) {
  const std::string a127(127, 'a');
  std::string forty;
  for (int i = 0; i < 40; ++i) forty += std::to_string(i) + " v 1\n";
  const std::array<std::string, 3> cases[] = {
      {"\n# none\na=b\t5 7 8\r\nc d#x -3x\n", "", "a b 5\nc d -3\n"},
      {"\nlonely\na b 5000000000", "[report 1/14 \"line 2:no task path\"]\n", "a b 705032704\n"},
      {a127 + "X v", "", a127 + " v 0\n"},
      {"n " + a127 + "X", "", "n " + a127 + " 0\n"},
      {std::string("n v").append(251, ' ') + "12 13", "", "n v 1\n2 13 0\n"},
      {forty + "z z", "[report 1/14 \"line 41: exceeds param limit\"]\n", forty},
  };
  for (const auto& [text, reports, saved] : cases) {
    TestLog log;
    writeFile("conf", text);
    EXPECT_TRUE(MasterConfiguration(0x10001, "conf").save("saved"));
    EXPECT_EQ(log.take(), reports);
    EXPECT_EQ(contentOf("saved"), saved);
  }
}

// Names in any case; what does not open is reported once.
TEST(MasterConfiguration, FindsAndChangesTheFirstEntry) {
  writeFile("conf", "ReadersFile none/file 1\nreadersFILE two 2\n");
  MasterConfiguration table(1, "conf");
  TestLog log;
  LineReader reader;
  EXPECT_EQ(table.number("READERSFILE") + table.number("readersfil"), 1);
  for (const char* const name : {"readersfile", "none"}) {
    EXPECT_FALSE(table.entryFileExists(name) || table.openEntryFile(name, reader));
    EXPECT_EQ(errno, *name == 'r' ? ENOENT : 0);
    EXPECT_EQ(table.setValue(name, "conf"), *name == 'r');
  }
  EXPECT_EQ(log.take(), "[report 1/16 \"none/file\"]\n[report 1/15 \"none\"]\n");
  EXPECT_TRUE(table.entryFileExists("readersfile") && table.openEntryFile("readersfile", reader));
  table.load();
  EXPECT_STREQ(table.find("readersfile")->value.data(), "none/file");
  fs::remove("conf");
  table.load();
  EXPECT_EQ(table.number("readersfile"), 1) << "what a failed load leaves";
  log.take();
  EXPECT_FALSE(table.save("/dev/full"));
  EXPECT_EQ(log.take(), "[report 1/14 \"/dev/full\"]\n");
  const std::string reported =
      "[syslog 3] MasterConfiguration: failed to open master configuration (";
  const std::string p128(128, 'p');
  EXPECT_FALSE(MasterConfiguration(1, (p128 + "X").c_str()).save("none/saved"));
  EXPECT_EQ(log.take(), reported + p128 + ")\n[report 1/14 \"" + p128 + "\"]\n" + reported +
                            "none/saved)\n[report 1/14 \"none/saved\"]\n");
}

}  // namespace badgemint
