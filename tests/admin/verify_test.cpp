// The verb `verify`: each fault that databases can have, and what a cards file says otherwise.
#include <gtest/gtest.h>

#include "admin/adminrun.h"
#include "cardsets/card_functions.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

const std::string kNone = " 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0";
const std::string kF = "f 1 1 A=21\nf 2 2\n", kC = "c 1 15890 12345678 1 1" + kNone + " 0\n",
                  kO = "o 0099 1\n", kN = "n 0 1A2b30 0 2 1" + kNone + " 0\n",
                  kP = "p 1234 3 1" + kNone + "\n", kD = "d 2 10 3 4\n";

class VerifyTest : public testing::Test {
 protected:
  VerifyTest() { EXPECT_EQ(buildCards(kF + kC + kO + kN + kP + kD), 0); }

  // What is said of the faults, without the last line.
  static std::string faults(const std::string& options = "") {
    const AdminRun run = runAdmin(
        "verify --ident ident --access access --cardsets cardsets --formats formats " + options);
    EXPECT_EQ(run.errors, "");
    const size_t last = run.output.rfind('\n', run.output.size() - 2) + 1;
    EXPECT_EQ(run.status, last == 0 ? 0 : 2);
    EXPECT_EQ(run.output.substr(last).starts_with("no faults; "), last == 0) << run.output;
    return run.output.substr(0, last);
  }

  TestSite _site;
};

TEST_F(VerifyTest, NamesEachFaultOfARecord) {
  _site.folder.write("cardsets", contentOf("cardsets") + "f 8 9\n");
  const struct {
    const char* file;
    size_t offset;
    const char *bytes, *says;  // The end of what is said of a file with these bytes there.
  } kCases[] = {
      {"ident", 136, "02",
       "(offset 112): holder 4: card 10 of card set 2 has mark of deletion 2 [mark]"},
      {"ident", 24, "01", "holder 1: PIN **** beside a card has no card beside it [pair]"},
      {"ident", 52, "01", ""},
      {"ident", 28, "A0", "beside a card is not stored as digits and their end [pin]"},
      {"ident", 30, "F1", "[pin]"},
      {"ident", 28, "F00000", "[pin]"},
      {"ident", 28, "1234567890123456F0", ""},
      {"ident", 28, "12345678901234561F", "[pin]"},
      {"ident", 84, "1F34", "holder 3: PIN **** alone is not stored as digits and their end [pin]"},
      {"ident", 3, "25", "does not give: parity, fixed bits, or bits behind the card's end [key]"},
      {"ident", 15, "01", "does not give: parity, fixed bits, or bits behind the card's end [key]"},
      {"ident", 1, "2C", "has a key that its card set does not give: another site value [key]"},
      {"ident", 132, "07", "has no format: the card sets file lacks card set 7 [card-set]"},
      {"ident", 132, "08", "has no format: none is listed for card set 8 [card-set]"},
      {"ident", 132, "0001", "has a code that is no card set's: 256 [card-set]"},
      {"ident", 132, "FE", ""},
      {"ident", 143, "0A", "card 10 of card set 2 has the key of record 4 [unique]"},
      {"ident", 136, "010000000000000A", ""},
      {"ident", 156, "63", "access: record 4 (offset 176): holder 5 has no credential [holder]"},
      {"ident", 44, "03", "PIN **** alone has the unique ID of record 1 [unique]"},
      {"ident", 44, "02", ""},
      {"access", 40, "40", "access: record 0 (offset 0): holder 1 has flags beyond flag 5 [flag]"},
      {"access", 40, "3F", ""},
      {"access", 4, "1A", "has a PIN that is not stored as digits and their end [pin]"},
      {"access", 48, "F0", ""},
      {"access", 176, "07",
       "holder 5: card 11 of card set 2 has no access record [holder]\n"
       "access: record 4 (offset 176): holder 7 has no credential [holder]"},
      {"access", 220, "04", "holder 4 already has record 3 [holder]"},
      {"ident", 196, "00", "ident: bytes behind the last whole record: 1 [size]"},
      {"access", 264, "0000", "access: bytes behind the last whole record: 2 [size]"},
  };
  for (const auto& [file, offset, bytes, says] : kCases) {
    SCOPED_TRACE(testing::Message() << file << ' ' << offset << ' ' << bytes);
    const std::string whole = contentOf(file);
    std::array<uint8_t, 16> patch;
    hexToBits(bytes, patch);
    std::string changed = whole;
    changed.replace(offset, std::strlen(bytes) / 2,
                    std::string(patch.begin(), patch.begin() + std::strlen(bytes) / 2));
    _site.folder.write(file, changed);
    const std::string said = faults();
    EXPECT_TRUE(*says == '\0' ? said.empty() : said.ends_with(says + std::string("\n"))) << said;
    _site.folder.write(file, whole);
  }
}

TEST_F(VerifyTest, NamesWhatABuildWouldMakeOtherwise) {
  const std::string c10 = "card 10 of card set 2 ", c15890 = "holder 1: card 15890 of card set 1 ",
                    missing = "is not in the ident database [missing]\n",
                    other = "is in no line of the cards file [other]\n";
  const std::pair<std::string, std::string> kCases[] = {
      {kF + kD + kP + kN + kO + kC, ""},
      {kF + kC + kO + kN + kP + "d 2 11 2 5\nd 2 10 1 7\n",
       "ident: record 4 (offset 112): holder 4: " + c10 +
           "is not as in the cards file, line 8: unique ID [differs]\n"
           "access: record 3 (offset 132): holder 4 " +
           other + "cards:8: holder 7: " + c10 + "has no access record [missing]\n"},
      {kF + "c 1 15890 12345678 1 2" + kNone + " 0\n" + kO + kN + kP + kD,
       "access: record 0 (offset 0): holder 1 is not as in the cards file, line 3: access level "
       "[differs]\n"},
      {"f 1 1 A=22\nf 2 2\n" + kC + kO + kN + kP + kD,
       "ident: record 0 (offset 0): " + c15890 + other + "cards:3: " + c15890 + missing +
           "cardsets: a build would not write it: it says something else of card set 1 "
           "[differs]\n"},
      {"x\n",
       "cards:1:1: error: \"x\" is no line type: a line begins with f, c, n, p, o, d or # "
       "[-503]\n"},
  };
  for (const auto& [cards, says] : kCases) {
    _site.folder.write("cards", cards);
    EXPECT_EQ(faults("--cards cards"), says);
  }
  _site.folder.write("cards", kF + kC + kO + kN + kP + kD + "d 2 1000 75 1000\n");
  EXPECT_NE(faults("--cards cards").find("\n50 more faults [missing] (--all"), std::string::npos);
  EXPECT_EQ(faults("--cards cards --all").find("more"), std::string::npos);

  ASSERT_EQ(buildCards(kF + kC + kO + "c 2 7 0 1 5" + kNone + " 0\n"), 0);  // Which a build takes.
  std::string marked = contentOf("ident").substr(0, 28);
  _site.folder.write("ident", marked.replace(24, 1, "\1") + contentOf("ident"));
  EXPECT_EQ(faults("--cards cards"), "ident: record 0 (offset 0): " + c15890 + other);
}

}  // namespace
}  // namespace badgemint::admin
