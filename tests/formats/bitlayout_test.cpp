// The judge of the compiled layouts: an encoder and a decoder that go position by position through
// the mask characters, compared with the real ones on generated layouts.
#include "formats/bitlayout.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "formats/CardFormat.h"

namespace badgemint {
namespace {

constexpr const char* kKinds[] = {"MSB,BIN", "LSB,BIN", "MSB,BCD", "LSB,BCD",
                                  "MSB,MSD", "LSB,MSD", "LSB,"};

// Made in memory: the masks of a file of 144 positions, and the kinds of its fields.
struct MadeFormat final : CardFormat {
  std::array<std::string, 10> masks;  // Output, fixed and parity.
  std::array<std::string, 8> kinds;
  int32_t bitCount = BitLayout::kCountBits;

  MadeFormat(std::mt19937_64& random) {
    const auto below = [&](size_t n) { return random() % n; };
    // Runs of equal characters; now and then the mask is too short.
    const auto fill = [&](size_t mask, const std::string& characters, size_t longest) {
      std::string& text = masks[mask];
      while (text.size() < 144)
        text.append(1 + below(longest), characters[below(characters.size())]);
      text.resize(below(4) == 0 ? below(145) : 144);
      BitMask& to = mask == 0 ? _outputBitMask : mask == 1 ? _fixedBitMask : _parityMasks[mask - 2];
      std::ranges::copy(text, to.begin());
    };
    fill(0, std::array{"ABCDEFGHP.-*", "AB", "H*", "ABP.", "A*.P-a"}[below(5)], 1 + below(60));
    fill(1, below(2) == 0 ? "." : "01...", 1 + below(9));
    for (size_t mask = 2; mask < 10; ++mask)
      fill(mask, below(3) == 0 ? "." : "XXX..E-O.", 1 + below(30));
    for (size_t f = 0; f < 8; ++f) {
      kinds[f] = kKinds[below(std::size(kKinds))];
      _fieldDefs[f].dir = directionFromText(kinds[f].substr(0, 3).c_str());
      _fieldDefs[f].ftyp = typeFromText(kinds[f].substr(4).c_str());
    }
    _cardNumberField = static_cast<int32_t>(below(8));
    _numberParityBits = static_cast<int32_t>(below(10)) - 1;
    _numberParityBits = std::min(_numberParityBits, 8);
    if (below(2) == 0) bitCount = static_cast<int32_t>(below(145));
    compileMasks({'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H'}, bitCount);
  }
  int cardNumberField() const { return _cardNumberField; }
  int parityBits() const { return _numberParityBits; }

  int32_t loadFormatFile(const char*) override { return 0; }
  void printInfo() const override {}
  void parseFieldDef(FieldDefinition&, char*) override {}
  int32_t readFormatLine(LineReader&, FormatLine&, bool) override { return 0; }
};

// Positions outside read 0 and are never written.
template <int Size>
struct Bits {
  std::array<bool, Size> bit{};
  bool get(int p) const { return p >= 0 && p < Size && bit[static_cast<size_t>(p)]; }
  void put(int p, uint64_t on) {
    if (p >= 0 && p < Size) bit[static_cast<size_t>(p)] = on != 0;
  }
};

struct Judge {
  static constexpr uint64_t kCodes[] = {0x01, 0x10, 0x08, 0x19, 0x04, 0x15, 0x0D, 0x1C, 0x02, 0x13};

  const MadeFormat& layout;
  const int numberOfBits = layout.bitCount == BitLayout::kCountBits ? used() : layout.bitCount;
  const int bytes = (numberOfBits + 7) / 8 * 8;

