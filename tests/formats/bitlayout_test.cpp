// Encoding and decoding with whole format files: a judge that goes position by position through the
// characters of their masks, and published cards. fieldstate_test.cpp has how a value becomes bits.
#include "formats/CardFormat.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <random>

#include "formats/formatfile.h"

namespace badgemint {
namespace {

template <typename Units>
std::string bitText(const Units& units) {
  std::string text;
  for (const auto unit : units) text += std::bitset<8 * sizeof unit>(unit).to_string();
  return text;
}

// What a format file says, and what its cards then are. Bits are text, the first at the front.
struct Judge {
  bool isVff = false;
  size_t length = 144;  // Of the masks: 48, 96 or 144.
  size_t numberField = 0;
  int parityBits = 0;                 // Of a CDF file.
  int bits = 0;                       // Of a VFF file.
  std::array<std::string, 8> kinds;   // Direction and type of each field: "MSB BIN".
  std::array<std::string, 10> masks;  // Output, fixed and parity; some are too short.

  explicit Judge(std::mt19937_64& random) {
    const auto below = [&](size_t n) { return random() % n; };
    isVff = below(4) == 0;
    if (!isVff) length = 48 * (1 + below(3));
    numberField = below(8);
    parityBits = static_cast<int>(below(11)) - 1;
    bits = static_cast<int>(below(145));
    for (std::string& kind : kinds)
      kind = std::string(below(2) == 0 ? "MSB " : "LSB ") +
             std::array{"BIN", "BCD", "MSD", ""}[below(4)];
    // Runs of equal characters.
    const auto fill = [&](std::string& mask, const std::string& characters, size_t longest) {
      while (mask.size() < length)
        mask.append(1 + below(longest), characters[below(characters.size())]);
      mask.resize(below(4) == 0 ? below(length + 1) : length);
    };
    fill(masks[0], std::array{"ABCDEFGHP.-*", "AB*", "H*", "ABP.", "A*.P-a"}[below(5)],
         1 + below(60));
    fill(masks[1], below(2) == 0 ? "." : "01...", 1 + below(9));
    for (size_t i = 2; i < masks.size(); ++i)
      fill(masks[i], below(3) == 0 ? "." : "XXX..E-O.", 1 + below(30));
  }

  std::string file() const {
    FormatLines lines(5, "-");
    if (isVff) {
      lines.push_back(std::to_string(bits) + ' ' + std::to_string(numberField + 1) + ' ' +
                      kinds[numberField]);
      lines.insert(lines.end(), masks.begin(), masks.end());
      lines.push_back("0");
      return fileOf("VFF", lines);
    }
    lines.resize(12);
    lines[7] = static_cast<char>('A' + numberField);
    lines[8] = std::to_string(parityBits);
    for (const std::string& kind : kinds)
      lines.push_back("F,0,0," + kind.substr(0, 3) + ',' + kind.substr(4));
    for (size_t p = 0; p < length; p += 48)
      for (const std::string& mask : masks) {
        lines.push_back(p < mask.size() ? mask.substr(p, 48) : "");
        if (lines.back().size() == 48) lines.back() += "A1X";  // Belongs to no position.
      }
    return fileOf("CDF", lines);
  }

