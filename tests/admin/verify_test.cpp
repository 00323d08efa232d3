// The verb `verify`: each of its rules, and what it reports of records that a build of a cards file
// would make differently.
#include <gtest/gtest.h>

#include "admin/adminrun.h"
#include "admin/records/databases.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

const std::string kPaths = " --ident ident --access access --cardsets cardsets --formats formats";
const std::string kNone = " 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0";
const std::string kF = "f 1 1 A=21\nf 2 2\n", kC = "c 1 15890 12345678 1 1" + kNone + " 0\n",
                  kO = "o 0099 1\n", kN = "n 0 1A2b30 0 2 1" + kNone + " 0\n",
                  kP = "p 1234 3 1" + kNone + "\n", kD = "d 2 10 3 4\n";
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

  static void write(const Databases& databases) {
    writeRecords("ident", databases.idents);
    writeRecords("access", databases.accesses);
  }

  // What is reported of the databases, without the last line.
  static std::string faults(const std::string& options = "") {
    const AdminRun run = runAdmin("verify" + kPaths + ' ' + options);
    EXPECT_EQ(run.errors, "");
    const size_t last = run.output.rfind('\n', run.output.size() - 2) + 1;
    EXPECT_EQ(run.status, last == 0 ? 0 : 2);
    EXPECT_EQ(run.output.substr(last).starts_with("no faults; "), last == 0) << run.output;
    return run.output.substr(0, last);
  }

  // Changes of the databases as they were built, each with the end of what is reported then;
  // nothing for a change that keeps the rules.
  struct Case {
    void (*change)(Databases&);
    const char* fault;
  };
  void expect(std::initializer_list<Case> cases, const std::string& options = "") {
    for (int number = 0; const auto& [change, fault] : cases) {
      SCOPED_TRACE(testing::Message() << "case " << number++ << ": " << fault);
      Databases databases = _built;
      change(databases);
      write(databases);
      const std::string found = faults(options);
      EXPECT_EQ(found.empty(), *fault == '\0') << found;
      EXPECT_TRUE(found.ends_with(fault + std::string(*fault == '\0' ? "" : "\n"))) << found;
    }
  }

  TestSite _site;
  Databases _built;
};

TEST_F(VerifyTest, Mark) {
  expect({{[](auto& d) { d.idents[4].deleted = 1; }, ""},
          {[](auto& d) { d.idents[4].deleted = 2; },
           "ident: record 4 (offset 112): holder 4: card 10 of card set 2 has mark of deletion 2 "
           "[mark]"}});
}

TEST_F(VerifyTest, CardSet) {
  _site.folder.write("cardsets", contentOf("cardsets") + "f 8 9\n");
  expect(
      {{[](auto& d) { d.idents[4].cardsetcode = 254; }, ""},
       {[](auto& d) { d.idents[4].cardsetcode = 7; },
        "the card sets file lacks card set 7 [card-set]"},
       {[](auto& d) { d.idents[4].cardsetcode = 8; }, "file lacks that of card set 8 [card-set]"},
       {[](auto& d) { d.idents[4].cardsetcode = 256; }, "invalid card set code 256 [card-set]"}});
}

TEST_F(VerifyTest, Pin) {
  constexpr char kIdent[] = "is not stored as packed digits: no keypad entry matches it [pin]";
  expect({{[](auto& d) {
             d.idents[1].cardnumber = {0x12, 0x34, 0x56, 0x78, 0x90, 0x12, 0x34, 0x56, 0xF0};
           },
           ""},
          {[](auto& d) {
             d.idents[1].cardnumber = {0x12, 0x34, 0x56, 0x78, 0x90, 0x12, 0x34, 0x56, 0x1F};
           },
           kIdent},
          {[](auto& d) {
             d.idents[1].cardnumber = {0xA0, 0x99, 0xF0};
           },
           kIdent},
          {[](auto& d) {
             d.idents[1].cardnumber = {0x00, 0x99, 0xF1};
           },
           kIdent},
          {[](auto& d) { d.idents[1].cardnumber = {0xF0}; }, kIdent},
          {[](auto& d) {
             d.idents[3].cardnumber = {0x1F, 0x34, 0xF0};
           },
           kIdent},
          {[](auto& d) { d.accesses[1].pincode = {0xF0}; }, ""},
          {[](auto& d) {
             d.accesses[1].pincode = {0x1A, 0xF0};
           },
           "access: record 1 (offset 44): holder 2 has a PIN that is not stored as packed digits "
           "[pin]"}});
}

