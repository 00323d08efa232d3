// Known cards in every kind of file, and the loaders of the three kinds.
#include "formats/CardFormat.h"

#include <gtest/gtest.h>

#include <memory>

#include "formats/CdfCardFormat.h"
#include "formats/EffCardFormat.h"
#include "formats/VffCardFormat.h"
#include "formats/formatfiles.h"
#include "support/result.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

std::string repeat(size_t count, char c) {
  return std::string(count, c);
}

std::string hex(const CardPattern& pattern) {
  std::string text;
  for (const uint8_t byte : pattern) {
    text += "0123456789ABCDEF"[byte >> 4];
    text += "0123456789ABCDEF"[byte & 15];
  }
  while (text.ends_with("00")) text.resize(text.size() - 2);
  return text;
}

TestLayout layoutOf(const std::string& output, int cardNumberField,
                    const std::vector<std::string>& parity) {
  TestLayout layout;
  layout.output = output;
  layout.fields.fill("MSB,BIN");
  layout.cardNumberField = cardNumberField;
  layout.parityBits = static_cast<int>(parity.size());
  std::ranges::copy(parity, layout.parity.begin());
  return layout;
}

const TestLayout k26 =
    layoutOf(repeat(1, 'P') + repeat(8, 'A') + repeat(16, 'B') + "P", 1,
             {repeat(1, 'E') + repeat(12, 'X'), repeat(13, '.') + repeat(12, 'X') + "O"});
const TestLayout k36 =
    layoutOf(repeat(1, 'P') + repeat(16, 'A') + repeat(16, 'B') + "CCP", 1,
             {repeat(1, 'O') + repeat(17, 'X'), repeat(18, '.') + repeat(17, 'X') + "E"});
const TestLayout k37 =
    layoutOf(repeat(1, 'P') + repeat(16, 'A') + repeat(19, 'B') + "P", 1,
             {repeat(1, 'E') + repeat(18, 'X'), repeat(18, '.') + repeat(18, 'X') + "O"});

// Fixes field A and gives the rest of the layout to the card number.
TestLayout withFixedSite(TestLayout layout, int64_t site) {
  layout.fixed = repeat(layout.output.size(), '.');
  for (size_t p = layout.output.size(); p-- > 0;) {
    char& c = layout.output[p];
    if (c == 'B') c = '*';
    if (c != 'A' && c != 'C') continue;
    layout.fixed[p] = c == 'A' && site % 2 != 0 ? '1' : '0';
    if (c == 'A') site /= 2;
    c = '.';
  }
  for (std::string& parity : layout.parity) parity.resize(144, '.');
  return layout;
}

std::string encoded(CardFormat& format, int64_t card) {
  CardPattern pattern;
  int32_t bits = 0;
  EXPECT_EQ(format.encodeCard(card, pattern, bits), kSuccess);
  EXPECT_EQ(format.decodeCardNumber(pattern), card);
  return std::to_string(bits) + " " + hex(pattern);
}

TEST(CardFormat, GivesTheKeysOfKnownCards) {
  const struct {
    const TestLayout& layout;
    int64_t site, card;
    const char* key;
  } rows[] = {
      {k26, 21, 15890, "26 022A7C24"},      {k26, 1, 1, "26 02020002"},
      {k37, 666, 31337, "37 1029A0F4D2"},   {k37, 1234, 56789, "37 104D21BBAA"},
      {k36, 45072, 23456, "36 0D8082DD01"}, {k36, 45072, 23489, "36 0D8082DE08"},
      {k36, 45072, 23527, "36 0D8082DF39"}, {k36, 45072, 24836, "36 0D80830820"},
  };
  TestFolder folder;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.key);
    CdfCardFormat cdf;
    EffCardFormat eff;
    VffCardFormat vff;
    ASSERT_EQ(cdf.loadFormatFile(folder.write("a.cdf", row.layout.cdf()).c_str()), kSuccess);
    ASSERT_EQ(eff.loadFormatFile(folder.write("a.eff", row.layout.eff()).c_str()), kSuccess);
    const std::string definition = std::to_string(row.layout.output.size()) + " 2 MSB BIN";
    ASSERT_EQ(
        vff.loadFormatFile(
            folder.write("a.vff", withFixedSite(row.layout, row.site).vff(definition)).c_str()),
        kSuccess);
    for (CardFormat* const format : {static_cast<CardFormat*>(&cdf), static_cast<CardFormat*>(&eff),
                                     static_cast<CardFormat*>(&vff)}) {
      format->setFieldValue(0, row.site);
      format->setFieldValue(8, 1);
      format->setFieldValue(-1, 1);
      EXPECT_EQ(encoded(*format, row.card), row.key);
    }
    int64_t site = -1;
    CardPattern pattern;
    int32_t bits = 0;
    cdf.encodeCard(row.card, pattern, bits);
    cdf.decodeField(pattern, 0, site);
    EXPECT_EQ(site, row.site);
    for (const int32_t outside : {-1, 8}) {
      vff.decodeField(pattern, outside, site);
      EXPECT_EQ(site, 0);
      EXPECT_EQ(cdf.fieldBitCount(outside), 0);
    }
  }
}

