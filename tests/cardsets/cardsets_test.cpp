// Card sets: one as a text, and the collection with its file.
#include "cardsets/cardsets.h"

#include "formats/CardFormatSet.h"
#include "support/testfiles.h"

namespace badgemint {

using Row = std::array<std::string, 3>;

TEST(CardSet, IsReadFromText) {
  const Row rows[] = {
      {"x 12 3 A 101 H 9", "f 12 3 A 101 H 9 \n", ""},
      {"f -1 99999999999 B 5000000000", "f 4294967295 1215752191 B 5000000000 \n", ""},
      {" f\r1\n2 a 7 I 1 @ 1 B 0x A", "f 1 2 \n", ""},
      {"f 1 \t 5", "f 1 0 \n", ""},
      {" \n", "f 0 0 \n", "[25 cardset] Unable to parse f in card set line  \n\n"},
      {"f", "f 0 0 \n", "[25 cardset] Unable to parse csid in card set line f\n"},
      {"f 1", "f 1 0 \n", "[25 cardset] Unable to parse fmtid in card set line f 1\n"},
  };
  TestLog log;
  cardset set;
  for (const auto& [text, line, reported] : rows) {
    set = {};
    EXPECT_EQ(parseCardSetText(set, text.c_str()), reported.empty() ? 0 : -514) << text;
    EXPECT_EQ(CardSetLine(set).text(), line);
    EXPECT_EQ(log.take(), reported);
  }
  for (const char letter : std::string("@AbcdefghI")) set.setValueOf(letter, letter);
  EXPECT_EQ(set.valueOf('@') + set.valueOf('B') + set.valueOf('I'), 'b');
  EXPECT_EQ(CardSetLine(set).text(), "f 1 0 A 65 B 98 C 99 D 100 E 101 F 102 G 103 H 104 \n");
  set.printInfo();
  const std::string info = log.take();
  EXPECT_TRUE(
      info.starts_with("[100 cardset] Card Set Info:\n[100 cardset] csid=1\n"
                       "[100 cardset] fmtid=0\n[100 cardset] fldvalues  n=8\n"));
  EXPECT_TRUE(info.ends_with("[100 cardset]    ii=7, fldvalues=104\n\n"));
}

// The slot of a rejected line keeps what the line left there, and is written all the same.
TEST(CardSets, ReadAndWriteTheirFile) {
  const std::string few = "[25 cardsets] add line 1, too few parameters.\n",
                    range = "[25 cardsets] id out of range in card sets file, line 1\n",
                    letter = "[25 cardsets] Error in card set file, field must be A-H\n";
  const Row rows[] = {
      {"5 2 A=100 H=7 # seven\n\nf 6 1", "f 5 2 A 100 H 7 \nf 6 1 \n", ""},
      {"f 5 2 Apple -3 B 4294967297 A", "f 5 2 B 1 \n", ""},
      {"f 4294967295 4294967295", "f 4294967295 4294967295 \n", ""},
      {std::string("f 5 1").append(145, ' ') + "32 1 A", "f 5 1 \nf 32 1 \n", ""},
      {"5 2", "", few},
      {"f 0 2", "", range},
      {"f 4294967296 2", "", range},
      {"f 5 0", "f 5 0 \n", range},
      {"f 5 2 A 1 B 2 I 3\nf 6 3 A 7", "f 6 3 A 7 B 2 \n", letter},
  };
  TestLog log(25);
  for (const auto& [text, written, reported] : rows) {
    cardsets sets;
    writeFile("f", text);
    EXPECT_EQ(sets.load("f"), 0);
    EXPECT_EQ(log.take(), reported) << text;
    EXPECT_EQ(sets.writeCardSetsFile("sets"), 0);
    EXPECT_EQ(contentOf("sets"), written);
  }
}

TEST(CardSets, FindTheFirstOfAnIdAndItsFormat) {
  writeFile("f", "f 1 3\nf 1 4\nf 255 3\nf 256 3\nf 256 4\nf 2 0");
  TestLog log;
  cardsets sets;
  EXPECT_EQ(sets.load("f"), 0);
  EXPECT_EQ(log.take(),
            "[25 cardsets] id out of range in card sets file, line 6\n"
            "[75 cardsets] cardsets.load complete\n");
  for (const uint32_t id : {1U, 255U, 256U}) EXPECT_EQ(sets.getCardSet(id)->fmtid, 3);
  for (const uint32_t id : {0U, 2U, 257U}) EXPECT_EQ(sets.getCardSet(id), nullptr);
  EXPECT_TRUE(log.take().starts_with("[100 cardsets] cardsets:getcardset 1, count = 5\n"));
  CardFormatSet formats;
  for (const uint32_t id : {3U, 4U}) formats.addFormat(id, ".cdf");
  EXPECT_EQ(sets.verifyFormats(formats), -1);  // Of the rejected line.
  EXPECT_EQ(log.take(), "[3 cardsets] format 0 not found\n");
  formats.addFormat(0, ".cdf");
  EXPECT_EQ(sets.verifyFormats(formats), 0);
}

}  // namespace badgemint
