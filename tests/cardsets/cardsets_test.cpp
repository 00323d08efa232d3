#include "cardsets/cardsets.h"

#include <gtest/gtest.h>

#include "cardsets/card_functions.h"
#include "formats/CardFormat.h"
#include "formats/CardFormatSet.h"
#include "support/masterconfiguration.h"
#include "support/script.h"
#include "support/testfiles.h"
#include "support/tokenizer.h"

namespace badgemint {
namespace {

TEST(CardSets, FollowTheTranscript) {
  std::optional<cardsets> sets;
  CardFormatSet formats;
  cardset set;
  const auto check = [](Step& c, auto checkText) {
    std::string_view text = c.words.at(0);
    c.out << checkText(text) << " \"" << text << '"';
  };
  Commands on;
  on["new"] = [&](Step& c) { c.out << sets.emplace().create(1); };
  on["add"] = [&](Step& c) {
    Tokenizer tokens;
    tokens.split(c.text.data(), kWordDelimiters);
    c.out << sets->addCardSetLine(tokens, 1);
  };
  on["get"] = [&](Step& c) {
    const cardset* const found = sets->getCardSet(c.as<uint32_t>(0));
    c.out << (found ? CardSetLine(*found).text() : "none") << " of " << sets->capacity();
  };
  on["verify"] = [&](Step& c) { c.out << sets->verifyFormats(formats); };
  on["load"] = [&](Step& c) { c.out << sets->load(c.name(0)) << ", " << sets->count(); };
  on["configure"] = [&](Step& c) {
    MasterConfiguration configuration(1, c.name(0));
    c.out << sets->loadFromConfiguration(configuration) << ", " << sets->count();
  };
  on["write"] = [&](Step& c) { c.out << sets->writeCardSetsFile(c.name(0)); };
  on["parse"] = [&](Step& c) {
    c.out << parseCardSetText(set, c.text.c_str()) << ' ' << set.csid << ' ' << set.fmtid;
    for (const char letter : std::string("AaHI")) c.out << ' ' << set.valueOf(letter);
    c.out << ' ' << set.value(-1) << ' ' << set.value(8);
  };
  on["info"] = [&](Step&) { set.printInfo(); };
  on["check-number"] = [&](Step& c) {
    check(c, [&](std::string_view& text) {
      return checkCardNumber(text, c.as<int32_t>(1), c.as<int32_t>(2));
    });
  };
  on["check-pin"] = [&](Step& c) {
    check(c, [&](std::string_view& text) { return checkPinCode(text, c.as<size_t>(1)); });
  };
  // Text to 4 bytes and back, into a buffer of N characters.
  on["digits"] = [&](Step& c) {
    std::array<uint8_t, 4> bytes{};
    hexToBits(c.word(0), bytes);
    std::string text(c.words.size() > 1 ? c.as<size_t>(1) : 9, '!');
    bitsToHex(bytes, text);
    c.out << hexLines(bytes) << ' ' << text.c_str();
  };
  on["load-format"] = [&](Step& c) {
    EXPECT_EQ(formats.create(1), 0);
    CardFormat* const format = formats.addFormat(c.as<uint32_t>(0), c.name(1));
    c.out << format->loadFormatFile(c.name(1));
  };
  // Card set, number, line, and what is missing.
  on["compute"] = [&](Step& c) {
    int64_t number = 0;
    CardPattern pattern{};
    c.out << computeCardBits(c.as<uint32_t>(0), c.name(1), c.as<int32_t>(2),
                             c.word(3) == "sets" ? nullptr : &*sets,
                             c.word(3) == "formats" ? nullptr : &formats, number, pattern);
    c.out << ' ' << number << ' ' << hexLines(pattern);
  };
  play("cardsets/cardsets.txt", on);
}

}  // namespace
}  // namespace badgemint