// Loads a file and gives the result, then the log.
template <typename Format>
std::string loading(const std::string& content, Format&& format = Format()) {
  TestFolder folder;
  TestLog log;
  const std::string path = content == "none" ? folder.path("f") : folder.write("f", content);
  const int32_t rc = format.loadFormatFile(path.c_str());
  std::string text = std::to_string(rc) + "\n" + log.take();
  for (size_t at; (at = text.find(path)) != std::string::npos;)
    text.replace(at, path.size(), 1, 'F');
  CardPattern pattern;
  int32_t bits = 0;
  format.encodeCard(-1, pattern, bits);  // Harmless, whatever was loaded.
  return text;
}

std::string linesOf(const std::string& text, int count) {
  size_t end = 0;
  while (count-- > 0) end = text.find('\n', end) + 1;
  return text.substr(0, end);
}

std::string withLine(std::string text, int number, const std::string& line) {
  const size_t from = linesOf(text, number - 1).size();
  return text.replace(from, text.find('\n', from) - from, line);
}

TEST(CdfCardFormat, EndsAfterThirtyFortyOrFiftyLines) {
  const std::string cdf = k26.cdf(144) + "more\n";
  for (int lines = 0; lines <= 51; ++lines) {
    SCOPED_TRACE(lines);
    const bool whole = lines == 30 || lines == 40 || lines >= 50;
    const std::string end = lines >= 50 ? "Format loaded F\n" : "format loaded\n";
    const std::string load = "[CdfCardFormat] load format file F\n[CdfCardFormat] ";
    EXPECT_EQ(loading<CdfCardFormat>(linesOf(cdf, lines)),
              whole ? "0\n" + load + end : "-338\n" + load + "Error reading CDF file\n");
    EXPECT_EQ(loading<EffCardFormat>(effFile(linesOf(cdf, lines))),
              whole ? "0\n" + load + end : "-335\n[CdfCardFormat] load format file F\n");
  }
}

