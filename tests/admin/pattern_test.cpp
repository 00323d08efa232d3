// The verbs `pattern` and `decode`: cards by their numbers, and by their bits.
#include "admin/adminrun.h"
#include "admin/bits/cards.h"
#include "admin/bits/layout.h"
#include "carddb/identrecord.h"
#include "support/testsite.h"

namespace badgemint::admin {
namespace {

TEST(Pattern, GivesPublishedCardsThatDecodeTakesBack) {
  const struct {
    std::string mask, even, odd, fixed, card, site, key;  // In a VFF all but the number is fixed.
  } cards[] = {
      {"PAAAAAAAABBBBBBBBBBBBBBBBP", "EXXXXXXXXXXXX", ".............XXXXXXXXXXXXO", ".00010101",
       "15890", "A=21", "022A7C24"},
      {"PAAAAAAAAAAAAAAAABBBBBBBBBBBBBBBBBBBP", "EXXXXXXXXXXXXXXXXXX",
       "..................XXXXXXXXXXXXXXXXXXO", ".0000001010011010", "31337", "A=666",
       "1029A0F4D2"},
  };
  const WorkFolder folder;
  for (const auto& [mask, even, odd, fixed, card, site, key] : cards) {
    FormatLines masks = {mask, "", even, odd};
    folder.write("cardsets.txt", "f 5 1 " + site);
    for (const std::string kind : {"CDF", "EFF", "VFF"}) {
      std::string line = "format 1 f." + kind + ": card " + card + ", " + site;
      if (kind == "VFF") {
        std::ranges::replace(masks[0], 'A', '.');
        std::ranges::replace(masks[0], 'B', '*');
        masks[1] = fixed;
        line.resize(line.find(','));
      }
      folder.write("f." + kind, fileOf(kind, linesOf(kind, masks)));
      folder.write("formats.txt", "1 f." + kind);
      std::string bits = runAdmin("pattern 5 " + card).output;
      EXPECT_NE(bits.find("\nkey   " + key + "0000"), std::string::npos) << bits;
      bits = bits.substr(bits.find("bits  ") + 6, mask.size());
      for (const std::string& word : {bits, key})
        EXPECT_EQ(runAdmin("decode " + word).output,
                  line + "; parity and fixed bits right\n  card set 5\n");
    }
  }
}

// A card of a random format is decoded; a wrong bit that no field has is reported.
TEST(DecodeCard, NamesTheWrongBit) {
  std::mt19937_64 random{20261121};
  const TestFormat test("CDF");
  for (int round = 0; round < 200; ++round) {
    const FormatLines masks = randomMasks("ABBP.", random);
    ASSERT_EQ(test.load(fileOf("CDF", linesOf("CDF", masks))), 0);
    const CardLayout layout(*test.format);
    const CardPattern card = test.format->encodeNumber(
        test.format->encodeSite({static_cast<int64_t>(random())}), static_cast<int64_t>(random()));
    const std::string text = layout.bitsOf(card), sources = layout.mergedRow();
    EXPECT_EQ(layout.patternOf(text), card);
    const auto decoded = decodeCard(*test.format, card);
    ASSERT_TRUE(decoded && decoded->faults.empty());
    EXPECT_EQ(decoded->number, test.format->decodeCardNumber(card));
    for (size_t bit = 0; bit < text.size(); ++bit) {
      if (sources[bit] == 'A' || sources[bit] == 'B') continue;
      std::string wrong = text, at = std::to_string(bit);
      wrong[bit] ^= 1;
      const char* const mask = bit == 0 ? "1" : bit == text.size() - 1 ? "2" : nullptr;
      const bool first = mask == nullptr && masks[2][bit] == 'X';
      const bool last = (mask == nullptr && masks[3][bit] == 'X') ^ (first && masks[3][0] == 'X');
      const auto faults = decodeCard(*test.format, layout.patternOf(wrong))->faults;
      EXPECT_EQ(faults.size(), 1U + first + last);
      EXPECT_EQ(faults.back(),
                mask != nullptr ? std::string("parity mask ") + mask + " wrong at position " + at
                : sources[bit] == 'P'
                    ? "bit " + at + " is 1, but 0 on every card"
                    : "fixed bit " + at + " is " + wrong[bit] + ", not " + text[bit]);
    }
  }
}

// Also in layouts with gaps, in which the format counts fewer bits than it sets.
TEST(Pattern, PrintsBitsAndKeysThatDecodeFinds) {
  std::mt19937_64 random{20261122};
  const WorkFolder folder;
  folder.write("formats.txt", "1 f.cdf");
  int printed = 0;
  for (int round = 0; round < 100; ++round) {
    const FormatLines masks = randomMasks("AABBB.-", random);
    const std::string number = std::to_string(random() % 8), site = std::to_string(random() % 4);
    folder.write("f.cdf", fileOf("CDF", linesOf("CDF", masks)));
    folder.write("cardsets.txt", "f 5 1 A " + site);
    const AdminRun pattern = runAdmin("pattern 5 " + number);
    if (pattern.status != 0) continue;
    ++printed;
    std::istringstream words(pattern.output.substr(pattern.output.find("\nbits  ")));
    std::string name, bits, key;
    words >> name >> bits >> name >> key;
    for (const std::string& word : {bits, "0x" + key}) {
      const AdminRun decode = runAdmin("decode " + word);
      EXPECT_EQ(decode.status, 0) << masks[0] << decode.errors;
      EXPECT_TRUE(decode.output.starts_with("format 1 f.cdf: card " + number)) << decode.output;
      EXPECT_NE(decode.output.find("\n  card set 5\n"), std::string::npos) << decode.output;
    }
  }
  EXPECT_GT(printed, 30);
}

TEST(Pattern, ReportsWhatBitsCanBeAndWhichNumbersCannot) {
  const TestSite site;
  FormatLines odd = linesOf("CDF", {"PA..AAAPBB.", "..01......1", "EXXXXXX"});
  odd[12] = "A,0,0,MSB,BCD";
  odd[13] = "";
  site.folder.write("odd.cdf", fileOf("CDF", odd));
  site.write("hole.cdf", {".-B", "1"});
  site.folder.write("64.vff", fileOf("VFF", linesOf("VFF", {std::string(64, '*')})));
  site.folder.write("136.vff", fileOf("VFF", linesOf("VFF", {std::string(136, '*')})));
  site.folder.write("4.vff", fileOf("VFF", linesOf("VFF", {"P*  ", "", "EX"})));
  site.folder.write("formats.txt", "1 26.cdf\n2 32.cdf\n1 32.cdf\n3 odd.cdf\n4 64.vff\n5 hole.cdf");
  site.folder.write("26.txt", "1 26.cdf");
  site.folder.write("cardsets.txt", "f 1 1 A=277\nf 2 2\nf 3 1 A=22\nf 7 2\nf 8 9\n");
  site.folder.write("cards.txt", "c 1 1 1 1\nf 4 1 A=23\nf 999 1\n");
  std::filesystem::create_directory("folder");
  const CardPattern key = {0x50}, other = {0x02, 0x2C, 0x7C, 0x24};
  const auto idents = std::vector<IdentRecord>{
      {key, 4, 255}, {key, 5, 1, 1}, {key, 6, 254}, {{2}, 7, 254}, {other, 8, 3}};
  writeRecords<IdentRecord>("ident.db", idents);
  const std::string zeros = "000000000000000000000000\n";
  const std::string card = "format 1 26.cdf: card 15890, A=21; parity and fixed bits right";
  const struct {
    std::string words;
    int status;
    std::string output, errors = "";  // What is in them.
  } cases[] = {
      {"decode 022A7C24", 0,
       "no holder has this card\nholder 8 has this number with A=22\n" + card +
           R"(
  card set 1
format 2 32.cdf: card 36338724; no parity, no fixed bits
  card set 2
  card set 7
format 4 64.vff: card 156073631158370304; no parity, no fixed bits
  no card set has these values
)"},
      {"decode 022C7C24", 0,
       "holder 8: card 15890 of card set 3\nformat 1 26.cdf: card 15890, A=22"},
      {"decode \"02 2a:7C-2_4\"", 0, card + '\n'},
      {"decode 0b10001010_100111110000100100", 0, card + '\n'},
      {"decode 10001010100111110000100100", 0, card + '\n'},
      {"decode 00100100001111100101010001", 1, card + "; reversed\n"},
      {"decode --formats 26.txt 00022A7C24", 1, card + "; right-aligned\n"},
      {"decode --formats 26.txt 0090F951", 1, card + "; reversed\n"},
      {"decode --decimal 36338724", 0, card + "\n  key 022A7C24"},
      {"decode --decimal 340282366920938463463374607431768211456", 2, "", "of up to 128 bits"},
      {"decode --json 022C7C24", 0,
       "{\"holder\":8,\"set\":3,\"card\":\"15890\",\"key\":\"022C7C24" + zeros.substr(0, 24) +
           "\",\"deleted\":false}\n{\"format\":1,\"file\":\"26.cdf\",\"card\":\"15890\",\"key\":"},
      {"decode --json 022C7C24", 0, R"("values":{"A":22},"fits":true,"faults":[],"sets":[3]})"},
      {"decode --json --formats 26.txt 00022A7C24", 1,
       R"("fits":true,"change":"right-aligned","faults":[],"sets":[1]})"},
      {"decode --decimal 1x", 2, "", "--decimal \"1x\" is not a decimal number"},
      {"decode --decimal 4294967296 --formats 26.txt", 1, "no format has such a card\n"},
      {"decode 01101111110 --ident none", 1, R"(format 3 odd.cdf: card 0, A=15; wrong
  field A has bits that no value has
  field B has bits that no value has
  parity mask 1 wrong at position 0
  fixed bits 2 to 3 are 10, not 01
  bit 7 is 1, but 0 on every card
  fixed bit 10 is 0, not 1
  no card set has these values
)",
       "none: No such file"},
      {"decode 01101111110 --ident folder", 3, "wrong\n", "folder"},
      {"decode 022A7C24 --ident folder", 0, card, "folder"},
      {"decode FFFFFFFFFFFFFFFF --cardsets none", 1,
       "615; wrong\n  the number is beyond 9223372036854775807\n", "none: No such file"},
      {"decode 0x5", 0,
       "holder 5: card 0 of card set 1, deleted\n"
       "holder 6: card 50000000000000000000000000000000 without format\nformat 2"},
      {"decode 0x5", 0, R"(format 5 hole.cdf: card 1; parity and fixed bits right
  key 05000000000000000000000000000000
  no card set has these values
format 3 odd.cdf: card 0, A=0; wrong
  key 05000000000000000000000000000000
  fixed bits 2 to 3 are 10, not 01
  fixed bit 10 is 0, not 1
  no card set has these values
)"},
      {"decode 02 --formats none", 0,
       "holder 7: card 02 without format\nno format has such a card\n", "none: cannot"},
      {"decode 0x0", 0, "no holder has this card\n"},
      {"decode 110", 1, "format 5 hole.cdf: card 0; wrong\n"},
      {"decode 0101", 2, "",
       "no format has cards of 4 bits: they have 3, 11, 26, 32, 64 (write 0x"},
      {"decode 0xG", 2, "", "neither bits (0 and 1) nor a key"},
      {"decode \"\"", 3, "", "BITS: the value is empty"},
      {"decode", 3, "", "give one of bits, a key and --decimal"},
      {"decode 02 2A", 3, "", "put groups of digits in quotes"},
      {"pattern 1", 3, "", "give a card set, then one or more"},
      {"pattern --format 32.cdf", 3, "", "give one or more card numbers"},
      {"pattern 1 1 --cardsets none", 3, "", "none does not exist: a build writes it"},
      {"pattern --cards cards.txt 4 1", 0, "set 4   format 1 26.cdf", "cards.txt:3: this line"},
      {"pattern 1 x 1 123456789012345678901234567890123", 2, "key   022A0002" + zeros, "an 32 dig"},
      {"pattern --format odd.cdf 1", 2, "",
       "of 2 bits (without a type): it would be read as card 0"},
      {"pattern --format 4.vff 1", 0, "mask  ..P*\nbits  0011\nkey   03000000" + zeros},
      {"pattern --format 136.vff 512", 0, "0010--------\nkey   00000000000000000000000000000002\n"},
      {"pattern --format no.cdf 1", 3, "", "no.cdf: cannot be opened: No such file"},
      {"pattern --format x.cdf/formats 1", 3, "", "x.cdf/formats: not a format file: its name"},
      {"pattern --format 26.cdf --set A=256 1", 2, "", "--set is refused: "},
      {"pattern --format 26.cdf --set a=1 1", 2, "", "--set is refused: "},
      {"pattern --format 26.cdf 1", 0, "key   00000002" + zeros, "field A"},
  };
  for (const auto& [words, status, output, errors] : cases) {
    SCOPED_TRACE(words);
    const AdminRun run = runAdmin(words);
    EXPECT_EQ(run.status, status);
    EXPECT_NE(run.output.find(output), std::string::npos) << run.output;
    EXPECT_NE(run.errors.find(errors), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.empty(), errors.empty()) << run.errors;
  }
}

}  // namespace
}  // namespace badgemint::admin
