// The lines that the loader refuses, and what it reports; and that its input is one file that
// stays: what the second pass writes is what the first has checked.
#include <sys/stat.h>

#include "inputcards/inputfile.h"
#include "support/testsite.h"

namespace badgemint::inputcards_test {

// Lines, the result of their build, and what it logs, without the number of cards.
using Case = std::tuple<std::string, int32_t, std::string>;

// The second pass alone.
int32_t write(const std::string& cards) {
  writeFile("cards", cards);
  InputCards loader("cards", "ident", "access", "sets");
  EXPECT_EQ(loader.loadFormats("", "formats"), 0);
  return loader.pass2();
}

// A log that takes nothing, or none at all, changes no result. The second pass trusts nothing:
// alone it refuses the same lines.
void expectBuilds(const std::vector<Case>& cases) {
  const TestSite site;
  for (const auto& [cards, result, text] : cases) {
    SCOPED_TRACE(cards.substr(0, 100));
    TestLog log(25);
    EXPECT_EQ(buildCards(cards), result);
    EXPECT_EQ(fs::exists("ident"), result == 0) << "pass 1 writes nothing";
    const std::string reported = log.take();
    EXPECT_EQ(reported.substr(0, reported.find("[0 inputcards] Number")), text);
    log.logger().setThreshold(UINT32_MAX);
    EXPECT_EQ(buildCards(cards), result);
    theLogger = nullptr;
    EXPECT_EQ(result < -100 ? write(cards) : buildCards(cards), result);
  }
}

TEST(InputCards, CheckTypesAndCardSets) {
  const std::string line = "[25 inputcards] Invalid line in input cards line#=",
                    set = "[25 inputcards] Invalid cardset ID ",
                    word = "[25 inputcards] Error reading multicardsline ";
  expectBuilds({
      {" c 1 1 0 1", -503, line + "1\n[25 inputcards] line= c 1 1 0 1\n"},
      {"#\n\n \t\v\f\r\nx", -503, line + "4\n[25 inputcards] line=x\n"},
      {"#" + std::string(299, 'x') + "\n", 0, ""},
      {"#" + std::string(300, 'x'), -503, line + "2\n[25 inputcards] line=x\n"},
      {"d", -507, word + "card set ID, line#=1\n"},
      {"d 1\r\n", -507, word + "first card, line#=1\n"},
      {"d 1 1", -507, word + "number of cards, line#=1\n"},
      {"d\t1 1 1 1", -507, word + "first unique ID, line#=1\n"},
      {"f", -508, "[25 inputcards] Error reading fieldsline card set ID, line#=1\n"},
      {"f 0 1", -1006, set + "0, line#=1\n"},
      {"f 1 1\nf 253 2\nc 1 7 0 1\nc 253 7 0 2", 0, ""},
      {"c 0 1 0 1", -1006, set + "0, line#=1\n"},
      {"d 254 1 1 1", -1006, set + "254, line#=1\n"},
      {"c 9 1 0 1", -1006, "[25 card_functions] Card set 9 not defined (no f line), line#=1 \n"},
      {"d 9 1 1 1", -1006, "[25 inputcards] Card set 9 not defined (no f line), line#=1 \n"},
      {"f 7 9\nc 7 1 0 1", -1007, "[25 card_functions] Format 9 not defined, line#=2 \n"},
      {"f 7 9\nd 7 1 1 1", -1007, "[25 inputcards] Card format 9 not defined, line#=2\n"},
      {"fx 3 1", -1006,
       "[25 cardsets] id out of range in card sets file, line 1\n"
       "[25 inputcards] Error adding cardset ID 3, line#=1\n"},
  });
}

TEST(InputCards, CheckNumbersAndPins) {
  const std::string bad = "[25 card_functions] Invalid card number ", many = ", too many digits",
                    number = "\n[25 inputcards] Invalid card number on line#=",
                    badPin = "[25 card_functions] Invalid pin code ",
                    pin = "\n[25 inputcards] Invalid pin code on line#=", f33(33, 'f'),
                    f99(99, 'f');
  expectBuilds({
      {"f 1 1\nc 1", -1010, number.substr(1) + "2\n"},
      {"n 0", -1010, number.substr(1) + "1\n"},
      {"n 0 1", 0, ""},
      {"p", 0, ""},
      {"n 0 12G 0 1", -1003, bad + "12G, must be hexidecimal" + number + "1\n"},
      {"n 0 " + std::string(32, 'f') + " 12345678 1", 0, ""},
      {"n 0 " + f33, -1003, bad + f33 + many + number + "1\n"},
      {"n 0 " + f99 + "f", -1003, bad + f99 + many + number + "1\n"},
      {"f 1 1\nc 1 1a 0 1", -1003, bad + "1a, must be numeric" + number + "2\n"},
      {"f 1 1\nd 1 1x 1 1", -1003, bad + "1x, must be numeric" + number + "2\n"},
      {"f 1 1\nc 1 " + std::string(31, '0') + "7 12345678 1", 0, ""},
      {"f 1 1\nc 1 7 123456789 1", -1004, badPin + "123456789" + many + pin + "2\n"},
      {"n 0 12 1x 1", -1004, badPin + "1x, must be numeric" + pin + "1\n"},
      {"p 12345678901234567", -1004, badPin + "12345678901234567" + many + pin + "1\n"},
      {"o -1 1", -1004, badPin + "-1, must be numeric" + pin + "1\n"},
  });
}

TEST(InputCards, RefuseNumbersThatTheFormatCannotHold) {
  const std::string mismatch = "[25 card_functions] Card mismatch cardno=";
  const std::string most = "9223372036854775807";
  expectBuilds({
      {"f 1 1\nc 1 65535 0 1\nd 1 65534 1 2", 0, ""},
      {"f 1 1\nc 1 65536 0 1", -506, mismatch + "65536,chkcardno=0, line#=2\n"},
      {"f 1 1\nc 1 " + most + "0 0 1", -506, mismatch + most + ",chkcardno=65535, line#=2\n"},
      {"f 1 1\nd 1 65535 2 1", -506, "[25 inputcards] Card mismatch cardno=65536, chkcardno=0\n"},
  });
  const TestSite site;
  TestLog log(25);
  EXPECT_EQ(write("f 1 1\nd 1 65535 2 1"), -506) << "only the card that does not fit is left out";
  EXPECT_EQ(log.take(), "[25 inputcards] Card mismatch cardno=65536, chkcardno=0, line#=2\n");
  EXPECT_EQ(contentOf("ident").size(), 28);
  EXPECT_EQ(write("p 1 1"), -502) << "the first pass has seen no card";
}

TEST(InputCards, FindRoomInThreeQuartersOfTheMachinesMemory) {
  const long entries = sysconf(_SC_PAGESIZE) * 3 / 4;
  const std::string fits = "f 2 2\nd 2 1 " + std::to_string(entries) + " 1\n";
  const std::string full = "[25 cardindex] Not enough memory to create card index\n";
  machinePages = 38;  // As many pages as an entry takes bytes with its bits in the checks.
  expectBuilds({{fits, 0, ""}, {fits + "p 1 0", -100, full}});
  machinePages = -1;  // Nothing is known of the machine.
  expectBuilds({{fits + "p 1 0", 0, ""}});
  machinePages = 0;
}

TEST(InputFile, CanBeReadTwice) {
  TestLog log(25);
  mkfifo("pipe", 0600);
  mknod("socket", S_IFSOCK | 0600, 0);
  InputFile input;
  for (const std::string name : {"pipe", "socket", "/dev/zero", "/dev/null"}) {
    EXPECT_TRUE(input.setName(name.c_str()));
    EXPECT_EQ(input.open(), name == "/dev/null" ? kSuccess : kInputReadFailed);
    const std::string reported = "[25 inputcards] Input cards file " + name;
    EXPECT_EQ(log.take(), name == "/dev/null" ? "" : reported + " cannot be read twice\n");
  }
}

// A file that stays is known by more than its size and time.
TEST(InputFile, ChangesDuringTheBuild) {
  const std::string changed = "[25 inputcards] Input cards file cards changed during the build\n";
  const TestSite site;
  TestLog log(25);
  EXPECT_EQ(buildCards("p 1 1\n", "ident", "p 2 2\n"), -502) << "between the passes";
  EXPECT_FALSE(fs::exists("ident"));
  EXPECT_EQ(buildCards("p 1 1\n", "cards"), -502) << "is the ident database as well";
  EXPECT_TRUE(log.take().ends_with(changed));
  EXPECT_FALSE(fs::exists("cardsets"));
  writeFile("cards", "c 1 7 0 1\n");
  const auto time = fs::last_write_time("cards");
  InputFile input;
  EXPECT_TRUE(input.setName("cards"));
  EXPECT_EQ(input.open(), kSuccess);
  usleep(20000);  // Times of files move on in steps of some milliseconds.
  std::ofstream("cards") << "c 1 8 0 1\n";
  fs::last_write_time("cards", time);
  EXPECT_EQ(input.open(), kInputReadFailed);
  EXPECT_EQ(log.take(), changed);
}

}  // namespace badgemint::inputcards_test
