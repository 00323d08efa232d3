#include "support/masterconfiguration.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <cerrno>
#include <string>

#include "support/testfiles.h"

namespace badgemint {
namespace {

// The whole table, as it is written back.
std::string saved(const TestFolder& folder, MasterConfiguration& configuration) {
  EXPECT_TRUE(configuration.save(folder.path("saved").c_str()));
  return folder.read("saved");
}

// What goes to the system's log at LOG_ERR, and at no other priority, while it lives.
class TestSyslog {
 public:
  TestSyslog() : _mask(setlogmask(LOG_MASK(LOG_ERR))) {
    openlog("test", LOG_PERROR, LOG_USER);
    testing::internal::CaptureStderr();
  }
  ~TestSyslog() {
    closelog();
    setlogmask(_mask);
  }
  static std::string take() { return testing::internal::GetCapturedStderr(); }

 private:
  int _mask;
};

TEST(MasterConfiguration, ReadsNamesValuesAndNumbers) {
  const std::string a127(127, 'a');
  const std::string b126(126, 'b');
  const struct {
    std::string file;
    std::string table;
  } rows[] = {{"a=b 5\n", "a b 5\n"},
              {"\n \t\r\n# comment\nident\tid.dat 7 8 9\r\n", "ident id.dat 7\n"},
              {"lonely\nlonely#x\na b", "a b 0\n"},
              {"a b#c 3\na b #3\n", "a b 3\na b 0\n"},
              {"a b -3x\na b 5000000000\n", "a b -3\na b 705032704\n"},
              {a127 + " " + b126 + "\n", a127 + " " + b126 + " 0\n"},
              {a127 + "X v\n", a127 + " v 0\n"},
              {"n " + a127 + "X\n", "n " + a127 + " 0\n"},
              // The 256th character begins a line of its own.
              {"n v " + std::string(250, ' ') + "12 13\n", "n v 1\n2 13 0\n"}};
  const TestFolder folder;
  for (const auto& row : rows) {
    MasterConfiguration configuration(1, folder.write("conf", row.file).c_str());
    EXPECT_EQ(saved(folder, configuration), row.table) << row.file;
  }
}

TEST(MasterConfiguration, FindsTheFirstEntryIgnoringCase) {
  const TestFolder folder;
  MasterConfiguration configuration(
      1, folder.write("conf", "ReadersFile one 1\nreadersFILE two 2\n").c_str());
  EXPECT_STREQ(configuration.find("readersfile")->value.data(), "one");
  EXPECT_EQ(configuration.number("READERSFILE"), 1);
  EXPECT_EQ(configuration.find("readersfil"), nullptr);
  EXPECT_EQ(configuration.number("none"), 0);

  EXPECT_FALSE(configuration.setValue("none", "x"));
  EXPECT_TRUE(configuration.setValue("readersfile", std::string(200, 'v').c_str()));
  EXPECT_EQ(saved(folder, configuration),
            "ReadersFile " + std::string(127, 'v') + " 1\nreadersFILE two 2\n");
  configuration.load();
  EXPECT_EQ(saved(folder, configuration), "ReadersFile one 1\nreadersFILE two 2\n");
}

TEST(MasterConfiguration, HoldsFortyEntries) {
  std::string lines;
  for (int i = 1; i <= 40; ++i) {
    const std::string number = std::to_string(i);
    lines.append("n").append(number).append(" v ").append(number).append("\n");
  }
  const TestFolder folder;
  MasterConfiguration configuration(1, folder.write("conf", lines + "n41 v 41\n").c_str());
  EXPECT_EQ(configuration.number("n40"), 40);
  EXPECT_EQ(configuration.find("n41"), nullptr);
  EXPECT_EQ(saved(folder, configuration), lines);
}

TEST(MasterConfiguration, TriesAMissingFileOnce) {
  const TestFolder folder;
  const std::string path = folder.path("missing");
  MasterConfiguration configuration(1, path.c_str());
  const TestSyslog syslog;
  EXPECT_EQ(configuration.find("a"), nullptr);
  folder.write("missing", "a b 1\n");
  EXPECT_EQ(configuration.number("a"), 0);
  EXPECT_EQ(TestSyslog::take(),
            "test: MasterConfiguration: failed to open master configuration (" + path + ")\n");

  // A path is cut at 128 characters.
  testing::internal::CaptureStderr();
  MasterConfiguration(1, std::string(129, 'p').c_str()).load();
  EXPECT_EQ(TestSyslog::take(), "test: MasterConfiguration: failed to open master configuration (" +
                                    std::string(128, 'p') + ")\n");
}

TEST(MasterConfiguration, TellsThatItWasNotSaved) {
  const TestFolder folder;
  MasterConfiguration configuration(1, folder.write("conf", "a b 1\n").c_str());
  EXPECT_FALSE(configuration.save("/dev/full"));
  const TestSyslog syslog;
  const std::string path = folder.path("none/saved");
  EXPECT_FALSE(configuration.save(path.c_str()));
  EXPECT_EQ(TestSyslog::take(),
            "test: MasterConfiguration: failed to open master configuration (" + path + ")\n");
}

TEST(MasterConfiguration, OpensTheFileOfAnEntry) {
  const TestFolder folder;
  const std::string file = folder.write("file", "text\n");
  MasterConfiguration configuration(
      1, folder.write("conf", "file " + file + "\ngone " + file + "x\n").c_str());
  LineReader reader;
  ASSERT_TRUE(configuration.openEntryFile("FILE", reader));
  EXPECT_EQ(reader.readLine(255), LineReader::Status::kLine);
  EXPECT_STREQ(reader.line(), "text\n");
  EXPECT_FALSE(configuration.openEntryFile("gone", reader));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(configuration.openEntryFile("none", reader));
  EXPECT_EQ(errno, 0);

  EXPECT_TRUE(configuration.entryFileExists("file"));
  EXPECT_FALSE(configuration.entryFileExists("gone"));
  EXPECT_FALSE(configuration.entryFileExists("none"));
}

}  // namespace
}  // namespace badgemint
