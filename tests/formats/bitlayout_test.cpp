// The judge of the compiled layouts: an encoder and a decoder that go position by position through
// the mask characters, compared with the real ones on generated layouts. How a value becomes bits
// is known from tests/data/formats/fieldstate.txt.
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
struct Positions {
  std::array<bool, 144> bit{};
  bool get(int p) const { return p >= 0 && p < 144 && bit[static_cast<size_t>(p)]; }
  void put(int p, uint64_t on) {
    if (p >= 0 && p < 144) bit[static_cast<size_t>(p)] = on != 0;
  }
};

struct Judge {
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
  fieldstate state(int field) const {
    const std::string& kind = layout.kinds[static_cast<size_t>(field)];
    return {typeFromText(kind.substr(4).c_str()), directionFromText(kind.substr(0, 3).c_str()),
            width(field)};
  }
  void placeParity(size_t mask, Positions& work) const {
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
    Positions work;
    values[static_cast<size_t>(layout.cardNumberField())] = card;
    for (int field = 0; field < 8; ++field) {
      const uint64_t bits = state(field).toBits(values[static_cast<size_t>(field)]);
      for (int p = 143, bit = 0; p >= 0; --p)
        if (belongs(p, field)) work.put(p, bit < 64 ? bits >> bit & 1 : 0), ++bit;
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
    Positions work;
    for (int d = 0, s = last(); d < std::min(bytes, 128); ++d)
      work.put(s - (bytes - 1) + d, pattern[static_cast<size_t>(d / 8)] >> (7 - d % 8) & 1);
    uint64_t bits = 0;
    for (int p = 143, bit = 0; p >= 0; --p)
      if (belongs(p, field) && bit < 64) bits |= uint64_t{work.get(p)} << bit++;
    return state(field).toValue(bits);
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
