// Known cards in every kind of file, and what the loaders of the three kinds read and refuse.
#include "formats/CardFormat.h"

#include <gtest/gtest.h>

#include <regex>

#include <algorithm>

#include "formats/CdfCardFormat.h"
#include "formats/EffCardFormat.h"
#include "formats/VffCardFormat.h"
#include "formats/formatfiles.h"
#include "support/result.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

std::string hex(const CardPattern& pattern) {
  std::string text;
  for (const uint8_t byte : pattern)
    for (const int digit : {byte >> 4, byte & 15})
      text += "0123456789ABCDEF"[static_cast<size_t>(digit)];
  while (text.ends_with("00")) text.resize(text.size() - 2);
  return text;
}

// "P1A8" is a P and an A with 8 behind: a letter and a repeat count each.
std::string runs(const std::string& text) {
  std::string mask;
  for (size_t i = 0, used = 0; i < text.size(); i += 1 + used)
    mask.append(static_cast<size_t>(std::stoi(text.substr(i + 1), &used)), text[i]);
  return mask;
}

TestLayout layoutOf(const char* output, const char* left, const char* right) {
  TestLayout layout;
  layout.masks = {runs(output), "", runs(left), runs(right)};
  layout.fields.fill("MSB,BIN");
  layout.cardNumberField = 1;
  layout.parityBits = 2;
  return layout;
}

const TestLayout k26 = layoutOf("P1A8B16P1", "E1X12", ".13X12O1");
const TestLayout k36 = layoutOf("P1A16B16C2P1", "O1X17", ".18X17E1");
const TestLayout k37 = layoutOf("P1A16B19P1", "E1X18", ".18X18O1");

// Fixes field A and gives the rest of the layout to the card number.
std::string vffFile(TestLayout layout, int64_t site) {
  std::string &output = layout.masks[0], &fixed = layout.masks[1];
  fixed.resize(output.size(), '.');
  for (size_t p = output.size(); p-- > 0;) {
    if (output[p] == 'A') fixed[p] = (site & 1) != 0 ? '1' : '0', site >>= 1;
    if (output[p] == 'C') fixed[p] = '0';
    if (output[p] != 'P') output[p] = output[p] == 'B' ? '*' : '.';
  }
  for (size_t i = 2; i < layout.masks.size(); ++i) layout.masks[i].resize(144, '.');
  return twoBytes(layout.vffText(std::to_string(output.size()) + " 2 MSB BIN"));
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
  for (const auto& [layout, site, card, key] : rows) {
    CdfCardFormat cdf;
    EffCardFormat eff;
    VffCardFormat vff;
    ASSERT_EQ(cdf.loadFormatFile(folder.write("cdf", layout.cdf()).c_str()), kSuccess);
    ASSERT_EQ(eff.loadFormatFile(folder.write("eff", effFile(layout.cdf())).c_str()), kSuccess);
    ASSERT_EQ(vff.loadFormatFile(folder.write("vff", vffFile(layout, site)).c_str()), kSuccess);
    for (CardFormat* const format : std::initializer_list<CardFormat*>{&cdf, &eff, &vff}) {
      CardPattern pattern;
      int32_t bits = 0;
      int64_t outside = -1;
      for (const int32_t field : {-1, 0, 8}) format->setFieldValue(field, site);
      format->encodeCard(card, pattern, bits);
      EXPECT_EQ(std::to_string(bits) + " " + hex(pattern), key);
      EXPECT_EQ(format->decodeCardNumber(pattern), card);
      format->decodeField(pattern, 8, outside);
      EXPECT_EQ(outside, 0);
    }
    EXPECT_EQ(cdf.fieldBitCount(8), 0);
  }
}

// Loads a file, or a missing one, and gives the result and the log with F for its path.
template <typename Format>
std::string loading(const std::string& content, bool missing = false) {
  TestFolder folder;
  TestLog log;
  Format format;
  const std::string path = missing ? folder.path("f") : folder.write("f", content);
  const int32_t rc = format.loadFormatFile(path.c_str());
  std::string text = std::to_string(rc) + "\n" + log.take();
  for (size_t at; (at = text.find(path)) != std::string::npos;)
    text.replace(at, path.size(), 1, 'F');
  CardPattern pattern;
  int32_t bits = 0;
  format.encodeCard(-1, pattern, bits);  // Harmless, whatever was loaded.
  return text;
}

std::string withLine(std::string text, int number, const std::string& line) {
  size_t from = 0;
  while (--number > 0) from = text.find('\n', from) + 1;
  return text.replace(from, text.find('\n', from) - from, line);
}

const std::string kLoad = "[CdfCardFormat] load format file F\n";
const std::string kLoaded = "[CdfCardFormat] format loaded\n";