  char at(size_t mask, int p) const {
    const auto i = static_cast<size_t>(p);
    return i < layout.masks[mask].size() ? layout.masks[mask][i] : '\0';
  }
  bool belongs(int p, int field) const { return at(0, p) == 'A' + field; }
  bool isUsed(int p) const {
    if (at(0, p) == '.') return at(1, p) == '0' || at(1, p) == '1';
    return at(0, p) == 'P' || (at(0, p) >= 'A' && at(0, p) <= 'H');
  }
  int used() const {
    int count = 0;
    for (int p = 0; p < 144; ++p) count += isUsed(p);
    return count;
  }
  int last() const {
    int p = 143;
    while (p >= 0 && !isUsed(p)) --p;
    return p;
  }
  int width(int field) const {
    int count = 0;
    for (int p = 0; p < 144; ++p) count += belongs(p, field);
    return count;
  }
  bool is(int field, const char* word) const {
    return layout.kinds[static_cast<size_t>(field)].find(word) != std::string::npos;
  }
  Bits<64> directed(const Bits<64>& value, int field) const {
    if (!is(field, "LSB")) return value;
    Bits<64> turned;
    for (int k = 0, n = width(field); k < n; ++k) turned.put(63 - k, value.get(64 - n + k));
    return turned;
  }
  Bits<64> toBits(int64_t value, int field) const {
    Bits<64> bits;
    auto v = static_cast<uint64_t>(value);
    if (is(field, "BIN"))
      for (int p = 63; p >= 0; --p, v >>= 1) bits.put(p, v & 1);
    if (is(field, "BCD"))
      for (int p = 63; p >= 0 && v != 0; p -= 4, v /= 10)
        for (int b = 0; b < 4; ++b) bits.put(p - b, v % 10 >> b & 1);
    if (is(field, "MSD"))
      for (int i = 0, n = width(field) / 5; i < n; ++i, v /= 10)
        for (int b = 0; b < 5; ++b) bits.put(63 - 5 * i - b, kCodes[v % 10] >> b & 1);
    return directed(bits, field);
  }
  int64_t toValue(const Bits<64>& taken, int field) const {
    const Bits<64> bits = directed(taken, field);
    const auto group = [&bits](int p, int size) {
      uint64_t value = 0;
      for (int b = 0; b < size; ++b) value = value << 1 | bits.get(p + b);
      return value;
    };
    uint64_t v = 0;
    if (is(field, "BIN")) v = group(0, 64);
    if (is(field, "BCD"))
      for (int p = 0; p < 64; p += 4) v = v * 10 + group(p, 4);
    if (is(field, "MSD"))
      for (int p = 64 - width(field); p < 64; p += 5)
        if (const auto code = std::ranges::find(kCodes, group(p, 5)); code != std::end(kCodes))
          v = v * 10 + static_cast<uint64_t>(code - kCodes);
    return static_cast<int64_t>(v);
  }
  void placeParity(size_t mask, Bits<144>& work) const {
    int ones = 0, position = -1;
    bool odd = false;
    for (int p = 143; p >= 0; --p) {
      ones += at(mask, p) == 'X' && work.get(p);
      if (at(mask, p) != 'E' && at(mask, p) != 'O') continue;
      odd = at(mask, p) == 'O';
      position = p;
    }
    work.put(position, ones % 2 == (odd ? 0 : 1));
  }
  CardPattern encode(std::array<int64_t, 8> values, int64_t card) const {
    Bits<144> work;
    values[static_cast<size_t>(layout.cardNumberField())] = card;
    for (int field = 0; field < 8; ++field) {
      const Bits<64> bits = toBits(values[static_cast<size_t>(field)], field);
      for (int p = 143, cursor = 63; p >= 0; --p)
        if (belongs(p, field)) work.put(p, bits.get(cursor--));
    }
    for (int p = 0; p < 144; ++p)
      if (at(1, p) == '0' || at(1, p) == '1') work.put(p, at(1, p) == '1');
    for (int i = 0; i < layout.parityBits(); ++i) placeParity(static_cast<size_t>(2 + i), work);
    CardPattern pattern{};
    for (int d = 0, s = last(); d < std::min(bytes, 128); ++d)
      pattern[static_cast<size_t>(d / 8)] |=
          static_cast<uint8_t>(work.get(s - (bytes - 1) + d) << (7 - d % 8));
    return pattern;
  }
  int64_t decode(const CardPattern& pattern, int field) const {
    Bits<144> work;
    for (int d = 0, s = last(); d < std::min(bytes, 128); ++d)
      work.put(s - (bytes - 1) + d, pattern[static_cast<size_t>(d / 8)] >> (7 - d % 8) & 1);
    Bits<64> bits;
    for (int p = 143, cursor = 63; p >= 0; --p)
      if (belongs(p, field)) bits.put(cursor--, work.get(p));
    return toValue(bits, field);
  }
};

TEST(BitLayout, AgreesWithTheJudge) {
  std::mt19937_64 random{20261121};
  const auto number = [&random] {
    return static_cast<int64_t>((random() >> random() % 64) * (random() % 4 ? 1 : ~uint64_t{0}));
  };
  for (int round = 0; round < 500; ++round) {
    MadeFormat format(random);
    const Judge judge{format};
    std::array<int64_t, 8> values{};
    ASSERT_EQ(format.lastUsedBit(), judge.last());
    for (int card = 0; card < 3; ++card) {
      for (size_t f = 0; f < 8 && card != 1; ++f)
        format.setFieldValue(static_cast<int32_t>(f), values[f] = number());
      const int64_t cardNumber = number();
      CardPattern pattern;
      int32_t bits = -1;
      format.encodeCard(cardNumber, pattern, bits);
      ASSERT_EQ(pattern, judge.encode(values, cardNumber)) << round;
      ASSERT_EQ(bits, judge.numberOfBits);
      if (card == 2)
        for (uint8_t& byte : pattern) byte = static_cast<uint8_t>(random());
      ASSERT_EQ(format.decodeCardNumber(pattern), judge.decode(pattern, format.cardNumberField()));
      for (int f = 0; f < 8; ++f) {
        int64_t value = -1;
        format.decodeField(pattern, f, value);
        ASSERT_EQ(value, judge.decode(pattern, f)) << round << ", field " << f;
        ASSERT_EQ(format.fieldBitCount(f), judge.width(f));
      }
    }
  }
}

}  // namespace
}  // namespace badgemint
