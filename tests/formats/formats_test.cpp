// How the three kinds of format files are read.
#include <gtest/gtest.h>

#include "formats/CdfCardFormat.h"
#include "formats/formatfile.h"
#include "support/faults.h"

namespace badgemint {
namespace {

FormatLines linesOf(const std::string& kind) {
  const std::string mask = "PAAAAAAAABBBBBBBBBBBBBBBBP";
  return kind == "VFF" ? vffRecords("26 2 LSB MSD", mask, mask, mask, mask) : cdfLines(mask);
}

// Each row is a valid file with one line or record replaced.
TEST(FormatFiles, SayWhatIsWrong) {
  const std::string n99(99, 'N'),
      date = "[25 CdfCardFormat] bad date in format file f ",
      letter = "[25 CdfCardFormat] Error reading cdf file f, need A-H, got ",
      longLine = "[25 EffCardFormat] Error reading EFF file\n",
      vff = "[25 VffCardFormat] Error in VFF file f, need ";
  const struct {
    const char* kind;
    size_t line;
    std::string text;
    int32_t result;
    std::string log;
  } rows[] = {
      {"CDF", 2, "0", 0, date + "(00/31/2026)\n"},
      {"CDF", 2, "12", 0, ""},
      {"EFF", 2, "13", 0, date + "(13/31/2026)\n"},
      {"CDF", 3, "x", 0, date + "(01/00/2026)\n"},
      {"CDF", 3, "1", 0, ""},
      {"CDF", 3, "32", 0, date + "(01/32/2026)\n"},
      {"CDF", 4, "19", 0, ""},
      {"CDF", 4, "20", 0, date + "(01/31/1920)\n"},
      {"CDF", 4, "99", 0, ""},
      {"CDF", 4, "100", 0, date + "(01/31/0100)\n"},
      {"CDF", 4, "1969", 0, date + "(01/31/1969)\n"},
      {"CDF", 4, "1970", 0, ""},
      {"CDF", 4, "2037", 0, ""},
      {"CDF", 4, "2038", 0, date + "(01/31/2038)\n"},
      {"CDF", 8, "@", -303, letter + "@\n"},
      {"CDF", 8, "A", 0, ""},
      {"CDF", 8, "H", 0, ""},
      {"EFF", 8, "I", -303, letter + "I\n"},
      {"CDF", 30, n99, 0, ""},
      {"CDF", 30, n99 + "N", -338, "[25 CdfCardFormat] Error reading CDF file\n"},
      {"EFF", 30, n99 + "N", 0, ""},
      {"EFF", 30, n99 + "NN", -335, longLine},
      {"EFF", 31, n99 + "NN", -335, longLine},
      {"VFF", 6, "0 1", 0, ""},
      {"VFF", 6, "144 8 x y z", 0, ""},
      {"VFF", 6, "-1 1", -435, vff + "0-144 bits, got -1\n"},
      {"VFF", 6, "145 1", -435, vff + "0-144 bits, got 145\n"},
      {"VFF", 6, "26", -435, vff + "card number field 1-8, got 0\n"},
      {"VFF", 6, "26 9", -435, vff + "card number field 1-8, got 9\n"},
      {"VFF", 18, "^", 0, ""},
  };
  for (const auto& row : rows) {
    TestFormat test(row.kind, 25);
    FormatLines lines = linesOf(row.kind);
    lines.resize(std::max(lines.size(), row.line));
    lines[row.line - 1] = row.text;
    EXPECT_EQ(test.load(fileOf(row.kind, lines)), row.result) << row.line << row.text;
    EXPECT_EQ(test.log.take(), row.log) << row.line << row.text;
  }
}

// Wherever a file is cut; and a '^' ends an EFF or VFF file just so.
TEST(FormatFiles, EndBehindLastLinesOnly) {
  for (const std::string kind : {"CDF", "EFF", "VFF"}) {
    const bool isCdf = kind == "CDF", isVff = kind == "VFF";
    TestFormat test(kind);
    FormatLines lines = linesOf(kind), before;
    lines.resize(isVff ? 17 : 50);
    lines[3] = "9";               // A year that a cut leaves alone.
    std::vector<size_t> reached;  // The size from which on a line is there: one of CDF may be open.
    for (const std::string& line : lines) {
      if (isCdf) reached.push_back(fileOf(kind, before).size() + 1);
      before.push_back(line);
      if (!isCdf) reached.push_back(fileOf(kind, before).size());
    }
    const size_t step = isCdf ? 1 : isVff ? 59 : 3;
    const std::string module = isVff ? "VffCardFormat] " : "CdfCardFormat] ",
                      file = fileOf(kind, lines);
    for (size_t size = file.size(); size < file.size() + 1; size -= step) {
      const auto whole = std::ranges::count_if(reached, [&](size_t from) { return size >= from; });
      const bool ok = isVff ? whole == 17 : whole == 30 || whole == 40 || whole == 50;
      std::string log = "[75 " + module + (isVff ? "load VFF" : "load format") + " file f\n";
      if (ok)
        log +=
            "[75 " + module + (whole < 17 + 33 * !isVff ? "format loaded\n" : "Format loaded f\n");
      if (!ok && isCdf) log += "[25 CdfCardFormat] Error reading CDF file\n";
      const int32_t result = ok ? 0 : isCdf ? -338 : isVff ? -435 : -335;
      ASSERT_EQ(test.load(file.substr(0, size)), result) << kind << size;
      ASSERT_EQ(test.log.take(), log) << kind << size;
      if (isCdf) continue;
      std::string marked = file;
      ASSERT_EQ(test.load(marked.replace(size / 2 * 2, 2, twoBytes("^"))), result) << kind << size;
      test.log.take();
    }
  }
}

TEST(FormatFiles, TellAFailureFromTheEnd) {
  const struct {
    const char *kind, *call;
    int nth;
    bool isShort;
    int32_t result;
    const char* log;
  } rows[] = {
      {"CDF", "open", 1, false, -302, "[25 CdfCardFormat] Error opening CDF file f\n"},
      {"EFF", "open", 1, false, -302, "[25 EffCardFormat] Error opening EFF file f\n"},
      {"VFF", "open", 1, false, -434, "[25 VffCardFormat] Error opening VFF file f\n"},
      {"CDF", "read", 1, false, -338, "[25 CdfCardFormat] Error reading CDF file\n"},
      {"CDF", "read", 2, false, -338, "[25 CdfCardFormat] Error reading CDF file\n"},
      {"EFF", "read", 2, false, -335, "[25 EffCardFormat] Error reading EFF file\n"},
      {"VFF", "read", 1, false, -435, "[25 VffCardFormat] Error reading vff file\n"},
      {"CDF", "read", 1, true, 0, ""},
  };
  for (const auto& row : rows) {
    TestFormat test(row.kind, 25);
    EXPECT_EQ(test.load(fileOf(row.kind, linesOf(row.kind))), 0);
    const ArmedFault fault({row.call, row.nth, false, EIO, row.isShort});
    EXPECT_EQ(test.format->loadFormatFile("f"), row.result) << row.log;
    EXPECT_EQ(test.log.take(), row.log);
  }
}

// What printInfo logs, all at level 100 of this module. Field values are 100 and more.
std::string infoOf(TestFormat& test, const std::string& prefix) {
  for (int f = 0; f < 8; ++f) test.format->setFieldValue(f, 100 + f);
  test.log.take();
  test.format->printInfo();
  std::string text = test.log.take();
  for (size_t at = 0; (at = text.find(prefix)) != std::string::npos;) text.erase(at, prefix.size());
  return text;
}

TEST(CdfCardFormat, PrintsWhatItRead) {
  for (const auto& [letter, field, end] : {std::tuple("G", "6", "\n"), {"H", "-1", "\r\n"}}) {
    const std::string name = "A name of thirty-five characters or", digits = "12345678";
    FormatLines lines = {name + 'x', "12", " 30x", "5", "-3", "4",
                         "8",        "B",  "12",   "6", "7",  letter};
    std::string info = "Card Format Info:\n_formatID=7\n_customerName=" + name +
                       "\n_creationDate=12 30 2005\n_formatRevision=-3\n_customerNumber=4\n"
                       "_numberActiveFields=8\n_cardNumberField=1\n_numberParityBits=8\n_offset=6\n"
                       "_cardStyleFlag=7\n_errorDetectionField=" +
                       field + "\n_fieldDefs  n=8\n";
    for (int i = 0; i < 8; ++i) {
      const std::string n = std::to_string(i), minimum = std::to_string(-i);
      lines.push_back('F' + n + ',' + minimum + ",1" + n + ",LSB,BCD");
      info += "   ii=" + n + ", label=F" + n + "\n   minval=" + minimum + " maxval=1" + n +
              "\n   currentval=10" + n + "\n   dir=2 ftyp=2\n";
    }
    lines.insert(lines.end(), {"AB", "01"});
    info += "_outputBitMask=AB\n_fixedBitMask=01\n_parityMasks  n=8\n";
    for (int i = 0; i < 8; ++i) {
      lines.push_back('X' + std::to_string(i));
      info += "   ii=" + std::to_string(i) + " _parityMasks=X" + std::to_string(i) + '\n';
    }
    std::string text;
    for (const std::string& line : lines) text += line + end;
    TestFormat test("CDF");
    EXPECT_EQ(test.load(text), 0);
    EXPECT_EQ(infoOf(test, "[100 CdfCardFormat] "), info + "_numberOfBits=2\n\n");
  }
}

TEST(CdfCardFormat, TakesAFieldDefinitionApart) {
  std::pair<std::string, std::string> rows[] = {
      {"Card,0,99,MSB,BIN", "Card 0 99 1 1"},
      {",Label of more than twenty,,-5,255,LSB,BCD,x", "Label of more than t -5 255 2 2"},
      {"F, 1,2x, MSB, BIN", "F 1 2 0 0"},
      {"F,7\n", "F 7 0 0 0"},
      {" F,1,2,MSB,BIN", " 0 0 0 0"},
      {"", " 0 0 0 0"},
  };
  FieldDefinition read;
  for (auto& [line, expected] : rows) {
    CdfCardFormat().parseFieldDef(read, line.data());
    std::ostringstream text;
    text << read.label.data() << ' ' << read.minval << ' ' << read.maxval;
    text << ' ' << read.dir << ' ' << read.ftyp;
    EXPECT_EQ(text.str(), expected);
  }
}

TEST(VffCardFormat, PrintsWhatItRead) {
  const std::string name(144, 'n'), version(30, 'v'), date(30, 'd'), id(30, 't');
  FormatLines records = linesOf("VFF");
  std::ranges::copy(FormatLines{name, version + 'x', date + 'x', id + 'x', name}, records.begin());
  TestFormat test("VFF");
  EXPECT_EQ(test.load(fileOf("VFF", records)), 0);
  const std::string info = infoOf(test, "[100 VffCardFormat] ");
  EXPECT_TRUE(info.starts_with(
      "Card Format Info:\n_formatID=7\n_filename=" + name + "\n_version=" + version +
      "\n_dateCreated=" + date + "\n_templateID=" + id +
      "\n_cardNumberField=1\n_numberParityBits=2\n_fixedFieldDetails=" + name +
      "\n_fieldDefs  n=8\n   ii=0, label=\n   minval=0 maxval=0\n   currentval=100\n" +
      "   dir=0 ftyp=0\n   ii=1, label=\n   minval=0 maxval=0\n   currentval=101\n" +
      "   dir=2 ftyp=3\n"))
      << info;
  EXPECT_TRUE(info.ends_with("_numberOfBits=26\n\n_checkSum=4711\n\n")) << info;
}

}  // namespace
}  // namespace badgemint
