// The verbs `pattern` and `decode`: cards by their numbers, and by their bits.
#include "admin/adminrun.h"
#include "admin/cardbits.h"
#include "admin/cardreading.h"
#include "carddb/identrecord.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

TEST(Pattern, GivesPublishedCardsThatDecodeTakesBack) {
  const std::string even26 = "EXXXXXXXXXXXX", odd26 = ".............XXXXXXXXXXXXO",
                    even37 = "EXXXXXXXXXXXXXXXXXX", odd37 = "..................XXXXXXXXXXXXXXXXXXO";
  const std::string bits26 = "10001010100111110000100100",
                    bits37 = "1000000101001101000001111010011010010";
  const FormatLines c26 = {"PAAAAAAAABBBBBBBBBBBBBBBBP", "", even26, odd26},
                    v26 = {"P........****************P", ".00010101", even26, odd26},
                    c37 = {"PAAAAAAAAAAAAAAAABBBBBBBBBBBBBBBBBBBP", "", even37, odd37},
                    v37 = {"P................*******************P", ".0000001010011010", even37,
                           odd37};
  const struct {
    std::string kind;
    FormatLines masks;
    std::string number, site, bits, key;
  } cards[] = {
      {"CDF", c26, "15890", ", A=21", bits26, "022A7C24"},
      {"EFF", c26, "15890", ", A=21", bits26, "022A7C24"},
      {"VFF", v26, "15890", "", bits26, "022A7C24"},
      {"CDF", c37, "31337", ", A=666", bits37, "1029A0F4D2"},
      {"EFF", c37, "31337", ", A=666", bits37, "1029A0F4D2"},
      {"VFF", v37, "31337", "", bits37, "1029A0F4D2"},
  };
  const WorkFolder folder;
  for (int id = 0; const auto& card : cards) {
    const std::string name = "f." + card.kind, n = std::to_string(++id);
    folder.write(name, fileOf(card.kind, linesOf(card.kind, card.masks)));
    folder.write("formats.txt", n + ' ' + name);
    folder.write("cardsets.txt", "f 5 " + n + " A=21\nf 6 " + n + " A=666\n");
    const std::string set = card.number == "15890" ? "5" : "6";
    EXPECT_NE(runAdmin("pattern " + set + ' ' + card.number)
                  .output.find("\nbits  " + card.bits + "\nkey   " + card.key + "0000"),
              std::string::npos);
    for (const std::string& word : {card.bits, card.key, "0x" + card.key + "00"}) {
      const AdminRun run = runAdmin("decode " + word);
      EXPECT_EQ(run.status, 0);
      EXPECT_EQ(run.output, "format " + n + ' ' + name + ": card " + card.number + card.site +
                                "; parity and fixed bits right\n" +
                                (card.site.empty() ? "  card set 5\n  card set 6\n"
                                                   : "  card set " + set + '\n'));
    }
  }
}

