// The three kinds of format files, the formats file, the set of formats and the step that loads
// all of them, by their transcripts.
#include <gtest/gtest.h>

#include <memory>

#include "formats/CdfCardFormat.h"
#include "formats/EffCardFormat.h"
#include "formats/VffCardFormat.h"
#include "formats/fmtfile.h"
#include "formats/loadformats.h"
#include "support/masterconfiguration.h"
#include "support/result.h"
#include "support/script.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

// Two bytes a character; the bits that carry nothing differ from character to character.
std::string twoBytes(const std::string& text) {
  std::string bytes;
  for (const char c : text) {
    bytes += static_cast<char>((c & 0xF) << 2 | (c & 3) | (c * 5 & 0xC0));
    bytes += static_cast<char>((c >> 4 & 0xF) << 2 | (c * 3 & 0xC3));
  }
  return bytes;
}

// An EFF file of the lines of a CDF text.
std::string effFile(std::string text) {
  for (char& c : text)
    if (c == '\n') c = '~';
  return twoBytes(text);
}

// A VFF file of lines, a record of 144 characters each.
std::string vffFile(const std::string& lines) {
  std::string text;
  for (const char c : lines)
    c == '\n' ? text.resize((text.size() + 143) / 144 * 144, ' ') : void(text += c);
  return twoBytes(text);
}

std::unique_ptr<CardFormat> formatOf(const std::string& kind) {
  if (kind == "cdf") return std::make_unique<CdfCardFormat>();
  if (kind == "eff") return std::make_unique<EffCardFormat>();
  return std::make_unique<VffCardFormat>();
}

// The first `count` lines of a text; of the last one without its end if `open`.
std::string firstLines(const std::string& text, int64_t count, bool open) {
  size_t end = 0;
  while (count-- > 0) end = text.find('\n', end) + 1;
  return text.substr(0, end - (open ? 1 : 0));
}

void writeBoth(const std::string& lines) {
  std::ofstream("cdf") << lines;
  std::ofstream("eff") << effFile(lines);
}

void encode(Step& c, CardFormat& format) {
  CardPattern pattern;
  int32_t bits = 0;
  int64_t outside = -1;
  for (const int32_t field : {-1, 0, 8}) format.setFieldValue(field, c.number(0));
  format.encodeCard(c.number(1), pattern, bits);
  format.decodeField(pattern, 8, outside);
  c.out << bits << ' ' << hexLines(pattern) << ' ' << format.decodeCardNumber(pattern);
  if (outside != 0) c.out << " reads outside";
}

TEST(CardFormat, FollowsTheTranscripts) {
  std::unique_ptr<CardFormat> format;
  Commands on;
  on["eff"] = [](Step& c) { std::ofstream(c.word(0)) << effFile(c.input); };
  on["vff"] = [](Step& c) { std::ofstream(c.word(0)) << vffFile(c.input); };
  // A kind and its file; the format is used even if it is not loaded.
  on["load"] = [&](Step& c) {
    format = formatOf(c.word(0));
    c.out << format->loadFormatFile(c.name(1));
    CardPattern pattern;
    int32_t bits = 0;
    format->encodeCard(-1, pattern, bits);
  };
  // The file 26.cdf with line N replaced by the input, as both kinds.
  on["edit"] = [](Step& c) {
    const std::string text = contentOf("26.cdf");
    const size_t from = firstLines(text, c.number(0) - 1, false).size();
    writeBoth(text.substr(0, from) + c.input + text.substr(text.find('\n', from) + 1));
  };
  // Of a CDF file, as both kinds; "open" leaves out the end of the last.
  on["first-lines"] = [](Step& c) {
    writeBoth(firstLines(contentOf(c.word(0)), c.number(1), c.word(2) == "open"));
    c.out << CdfCardFormat().loadFormatFile("cdf") << ' ';
    c.out << EffCardFormat().loadFormatFile("eff");
  };
  on["encode"] = [&](Step& c) { encode(c, *format); };
  on["id"] = [&](Step& c) { format->setFormatID(c.as<uint32_t>(0)); };
  on["info"] = [&](Step&) { format->printInfo(); };

  for (const char* const part : {"known-cards", "cdf-eff", "vff"})
    play(std::string("formats/") + part + ".txt", on);
}

const char* kindOf(CardFormat& format) {
  if (dynamic_cast<EffCardFormat*>(&format) != nullptr) return "EFF";
  return dynamic_cast<CdfCardFormat*>(&format) != nullptr ? "CDF" : "VFF";
}

// Prints the entries of a formats file up to its end.
void printEntries(Step& c, fmtfile& file) {
  uint32_t id = 0;
  FormatFileName name;
  int32_t rc = kSuccess;
  while ((rc = file.readEntryBaseName(id, name)) == kSuccess)
    c.out << id << ':' << name.data() << '\n';
  c.out << rc;
}

TEST(LoadFormats, FollowsTheTranscript) {
  fmtfile file;
  CardFormatSet formats;
  ASSERT_EQ(formats.create(1), kSuccess);
  Commands on;
  on["entries"] = [&](Step& c) {
    std::ofstream("list") << c.input;
    EXPECT_EQ(file.open("list"), kSuccess);
    printEntries(c, file);
  };
  on["close"] = [&](Step&) { file.close(); };
  on["open"] = [&](Step& c) { c.out << file.open(c.name(0)); };
  on["read"] = [&](Step& c) {
    uint32_t id = 0;
    FormatFileName name{};
    c.out << file.readEntry(id, name) << ' ' << name.data();
  };
  on["configure"] = [&](Step& c) {
    MasterConfiguration configuration(1, c.name(0));
    c.out << file.openFromConfiguration(configuration);
  };
  on["add"] = [&](Step& c) {
    CardFormat* const format = formats.addFormat(7, c.text.c_str());
    c.out << (format == nullptr ? "none" : kindOf(*format));
  };
  on["load"] = [&](Step& c) {
    c.out << loadFormats("inputcards", c.word(0).c_str(), c.name(1), formats) << ", "
          << formats.count() << " formats";
  };
  on["find"] = [&](Step& c) {
    CardFormat* const format = formats.findFormat(c.as<uint32_t>(0));
    c.out << (format != nullptr ? "found" : "not found");
    if (format != nullptr && c.words.size() > 1) format->setFormatID(c.as<uint32_t>(1));
  };
  play("formats/formats-file.txt", on);
}

TEST(Fieldstate, FollowsTheTranscript) {
  Commands on;
  on["bits"] = [](Step& c) {
    const fieldstate state{typeFromText(c.name(1)), directionFromText(c.name(0)), c.as<int32_t>(2)};
    c.out << "0x" << std::hex << std::uppercase << state.toBits(c.number(3));
  };
  on["value"] = [](Step& c) {
    const fieldstate state{typeFromText(c.name(1)), directionFromText(c.name(0)), c.as<int32_t>(2)};
    c.out << state.toValue(std::stoull(c.word(3), nullptr, 0));
  };
  play("formats/fieldstate.txt", on);
}

}  // namespace
}  // namespace badgemint
