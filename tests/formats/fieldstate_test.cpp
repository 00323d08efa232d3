#include "formats/fieldstate.h"

#include <algorithm>
#include <bitset>

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
      std::reverse(text.end() - state.nbits, text.end());
      std::fill(text.begin(), text.end() - state.nbits, '0');
    }
    return text.substr(text.size() - 64);
  }
  std::string toBits(uint64_t value) const {
    std::string text = state.ftyp == kTypeBin ? std::bitset<64>(value).to_string() : "";
    const bool isBcd = state.ftyp == kTypeBcd;
    const int digits = isBcd ? 16 : state.ftyp == kTypeMsd ? state.nbits / 5 : 0;
    for (int i = 0; i < digits; ++i, value /= 10)
      text.insert(0, isBcd ? std::bitset<4>(value % 10).to_string() : stripeDigit(value % 10));
    return directed(text);
  }
  uint64_t toValue(uint64_t bits) const {
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
    }
    return value;
  }
};

TEST(Fieldstate, AgreesWithTheJudge) {
  std::mt19937_64 random{20261121};
  for (int round = 0; round < 2 * 4 * 3 * 145; ++round) {
    const Judge judge{{round % 4, round / 4 % 3, round / 12 % 145}};
    const uint64_t value = random() >> random() % 64;
    const uint64_t bits = judge.state.toBits(static_cast<int64_t>(value));
    ASSERT_EQ(std::bitset<64>(bits).to_string(), judge.toBits(value)) << round << ' ' << value;
    for (const uint64_t read : {bits, value})
      ASSERT_EQ(judge.state.toValue(read), judge.toValue(read)) << read;
  }
}

TEST(Fieldstate, KnowsPublishedDigits) {
  TestLog log;
  const fieldstate two{kTypeMsd, kDirectionMsb, 10};
  EXPECT_EQ(two.toBits(7), 0b00001'11100);
  EXPECT_EQ(two.toValue(0b11010'11100), 7);
  EXPECT_EQ(log.take(), "[75 fieldstate] invalid msddig dig = 1a\n");
  EXPECT_EQ((fieldstate{kTypeBcd, kDirectionMsb, 16}.toBits(1234)), 0x1234);
}

}  // namespace
}  // namespace badgemint
