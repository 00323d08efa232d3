#include "formats/fieldstate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <random>
#include <string>

#include "support/testfiles.h"

namespace badgemint {
namespace {

// The judge: bits as text, the first position at the front.
struct Judge {
  fieldstate state;

  // Four data bits, the lowest first, and one that makes the number of ones odd.
  static std::string stripeDigit(uint64_t digit) {
    std::string code = std::bitset<4>(digit).to_string();
    std::ranges::reverse(code);
    return code + (std::ranges::count(code, '1') % 2 == 0 ? '1' : '0');
  }
  // The last 64 positions of a field that carries this text at its end, in its direction.
  std::string directed(std::string text) const {
    text = std::string(144, '0') + text.substr(text.size() < 64 ? 0 : text.size() - 64);
    if (state.dir == kDirectionLsb) {
      std::string field = text.substr(text.size() - static_cast<size_t>(state.nbits));
      std::ranges::reverse(field);
      text = std::string(144, '0') + field;
    }
    return text.substr(text.size() - 64);
  }
  std::string toBits(uint64_t value) const {
    std::string text = state.ftyp == kTypeBin ? std::bitset<64>(value).to_string() : "";
    const int digits = state.ftyp == kTypeBcd ? 16 : state.ftyp == kTypeMsd ? state.nbits / 5 : 0;
    for (int i = 0; i < digits; ++i, value /= 10) {
      const bool isBcd = state.ftyp == kTypeBcd;
      text.insert(0, isBcd ? std::bitset<4>(value % 10).to_string() : stripeDigit(value % 10));
    }
    return directed(text);
  }
  uint64_t toValue(uint64_t bits, std::string& log) const {
    const std::string text = directed(std::bitset<64>(bits).to_string());
    if (state.ftyp == kTypeBin) return std::bitset<64>(text).to_ullong();
    uint64_t value = 0;
    for (size_t p = 0; state.ftyp == kTypeBcd && p < 64; p += 4)
      value = value * 10 + std::bitset<4>(text, p, 4).to_ulong();
    const std::string framed = std::string(80, '0') + text + "0000";
    for (int p = 64 - state.nbits; state.ftyp == kTypeMsd && p <= 63; p += 5) {
      const std::string code = framed.substr(static_cast<size_t>(80 + p), 5);
      uint64_t digit = 0;
      while (digit < 10 && stripeDigit(digit) != code) ++digit;
      if (digit < 10) value = value * 10 + digit;
      char message[60];
      std::snprintf(message, sizeof message, "[75 fieldstate] invalid msddig dig = %lx\n",
                    std::bitset<5>(code).to_ulong());
      if (digit == 10) log += message;
    }
    return value;
  }
};

TEST(Fieldstate, AgreesWithTheJudge) {
  TestLog log;
  std::mt19937_64 random{20261121};
  std::string expected;
  for (int round = 0; round < 2 * 4 * 3 * 145; ++round) {
    const Judge judge{{round % 4, round / 4 % 3, round / 12 % 145}};
    const fieldstate& state = judge.state;
    const uint64_t value = random() >> random() % 64;
    const uint64_t bits = state.toBits(static_cast<int64_t>(value));
    ASSERT_EQ(std::bitset<64>(bits).to_string(), judge.toBits(value)) << round << ' ' << value;
    for (const uint64_t read : {bits, value})
      ASSERT_EQ(static_cast<uint64_t>(state.toValue(read)), judge.toValue(read, expected)) << read;
  }
  EXPECT_EQ(log.take(), expected);
}

TEST(Fieldstate, KnowsPublishedDigits) {
  EXPECT_EQ((fieldstate{kTypeMsd, kDirectionMsb, 10}.toBits(7)), 0b00001'11100);
  EXPECT_EQ((fieldstate{kTypeBcd, kDirectionMsb, 16}.toBits(1234)), 0x1234);
}

TEST(Fieldstate, ReadsDirectionAndTypeExactly) {
  std::string read;
  for (const char* const text : {"MSB", "LSB", "BIN", "BCD", "MSD", "", "msb", " BIN", "BCD "})
    read += std::to_string(directionFromText(text) * 10 + typeFromText(text)) + ' ';
  EXPECT_EQ(read, "10 20 1 2 3 0 0 0 0 ");
}

}  // namespace
}  // namespace badgemint
