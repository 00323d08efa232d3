// Reading and writing text files: lines, and the master table.

#include <cerrno>
#include <cstring>

#include "support/linereader.h"
#include "support/masterconfiguration.h"
#include "support/testfiles.h"
#include "support/textwriter.h"

namespace badgemint {

using Status = LineReader::Status;

// Lines and bytes in turn, with NULs and limits of any length, several buffers of them.
TEST(LineReader, ReadsAsTheCLibrary) {
  std::mt19937 random(1);
  std::string text;
  for (int i = 0; i < 400; ++i)
    text += std::string(random() % 1500, 'a') + '\0' + std::string(random() % 9, 'b') + "\r\n\n";
  const WorkFolder here;
  here.write("lines", text + "last");
  for (const char* const call : {"none", "read"}) {
    const ArmedFault halves({.call = call, .nth = 1, .forEver = true, .isShort = true});
    LineReader reader;
    ASSERT_TRUE(reader.open("lines"));
    std::FILE* const file = std::fopen("lines", "r");
    char expected[1025] = "";
    while (std::feof(file) == 0) {
      ASSERT_EQ(reader.readByte(), std::fgetc(file));
      const int limit = 1 + static_cast<int>(random() % 1024);
      const bool more = std::fgets(expected, limit + 1, file) != nullptr;
      ASSERT_EQ(reader.readLine(limit), more ? Status::kLine : Status::kEnd);
      ASSERT_TRUE(!more || std::strcmp(reader.line(), expected) == 0);
      std::memset(reader.line(), '\n', std::strlen(reader.line()));  // A line may be changed.
    }
    std::fclose(file);
    EXPECT_FALSE(reader.failed());
  }
}

// The text goes on when the buffer is full to the byte.
TEST(TextWriter, WritesWhateverTheSizes) {
  const WorkFolder here;
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
  const WorkFolder here;
  for (const auto& [text, reports, saved] : cases) {
    TestLog log;
    here.write("conf", text);
    EXPECT_TRUE(MasterConfiguration(0x10001, "conf").save("saved"));
    EXPECT_EQ(log.take(), reports);
    EXPECT_EQ(contentOf("saved"), saved);
  }
}

TEST(MasterConfiguration, FindsAndChangesTheFirstEntryWhateverTheCase) {
  const WorkFolder here;
  here.write("conf", "ReadersFile none/file 1\nreadersFILE two 2\n");
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
  std::filesystem::remove("conf");
  table.load();
  EXPECT_EQ(table.number("readersfile"), 1) << "what a failed load leaves";
  log.take();
  EXPECT_FALSE(table.save("/dev/full"));
  EXPECT_EQ(log.take(), "[report 1/14 \"/dev/full\"]\n");
}

TEST(MasterConfiguration, ReportsOnceThatAFileDoesNotOpen) {
  const std::string reported =
      "[syslog 3] MasterConfiguration: failed to open master configuration (";
  const std::string p128(128, 'p');
  TestLog log;
  EXPECT_FALSE(MasterConfiguration(1, (p128 + "X").c_str()).save("none/saved"));
  EXPECT_EQ(log.take(), reported + p128 + ")\n[report 1/14 \"" + p128 + "\"]\n" + reported +
                            "none/saved)\n[report 1/14 \"none/saved\"]\n");
}

}  // namespace badgemint
