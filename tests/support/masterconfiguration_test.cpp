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

TEST(MasterConfiguration, ReadsNamesValuesAndNumbers) {
  const std::string a127(127, 'a');
  std::string forty;
  for (int i = 10; i < 50; ++i) forty.append(std::to_string(i)).append(" v 1\n");
  const std::string rows[][2] = {
      {"a=b 5\n", "a b 5\n"},
      {"\n \t\r\n# comment\nident\tid.dat 7 8 9\r\n", "ident id.dat 7\n"},
      {"lonely\nlonely#x\na b#c -3x\na b #3", "a b -3\na b 0\n"},
      {a127 + " v 5000000000\n" + a127 + "X w\n", a127 + " v 705032704\n" + a127 + " w 0\n"},
      {"n " + a127 + "X\n", "n " + a127 + " 0\n"},
      {forty + "50 v 1\n", forty},
      // The 256th character begins a line of its own.
      {"n v " + std::string(250, ' ') + "12 13\n", "n v 1\n2 13 0\n"}};
  const TestFolder folder;
  for (const auto& [file, table] : rows) {
    MasterConfiguration configuration(1, folder.write("conf", file).c_str());
    EXPECT_EQ(saved(folder, configuration), table) << file;
  }
}

TEST(MasterConfiguration, FindsTheFirstEntryIgnoringCase) {
  const TestFolder folder;
  const std::string conf = folder.write("conf", "ReadersFile gone 1\nreadersFILE two 2\n");
  MasterConfiguration configuration(1, conf.c_str());
  EXPECT_EQ(configuration.number("READERSFILE"), 1);
  EXPECT_EQ(configuration.find("readersfil"), nullptr);
  EXPECT_EQ(configuration.number("none"), 0);
  LineReader reader;
  EXPECT_FALSE(configuration.openEntryFile("readersfile", reader));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(configuration.openEntryFile("none", reader));
  EXPECT_EQ(errno, 0);
  EXPECT_FALSE(configuration.entryFileExists("readersfile"));

  EXPECT_FALSE(configuration.setValue("none", "x"));
  EXPECT_TRUE(configuration.setValue("readersfile", conf.c_str()));
  EXPECT_TRUE(configuration.entryFileExists("readersfile"));
  EXPECT_TRUE(configuration.openEntryFile("readersfile", reader));
  EXPECT_TRUE(configuration.setValue("readersfile", std::string(200, 'v').c_str()));
  EXPECT_EQ(saved(folder, configuration),
            "ReadersFile " + std::string(127, 'v') + " 1\nreadersFILE two 2\n");
}

TEST(MasterConfiguration, TellsTheSystemLogOnceThatAFileIsMissing) {
  const TestFolder folder;
  const std::string path(129, 'p');
  const int mask = setlogmask(LOG_MASK(LOG_ERR));
  openlog("test", LOG_PERROR, LOG_USER);
  testing::internal::CaptureStderr();
  MasterConfiguration configuration(1, path.c_str());
  EXPECT_EQ(configuration.find("a"), nullptr);
  EXPECT_EQ(configuration.number("a"), 0);
  EXPECT_FALSE(configuration.save(folder.path("none/x").c_str()));
  const std::string text = "test: MasterConfiguration: failed to open master configuration (";
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            text + path.substr(1) + ")\n" + text + folder.path("none/x") + ")\n");
  closelog();
  setlogmask(mask);
}

TEST(MasterConfiguration, TellsThatItWasNotSaved) {
  const TestFolder folder;
  EXPECT_FALSE(MasterConfiguration(1, folder.write("conf", "a b 1\n").c_str()).save("/dev/full"));
}

}  // namespace
}  // namespace badgemint
