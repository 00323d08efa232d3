// The verb `verify`: each of its rules, and what it reports of records that a build of a cards file
// would make differently.
#include "admin/adminrun.h"
#include "admin/records/databases.h"

namespace badgemint::admin::verify_test {

const std::string kF = "f 1 1 A=21\nf 2 2\n", kC = "c 1 15890 12345678 1 1\n", kO = "o 0099 1\n",
                  kN = "n 0 1A2b30 0 2 1\n", kP = "p 1234 3 1\n", kD = "d 2 10 3 4\n";
// Ident records 0 to 6: a card and a PIN of holder 1, a card of 2, a PIN of 3, cards of 4, 5, 6.
// Access records 0 to 5: of holders 1 to 6.
const std::string kCards = kF + kC + kO + kN + kP + kD;

class VerifyTest : public testing::Test {
 protected:
  VerifyTest() { build(kCards); }

  void build(const std::string& cards) {
    ASSERT_EQ(buildCards(cards), 0);
    _built.readIdents("ident");
    _built.readAccesses("access");
  }

  // What is reported of the databases, without the last line.
  static std::string faults(const std::string& options = "") {
    const AdminRun run = runAdmin("verify" + kSite + ' ' + options);
    EXPECT_EQ(run.errors, "");
    const size_t last = run.output.rfind('\n', run.output.size() - 2) + 1;
    EXPECT_EQ(run.status, last == 0 ? 0 : 2);
    EXPECT_EQ(run.output.substr(last).starts_with("no faults; "), last == 0) << run.output;
    return run.output.substr(0, last);
  }

  // A change of the databases as they were built, and what is reported then: a fault of this rule
  // that ends so; an empty text for a change that keeps the rules.
  struct Case {
    const char* rule;
    void (*change)(std::vector<IdentRecord>& idents, std::vector<AccessRecord>& accesses);
    const char* text;
  };
  void expect(const std::vector<Case>& cases, const std::string& options = "") {
    for (const auto& [rule, change, text] : cases) {
      SCOPED_TRACE(testing::Message() << rule << ": " << text);
      Databases databases = _built;
      change(databases.idents, databases.accesses);
      writeRecords("ident", databases.idents);
      writeRecords("access", databases.accesses);
      const std::string found = faults(options), end = fmt::format("{} [{}]\n", text, rule);
      EXPECT_TRUE(*text == '\0' ? found.empty() : found.ends_with(end)) << found;
    }
  }