// Of random formats: a card is read back, and a bit that is not a field's is told when it is wrong.
TEST(CardReading, KnowsCardsOfItsFormat) {
  std::mt19937_64 random{20261121};
  const TestFormat test("CDF");
  for (int round = 0; round < 500; ++round) {
    const auto any = [&random](const std::string& from) { return from[random() % from.size()]; };
    FormatLines masks(10);
    for (size_t size = 1 + random() % 48; masks[0].size() < size;)
      masks[0].append(1 + random() % 9, any("ABBP."));
    masks[0].resize(std::min(masks[0].size(), size_t{48}));
    for (const char c : masks[0]) masks[1] += c == '.' ? any("01") : '.';
    for (size_t i = 2; i < 10; ++i) {
      for (const char c : masks[0]) masks[i] += c == 'P' ? '.' : any("X.");
      if (const size_t p = masks[0].find('P', random() % 48); p != std::string::npos)
        masks[i][p] = any("EO");
    }
    FormatLines lines = linesOf("CDF", masks);
    lines[8] = any("0248");
    for (const size_t field : {12U, 13U})
      lines[field] = std::string("F,0,0,") + any("ML") + "SB,B" + (random() % 2 == 0 ? "IN" : "CD");
    ASSERT_EQ(test.load(fileOf("CDF", lines)), 0);
    const CardFormat& format = *test.format;
    const CardBits bits(format);
    CardFormat::FieldValues values{static_cast<int64_t>(random() >> 33)};
    const auto number = static_cast<int64_t>(random() >> (1 + random() % 63));
    CardPattern card = format.encodeNumber(format.encodeSite(values), number);
    if (format.decodeCardNumber(card) != number) continue;
    std::string text = bits.textOf(card);
    EXPECT_EQ(bits.patternOf(text), card);
    const auto reading = readCard(format, card);
    ASSERT_TRUE(reading && reading->faults.empty());
    EXPECT_EQ(reading->number, number);

    const size_t bit = random() % text.size();
    const char source = bits.drawLayout()[bit], due = text[bit];
    text[bit] = due == '0' ? '1' : '0';
    if (source == 'A' || source == 'B') continue;
    const int32_t mask = bits.parityMaskOf(static_cast<int32_t>(bit));
    const std::string p = std::to_string(bit);
    EXPECT_EQ(readCard(format, bits.patternOf(text))->faults,
              std::vector{
                  mask >= 0 ? "parity mask " + std::to_string(mask + 1) + " wrong at position " + p
                  : source == 'P' ? "bit " + p + " is 1, and is 0 on every card"
                                  : "fixed bit " + p + " is " + text[bit] + ", not " + due});
  }
}

