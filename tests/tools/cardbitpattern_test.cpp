// The bits of one card, from a site's files and from one format file.
#include "support/testsite.h"
#include "tools/badgemint.h"

namespace badgemint::cardbitpattern_test {

// What an entry function does for a card: success gives a pattern, and a failure a message.
struct Case {
  int32_t result;
  std::string set, number, text;
  int32_t size = 40;         // Of the buffer for the pattern.
  const char* file = "log";  // The format, for a card without a site.
};

void expectPatterns(const std::string& name, const std::vector<Case>& cases, auto function) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    std::string buffer(40, '!');
    EXPECT_EQ(function(c, buffer.data()), c.result);
    EXPECT_EQ(logOf(name, 1, c.result), c.result == 0 ? "" : c.text);
    EXPECT_EQ(buffer.c_str(), c.result == 0 ? c.text : std::string(40, '!'));
  }
}

TEST(ComputeCardBitPattern, GivesThePatternOrReportsWhyNot) {
  const TestSite site;
  site.folder.write("sets", "f 12 1 A 21\nf 13 2\nf 253 9\n");
  const std::vector<Case> cases = {
      {0, "12", "15890", "022A7C24", 9},
      {-511, "12", "15890", "[25 badgemintdump] cardbitpatternsize=8 too small; requires 9\n", 8},
      {0, "13", "0", std::string(32, '0'), 33},
      {-1006, "0", "1", "[25 badgemintdump] Invalid cardset ID 0\n"},
      {-1006, "254", "1", "[25 badgemintdump] Invalid cardset ID 254\n"},
      {-1006, "252", "1", "[25 card_functions] Card set 252 not defined\n"},
      {-1007, "253", "1", "[25 card_functions] Format 9 not defined \n"},
      {-1010, "12", "", ""},
      {-506, "12", "65536", "[25 card_functions] Card mismatch cardno=65536,chkcardno=0\n"},
  };
  expectPatterns("ComputeCardBitPattern", cases, [](const Case& c, char* buffer) {
    return ComputeCardBitPattern(static_cast<uint32_t>(std::stoi(c.set)), c.number.c_str(), "",
                                 "formats", "sets", "log", 25, buffer, c.size);
  });
}

// A number that is cut decodes to itself in 64 bits, but is not the card's.
TEST(ComputeCardBitPattern2, GivesThePatternOrReportsWhyNot) {
  const TestSite site;
  site.folder.write("64.vff", fileOf("VFF", linesOf("VFF", {std::string(64, '*')})));
  const std::string mismatch = "[25 badgemintdump] Card mismatch cno=";
  const std::string most = "9223372036854775807", cut = mismatch + most + ",chkcardno=" + most;
  const std::string unparsed = "[25 cardset] Unable to parse fmtid in card set line f 12\n";
  const std::vector<Case> cases = {
      {0, "f 12 3 A 21", "15890", "022A7C24", 9, "26.cdf"},
      {-514, "f 12", "1", unparsed, 9, "26.cdf"},
      {-506, "f 1 1", "65536", mismatch + "65536,chkcardno=0\n", 9, "26.cdf"},
      {-506, "f 1 1", "9223372036854775808", cut + "\n", 33, "64.vff"},
      {-1010, "f 1 1", "", "", 9, "26.cdf"},
      {-505, "f 1 1", "1", "[25 CardFormatSet] Invalid format file 26.txt\n", 9, "26.txt"},
  };
  expectPatterns("ComputeCardBitPattern2", cases, [](const Case& c, char* buffer) {
    return ComputeCardBitPattern2(c.number.c_str(), c.set.c_str(), "", c.file, "log", 25, buffer,
                                  c.size);
  });
}

}  // namespace badgemint::cardbitpattern_test
