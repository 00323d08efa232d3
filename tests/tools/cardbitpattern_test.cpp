// The bits of one card, from a site's files and from one format file.
#include "support/testsite.h"
#include "tools/badgemint.h"

namespace badgemint {
namespace {

// Runs one of the two functions. Success gives a pattern and a failure a message; a log that takes
// nothing changes neither.
void expectPattern(const char* name, int32_t result, const std::string& reported, auto function) {
  SCOPED_TRACE(reported);
  for (const int level : {25, -1}) {
    std::string buffer(40, '!');
    EXPECT_EQ(function(static_cast<uint32_t>(level), buffer.data()), result);
    EXPECT_EQ(logOf(name, 1, result, level), result == 0 || level < 0 ? "" : reported);
    EXPECT_EQ(buffer.c_str(), result == 0 ? reported : std::string(40, '!'));
  }
}

TEST(ComputeCardBitPattern, GivesThePatternOrReportsWhyNot) {
  const TestSite site;
  site.folder.write("sets", "f 12 1 A 21\nf 13 2\nf 253 9\n");
  const std::string small = "[25 badgemintdump] cardbitpatternsize=8 too small; requires 9\n";
  const struct {
    int32_t result;
    uint32_t csid;
    const char* number;
    std::string reported;
    int32_t size = 40;
    const char *formats = "formats", *sets = "sets";
  } cases[] = {
      {0, 12, "15890", "022A7C24", 9},
      {-511, 12, "15890", small, 8},
      {0, 13, "0", std::string(32, '0'), 33},
      {-1006, 0, "1", "[25 badgemintdump] Invalid cardset ID 0\n"},
      {-1006, 254, "1", "[25 badgemintdump] Invalid cardset ID 254\n"},
      {-1006, 252, "1", "[25 card_functions] Card set 252 not defined\n"},
      {-1007, 253, "1", "[25 card_functions] Format 9 not defined \n"},
      {-1003, 12, "1a", "[25 card_functions] Invalid card number 1a, must be numeric\n"},
      {-1010, 12, "", ""},
      {-506, 12, "65536", "[25 card_functions] Card mismatch cardno=65536,chkcardno=0\n"},
      {-370, 12, "1", "[25 fmtfile] Error opening formats file none\n", 40, "none"},
      {-347, 12, "1", "[25 cardsets] Error opening card sets file none\n", 40, "formats", "none"},
  };
  for (const auto& c : cases)
    expectPattern("ComputeCardBitPattern", c.result, c.reported, [&](uint32_t level, char* buffer) {
      return ComputeCardBitPattern(c.csid, c.number, "", c.formats, c.sets, "log", level, buffer,
                                   c.size);
    });
}

TEST(ComputeCardBitPattern2, GivesThePatternOrReportsWhyNot) {
  const TestSite site;
  // A number that is cut decodes to itself, but is not the card's.
  FormatLines wide = linesOf("CDF", {std::string(48, 'B')});
  wide.push_back(std::string(16, 'B'));
  wide.resize(40);
  site.folder.write("64.cdf", fileOf("CDF", wide));
  const std::string mismatch = "[25 badgemintdump] Card mismatch cno=";
  const std::string most = "9223372036854775807";
  const struct {
    int32_t result;
    const char *number, *set, *format;
    std::string reported;
  } cases[] = {
      {0, "15890", "f 12 3 A 21", "26.cdf", "022A7C24"},
      {-514, "1", "f 12", "26.cdf", "[25 cardset] Unable to parse fmtid in card set line f 12\n"},
      {-506, "65536", "f 1 1", "26.cdf", mismatch + "65536,chkcardno=0\n"},
      {-506, "9223372036854775808", "f 1 1", "64.cdf",
       mismatch + most + ",chkcardno=" + most + "\n"},
      {-1010, "", "f 1 1", "26.cdf", ""},
      {-505, "1", "f 1 1", "26.txt", "[25 CardFormatSet] Invalid format file 26.txt\n"},
  };
  for (const auto& c : cases)
    expectPattern(
        "ComputeCardBitPattern2", c.result, c.reported, [&](uint32_t level, char* buffer) {
          return ComputeCardBitPattern2(c.number, c.set, "", c.format, "log", level, buffer, 9);
        });
}

}  // namespace
}  // namespace badgemint