  TestSite _site;
  Databases _built;
};

// clang-format off
TEST_F(VerifyTest, NamesTheRuleOfEachFault) {
  writeFile("cardsets", contentOf("cardsets") + "f 8 9\n");
  expect({
      {"mark", [](auto& i, auto&) { i[4].deleted = 1; }, ""},
      {"mark", [](auto& i, auto&) { i[4].deleted = 2; }, "has mark of deletion 2, not 0 or 1"},
      {"card-set", [](auto& i, auto&) { i[4].cardsetcode = 254; }, ""},
      {"card-set", [](auto& i, auto&) { i[4].cardsetcode = 7; }, "set 7 or its format is missing"},
      {"card-set", [](auto& i, auto&) { i[4].cardsetcode = 8; }, "set 8 or its format is missing"},
      {"card-set", [](auto& i, auto&) { i[4].cardsetcode = 256; }, "256 or its format is missing"},
      {"pin", [](auto& i, auto&) { i[1].cardnumber[2] = 0xF1; }, "no keypad entry matches it"},
      {"pin", [](auto& i, auto&) { i[1].cardnumber[0] = 0xF0; }, "no keypad entry matches it"},
      {"pin", [](auto& i, auto&) { i[3].cardnumber[0] = 0xA2; }, "no keypad entry matches it"},
      {"pin", [](auto&, auto& a) { a[1].pincode = {0xF0}; }, ""},
      {"pin", [](auto&, auto& a) { a[1].pincode[0] = 0x1A; }, "is not stored as packed digits"},
      {"key", [](auto& i, auto&) { i[0].cardnumber[3] ^= 1; }, "card set: readers deliver another"},
      {"key", [](auto& i, auto&) { i[0].cardnumber[1] ^= 6; }, "card set: readers deliver another"},
      {"unique", [](auto& i, auto&) { i[5].cardnumber = i[4].cardnumber; }, "the key of record 4"},
      {"unique", [](auto& i, auto&) { i[5].cardnumber = i[4].cardnumber, i[4].deleted = 1; }, ""},
      {"unique", [](auto& i, auto&) { i[1].uniqid = 3; }, "card has the unique ID of record 1"},
      {"unique", [](auto& i, auto&) { i[1].uniqid = 2; }, ""},
      {"holder", [](auto&, auto& a) { a[4].uniqid = 7; }, "176): holder 7 has no credential"},
      {"holder", [](auto&, auto& a) { a.pop_back(); }, "12 of card set 2 has no access record"},
      {"holder", [](auto&, auto& a) { a[5].uniqid = 4; }, "4 already has access record 3"},
      {"pair", [](auto& i, auto&) { i[0].deleted = 1; }, "beside a card has no card"},
      {"flag", [](auto&, auto& a) { a[0].bitflds = 0x3F; }, ""},
      {"flag", [](auto&, auto& a) { a[0].bitflds = 0x40; }, "holder 1 has flags beyond flag 5"},
      {"period", [](auto&, auto& a) { a[0].starttime = a[0].endtime = 5; }, ""},
      {"period", [](auto&, auto& a) { a[0].starttime = 6, a[0].endtime = 5; }, "00:00:06"},
      {"escort", [](auto&, auto& a) { a[0].escortid = 2; }, ""},
      {"escort", [](auto&, auto& a) { a[0].escortid = 7; }, "that need an escort never open"},
      {"empty", [](auto& i, auto& a) { i = {}, a = {}; }, "has a record: nobody has access"},
  });
}

TEST_F(VerifyTest, NamesTheFieldThatDiffers) {
  expect({
      {"differs", [](auto& i, auto&) { i[0].cardsetcode = 2; }, "of the cards file: card set"},
      {"differs", [](auto& i, auto&) { i[0].deleted = 1; }, "the cards file: mark of deletion"},
      {"differs", [](auto&, auto& a) { a[0].pincode[3] = 0x79; }, "line 3 of the cards file: PIN"},
      {"differs", [](auto&, auto& a) { a[0].acclevel[7] = 1; }, "the cards file: access level 8"},
  }, "--cards cards");
}
// clang-format on

TEST_F(VerifyTest, ChecksFilesAsAWhole) {
  for (const char* const line :
       {"f 3\n", "f 3 1 A\n", "f 3 1 A 2", "f 3 1 A 2x\n", "f 0 1\n", "f 254 1\n"}) {
    writeFile("cardsets", "f 1 1 A 21\nf 2 2\n" + std::string(line));
    EXPECT_TRUE(faults().starts_with("cardsets:3: this line is not a card set")) << line;
  }
  writeFile("cardsets", "f 1 1 A 21\nf 2 2\nf 1 1 A 22\n");
  EXPECT_EQ(faults(), "cardsets:3: card set 1 is defined twice [card-sets]\n");
  const std::string ident = contentOf("ident"), access = contentOf("access");
  writeFile("ident", access);
  writeFile("access", ident);
  EXPECT_TRUE(faults().ends_with("--ident and --access are swapped [swapped]\n"));
}

TEST_F(VerifyTest, DiffersMissingAndOther) {
  const std::string moved = kF + kC + kO + kN + kP + "d 2 11 2 5\nd 2 10 1 7\n";
  const std::pair<std::string, std::string> kCases[] = {
      {kF + kD + kP + kN + kO + kC, ""},
      {moved, "card 10 of card set 2 differs from line 8 of the cards file: unique ID [differs]\n"},
      {moved, "cards:8: holder 7: card 10 of card set 2 has no access record [missing]\n"},
      {"f 1 1 A=22\nf 2 2\n" + kC + kO + kN + kP + kD,
       "cardsets: a build would not write it: card set 1 differs from the cards file [differs]\n"},
  };
  for (const auto& [cards, text] : kCases) {
    writeFile("cards", cards);
    const std::string found = faults("--cards cards");
    EXPECT_TRUE(found.find(text) != found.npos && found.empty() == text.empty()) << found;
  }
  writeFile("cards", "x\n");
  EXPECT_TRUE(faults("--cards cards").starts_with("cards:1:1: error: "));
  writeFile("cards", kCards + "d 2 1000 75 1000\n");
  const std::string counted = faults("--cards cards");
  EXPECT_TRUE(counted.starts_with("150 faults [missing]\ncards:8: holder 1000: card 1000 of "));
  EXPECT_TRUE(counted.ends_with("[missing]\n50 more faults [missing] (--all prints them)\n"));
  EXPECT_EQ(std::ranges::count(faults("--cards cards --all"), '\n'), 151);
}

// What a build accepts is no fault when the cards file is given.
TEST_F(VerifyTest, AcceptsWhatABuildMakes) {
  build(kF + kC + kO + "c 2 7 0 1 5\n");  // Two cards beside one PIN.
  EXPECT_EQ(faults("--cards cards"), "");
  build(kF + "o 4711 1\n" + kN);  // A PIN without a card, of the lowest unique ID.
  EXPECT_EQ(faults("--cards cards"), "");
  EXPECT_TRUE(faults().ends_with("PIN **** beside a card has no card [pair]\n"));
  build(kF + "p 99 9 1 0 0 0 0 0 0 0 0 0 0 8 2025/1/1 0 2024/1/1 0\n");  // An escort, a period.
  EXPECT_EQ(faults("--cards cards"), "");
  build(kF);
  EXPECT_EQ(faults("--cards cards"), "");
  build("f 1 1 A=-5\n" + kC);  // The card sets file keeps no negative values.
  EXPECT_EQ(faults("--cards cards"), "");
}

}  // namespace badgemint::admin::verify_test