TEST(Pattern, SaysWhatBitsCanBeAndWhatNumbersCannot) {
  const TestSite site;
  FormatLines odd = linesOf("CDF", {"P..AAAAPBBBB.", ".01.........1", "EXXXXXX"});
  odd[12] = "A,0,0,MSB,BCD";
  site.folder.write("odd.cdf", fileOf("CDF", odd));
  site.write("hole.cdf", {".-B", "1"});
  FormatLines untyped = linesOf("CDF", {"AB"});
  untyped[13] = "";
  site.folder.write("2.cdf", fileOf("CDF", untyped));
  site.folder.write("cut.cdf", "");
  site.folder.write("64.vff", fileOf("VFF", linesOf("VFF", {std::string(64, '*')})));
  site.folder.write("formats.txt", "1 26.cdf\n2 32.cdf\n1 32.cdf\n3 odd.cdf\n4 64.vff\n5 hole.cdf");
  site.folder.write("cardsets.txt", "f 1 1 A=277\nf 2 2\nf 7 2\nf 8 9\n");
  const CardPattern key = {0x02, 0x2A, 0x7C, 0x24}, other = {0x50};
  writeRecords<IdentRecord>("ident.db", {{other, 4, kPinIdentCode},
                                         {other, 5, 1, 1},
                                         {other, 6, kFormatlessCode},
                                         {key, 7, kPinOnlyCode}});
  const std::string none = "; no parity, no fixed bits\n",
                    noSet = "  no card set has these values\n", s32(32, '9');
  const struct {
    std::string words;
    int status;
    std::string output;  // The end of it.
    std::string errors = "";
  } cases[] = {
      {"decode 022A7C24", 0,
       "format 1 26.cdf: card 15890, A=21; parity and fixed bits right\n  card set 1\n"
       "format 2 32.cdf: card 36338724" +
           none +
           "  card set 2\n  card set 7\n"
           "format 4 64.vff: card 156073631158370304" +
           none + noSet + "no holder has this card\n"},
      {"decode 1011001001011 --ident none", 0,
       "format 3 odd.cdf: card 5, A=9; parity and fixed bits right\n" + noSet,
       "none: No such file"},
      {"decode 0101111101010", 1,
       "format 3 odd.cdf: card 5, A=15; wrong\n  field A has bits that no value gives\n"
       "  fixed bits 1 to 2 are 10, not 01\n  bit 7 is 1, and is 0 on every card\n"
       "  fixed bit 12 is 0, not 1\n" +
           noSet},
      {"decode FFFFFFFFFFFFFFFF --cardsets none", 1,
       "card 18446744073709551615; wrong\n  the number is beyond 9223372036854775807\n",
       "none: No such file"},
      {"decode 01", 1, "no format has such a card\n"},
      {"decode 0x5", 0,
       "format 5 hole.cdf: card 1" + none + "  key 05000000000000000000000000000000\n" + noSet +
           "format 3 odd.cdf: card 0, A=4; wrong\n  key 05000000000000000000000000000000\n"
           "  fixed bit 12 is 0, not 1\n" +
           noSet +
           "holder 5: card 0 of card set 1, deleted\n"
           "holder 6: card 50000000000000000000000000000000 without format\n"},
      {"decode 50 --formats none", 0,
       "no format has such a card\n"
       "holder 5: card with key 50000000000000000000000000000000 of card set 1, deleted\n"
       "holder 6: card 50000000000000000000000000000000 without format\n",
       "none: cannot be opened"},
      {"decode 0x0", 0,
       "odd.cdf: card 0, A=0; wrong\n  parity mask 1 wrong at position 0\n"
       "  fixed bit 2 is 0, not 1\n  fixed bit 12 is 0, not 1\n" +
           noSet + "no holder has this card\n"},
      {"decode 010", 2, "", "no format has cards of 3 bits: they have 2, 13, 26, 32, 64"},
      {"decode \"\"", 2, "", "\"\" is neither: bits are 0 and 1, a key is 1 to 32 hexadecimal"},
      {"decode 0x" + s32 + "9", 2, "", "\" is neither"},
      {"pattern 1", 3, "", "which cards? Name their card set, then their numbers"},
      {"pattern --format 32.cdf", 3, "", "which cards? Name their numbers"},
      {"pattern 1 1 --set A=1", 3, "", "--set requires --format"},
      {"pattern 1 1 --formats none", 3, "", "none: cannot be opened"},
      {"pattern 1 1 --cardsets no\xC3ne", 3, "", "no\\xC3ne: No such file"},
      {"pattern 8 1", 2, "", "format 9 of card set 8 is not there"},
      {"pattern 1 \"\" 1 " + s32 + "9", 2, "key   022A0002000000000000000000000000\n",
       "\"\" is not digits alone"},
      {"pattern 1 9" + s32, 2, "", "has more than 32 digits"},
      {"pattern 1 " + s32, 2, "", s32 + " does not fit field B of 16 bits: it would come back"},
      {"pattern --format 64.vff 9" + s32.substr(13), 2, "", " does not fit its 64 bits: it"},
      {"pattern --format 2.cdf 1", 2, "",
       "field B of 1 bit (of no type): it would come back as card 0"},
      {"pattern --format no.cdf 1", 3, "", "no.cdf: cannot be opened: No such file"},
      {"pattern --format cut.cdf 1", 3, "", "cut.cdf:1: the file ends here"},
      {"pattern --format x.cdf/formats 1", 3, "", "x.cdf/formats: no format file: its name holds"},
      {"pattern --format 26.cdf --set A=256 1", 2, "", "--set: value 256 does not fit the 8 bits"},
      {"pattern --format 26.cdf --set \"A 1 C 1\" 1", 2, "", "--set: the format has no field C"},
      {"pattern --format 26.cdf --set a=1 1", 2, "", "--set: \"a\" stands where a field's letter"},
      {"pattern --format 26.cdf 1", 0,
       "bits  00000000000000000000000010\n"
       "key   00000002000000000000000000000000\n",
       "field A gets no value: it is 0"},
  };
  for (const auto& [words, status, output, errors] : cases) {
    SCOPED_TRACE(words);
    const AdminRun run = runAdmin(words);
    EXPECT_EQ(run.status, status);
    EXPECT_TRUE(run.output.ends_with(output)) << run.output;
    EXPECT_NE(run.errors.find(errors), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.empty(), errors.empty()) << run.errors;
  }
}

}  // namespace
}  // namespace badgemint::admin