TEST(CdfCardFormat, EndsAfterThirtyFortyOrFiftyLines) {
  const std::string cdf = withLine(k26.cdf(144), 4, "87");  // Half of this year is one too.
  for (size_t length = 0; length <= cdf.size(); ++length) {
    const std::string part = cdf.substr(0, length);
    const auto ends = std::ranges::count(part, '\n');
    const auto lines = ends + (length > 0 && part.back() != '\n');
    std::string end = lines == 50 ? "[CdfCardFormat] Format loaded F\n" : kLoaded;
    ASSERT_EQ(loading<CdfCardFormat>(part),
              lines == 30 || lines == 40 || lines == 50
                  ? "0\n" + kLoad + end
                  : "-338\n" + kLoad + "[CdfCardFormat] Error reading CDF file\n");
    if (ends < 50) end = kLoaded;
    const bool whole = (lines == 31 && ends == 30) || (lines == 41 && ends == 40) ||
                       (lines == ends && (ends == 30 || ends == 40 || ends == 50));
    ASSERT_EQ(loading<EffCardFormat>(effFile(part)),
              whole ? "0\n" + kLoad + end : "-335\n" + kLoad);
  }
  EXPECT_EQ(loading<CdfCardFormat>(cdf + "more"),
            "0\n" + kLoad + "[CdfCardFormat] Format loaded F\n");
}

TEST(CdfCardFormat, ReportsWhatItRefuses) {
  const std::string date = "0\n" + kLoad + "[CdfCardFormat] bad date in format file F (";
  const std::string field =
      "-303\n" + kLoad + "[CdfCardFormat] Error reading cdf file F, need A-H, got ";
  const struct {
    int number;
    const char* line;
    std::string log;
  } rows[] = {{4, "1969", date + "11/21/1969)\n" + kLoaded},
              {4, "2038", date + "11/21/2038)\n" + kLoaded},
              {4, "20", date + "11/21/1920)\n" + kLoaded},
              {4, "19", "0\n" + kLoad + kLoaded},
              {4, "99", "0\n" + kLoad + kLoaded},
              {2, "13", date + "13/21/2026)\n" + kLoaded},
              {3, "x", date + "11/00/2026)\n" + kLoaded},
              {8, "I", field + "I\n"},
              {8, " A", field + " \n"},
              {8, "", field},
              {9, "9", "0\n" + kLoad + kLoaded},
              {8, "H", "0\n" + kLoad + kLoaded}};
  for (const auto& row : rows) {
    const std::string content = withLine(k26.cdf(), row.number, row.line);
    EXPECT_EQ(loading<CdfCardFormat>(content), row.log);
    EXPECT_EQ(loading<EffCardFormat>(effFile(content)), row.log);
  }
  EXPECT_EQ(loading<CdfCardFormat>("", true),
            "-302\n" + kLoad + "[CdfCardFormat] Error opening CDF file F\n");
  EXPECT_EQ(loading<EffCardFormat>("", true),
            "-302\n" + kLoad + "[EffCardFormat] Error opening EFF file F\n");
}