  char at(size_t mask, size_t p) const { return p < masks[mask].size() ? masks[mask][p] : '\0'; }
  char letter(size_t field) const { return isVff ? '*' : static_cast<char>('A' + field); }
  bool isFixed(size_t p) const { return at(1, p) == '0' || at(1, p) == '1'; }
  bool isUsed(size_t p) const {
    const char c = at(0, p);
    return c == '.' ? isFixed(p) : c == 'P' || (isVff ? c == '*' : c >= 'A' && c <= 'H');
  }
  size_t end() const {  // Behind the last position in use.
    size_t p = 144;
    while (p > 0 && !isUsed(p - 1)) --p;
    return p;
  }
  int bitCount() const {
    int used = 0;
    for (size_t p = 0; p < 144; ++p) used += isUsed(p);
    return isVff ? bits : used;
  }
  size_t alignedBits() const { return static_cast<size_t>((bitCount() + 7) / 8 * 8); }
  int width(size_t field) const {
    return static_cast<int>(std::ranges::count(masks[0], letter(field)));
  }
  fieldstate state(size_t field) const {
    if (isVff && field != numberField) return {kNotGiven, kNotGiven, width(field)};
    const std::string& kind = kinds[field];
    return {typeFromText(kind.substr(4)), directionFromText(kind.substr(0, 3)), width(field)};
  }
  int parityMasks() const {
    const auto used = [](const std::string& mask) { return mask != std::string(144, '.'); };
    return isVff ? static_cast<int>(std::count_if(masks.begin() + 2, masks.end(), used))
                 : std::min(parityBits, 8);
  }
  void placeParity(int i, std::string& work) const {
    const std::string& mask = masks[static_cast<size_t>(2 + i)];
    const size_t place = mask.find_first_of("EO");
    if (place == std::string::npos) return;
    bool one = mask[place] == 'O';
    for (size_t p = 0; p < mask.size(); ++p) one ^= mask[p] == 'X' && work[p] == '1';
    work[place] = one ? '1' : '0';
  }
  std::string encode(const std::array<int64_t, 8>& values) const {
    std::string work(144, '0');
    for (size_t field = 0; field < 8; ++field) {
      uint64_t value = state(field).toBits(values[field]);
      for (size_t p = 144; p-- > 0;) {
        if (at(0, p) != letter(field) || (isVff && field != numberField)) continue;
        work[p] = value % 2 == 1 ? '1' : '0';
        value /= 2;
      }
    }
    for (size_t p = 0; p < 144; ++p)
      if (isFixed(p)) work[p] = at(1, p);
    for (int i = 0; i < parityMasks(); ++i) placeParity(i, work);
    work = std::string(144, '0') + work.substr(0, end());
    work = work.substr(work.size() - alignedBits());
    work.resize(128, '0');
    return work;
  }
  int64_t decode(std::string work, size_t field) const {
    work.resize(alignedBits(), '0');
    work.insert(0, 144, '0');
    work = work.substr(work.size() - end());
    work.resize(144, '0');
    uint64_t value = 0;
    for (size_t p = 144, bit = 0; p-- > 0;)
      if (at(0, p) == letter(field) && bit < 64) value |= uint64_t{work[p] == '1'} << bit++;
    return state(field).toValue(value);
  }
};

TEST(CardFormat, AgreesWithTheJudge) {
  std::mt19937_64 random{20261121};
  const auto number = [&random] {
    return static_cast<int64_t>((random() >> random() % 64) * (random() % 4 ? 1 : ~uint64_t{0}));
  };
  // A CDF format reads many files of its length: nothing of the one before may stay.
  const std::array<TestFormat, 3> cdf = {TestFormat("CDF"), TestFormat("CDF"), TestFormat("CDF")};
  for (int round = 0; round < 300; ++round) {
    const Judge judge(random);
    const std::unique_ptr<TestFormat> vff(judge.isVff ? new TestFormat("VFF") : nullptr);
    const TestFormat& test = vff ? *vff : cdf[judge.length / 48 - 1];
    CardFormat& format = *test.format;
    ASSERT_EQ(test.load(judge.file()), 0);
    ASSERT_EQ(format.lastUsedBit(), static_cast<int32_t>(judge.end()) - 1);
    for (int card = 0; card < 3; ++card) {
      std::array<int64_t, 8> values{};
      for (int32_t f = 0; int64_t & value : values) format.setFieldValue(f++, value = number());
      const int64_t cardNumber = values[judge.numberField] = number();
      CardPattern pattern;
      int32_t bits = -1;
      ASSERT_EQ(format.encodeCard(cardNumber, pattern, bits), 0);
      ASSERT_EQ(bitText(pattern), judge.encode(values)) << round << '\n' << judge.file();
      ASSERT_EQ(bits, judge.bitCount());
      if (card == 2)
        for (uint8_t& byte : pattern) byte = static_cast<uint8_t>(random());
      const std::string text = bitText(pattern);
      ASSERT_EQ(format.decodeCardNumber(pattern), judge.decode(text, judge.numberField));
      for (int32_t f = 0; f < 8; ++f) {
        const auto field = static_cast<size_t>(f);
        int64_t value = -1;
        ASSERT_EQ(format.decodeField(pattern, f, value), 0);
        ASSERT_EQ(value, judge.decode(text, field)) << round << ", field " << f;
        ASSERT_EQ(format.fieldBitCount(f), judge.width(field));
      }
      for (int i = 0; i < 8; ++i) {
        BitPattern work{{random(), random(), 0}};
        std::string expected = bitText(work.words).substr(0, 144);
        judge.placeParity(i, expected);
        format.computeParityBit(work, i);
        ASSERT_EQ(bitText(work.words).substr(0, 144), expected) << round << ", mask " << i;
      }
    }
  }
}

TEST(CardFormat, EncodesPublishedCards) {
  const std::string layout26 = "PAAAAAAAABBBBBBBBBBBBBBBBP", odd26 = ".............XXXXXXXXXXXXO",
                    layout37 = "PAAAAAAAAAAAAAAAABBBBBBBBBBBBBBBBBBBP",
                    odd37 = "..................XXXXXXXXXXXXXXXXXXO";
  const struct {
    std::string output, parity1, parity2;
    int64_t site, number;
    const char* key;
  } cards[] = {
      {layout26, "EXXXXXXXXXXXX", odd26, 21, 15890, "022A7C24 00000000"},
      {layout37, "EXXXXXXXXXXXXXXXXXX", odd37, 666, 31337, "1029A0F4 D2000000"},
  };
  for (const auto& card : cards) {
    for (const std::string kind : {"CDF", "EFF", "VFF"}) {
      FormatLines lines = cdfLines(card.output, card.parity1, card.parity2);
      if (kind == "VFF") {  // It has the site's value in its fixed mask.
        std::string output = card.output, fixed(output.size(), '.');
        for (size_t p = output.size(), bit = 0; p-- > 0;) {
          if (output[p] == 'A') fixed[p] = (card.site >> bit++ & 1) != 0 ? '1' : '0';
          if (output[p] != 'P') output[p] = output[p] == 'B' ? '*' : '.';
        }
        lines = vffRecords(std::to_string(output.size()) + " 2 MSB BIN", output, fixed,
                           card.parity1, card.parity2);
      }
      TestFormat test(kind);
      ASSERT_EQ(test.load(fileOf(kind, lines)), 0);
      for (const int32_t field : {-1, 0, 8}) test.format->setFieldValue(field, card.site);
      CardPattern pattern;
      int32_t bits = 0;
      test.format->encodeCard(card.number, pattern, bits);
      EXPECT_EQ(hexLines(pattern).substr(0, 17), card.key) << kind;
      EXPECT_EQ(bits, card.output.size());
      EXPECT_EQ(test.format->decodeCardNumber(pattern), card.number);
      for (const int32_t outside : {-1, 8}) {
        int64_t value = -1;
        BitPattern work;
        test.format->decodeField(pattern, outside, value);
        test.format->computeParityBit(work, outside);
        EXPECT_TRUE(value == 0 && work.words[0] == 0);
        EXPECT_TRUE(kind == "VFF" || test.format->fieldBitCount(outside) == 0);
      }
    }
  }
}

}  // namespace
}  // namespace badgemint
