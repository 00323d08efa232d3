// What stands behind each bit of a card, drawn.
#include "admin/cardbits.h"

#include <gtest/gtest.h>

#include "formats/formatfile.h"

namespace badgemint::admin {
namespace {

TEST(CardBits, AreDrawnFromTheFirstOnTheCard) {
  const std::string s136(136, '*');
  const struct {
    const char* kind;
    FormatLines masks;  // Output, fixed, parity.
    int64_t number;
    std::string bits, layout, output, fixed, parity;
    int32_t last;  // The parity mask that sets the last bit.
  } rows[] = {
      // Nothing in front; a fixed P and one that nothing sets; parity in place of a field.
      {"CDF",
       {"..PAABBBPBP.", "..1.......0.", "XX.XE", "XXXX"},
       5,
       "100010010",
       "1APBBBPB0",
       "PAABBBPBP",
       "1.......0",
       ".XE......",
       -1},
      // Holes push off what is in front of them. Of two masks the later one sets the bit.
      {"CDF",
       {"ABx\x01"
        "BBP",
        "...1.", "X\x02XX..O", "......E"},
       6,
       "01100",
       ".1BBP",
       "x.BBP",
       ".1...",
       "XX..O",
       1},
      {"EFF", {"BA", "", "XO"}, 1, "10", "BP", "BA", "..", "XO", 0},
      // A VFF has as many bits as it says.
      {"VFF", {"P*  ", "", "EX"}, 1, "0011", "..P*", "..P*", "....", "..EX", -1},
      {"VFF",
       {s136},
       512,
       std::string(126, '0') + "10--------",
       s136,
       s136,
       std::string(136, '.'),
       std::string(136, '.'),
       -1},
  };
  for (const auto& row : rows) {
    TestFormat test(row.kind);
    ASSERT_EQ(test.load(fileOf(row.kind, linesOf(row.kind, row.masks))), 0);
    const CardFormat& format = *test.format;
    const CardBits bits(format);
    EXPECT_EQ(bits.textOf(format.encodeNumber(format.encodeSite({}), row.number)), row.bits);
    EXPECT_EQ(bits.textOf(bits.patternOf(row.bits)), row.bits);
    EXPECT_EQ(bits.drawLayout(), row.layout);
    EXPECT_EQ(bits.draw(format.masks().output), row.output);
    EXPECT_EQ(bits.draw(format.masks().fixed), row.fixed);
    EXPECT_EQ(bits.draw(format.masks().parity[0]), row.parity);
    EXPECT_EQ(bits.parityMaskOf(bits.count() - 1), row.last) << row.layout;
  }
}

}  // namespace
}  // namespace badgemint::admin