TEST_F(VerifyTest, Key) {
  constexpr char kBits[] = "wrong parity, wrong fixed bits or bits after its end [key]";
  expect({{[](auto& d) { d.idents[0].cardnumber[3] ^= 1; }, kBits},
          {[](auto& d) { d.idents[0].cardnumber[15] = 1; }, kBits},
          {[](auto& d) { d.idents[0].cardnumber[1] ^= 6; },
           "15890 of card set 1 has a key with other site values than its card set [key]"}});
}

TEST_F(VerifyTest, Unique) {
  expect(
      {{[](auto& d) { d.idents[5].cardnumber = d.idents[4].cardnumber; },
        "holder 5: card 10 of card set 2 has the key of record 4 [unique]"},
       {[](auto& d) { d.idents[5].cardnumber = d.idents[4].cardnumber, d.idents[4].deleted = 1; },
        ""},
       {[](auto& d) { d.idents[1].uniqid = 3; }, "alone has the unique ID of record 1 [unique]"},
       {[](auto& d) { d.idents[1].uniqid = 2; }, ""}});
}

TEST_F(VerifyTest, HolderAndPair) {
  expect(
      {{[](auto& d) { d.idents[5].uniqid = 99; },
        "ident: record 5 (offset 140): holder 99: card 11 of card set 2 has no access record "
        "[holder]\n"
        "access: record 4 (offset 176): holder 5 has no credential [holder]"},
       {[](auto& d) { d.accesses[5].uniqid = 4; }, "holder 4 already has record 3 [holder]"},
       {[](auto& d) { d.idents[0].deleted = 1; }, "beside a card has no card beside it [pair]"}});
}

TEST_F(VerifyTest, Flag) {
  expect({{[](auto& d) { d.accesses[0].bitflds = 0x3F; }, ""},
          {[](auto& d) { d.accesses[0].bitflds = 0x40; },
           "access: record 0 (offset 0): holder 1 has flags beyond flag 5 [flag]"}});
}

TEST_F(VerifyTest, Period) {
  expect({{[](auto& d) { d.accesses[0].starttime = d.accesses[0].endtime = 5; }, ""},
          {[](auto& d) { d.accesses[0].starttime = 86401, d.accesses[0].endtime = 86400; },
           "holder 1 is never valid: the end 1970/01/02 00:00:00 is before the start 1970/01/02 "
           "00:00:01 [period]"}});
}

TEST_F(VerifyTest, Escort) {
  expect({{[](auto& d) { d.accesses[0].escortid = 2; }, ""},
          {[](auto& d) { d.accesses[0].escortid = 7; },
           "holder 1 has escort 7, who is not a holder: no door ever opens [escort]"}});
}

TEST_F(VerifyTest, CardSetsFile) {
  for (const auto& [line, fault] :
       {std::pair("f 3\n", "cardsets:3: this line does not define a card set [card-sets]\n"),
        std::pair("f 3 1 A\n",
                  "cardsets:3: the last field of this line has no value [card-sets]\n"),
        std::pair("f 3 1 A 2",
                  "cardsets:3: the line has no newline: the file may have been cut "
                  "off [card-sets]\n")}) {
    _site.folder.write("cardsets", "f 1 1 A 21\nf 2 2\n" + std::string(line));
    EXPECT_TRUE(runAdmin("verify" + kPaths).output.starts_with(fault)) << fault;
  }
}

TEST_F(VerifyTest, EmptyAndSwapped) {
  expect({{[](auto& d) { d = {}; },
           "ident: neither it nor access has a record: nobody has access [empty]"}});
  write(_built);
  std::filesystem::rename("ident", "x"), std::filesystem::rename("access", "ident"),
      std::filesystem::rename("x", "access");
  EXPECT_EQ(faults(),
            "ident: this is an access database, and access is an ident database: --ident and "
            "--access are swapped [swapped]\n");
}

TEST_F(VerifyTest, Json) {
  expect({{[](auto& d) { d.idents[1].deleted = d.idents[4].deleted = 2; },
           "{\"file\":\"ident\",\"record\":4,\"offset\":112,\"severity\":\"error\",\"rule\":"
           "\"mark\",\"text\":"
           "\"holder 4: card 10 of card set 2 has mark of deletion "
           "2\",\"holder\":4,\"kind\":\"card\",\"set\":2,"
           "\"card\":\"10\",\"key\":\"0000000A000000000000000000000000\",\"deleted\":true}"}},
         "--json");
  EXPECT_EQ(runAdmin("verify --json" + kPaths).output.find("0099"), std::string::npos);
}

