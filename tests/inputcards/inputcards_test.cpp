#include "inputcards/inputcards.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/result.h"
#include "support/testsite.h"

namespace badgemint {
namespace {

// What follows the lines "f 1 1 A=1\n" in a file, and what the build says of it.
struct Row {
  const char* lines;
  int32_t result;
  const char* log;  // At level 25.
};

TEST(InputCards, RejectsWrongLines) {
  const Row rows[] = {
      {" c 1 1 0 1\n", kInvalidLine,
       "[inputcards] Invalid line in input cards line#=2\n[inputcards] line= c 1 1 0 1\n\n"},
      {"\n \t\nx", kInvalidLine,
       "[inputcards] Invalid line in input cards line#=4\n[inputcards] line=x\n"},
      {"c 254 1 0 1\n", kInvalidCardSet, "[inputcards] Invalid cardset ID 254, line#=2\n"},
      {"c 0 1 0 1\n", kInvalidCardSet, "[inputcards] Invalid cardset ID 0, line#=2\n"},
      {"c 9 1 0 1\n", kInvalidCardSet,
       "[card_functions] Card set 9 not defined (no f line), line#=2 \n"},
      {"c 1\n", kEmptyCardNumber, "[inputcards] Invalid card number on line#=2\n"},
      {"c 1 1a 0 1\n", kInvalidCardNumber,
       "[card_functions] Invalid card number 1a, must be numeric\n"
       "[inputcards] Invalid card number on line#=2\n"},
      {"c 1 1 123456789 1\n", kInvalidPin,
       "[card_functions] Invalid pin code 123456789, too many digits\n"
       "[inputcards] Invalid pin code on line#=2\n"},
      {"c 1 65536 0 1\n", kCardMismatch,
       "[card_functions] Card mismatch cardno=65536,chkcardno=0, line#=2\n"},
      {"c 1 99999999999999999999 0 1\n", kCardMismatch,
       "[card_functions] Card mismatch cardno=9223372036854775807,chkcardno=65535, line#=2\n"},
      {"f 7 9\nc 7 1 0 1\n", kFormatNotDefined,
       "[card_functions] Format 9 not defined, line#=3 \n"},
      {"n 0 12G 0 1\n", kInvalidCardNumber,
       "[card_functions] Invalid card number 12G, must be hexidecimal\n"
       "[inputcards] Invalid card number on line#=2\n"},
      {"n 0 12 1x 1\n", kInvalidPin,
       "[card_functions] Invalid pin code 1x, must be numeric\n"
       "[inputcards] Invalid pin code on line#=2\n"},
      {"p 12345678901234567 1\n", kInvalidPin,
       "[card_functions] Invalid pin code 12345678901234567, too many digits\n"
       "[inputcards] Invalid pin code on line#=2\n"},
      {"o -1 1\n", kInvalidPin,
       "[card_functions] Invalid pin code -1, must be numeric\n"
       "[inputcards] Invalid pin code on line#=2\n"},
      {"f\n", kFieldsWordMissing, "[inputcards] Error reading fieldsline card set ID, line#=2\n"},
      {"f 300 1\n", kInvalidCardSet, "[inputcards] Invalid cardset ID 300, line#=2\n"},
      {"fx 3 1\n", kInvalidCardSet,
       "[cardsets] id out of range in card sets file, line 2\n"
       "[inputcards] Error adding cardset ID 3, line#=2\n"},
      {"f 3 1 I 1\n", kInvalidCardSet,
       "[cardsets] Error in card set file, field must be A-H\n"
       "[inputcards] Error adding cardset ID 3, line#=2\n"},
      {"d\t1 1 1 1\n", kMultiCardsWordMissing,
       "[inputcards] Error reading multicardsline first unique ID, line#=2\n"},
      {"d\n", kMultiCardsWordMissing,
       "[inputcards] Error reading multicardsline card set ID, line#=2\n"},
      {"d 0 1 1 1\n", kInvalidCardSet, "[inputcards] Invalid cardset ID 0, line#=2\n"},
      {"d 9 1 1 1\n", kInvalidCardSet,
       "[inputcards] Card set 9 not defined (no f line), line#=2 \n"},
      {"f 7 9\nd 7 1 1 1\n", kFormatNotDefined,
       "[inputcards] Card format 9 not defined, line#=3\n"},
      {"d 1 1x 1 1\n", kInvalidCardNumber,
       "[card_functions] Invalid card number 1x, must be numeric\n"
       "[inputcards] Invalid card number on line#=2\n"},
      {"d 1 65535 2 1\n", kCardMismatch, "[inputcards] Card mismatch cardno=65536, chkcardno=0\n"},
  };
  TestSite site;
  TestLog log(25);
  for (const Row& row : rows) {
    EXPECT_EQ(site.build(std::string("f 1 1 A=1\n") + row.lines), row.result) << row.lines;
    EXPECT_EQ(log.take(), row.log) << row.lines;
    EXPECT_FALSE(site.folder.has("ident"));
  }
}

TEST(InputCards, FindsDuplicatesOverTheWholeFile) {
  const Row rows[] = {
      {"c 1 1 0 5\nc 1 2 0 6\nc 1 1 0 7\nc 1 1 0 8\n", kDuplicateCardKey,
       "[cardindex] Error - Duplicate hex card number\n"
       "[cardindex] First card info - uniqid=5, linetype=c line#=2 csid=1 cardno=1\n"
       "[cardindex] Second card info - uniqid=7, linetype=c line#=4 csid=1 cardno=1\n"
       "[inputcards] Number of cards=4\n"},
      {"n 0 1230 0 5\np 123 6\nn 0 123 0 7\n", kDuplicateCardKey,
       "[cardindex] Error - Duplicate hex card number\n"
       "[cardindex] First card info - uniqid=5, linetype=n line#=2 csid=0 cardno=0\n"
       "[cardindex] First card info - hexcardno=12 30 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
       "[cardindex] Second card info - uniqid=7, linetype=n line#=4 csid=0 cardno=0\n"
       "[cardindex] Second card info - hexcardno=12 30 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
       "[inputcards] Number of cards=3\n"},
      {"d 1 1 3 10\no 77 11\np 77 9\n", kDuplicateCardKey,
       "[cardindex] Error - Duplicate hex card number\n"
       "[cardindex] First card info - uniqid=11, linetype=o line#=3 csid=0 cardno=0\n"
       "[cardindex] First card info - pin=77\n"
       "[cardindex] Second card info - uniqid=9, linetype=p line#=4 csid=0 cardno=0\n"
       "[cardindex] Second card info - pin=77\n[inputcards] Number of cards=5\n"},
      {"c 1 1 0 5\nd 1 2 1 5\n", kDuplicateUniqueId,
       "[cardindex] Error - Duplicate unique ID\n"
       "[cardindex] First card info - uniqid=5, linetype=c, line#=2, csid=1, cardno=1\n"
       "[cardindex] Second card info - uniqid=5, linetype=d, line#=3, csid=1, cardno=2\n"
       "[inputcards] Number of cards=2\n"},
      {"n 0 AB 0 5\np 12 5\n", kDuplicateUniqueId,
       "[cardindex] Error - Duplicate unique ID\n"
       "[cardindex] First card info - uniqid=5, linetype=n, line#=2, csid=0, cardno=0\n"
       "[cardindex] First card info - hexcardno=AB 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
       "[cardindex] Second card info - uniqid=5, linetype=p, line#=3, csid=0, cardno=0\n"
       "[cardindex] Second card info - pin=12\n[inputcards] Number of cards=2\n"},
      {"c 1 1 0 5\no 1 5\no 2 5\n", kDuplicateUniqueId,
       "[cardindex] Error - Duplicate unique ID\n"
       "[cardindex] First card info - uniqid=5, linetype=o, line#=3, csid=0, cardno=0\n"
       "[cardindex] First card info - pin=1\n"
       "[cardindex] Second card info - uniqid=5, linetype=o, line#=4, csid=0, cardno=0\n"
       "[cardindex] Second card info - pin=2\n[inputcards] Number of cards=3\n"},
      {"p 1 5\no 2 5\n", kDuplicateUniqueId,
       "[cardindex] Error - Duplicate unique ID\n"
       "[cardindex] First card info - uniqid=5, linetype=p, line#=2, csid=0, cardno=0\n"
       "[cardindex] First card info - pin=1\n"
       "[cardindex] Second card info - uniqid=5, linetype=o, line#=3, csid=0, cardno=0\n"
       "[cardindex] Second card info - pin=2\n[inputcards] Number of cards=2\n"},
      {"c 1 1 0 5\no 1 4\no 2 6\no 3 4294967295\n", kUnpairedPinIdent,
       "[cardindex] Error - Unpaired 'o' line\n"
       "[cardindex] card info - uniqid=6, linetype=o, line#=4, csid=0, cardno=0\n"
       "[cardindex] card info - pin=2\n[inputcards] Number of cards=4\n"},
      // Deliberately accepted: an unpaired 'o' that sorts first, and a second card behind an 'o'.
      {"o 1 4\nc 1 1 0 5\n", 0, "[inputcards] Number of cards=2\n"},
      {"c 1 1 0 5\no 1 5\nc 1 2 0 5\n", 0, "[inputcards] Number of cards=3\n"},
      {"o 1 5\nc 1 1 0 5\n", 0, "[inputcards] Number of cards=2\n"},
      {"# nothing\n", 0, "[inputcards] Number of cards=0\n"},
  };
  TestSite site;
  TestLog log(25);
  for (const Row& row : rows) {
    EXPECT_EQ(site.build(std::string("f 1 1 A=1\n") + row.lines), row.result) << row.lines;
    EXPECT_EQ(log.take(), row.log) << row.lines;
  }
}

TEST(InputCards, FindsTheFirstOfManyDuplicates) {
  TestSite site;
  TestLog log(25);
  // The blocks share the numbers 60000 to 65499 and, later, the unique IDs 2000 to 7499.
  EXPECT_EQ(site.build("f 1 1 A=1\nd 1 50000 15500 100000\nd 1 60000 5500 1\n"), kDuplicateCardKey);
  EXPECT_EQ(log.take(),
            "[cardindex] Error - Duplicate hex card number\n"
            "[cardindex] First card info - uniqid=110000, linetype=d line#=2 csid=1 cardno=60000\n"
            "[cardindex] Second card info - uniqid=1, linetype=d line#=3 csid=1 cardno=60000\n"
            "[inputcards] Number of cards=21000\n");
  EXPECT_EQ(site.build("f 1 1 A=1\nd 1 0 15500 2000\nd 1 20000 5500 2000\n"), kDuplicateUniqueId);
  EXPECT_EQ(
      log.take(),
      "[cardindex] Error - Duplicate unique ID\n"
      "[cardindex] First card info - uniqid=2000, linetype=d, line#=2, csid=1, cardno=0\n"
      "[cardindex] Second card info - uniqid=2000, linetype=d, line#=3, csid=1, cardno=20000\n"
      "[inputcards] Number of cards=21000\n");
}

TEST(InputCards, WritesEveryLineTypeAndSaysSo) {
  TestSite site;
  TestLog log(100);
  const int32_t result = site.build(
      "f 12 1 A=21 # site\nf 12 2\nf 13 2\r\n"
      "c12 15890 4711 5001 1 2 3 4 5 6 7 65544 1 0 1 9 2024/01/31 07:30:00 2030/12/31 0 3 260 1\n"
      "n 999 1a2B3 0 5002 8 7 0 0 0 0 0 0 0 -1 0 0 0 0 1969/1/1 0 0 0 0\n"
      "p 1234567890123456 6001 3 0 0 0 0 0 0 0 1 1 1 4294967295 0 9 2024/1/1 0:0:1 1 2\n"
      "o 2468 5001\n"
      "d 13 100 2 -1 4\n"
      "c 12 1 0 17");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(site.hex("ident", 28),
            "022A7C24000000000000000000000000"
            "89130000"
            "0C000000"
            "00000000\n"
            "1A2B3000000000000000000000000000"
            "8A130000"
            "FE000000"
            "00000000\n"
            "1234567890123456F000000000000000"
            "71170000"
            "00000000"
            "00000000\n"
            "2468F000000000000000000000000000"
            "89130000"
            "FF000000"
            "00000000\n"
            "00000064000000000000000000000000"
            "FFFFFFFF"
            "0D000000"
            "00000000\n"
            "00000065000000000000000000000000"
            "00000000"
            "0D000000"
            "00000000\n"
            "022A0002000000000000000000000000"
            "11000000"
            "0C000000"
            "00000000\n");
  EXPECT_EQ(site.folder.read("cardsets"), "f 12 1 A 21 \nf 13 2 \n");
  for (const char* name : {"ident", "access"}) {
    struct stat status {};
    ASSERT_EQ(stat(name, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
  }
  EXPECT_EQ(site.hex("access", 44),
            "89130000"
            "4711F000"
            "01000200030004000500060007000800"
            "F8F6B965"
            "FF0BBD72"
            "09000000"
            "00000000"
            "34030400\n"
            "8A130000"
            "0F000000"
            "08000700000000000000000000000000"
            "00000000"
            "00000000"
            "00000000"
            "00000000"
            "02000000\n"
            "71170000"
            "00000000"
            "03000000000000000000000000000000"
            "00000000"
            "81009265"
            "FFFFFFFF"
            "00000000"
            "16010200\n"
            "FFFFFFFF"
            "0F000000"
            "04000000000000000000000000000000"
            "00000000"
            "00000000"
            "00000000"
            "00000000"
            "00000000\n"
            "00000000"
            "0F000000"
            "04000000000000000000000000000000"
            "00000000"
            "00000000"
            "00000000"
            "00000000"
            "00000000\n"
            "11000000"
            "0F000000"
            "00000000000000000000000000000000"
            "00000000"
            "00000000"
            "00000000"
            "00000000"
            "00000000\n");
  EXPECT_EQ(log.take(),
            "[inputcards] Load fmtid=1 fmtfile=26.cdf\n"
            "[CdfCardFormat] load format file 26.cdf\n[CdfCardFormat] format loaded\n"
            "[inputcards] Load fmtid=2 fmtfile=32.cdf\n"
            "[CdfCardFormat] load format file 32.cdf\n[CdfCardFormat] format loaded\n"
            "[cardsets] cardsets:getcardset 12, count = 0\n"
            "[inputcards] fieldsline csid=12 line#=1\n"
            "[cardsets] cardsets:getcardset 12, count = 1\n"
            "[cardsets] cardsets:getcardset 13, count = 1\n"
            "[inputcards] fieldsline csid=13 line#=3\n"
            "[cardsets] cardsets:getcardset 12, count = 2\n[inputcards] dupcard line#=4\n"
            "[card_functions] no format card bits\n"
            "1A 2B 30 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
            "[inputcards] dupnoformat line#=5\n[inputcards] duppin line#=6\n"
            "[inputcards] duppinident line#=7\n"
            "[cardsets] cardsets:getcardset 13, count = 2\n[inputcards] dupmulti line#=8\n"
            "[cardsets] cardsets:getcardset 12, count = 2\n[inputcards] dupcard line#=9\n"
            "[inputcards] Number of cards=7\n"
            "[cardsets] cardsets:getcardset 12, count = 2\n"
            "[cardsets] cardsets:getcardset 12, count = 2\n"
            "[cardsets] cardsets:getcardset 13, count = 2\n"
            "[cardsets] cardsets:getcardset 12, count = 2\n"
            "[inputcards] cardline card=15890 line#=4\n"
            "[card_functions] no format card bits\n"
            "1A 2B 30 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
            "[inputcards] pcd=0 acclvl[0]=8 \n[inputcards] unqid=5002 acclvl[1]=7 \n"
            "[inputcards] noformatcardline card=1a2B3 line#=5\n"
            "[inputcards] pinline pin=1234567890123456 line#=6\n"
            "[inputcards] pinidentline pin=2468 line#=7\n"
            "[cardsets] cardsets:getcardset 13, count = 2\n"
            "[inputcards] multicards fmt 2 fcard 100 ncards 2 lcard 101, line#=8 \n"
            "[inputcards] multicardsline first card=100 line#=8\n"
            "[cardsets] cardsets:getcardset 12, count = 2\n"
            "[inputcards] cardline card=1 line#=9\n");
}

TEST(InputCards, ReportsFilesThatFail) {
  TestSite site;
  TestLog log(25);
  InputCards loader("none", "ident", "access", "cardsets");
  EXPECT_EQ(loader.loadFormats("", "none"), kFormatsOpenFailed);
  EXPECT_EQ(loader.pass1(), kInputOpenFailed);
  EXPECT_EQ(loader.pass2(), kInputOpenFailed);
  EXPECT_EQ(log.take(),
            "[fmtfile] Error opening formats file none\n"
            "[inputcards] Error opening input cards files none\n"
            "[inputcards] Error opening input cards files none\n");
  std::filesystem::create_directory("folder");
  InputCards unreadable("folder", "ident", "access", "cardsets");
  EXPECT_EQ(unreadable.pass1(), kInputReadFailed);
  EXPECT_EQ(unreadable.pass2(), kInputReadFailed);
  InputCards unwritable("cards", "folder", "folder", "folder");
  site.folder.write("cards", "");
  EXPECT_EQ(unwritable.pass2(), kIdentOpenFailed);
  InputCards halfWritable("cards", "ident", "folder", "folder");
  EXPECT_EQ(halfWritable.pass2(), kAccessOpenFailed);
  InputCards almost("cards", "ident", "access", "folder");
  EXPECT_EQ(almost.pass2(), kCardSetsOpenFailed);
  EXPECT_EQ(log.take(),
            "[inputcards] Error reading input cards file\n"
            "[inputcards] Error reading input cards file\n"
            "[identfile] Error opening ident file folder\n"
            "[accessfile] Error opening access file folder\n"
            "[cardsets] Error opening card sets file folder\n");
}

}  // namespace
}  // namespace badgemint
