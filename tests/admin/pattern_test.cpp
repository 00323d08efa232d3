// The verbs `pattern` and `decode`: cards by their numbers, and by their bits.
#include "admin/adminrun.h"

namespace badgemint::admin::pattern_test {

TEST(Pattern, ReportsWhatBitsCanBeAndWhichNumbersCannot) {
  const TestSite site;
  FormatLines odd = linesOf("CDF", {"PA..AAAPBB.", "..01......1", "EXXXXXX"});
  odd[12] = "A,0,0,MSB,BCD";
  odd[13] = "";
  writeFile("odd.cdf", fileOf("CDF", odd));
  site.writeFormat("hole.cdf", {".-B", "1"});
  writeFile("64.vff", fileOf("VFF", linesOf("VFF", {std::string(64, '*')})));
  writeFile("136.vff", fileOf("VFF", linesOf("VFF", {std::string(136, '*')})));
  writeFile("4.vff", fileOf("VFF", linesOf("VFF", {"P*  ", "", "EX"})));
  writeFile("formats.txt", "1 26.cdf\n2 32.cdf\n1 32.cdf\n3 odd.cdf\n4 64.vff\n5 hole.cdf");
  writeFile("26.txt", "1 26.cdf");
  writeFile("cardsets.txt", "f 1 1 A=277\nf 2 2\nf 7 2\nf 8 9\n");
  writeFile("cards.txt", "c 1 1 1 1\nf 4 1 A=23\nf 999 1\n");
  fs::create_directory("folder");
  const CardPattern key = {0x50};
  writeRecords<IdentRecord>("ident.db",
                            {{key, 4, 255}, {key, 5, 1, 1}, {key, 6, 254}, {{2}, 7, 254}});
  const std::string card = "format 1 26.cdf: card 15890, A=21; parity and fixed bits are right";
  expectRuns({
      {"decode \"02 2a:7C-2_4\"", 0, card + '\n'},
      {"decode 0b10001010_100111110000100100", 0, card + '\n'},
      {"decode --formats 26.txt 00022A7C24", 1, card + "; right-aligned\n"},
      {"decode --decimal 340282366920938463463374607431768211456", 2, "", "of up to 128 bits"},
      {"decode 01101111110 --ident none", 1,
       "format 3 odd.cdf: card 0, A=15; does not fit\n  the parity bit of mask 1 (bit 0) is wrong\n"
       "  the bits of field A are not a valid value\n  fixed bits from 2 are 10, not 01\n"
       "  bit 7 is 1, but it is 0 on every card of the format\n  the bits of field B are not a "
       "valid value\n  fixed bits from 10 are 0, not 1\n",
       "none: No such file"},
      {"decode 01101111110 --ident folder", 3, "wrong\n", "folder is not a regular"},
      {"decode 022C7C24 --ident 26.txt", 0, "no holder has", "26.txt ends within a record"},
      {"decode FFFFFFFFFFFFFFFF --cardsets none", 1,
       "615; does not fit\n  the number is above 9223372036854775807\n", "none: No such file"},
      {"decode 0x5", 0,
       "holder 5: card 0 of card set 1, deleted\n"
       "holder 6: card 50000000000000000000000000000000 without format\nformat 2"},
      {"decode 0x5", 0,
       "format 5 hole.cdf: card 1; parity and fixed bits are right\n"
       "  key 05000000000000000000000000000000\n"},
      {"decode 02 --formats none", 0, "card 02 without format\nno format has such", "none: cannot"},
      {"decode 0101", 2, "", "no format has cards of 4 bits (write 0x"},
      {"decode 0xG", 2, "", "neither bits (0 and 1) nor a key"},
      {"decode", 3, "", "give bits, a key or --decimal, only one of them"},
      {"pattern 1", 3, "", "give a card set, then one or more"},
      {"pattern 1 1 --cardsets none", 3, "", "none does not exist: a build writes it"},
      {"pattern --cards cards.txt 4 1", 0, "set 4   format 1 26.cdf", "cards.txt:3: this line"},
      {"pattern 1 x 1 123456789012345678901234567890123", 2, "key   022A00020000", "to 32 dec"},
      {"pattern --format 4.vff 1", 0, "mask  ..P*\nbits  0011\nkey   030000"},
      {"pattern --format 136.vff 512", 0, "0010--------\nkey   00000000000000000000000000000002\n"},
      {"pattern --format 26.cdf --set A=256 1", 2, "", "--set is refused: "},
      {"pattern --format 26.cdf --set I=1 1", 2, "", "where a field letter A to H is expected"},
      {"pattern --format 26.cdf 1", 0, "key   000000020000", "field A"},
  });
}

}  // namespace badgemint::admin::pattern_test