TEST(EffCardFormat, ReadsToTheMarkers) {
  const std::string cdf = k26.cdf(), eff = effFile(cdf), n100(100, 'N');
  const std::string tooLong = "-335\n" + kLoad + "[EffCardFormat] Error reading EFF file\n";
  const std::pair<std::string, std::string> rows[] = {
      {effFile(withLine(cdf, 1, n100)), "0\n" + kLoad + kLoaded},
      {effFile(withLine(cdf, 1, n100 + "N")), tooLong},
      {effFile(cdf + n100 + "N"), tooLong},
      {effFile(cdf + "^"), "0\n" + kLoad + kLoaded},
      {effFile(withLine(cdf, 30, "^")), "-335\n" + kLoad},
      {eff + "x", "0\n" + kLoad + kLoaded},
      {eff.substr(0, eff.size() - 1), "-335\n" + kLoad},
  };
  for (const auto& [content, log] : rows) EXPECT_EQ(loading<EffCardFormat>(content), log);
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

TEST(VffCardFormat, ReportsWhatItRefuses) {
  const std::string load = "[VffCardFormat] load VFF file F\n";
  const std::string loaded = "0\n" + load + "[VffCardFormat] Format loaded F\n";
  const std::string refused = "-435\n" + load + "[VffCardFormat] Error in VFF file F, need ";
  const std::pair<const char*, std::string> rows[] = {
      {"0 1 MSB BIN", loaded},
      {"144 8", loaded},
      {"145 1 MSB BIN", refused + "0-144 bits, got 145\n"},
      {"-1 1 MSB BIN", refused + "0-144 bits, got -1\n"},
      {"26 9 MSB BIN", refused + "card number field 1-8, got 9\n"},
      {"26 -2147483648", refused + "card number field 1-8, got -2147483648\n"},
      {"", refused + "card number field 1-8, got 0\n"}};
  for (const auto& [definition, log] : rows)
    EXPECT_EQ(loading<VffCardFormat>(twoBytes(k26.vffText(definition))), log) << definition;

  const std::string vff = vffFile(k26, 1);
  EXPECT_EQ(loading<VffCardFormat>(vff + "more"), loaded);
  for (size_t length = 0; length < vff.size(); length += length % 288 < 2 ? 1 : 22)
    ASSERT_EQ(loading<VffCardFormat>(vff.substr(0, length)), "-435\n" + load) << length;
  EXPECT_EQ(loading<VffCardFormat>(vff.substr(0, 4894) + twoBytes("^")), "-435\n" + load);
  EXPECT_EQ(loading<VffCardFormat>("", true),
            "-434\n" + load + "[VffCardFormat] Error opening VFF file F\n");
}

std::string printed(CardFormat& format, const std::string& content) {
  TestFolder folder;
  EXPECT_EQ(format.loadFormatFile(folder.write("f", content).c_str()), kSuccess);
  TestLog log;
  format.printInfo();
  const std::string text = log.take();
  return std::regex_replace(text.substr(1), std::regex(R"(\n\[\w+\] )"), "\n");
}

constexpr char kNone[] = "   minval=0 maxval=0\n   currentval=0\n   dir=0 ftyp=0\n";

TEST(CdfCardFormat, PrintsWhatItRead) {
  std::string cdf = k26.cdf(96), crlf;
  const std::pair<int, const char*> lines[] = {
      {1, "A name of more than thirty-five characters"},
      {4, "5"},
      {7, " 8x"},
      {9, "12"},
      {12, "G"},
      {13, ",Label of more than twenty,,-5,255,LSB,BCD,x"},
      {14, "Card, 0, 99, MSB, BIN"},
      {15, " C,1,2,MSB,BIN"},
      {16, "D,1"},
      {23, "EX                                              .!"},
      {31, "A"}};
  for (const auto& [number, line] : lines) cdf = withLine(cdf, number, line);
  for (const char c : cdf) crlf += c == '\n' ? "\r\n" : std::string(1, c);
  std::string expected =
      "CdfCardFormat] Card Format Info:\n_formatID=4000000000\n"
      "_customerName=A name of more than thirty-five cha\n_creationDate=11 21 2005\n"
      "_formatRevision=1\n_customerNumber=2\n_numberActiveFields=8\n_cardNumberField=1\n"
      "_numberParityBits=8\n_offset=0\n_cardStyleFlag=0\n_errorDetectionField=6\n_fieldDefs  n=8\n"
      "   ii=0, label=Label of more than t\n   minval=-5 maxval=255\n   currentval=0\n"
      "   dir=2 ftyp=2\n   ii=1, label=Card\n   minval=0 maxval=99\n   currentval=0\n"
      "   dir=0 ftyp=0\n   ii=2, label=\n" +
      std::string(kNone) +
      "   ii=3, label=D\n   minval=1 maxval=0\n   currentval=0\n   dir=0 ftyp=0\n";
  for (const char i : {'4', '5', '6', '7'})
    expected += std::string("   ii=") + i +
                ", label=F\n   minval=0 maxval=0\n   currentval=0\n"
                "   dir=1 ftyp=1\n";
  expected += "_outputBitMask=" + k26.masks[0] +
              "\n_fixedBitMask=\n_parityMasks  n=8\n"
              "   ii=0 _parityMasks=EX" +
              std::string(46, ' ') + "\n   ii=1 _parityMasks=" + k26.masks[3] + "\n";
  for (const char i : {'2', '3', '4', '5', '6', '7'})
    expected += std::string("   ii=") + i + " _parityMasks=\n";
  expected += "_numberOfBits=27\n\n";
  for (const std::string& content : {cdf, crlf}) {
    CdfCardFormat format;
    format.setFormatID(4000000000);
    EXPECT_EQ(printed(format, content), expected);
  }
}

TEST(VffCardFormat, PrintsWhatItRead) {
  TestLayout layout = k26;
  for (size_t i = 2; i < 9; ++i) layout.masks[i].resize(144, '.');
  VffCardFormat format;
  const std::string text = printed(format, twoBytes(layout.vffText("30 2 LSB MSD")));
  const std::string start =
      "VffCardFormat] Card Format Info:\n_formatID=0\n_filename=card.vff\n_version=1.0\n"
      "_dateCreated=today\n_templateID=T1\n_cardNumberField=1\n_numberParityBits=3\n"
      "_fixedFieldDetails=none\n_fieldDefs  n=8\n   ii=0, label=\n" +
      std::string(kNone) +
      "   ii=1, label=\n   minval=0 maxval=0\n   currentval=0\n   dir=2 ftyp=3\n   ii=2, label=\n";
  EXPECT_EQ(text.substr(0, start.size()), start);
  EXPECT_TRUE(text.ends_with("   ii=7 _parityMasks=\n_numberOfBits=30\n\n_checkSum=4711\n\n"));
}

}  // namespace
}  // namespace badgemint
