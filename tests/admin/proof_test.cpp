// What a proof takes for a difference between a line and its records, and what it lets pass since
// no card can carry it.
#include <gtest/gtest.h>

#include "admin/console.h"
#include "admin/records/proof.h"
#include "formats/loadformats.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

class ProofTest : public testing::Test {
 protected:
  // Why the databases are not proved by these lines; empty when they are.
  static std::string objection(const std::string& cards) {
    std::ofstream("cards") << cards;
    try {
      prove({"cards", "formats", "ident", "access", "cardsets"});
    } catch (const Failure& failure) {
      return failure.what();
    }
    return "";
  }

  TestSite _site;
};

TEST_F(ProofTest, ComparesTheSiteValuesThatACardCanCarry) {
  const std::string onCard = "has another site value than line 2", inFile = "else of card set 1";
  const char* const wide =  // A field of 63 bits, a number of 18, no parity.
      "21{s/.*/AAAAAAAA/;s//&&&/;s//&&/};23,24s/.*//;$a AAAAAAAAAAAAAAABBBBBBBBBBBBBBBBBB"
      "\\n\\n\\n\\n\\n\\n\\n\\n\\n";
  const std::string tooWide =
      wide + std::string("\\n") + std::string(48, 'C') + "\\n\\n\\n\\n\\n\\n\\n\\n\\n";
  const struct {
    const char *format, *values;
    std::string says;
  } kCases[] = {
      {"", "A=21", ""},
      {"", "A=22", onCard},
      {"", "A=300", inFile},
      {"", "A=-5", inFile},
      {"", "A=21 C=5", inFile},
      {"22s/^/.0/", "A=22", inFile},
      {"22s/^/.1/", "A=22", inFile},
      {"22s/^/1/", "A=22", onCard},
      {"23s/X/E/", "A=22", inFile},
      {"24s/^../.O/", "A=22", inFile},
      {"13s/BIN/BCD/", "A=22", onCard},
      {"13s/BIN/BCD/", "A=122", inFile},
      {"13s/BIN/MSD/", "A=22", inFile},
      {"13s/BIN//", "A=22", inFile},
      {wide, "A=22", onCard},
      {tooWide.c_str(), "A=22", inFile},
  };
  const std::string format = contentOf("26.cdf"), card = "\nc 1 7 4711 1\n";
  for (const auto& [edit, values, says] : kCases) {
    SCOPED_TRACE(std::string(edit) + ' ' + values);
    _site.folder.write("26.cdf", format);
    ASSERT_EQ(std::system(("sed -i '" + std::string(edit) + "' 26.cdf").c_str()), 0);
    ASSERT_EQ(buildCards("f 1 1 A=21" + card), 0);
    const std::string objected = objection("f 1 1 " + std::string(values) + card);
    EXPECT_TRUE(says.empty() ? objected.empty() : objected.find(says) != std::string::npos)
        << objected;
  }
}

TEST_F(ProofTest, RefusesLinesThatAreWrongByNow) {
  ASSERT_EQ(buildCards("p 1234 1\n"), 0);
  for (const std::string line :
       {"c 1 x 0 1", "c 1 7 x 1", "n 1 7 x 1", "p x 1", "o x 1", "d 9 9", "z"})
    EXPECT_EQ(objection(line + '\n'), "not proved: line 1 of cards is wrong by now") << line;
}

TEST_F(ProofTest, TellsOfCredentialsAsLongAsItIsAsked) {
  std::ofstream("cards") << "f 1 1\nd 1 1 100 5\np 1234 1\n";
  SiteCards site;
  ASSERT_EQ(site.create(), 0);
  ASSERT_EQ(loadFormats("test", "", "formats", site.formats()), 0);
  uint32_t last = 0;
  readStatements("cards", site, [&last](const StatedCredential& stated) {
    last = stated.uniqid;
    return last < 7;
  });
  EXPECT_EQ(last, 7U);
  const AccessRecord access;
  EXPECT_STREQ(differenceTo({1, kFormatlessCode, 0, 0, "0g", "", nullptr, 0},
                            {.cardsetcode = kFormatlessCode}, access, site),
               "card number");
  EXPECT_STREQ(differenceTo({1, 9, 0, 0, "", "", nullptr, 0}, {.cardsetcode = 9}, access, site),
               "card set");
}

}  // namespace
}  // namespace badgemint::admin
