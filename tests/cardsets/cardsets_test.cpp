// Card sets: one as a text, and the collection with its file.
#include "cardsets/cardsets.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "formats/CardFormatSet.h"
#include "support/faults.h"
#include "support/masterconfiguration.h"
#include "support/testfiles.h"
#include "support/tokenizer.h"

namespace badgemint {
namespace {

bool add(cardsets& sets, std::string line) {
  Tokenizer tokens;
  tokens.split(line.data(), kWordDelimiters);
  return sets.addCardSetLine(tokens, 7) == 1;
}

std::string lineOf(const cardset* set) {
  return set == nullptr ? "none" : std::string(CardSetLine(*set).text());
}

TEST(CardSet, KnowsFieldsAToHOnly) {
  cardset set;
  for (int32_t i = -1; i <= 8; ++i) set.setValue(i, 10 + i);
  EXPECT_EQ(lineOf(&set), "f 0 0 A 10 B 11 C 12 D 13 E 14 F 15 G 16 H 17 \n");
  EXPECT_EQ(set.value(-1) + set.value(8), 0);
  for (const char letter : std::string("@AHI`ahi")) set.setValueOf(letter, letter);
  EXPECT_EQ(set.valueOf('a') * 1000 + set.valueOf('H'), 'a' * 1000 + 'h');
  for (const char letter : std::string("@I`i")) EXPECT_EQ(set.valueOf(letter), 0);
}

TEST(CardSet, IsReadFromText) {
  const struct {
    const char *text, *set, *log;
  } rows[] = {
      {"x 12 3 A 101", "f 12 3 A 101 \n", ""},
      {"f -1 99999999999 H 5000000000", "f 4294967295 1215752191 H 5000000000 \n", ""},
      {" f\r1\n2 a 7 I 1 @ 1 B 0x A", "f 1 2 \n", ""},
      {"f 1 \t 5", "f 1 0 \n", ""},
      {" \n", "f 0 0 \n", "[25 cardset] Unable to parse f in card set line  \n\n"},
      {"f", "f 0 0 \n", "[25 cardset] Unable to parse csid in card set line f\n"},
      {"f 1", "f 1 0 \n", "[25 cardset] Unable to parse fmtid in card set line f 1\n"},
  };
  TestLog log;
  for (const auto& row : rows) {
    cardset set;
    EXPECT_EQ(parseCardSetText(set, row.text), *row.log == '\0' ? 0 : -514) << row.text;
    EXPECT_EQ(lineOf(&set) + log.take(), std::string(row.set) + row.log);
  }
}

TEST(CardSet, PrintsWhatItHolds) {
  TestLog log;
  cardset set{1, 2, {3, -4, 5, 6, 7, 8, 9, 10}};
  set.printInfo();
  std::string expected =
      "[100 cardset] Card Set Info:\n[100 cardset] csid=1\n[100 cardset] fmtid=2\n"
      "[100 cardset] fldvalues  n=8\n";
  for (int32_t i = 0; i < 8; ++i)
    expected += "[100 cardset]    ii=" + std::to_string(i) +
                ", fldvalues=" + std::to_string(set.value(i)) + "\n\n";
  EXPECT_EQ(log.take(), expected);
}

// What a rejected line has left in its slot is written all the same.
TEST(CardSets, AddLines) {
  const std::string few = "[25 cardsets] add line 7, too few parameters.\n",
                    range = "[25 cardsets] id out of range in card sets file, line 7\n",
                    letter = "[25 cardsets] Error in card set file, field must be A-H\n";
  const struct {
    const char* line;
    std::string written, log;
  } rows[] = {
      {"f 5 2 A 100 B 7", "f 5 2 A 100 B 7 \n", ""},
      {"5 2 A=100 H=7 # seven", "f 5 2 A 100 H 7 \n", ""},
      {"f 5 2", "f 5 2 \n", ""},
      {"f 5 2 A", "f 5 2 \n", ""},
      {"f 5 2 Apple -3 B 4294967297", "f 5 2 B 1 \n", ""},
      {"f 4294967295 4294967295", "f 4294967295 4294967295 \n", ""},
      {" # nothing", "", "rejected"},
      {"5 2", "", "rejected" + few},
      {"f 0 2", "", "rejected" + range},
      {"f 4294967296 2", "", "rejected" + range},
      {"f 5 0", "f 5 0 \n", "rejected" + range},
      {"f 5 2 C 9 I 1", "f 5 2 C 9 \n", "rejected" + letter},
      {"f 5 2 @ 1", "f 5 2 \n", "rejected" + letter},
  };
  const TestFolder folder;
  TestLog log(25);
  for (const auto& row : rows) {
    cardsets sets;
    ASSERT_EQ(sets.create(1), 0);
    const bool added = add(sets, row.line);
    EXPECT_EQ((added ? "" : "rejected") + log.take(), row.log) << row.line;
    EXPECT_EQ(sets.count(), added ? 1 : 0);
    EXPECT_EQ(sets.writeCardSetsFile(folder.path("sets").c_str()), 0);
    EXPECT_EQ(folder.read("sets"), row.written);
  }
}

TEST(CardSets, FindTheFirstOfAnId) {
  TestLog log;
  cardsets sets;
  for (const std::string id : {"1", "255", "256", "4000000000"}) {
    EXPECT_TRUE(add(sets, "f " + id + " 3"));
    EXPECT_TRUE(add(sets, "f " + id + " 4"));
    EXPECT_EQ(lineOf(sets.getCardSet(static_cast<uint32_t>(std::stoul(id)))), "f " + id + " 3 \n");
  }
  log.take();
  for (const uint32_t id : {0U, 2U, 257U}) EXPECT_EQ(sets.getCardSet(id), nullptr);
  EXPECT_TRUE(log.take().starts_with("[100 cardsets] cardsets:getcardset 0, count = 8\n"));
}

TEST(CardSets, LeaveTheSlotOfARejectedLineToTheNext) {
  TestLog log(25);
  cardsets sets;
  CardFormatSet formats;
  formats.addFormat(3, ".cdf");
  EXPECT_FALSE(add(sets, "f 5 2 A 1 B 2 x 3"));
  EXPECT_EQ(sets.getCardSet(5), nullptr);
  log.take();
  EXPECT_EQ(sets.verifyFormats(formats), -1);
  EXPECT_EQ(log.take(), "[3 cardsets] format 2 not found\n");
  EXPECT_TRUE(add(sets, "f 6 3 A 7"));
  EXPECT_EQ(lineOf(sets.getCardSet(6)), "f 6 3 A 7 B 2 \n");
  EXPECT_EQ(sets.verifyFormats(formats), 0);
}

TEST(CardSets, ComeBackFromTheirFile) {
  const TestFolder folder;
  TestLog log(75);
  cardsets sets, read;
  ASSERT_EQ(read.create(20), 0);
  for (int id = 1; id <= 25; ++id)
    EXPECT_TRUE(add(sets, "f " + std::to_string(id) + " 1 A " + std::to_string(id * 2)));
  const mode_t mask = umask(0);
  EXPECT_EQ(sets.writeCardSetsFile(folder.path("written").c_str()), 0);
  umask(mask);
  struct stat status;
  ASSERT_EQ(stat(folder.path("written").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0666);
  EXPECT_EQ(read.load(folder.path("written").c_str()), 0);
  EXPECT_EQ(log.take(), "[75 cardsets] cardsets.load complete\n");
  EXPECT_EQ(read.count(), 25);
  EXPECT_EQ(read.capacity(), 30);
  EXPECT_EQ(read.writeCardSetsFile(folder.path("again").c_str()), 0);
  EXPECT_EQ(folder.read("again"), folder.read("written"));
  std::string text = "f 31 1";  // A line has at most 150 characters.
  text.resize(150, ' ');
  EXPECT_EQ(read.load(folder.write("f", text + "32 1 A\n\n9\nf 33 1").c_str()), 0);
  EXPECT_TRUE(log.take().starts_with("[25 cardsets] add line 4, too few parameters.\n"));
  EXPECT_EQ(read.count(), 28);
}

TEST(CardSets, SayWhatFailed) {
  const std::string unopened = "[25 cardsets] Error opening card sets file f\n",
                    unread = "[25 cardsets] Error reading card sets file f\n";
  const struct {
    bool load;
    const char* call;
    int nth;
    bool isShort;
    int32_t result;
    std::string log;
  } rows[] = {
      {true, "open", 1, false, -347, unopened},  {true, "read", 1, false, -348, unread},
      {true, "read", 2, false, -348, unread},    {true, "read", 1, true, 0, ""},
      {false, "open", 1, false, -347, unopened}, {false, "write", 1, false, -348, unread},
      {false, "write", 1, true, 0, ""},
  };
  const TestFolder folder;
  std::filesystem::current_path(folder.path(""));
  for (const auto& row : rows) {
    TestLog log(25);
    cardsets sets;
    EXPECT_TRUE(add(sets, "f 1 1"));
    folder.write("f", "f 2 1 \nf 3 1 \n");
    const ArmedFault fault({row.call, row.nth, false, EIO, row.isShort});
    EXPECT_EQ(row.load ? sets.load("f") : sets.writeCardSetsFile("f"), row.result);
    EXPECT_EQ(log.take(), row.log);
  }
  std::filesystem::current_path("/");
  TestLog log(25);
  cardsets sets;
  const ArmedFault fault({"allocate", 1, true});
  EXPECT_EQ(sets.create(20), -100);
  EXPECT_FALSE(add(sets, "f 1 1"));
  const std::string memory = "[25 cardsets] Not enough memory to create card sets\n";
  EXPECT_EQ(log.take(), memory + memory);
}

TEST(CardSets, AreNamedByTheConfiguration) {
  const TestFolder folder;
  const std::string path = folder.write("f", "f 7 1\n");
  TestLog log(5);
  cardsets sets;
  MasterConfiguration named(1, folder.write("named", "cardsets " + path).c_str());
  EXPECT_TRUE(sets.loadFromConfiguration(named));
  EXPECT_EQ(log.take(), "[5 cardsets] cardsets.load cardsets\n");
  MasterConfiguration lost(1, folder.write("lost", "cardsets none").c_str());
  EXPECT_FALSE(sets.loadFromConfiguration(lost));
  log.take();
  MasterConfiguration empty(1, folder.write("empty", "").c_str());
  errno = EIO;
  EXPECT_FALSE(sets.loadFromConfiguration(empty));
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(log.take(), "[5 cardsets] cardsets.load cardsets\n[report 1/15 \"\"]\n");
}

}  // namespace
}  // namespace badgemint