TEST_F(VerifyTest, Size) {
  _site.folder.write("ident", contentOf("ident") + 'x');
  _site.folder.write("access", contentOf("access") + "xy");
  EXPECT_EQ(faults(),
            "ident: 1 bytes after the last whole record [size]\n"
            "access: 2 bytes after the last whole record [size]\n");
}

TEST_F(VerifyTest, Differs) {
  const auto differs = [](const char* record, const char* line, const char* field) {
    return fmt::format("{} is not as in the cards file, line {}: {} [differs]\n", record, line,
                       field);
  };
  const struct {
    void (*change)(IdentRecord& ident, AccessRecord& access);  // The first card and its holder.
    const char* field;
  } kCases[] = {
      {[](auto& ident, auto&) { ident.cardsetcode = 2; }, "card set"},
      {[](auto& ident, auto&) { ident.deleted = 1; }, "mark of deletion"},
      {[](auto&, auto& access) { access.pincode[3] = 0x79; }, "PIN"},
      {[](auto&, auto& access) { access.acclevel[0] = 2; }, "access level 1"},
      {[](auto&, auto& access) { access.acclevel[7] = 1; }, "access level 8"},
      {[](auto&, auto& access) { access.setFlag(5, 1); }, "flag 5 (last of the line)"},
      {[](auto&, auto& access) { access.escortid = 2; }, "escort"},
      {[](auto&, auto& access) { access.starttime = 1; }, "start"},
      {[](auto&, auto& access) { access.endtime = 1; }, "end"},
      {[](auto&, auto& access) { access.elevatoraccess = 1; }, "elevator access"},
      {[](auto&, auto& access) { access.outrelaygrpid = 1; }, "output relay group"},
      {[](auto&, auto& access) { access.cardissuelevel = 1; }, "issue level"},
      {[](auto&, auto& access) { access.outgrpmode = 1; }, "output mode"},
  };
  for (const auto& [change, field] : kCases) {
    SCOPED_TRACE(field);
    Databases databases = _built;
    change(databases.idents[0], databases.accesses[0]);
    write(databases);
    const bool isIdent = databases.idents[0] != _built.idents[0];
    const std::string found = faults("--cards cards"), fault = differs("", "3", field);
    EXPECT_TRUE(found.starts_with(isIdent ? "ident: record 0 (" : "access: record 0 (") &&
                found.ends_with(fault))
        << found;
  }
}

TEST_F(VerifyTest, DiffersMissingAndOther) {
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
      {"f 1 1 A=22\nf 2 2\n" + kC + kO + kN + kP + kD,
       "ident: record 0 (offset 0): " + c15890 + other + "cards:3: " + c15890 + missing +
           "cardsets: a build would not write it: card set 1 differs [differs]\n"},
  };
  for (const auto& [cards, says] : kCases) {
    _site.folder.write("cards", cards);
    EXPECT_EQ(faults("--cards cards"), says);
  }
  _site.folder.write("cards", "x\n");
  EXPECT_TRUE(faults("--cards cards").starts_with("cards:1:1: error: "));
  _site.folder.write("cards", kCards + "d 2 1000 75 1000\n");
  const std::string counted = faults("--cards cards");
  EXPECT_TRUE(counted.starts_with("150 faults [missing]\ncards:8: holder 1000: card 1000 of ") &&
              counted.ends_with("[missing]\n50 more faults [missing] (--all prints them)\n"))
      << counted;
  EXPECT_EQ(std::ranges::count(faults("--cards cards --all"), '\n'), 151);
}

// What a build accepts is no fault when the cards file is given.
TEST_F(VerifyTest, AcceptsWhatABuildMakes) {
  build(kF + kC + kO + "c 2 7 0 1 5" + kNone + " 0\n");  // Two cards beside one PIN.
  EXPECT_EQ(faults("--cards cards"), "");
  build(kF + "o 4711 1\n" + kN);  // A PIN without a card, of the lowest unique ID.
  EXPECT_EQ(faults("--cards cards"), "");
  EXPECT_EQ(
      faults(),
      "ident: record 0 (offset 0): holder 1: PIN **** beside a card has no access record [holder]\n"
      "ident: record 0 (offset 0): holder 1: PIN **** beside a card has no card beside it "
      "[pair]\n");
  build("f 1 1 A=-5\n" + kC);  // The card sets file keeps no negative values.
  EXPECT_EQ(faults("--cards cards"), "");
}

}  // namespace
}  // namespace badgemint::admin
