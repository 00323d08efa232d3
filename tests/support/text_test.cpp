// Texts, words, numbers, dates, packed digits, bits, lines and the master configuration.
#include <gtest/gtest.h>

#include <cerrno>

#include "support/bits.h"
#include "support/datetime.h"
#include "support/fieldscanner.h"
#include "support/linelist.h"
#include "support/linereader.h"
#include "support/masterconfiguration.h"
#include "support/packeddecimal.h"
#include "support/script.h"
#include "support/testfiles.h"
#include "support/textutil.h"
#include "support/tokenizer.h"

namespace badgemint {
namespace {

TEST(Text, FollowsTheTranscript) {
  const auto words = [](Step& c, const char* delimiters) {
    Tokenizer tokens;
    tokens.split(c.text.data(), delimiters);
    while (const char* const word = tokens.next()) c.out << word << '|';
    c.out << tokens.count() << (tokens.next() == nullptr ? "" : " and more");
  };
  Commands on;
  on["words"] = [&](Step& c) { words(c, kWordDelimiters); };
  on["blank-words"] = [&](Step& c) { words(c, " "); };
  on["take-apart"] = [](Step& c) {
    Tokenizer tokens;
    tokens.split(c.text.data(), " ");
    c.out << tokens.stripEqualsFirst() << ' ' << tokens.unquoteSecond();
    tokens.next();
    tokens.next();
    c.out << ' ' << tokens.nextInt();
    c.out << ' ' << tokens.nextInt();
  };
  on["join"] = [](Step& c) { c.out << joinedPath(c.name(0), c.name(1)).get(); };
  // A buffer of N characters.
  on["join-into"] = [](Step& c) {
    std::string name = c.word(1);
    name.resize(c.as<size_t>(2));
    joinPath(c.name(0), name.data(), name.size());
    c.out << name.c_str();
  };
  on["blank"] = [](Step& c) { c.out << isBlank(c.text.c_str()); };
  // Into 4 bytes, and back.
  on["pack"] = [](Step& c) {
    std::array<uint8_t, 4> bytes = {0xEE, 0xEE, 0xEE, 0xEE};
    packDigits(c.word(0), bytes);
    c.out << hexLines(bytes) << ' ' << DigitText<8>(bytes).c_str();
  };
  on["unpack-AE"] = [](Step& c) { c.out << DigitText<2>(std::array<uint8_t, 1>{0xAE}).c_str(); };
  on["saturates"] = [](Step& c) { c.out << scanInt64(c.name(0)).saturated; };
  on["date"] = [](Step& c) {
    uint32_t seconds = 7;
    c.out << parseDateTime(c.text.c_str(), seconds);
    c.out << ' ' << seconds;
  };
  on["join-date"] = [](Step& c) {  // End of the period, date, time.
    const PeriodEnd end = c.word(0) == "start" ? PeriodEnd::kStart : PeriodEnd::kEnd;
    uint32_t seconds = 7;
    c.out << joinDateTime(end, c.word(1), c.word(2)).data();
    c.out << ' ' << parsePeriodEnd(end, c.word(1), c.word(2), seconds) << ' ' << seconds;
  };
  on["format-date"] = [](Step& c) { c.out << formatDateTime(c.as<uint32_t>(0)).data(); };
  on["split-date"] = [](Step& c) {
    const DateAndTime parts = splitDateTime(c.word(0));
    c.out << parts.date.data() << ' ' << parts.time.data();
  };
  // Lines with room for N at first.
  std::optional<LineList> lines;
  on["lines"] = [&](Step& c) { c.out << lines.emplace(7, c.as<int32_t>(0)).capacity(); };
  on["add-line"] = [&](Step& c) {
    c.out << lines->add(c.text.c_str()) << ' ' << lines->count() << '/' << lines->capacity();
  };
  on["line"] = [&](Step& c) {
    const char* const line = lines->get(c.as<int32_t>(0));
    c.out << (line != nullptr ? line : "none");
  };
  play("support/text.txt", on);
}

TEST(MasterConfiguration, FollowsTheTranscript) {
  std::optional<MasterConfiguration> configuration;
  LineReader reader;
  Commands on;
  on["load"] = [&](Step& c) {
    std::ofstream("conf") << c.input;
    configuration.emplace(1, "conf");
  };
  on["load-missing"] = [&](Step& c) { configuration.emplace(1, c.name(0)); };
  on["save"] = [&](Step& c) { c.out << configuration->save(c.name(0)); };
  on["number"] = [&](Step& c) { c.out << configuration->number(c.name(0)); };
  on["find"] = [&](Step& c) { c.out << (configuration->find(c.name(0)) ? "found" : "none"); };
  on["set"] = [&](Step& c) { c.out << configuration->setValue(c.name(0), c.name(1)); };
  on["exists"] = [&](Step& c) { c.out << configuration->entryFileExists(c.name(0)); };
  on["open"] = [&](Step& c) {
    errno = EINVAL;
    c.out << configuration->openEntryFile(c.name(0), reader);
    if (errno != EINVAL) c.out << (errno == 0 ? " no error" : " missing");
  };
  play("support/masterconfiguration.txt", on);
}

TEST(Bits, ArePositionsMostSignificantFirst) {
  uint8_t bytes[2] = {0, 0xFF};
  setBit(bytes, 0);
  setBit(bytes, -1);
  clearBit(bytes, 9);
  clearBit(bytes, -7);
  EXPECT_EQ(getBit(bytes, 0) + 2 * getBit(bytes, 9) + 4 * getBit(bytes, -1), 1);
  testing::internal::CaptureStdout();
  printHexLine(bytes);
  printBitLine(bytes);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "80 BF \n10000000  10111111  \n");
}

TEST(LineReader, ReadsAsFgetsDoes) {
  const TestFolder folder;
  std::string content = "short\n" + std::string(29, 'a') + "\n" + std::string(31, 'b') + "\n\n";
  content += std::string("nul\0 hidden\n", 12) + std::string(200'000, 'c') + "\r\nlast";
  const std::string path = folder.write("lines", content);

  LineReader reader;
  ASSERT_TRUE(reader.open(path.c_str()));
  std::FILE* const file = std::fopen(path.c_str(), "r");
  char expected[31];
  while (std::fgets(expected, sizeof expected, file) != nullptr) {
    ASSERT_EQ(reader.readLine(30), LineReader::Status::kLine);
    ASSERT_STREQ(reader.line(), expected);
  }
  std::fclose(file);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(reader.readLine(30), LineReader::Status::kEnd);

  ASSERT_TRUE(reader.open(path.c_str()));
  for (size_t i = 0; i < content.size(); ++i) {
    if (i == 6) {  // Bytes and lines may take turns.
      ASSERT_EQ(reader.readLine(30), LineReader::Status::kLine);
      i += 30;
    }
    ASSERT_EQ(reader.readByte(), static_cast<unsigned char>(content[i]));
  }
  EXPECT_EQ(reader.readByte(), -1);
  EXPECT_FALSE(reader.failed());
}

}  // namespace
}  // namespace badgemint
