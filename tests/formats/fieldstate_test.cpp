#include "formats/fieldstate.h"

#include <gtest/gtest.h>

#include "support/testfiles.h"

namespace badgemint {
namespace {

TEST(Fieldstate, GivesKnownBits) {
  const struct {
    const char *direction, *type;
    int32_t nbits;
    int64_t value;
    uint64_t bits;
  } rows[] = {
      {"MSB", "BIN", 4, -2, 0xFFFFFFFFFFFFFFFE},
      {"LSB", "BIN", 4, 1, 8},
      {"LSB", "BIN", 66, 0x6000000000000001, 0x18},
      {"LSB", "BIN", 127, -1, 0x8000000000000000},
      {"LSB", "BIN", 128, -1, 0},
      {"MSB", "BCD", 16, 12345, 0x12345},
      {"LSB", "BCD", 8, 12345, 0xA2},
      {"MSB", "BCD", 64, -1, 0x6744073709551615},  // 18446744073709551615
      {"MSB", "MSD", 10, 7, 0x3C},
      {"MSB", "MSD", 14, 123, 0x119},
      {"MSB", "MSD", 65, -1, 0x40F33C0CEB583615},
      {"MSB", "bin", 8, 7, 0},
      {"MSB", " BIN", 8, 7, 0},
  };
  for (const auto& row : rows) {
    const fieldstate state{typeFromText(row.type), directionFromText(row.direction), row.nbits};
    EXPECT_EQ(state.toBits(row.value), row.bits) << row.type << row.nbits << " " << row.value;
  }
}

TEST(Fieldstate, ReadsOddDigitsAsTheyAre) {
  TestLog log;
  EXPECT_EQ((fieldstate{kTypeBcd, kDirectionMsb, 8}.toValue(0x1F)), 25);
  EXPECT_EQ((fieldstate{kTypeMsd, kDirectionMsb, 15}.toValue(0x10 << 10 | 0x1F << 5 | 0x08)), 12);
  EXPECT_EQ((fieldstate{kTypeMsd, kDirectionMsb, 11}.toValue(0x20 | 0x01)), 11);
  EXPECT_EQ((fieldstate{kNotGiven, kDirectionMsb, 8}.toValue(0xFF)), 0);
  EXPECT_EQ(log.take(),
            "[fieldstate] invalid msddig dig = 1f\n[fieldstate] invalid msddig dig = 0\n");
}

}  // namespace
}  // namespace badgemint