TEST(CdfCardFormat, ReportsWhatItRefuses) {
  const std::string cdf = k26.cdf();
  const std::string load = "[CdfCardFormat] load format file F\n";
  const std::string loaded = "[CdfCardFormat] format loaded\n";
  const std::string badDate = "[CdfCardFormat] bad date in format file F (";
  const std::string badField = "[CdfCardFormat] Error reading cdf file F, need A-H, got ";
  const struct {
    std::string content, log;
  } rows[] = {
      {withLine(cdf, 4, "1969"), "0\n" + load + badDate + "11/21/1969)\n" + loaded},
      {withLine(cdf, 4, "2038"), "0\n" + load + badDate + "11/21/2038)\n" + loaded},
      {withLine(cdf, 4, "69"), "0\n" + load + badDate + "11/21/1969)\n" + loaded},
      {withLine(cdf, 4, "19"), "0\n" + load + loaded},
      {withLine(cdf, 4, "99"), "0\n" + load + loaded},
      {withLine(cdf, 2, "13"), "0\n" + load + badDate + "13/21/2026)\n" + loaded},
      {withLine(cdf, 3, "x"), "0\n" + load + badDate + "11/00/2026)\n" + loaded},
      {withLine(cdf, 8, "I"), "-303\n" + load + badField + "I\n"},
      {withLine(cdf, 8, " A"), "-303\n" + load + badField + " \n"},
      {withLine(cdf, 8, ""), "-303\n" + load + badField},
      {withLine(cdf, 9, "4000000000"), "0\n" + load + loaded},
      {withLine(cdf, 9, "9"), "0\n" + load + loaded},
      {cdf + "half", "-338\n" + load + "[CdfCardFormat] Error reading CDF file\n"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(loading<CdfCardFormat>(row.content), row.log);
    if (row.log.starts_with("-338")) continue;
    EXPECT_EQ(loading<EffCardFormat>(effFile(row.content)), row.log);
  }
  EXPECT_EQ(loading<CdfCardFormat>("none"),
            "-302\n" + load + "[CdfCardFormat] Error opening CDF file F\n");
  EXPECT_EQ(loading<EffCardFormat>("none"),
            "-302\n" + load + "[EffCardFormat] Error opening EFF file F\n");
}

TEST(EffCardFormat, ReadsToTheMarkers) {
  const std::string cdf = k26.cdf();
  const std::string load = "[CdfCardFormat] load format file F\n";
  const std::string loaded = "0\n" + load + "[CdfCardFormat] format loaded\n";
  const std::string tooLong = "-335\n" + load + "[EffCardFormat] Error reading EFF file\n";
  const struct {
    std::string content, log;
  } rows[] = {
      {effFile(withLine(cdf, 1, repeat(100, 'N'))), loaded},
      {effFile(withLine(cdf, 1, repeat(101, 'N'))), tooLong},
      {effFile(cdf + repeat(101, 'N')), tooLong},
      {effFile(cdf + "^"), loaded},
      {effFile(cdf + "half"), loaded},
      {effFile(cdf) + "x", loaded},
      {effFile(withLine(cdf, 30, "^")), "-335\n" + load},
      {effFile(cdf).substr(0, effFile(cdf).size() - 1), "-335\n" + load},
  };
  for (const auto& row : rows) EXPECT_EQ(loading<EffCardFormat>(row.content), row.log);
}

// A folder can be opened, but not read.
TEST(CardFormat, TellsAReadErrorFromTheEnd) {
  TestFolder folder;
  TestLog log(25);
  EXPECT_EQ(CdfCardFormat().loadFormatFile(folder.path("").c_str()), kCdfReadFailed);
  EXPECT_EQ(EffCardFormat().loadFormatFile(folder.path("").c_str()), kEffReadFailed);
  EXPECT_EQ(VffCardFormat().loadFormatFile(folder.path("").c_str()), kVffReadFailed);
  EXPECT_EQ(log.take(),
            "[CdfCardFormat] Error reading CDF file\n[EffCardFormat] Error reading EFF file\n"
            "[VffCardFormat] Error reading vff file\n");
}

std::string printed(const CardFormat& format) {
  TestLog log;
  format.printInfo();
  std::string text = log.take();
  const std::string prefix = text.substr(0, text.find(' ') + 1);
  for (size_t at; (at = text.find(prefix)) != std::string::npos;) text.erase(at, prefix.size());
  return prefix + text;
}

TEST(CdfCardFormat, PrintsWhatItRead) {
  std::string cdf = k26.cdf(96);
  const std::pair<int, const char*> lines[] = {
      {1, "A name of more than thirty-five characters"},
      {4, "5"},
      {7, " 8x"},
      {9, "12"},
      {12, "G"},
      {13, "Facility, longer than 20,,-5,255,LSB,BCD,x"},
      {14, "Card, 0, 99, MSB, BIN"},
      {15, " C,1,2,MSB,BIN"},
      {16, "D,1"},
      {23, "EX#.                                            !"},
      {31, "A"},
      {40, "X"}};
  for (const auto& [number, line] : lines) cdf = withLine(cdf, number, line);
  std::string crlf;
  for (const char c : cdf) crlf += c == '\n' ? "\r\n" : std::string(1, c);
  const auto field = [](int i, const std::string& label, const std::string& bounds,
                        const std::string& kind, int64_t value = 0) {
    return "   ii=" + std::to_string(i) + ", label=" + label + "\n   " + bounds +
           "\n   currentval=" + std::to_string(value) + "\n   " + kind + "\n";
  };
  const std::string none = "minval=0 maxval=0", plain = "dir=1 ftyp=1", zero = "dir=0 ftyp=0";
  std::string expected =
      "[CdfCardFormat] Card Format Info:\n_formatID=4000000000\n"
      "_customerName=A name of more than thirty-five cha\n_creationDate=11 21 2005\n"
      "_formatRevision=1\n_customerNumber=2\n_numberActiveFields=8\n_cardNumberField=1\n"
      "_numberParityBits=8\n_offset=0\n_cardStyleFlag=0\n_errorDetectionField=6\n_fieldDefs  n=8\n";
  expected += field(0, "Facility", "minval=0 maxval=-5", zero);
  expected += field(1, "Card", "minval=0 maxval=99", zero, -7) + field(2, "", none, zero) +
              field(3, "D", "minval=1 maxval=0", zero);
  for (int i = 4; i < 8; ++i) expected += field(i, "F", none, plain);
  expected += "_outputBitMask=" + k26.output + "\n_fixedBitMask=\n_parityMasks  n=8\n" +
              "   ii=0 _parityMasks=EX#." + repeat(44, ' ') +
              "\n   ii=1 _parityMasks=" + k26.parity[1] + "\n";
  for (int i = 2; i < 8; ++i) expected += "   ii=" + std::to_string(i) + " _parityMasks=\n";
  expected += "_numberOfBits=27\n\n";

  TestFolder folder;
  for (const std::string& content : {cdf, crlf, cdf.substr(0, cdf.size() - 1)}) {
    CdfCardFormat format;
    format.setFormatID(4000000000);
    ASSERT_EQ(format.loadFormatFile(folder.write("f", content).c_str()), kSuccess);
    format.setFieldValue(1, -7);
    EXPECT_EQ(printed(format), expected);
  }
}

TEST(VffCardFormat, ReportsWhatItRefuses) {
  const std::string load = "[VffCardFormat] load VFF file F\n";
  const std::string loaded = "0\n" + load + "[VffCardFormat] Format loaded F\n";
  const std::string refused = "-435\n" + load + "[VffCardFormat] Error in VFF file F, need ";
  const std::pair<const char*, std::string> definitions[] = {
      {"0 1 MSB BIN", loaded},
      {"144 8", loaded},
      {"145 1 MSB BIN", refused + "0-144 bits, got 145\n"},
      {"-1 1 MSB BIN", refused + "0-144 bits, got -1\n"},
      {"26 0 MSB BIN", refused + "card number field 1-8, got 0\n"},
      {"26 9 MSB BIN", refused + "card number field 1-8, got 9\n"},
      {"26 -2147483648", refused + "card number field 1-8, got -2147483648\n"},
      {"", refused + "card number field 1-8, got 0\n"}};
  for (const auto& [definition, log] : definitions)
    EXPECT_EQ(loading<VffCardFormat>(k26.vff(definition)), log) << definition;

  std::string marked = k26.vffText("26 1 MSB BIN");
  EXPECT_EQ(loading<VffCardFormat>(twoBytes(marked) + "more"), loaded);
  for (size_t length = 0; length<4896; length += length % 288> 2 && length % 288 < 284 ? 71 : 1)
    EXPECT_EQ(loading<VffCardFormat>(twoBytes(marked).substr(0, length)), "-435\n" + load);
  marked.back() = '^';
  EXPECT_EQ(loading<VffCardFormat>(twoBytes(marked)), "-435\n" + load);
  EXPECT_EQ(loading<VffCardFormat>("none"),
            "-434\n" + load + "[VffCardFormat] Error opening VFF file F\n");
}

TEST(VffCardFormat, PrintsWhatItRead) {
  TestLayout layout = withFixedSite(k26, 1);
  layout.parity[7] = repeat(143, '.');
  TestFolder folder;
  VffCardFormat format;
  ASSERT_EQ(format.loadFormatFile(folder.write("f", layout.vff("30 2 LSB MSD")).c_str()), kSuccess);
  const std::string text = printed(format);
  EXPECT_TRUE(text.starts_with(
      "[VffCardFormat] Card Format Info:\n_formatID=0\n_filename=card.vff\n_version=1.0\n"
      "_dateCreated=today\n_templateID=T1\n_cardNumberField=1\n_numberParityBits=3\n"
      "_fixedFieldDetails=none\n_fieldDefs  n=8\n   ii=0, label=\n   minval=0 maxval=0\n"
      "   currentval=0\n   dir=0 ftyp=0\n   ii=1, label=\n   minval=0 maxval=0\n"
      "   currentval=0\n   dir=2 ftyp=3\n   ii=2, label=\n"))
      << text;
  EXPECT_TRUE(text.ends_with("   ii=7 _parityMasks=" + repeat(143, '.') +
                             "\n_numberOfBits=30\n\n_checkSum=4711\n\n"))
      << text;
}

// Every prefix of a valid file loads, or is refused with the reader's code.
TEST(CardFormat, SurvivesTruncationAnywhere) {
  TestFolder folder;
  const std::string cdf = k37.cdf(144), eff = k37.eff(144);
  for (size_t length = 0; length <= cdf.size(); ++length) {
    CdfCardFormat fromText;
    EffCardFormat fromPairs;
    const int32_t text = fromText.loadFormatFile(folder.write("f", cdf.substr(0, length)).c_str());
    const int32_t pairs =
        fromPairs.loadFormatFile(folder.write("f", eff.substr(0, 2 * length)).c_str());
    EXPECT_TRUE(text == kSuccess || text == kCdfReadFailed) << length;
    EXPECT_TRUE(pairs == kSuccess || pairs == kEffReadFailed) << length;
    for (CardFormat* const format :
         {static_cast<CardFormat*>(&fromText), static_cast<CardFormat*>(&fromPairs)}) {
      CardPattern pattern;
      int32_t bits = -1;
      format->encodeCard(-1, pattern, bits);
      EXPECT_TRUE(bits == 37 || (bits == 0 && hex(pattern).empty())) << length;
    }
  }
}

}  // namespace
}  // namespace badgemint
