// The bits of one card, from a site's files and from one format file.
#include "tools/entrycalls.h"

namespace badgemint {
namespace {

// Runs one of the two functions with a buffer of so many characters. Success gives a
// pattern and a failure a message; a log that takes nothing changes neither.
template <typename Function>
void expectPattern(const char* name, int32_t result, const std::string& told, Function function) {
  SCOPED_TRACE(told);
  for (const uint32_t level : {uint32_t{25}, UINT32_MAX}) {
    std::string buffer(40, '!');
    EXPECT_EQ(function(level, buffer.data()), result);
    const std::string log = logOf(name, 1, result, level);
    const std::string pattern = buffer.c_str();
    const std::string unwritten(40, '!');
    EXPECT_EQ(pattern, result == 0 ? told : unwritten);
    EXPECT_EQ(log, result == 0 || level != 25 ? "" : told);
  }
}

TEST(ComputeCardBitPattern, GivesThePatternOrSaysWhyNot) {
  const TestSite site;
  site.folder.write("sets", "f 12 1 A 21\nf 13 2\nf 253 9\n");
  const struct {
    uint32_t csid;
    std::string number;
    int32_t size, result;
    std::string told;
    const char *formats = "formats", *sets = "sets";
  } cases[] = {
      {12, "15890", 9, 0, "022A7C24"},
      {12, "15890", 8, -511, "[25 badgemintdump] cardbitpatternsize=8 too small; requires 9\n"},
      {13, "4096", 40, 0, "000010"},
      {13, "0", 33, 0, std::string(32, '0')},
      {0, "1", 40, -1006, "[25 badgemintdump] Invalid cardset ID 0\n"},
      {254, "1", 40, -1006, "[25 badgemintdump] Invalid cardset ID 254\n"},
      {252, "1", 40, -1006, "[25 card_functions] Card set 252 not defined\n"},
      {253, "1", 40, -1007, "[25 card_functions] Format 9 not defined \n"},
      {12, "1a", 40, -1003, "[25 card_functions] Invalid card number 1a, must be numeric\n"},
      {12, "", 40, -1010, ""},
      {12, "65536", 40, -506, "[25 card_functions] Card mismatch cardno=65536,chkcardno=0\n"},
      {12, "1", 40, -370, "[25 fmtfile] Error opening formats file none\n", "none"},
      {12, "1", 40, -347, "[25 cardsets] Error opening card sets file none\n", "formats", "none"},
  };
  for (const auto& c : cases)
    expectPattern("ComputeCardBitPattern", c.result, c.told, [&](uint32_t level, char* buffer) {
      return ComputeCardBitPattern(c.csid, c.number.c_str(), "", c.formats, c.sets, "log", level,
                                   buffer, c.size);
    });
  EXPECT_EQ(ComputeCardBitPattern(12, "1", "", "formats", "sets", "none/log", 0, nullptr, 0), -509);
  EXPECT_EQ(takeSleeps(), std::vector{1u});
}

TEST(ComputeCardBitPattern2, GivesThePatternOrSaysWhyNot) {
  const TestSite site;
  // A number that is cut decodes to itself, but is not the card's.
  const std::string rest = std::string(16, 'B') + std::string(10, '\n');
  site.folder.write("64.cdf", cdfText(std::string(48, 'B')) + rest);
  const struct {
    const char *number, *set, *format;
    int32_t size, result;
    std::string told;
  } cases[] = {
      {"15890", "f 12 3 A 21", "26.cdf", 9, 0, "022A7C24"},
      {"15890", "f 12 3 A 21", "26.cdf", 8, -511,
       "[25 badgemintdump] cardbitpatternsize=8 too small; requires 9\n"},
      {"1", "f 12", "26.cdf", 40, -514,
       "[25 cardset] Unable to parse fmtid in card set line f 12\n"},
      {"65536", "f 1 1", "26.cdf", 40, -506,
       "[25 badgemintdump] Card mismatch cno=65536,chkcardno=0\n"},
      {"9223372036854775808", "f 1 1", "64.cdf", 40, -506,
       "[25 badgemintdump] Card mismatch cno=9223372036854775807,chkcardno=9223372036854775807\n"},
      {"1a", "f 1 1", "26.cdf", 40, -1003,
       "[25 card_functions] Invalid card number 1a, must be numeric\n"},
      {"1", "f 1 1", "26.txt", 40, -505, "[25 CardFormatSet] Invalid format file 26.txt\n"},
  };
  for (const auto& c : cases)
    expectPattern("ComputeCardBitPattern2", c.result, c.told, [&](uint32_t level, char* buffer) {
      return ComputeCardBitPattern2(c.number, c.set, "", c.format, "log", level, buffer, c.size);
    });
  EXPECT_EQ(ComputeCardBitPattern2("1", "f 1 1", "", "26.cdf", "none/log", 0, nullptr, 0), -509);
  EXPECT_EQ(takeSleeps(), std::vector{1u});
}

}  // namespace
}  // namespace badgemint
