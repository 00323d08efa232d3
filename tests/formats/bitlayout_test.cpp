// The judge of the compiled layouts: an encoder and a decoder that go position by position through
// the mask characters, compared with the real ones on generated layouts.
#include "formats/bitlayout.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <span>

#include "formats/CdfCardFormat.h"
#include "formats/VffCardFormat.h"
#include "formats/formatfiles.h"
#include "support/result.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

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

  const TestLayout& layout;
  bool vff;
  int parityBits;
  int numberOfBits = 0;

  char at(size_t mask, int p) const {
    const auto i = static_cast<size_t>(p);
    return i < layout.masks[mask].size() ? layout.masks[mask][i] : '\0';
  }
  bool belongs(int p, int field) const { return at(0, p) == (vff ? '*' : 'A' + field); }
  bool isUsed(int p) const {
    if (at(0, p) == '.') return at(1, p) == '0' || at(1, p) == '1';
    return at(0, p) == 'P' || (vff ? at(0, p) == '*' : at(0, p) >= 'A' && at(0, p) <= 'H');
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
    return layout.fields[static_cast<size_t>(field)].find(word) != std::string::npos;
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
    values[static_cast<size_t>(layout.cardNumberField)] = card;
    for (int field = 0; field < 8; ++field) {
      if (vff && field != layout.cardNumberField) continue;
      const Bits<64> bits = toBits(values[static_cast<size_t>(field)], field);
      for (int p = 143, cursor = 63; p >= 0; --p)
        if (belongs(p, field)) work.put(p, bits.get(cursor--));
    }
    for (int p = 0; p < 144; ++p)
      if (at(1, p) == '0' || at(1, p) == '1') work.put(p, at(1, p) == '1');
    for (int i = 0; i < parityBits; ++i) placeParity(static_cast<size_t>(2 + i), work);
    CardPattern pattern{};
    const int n = (numberOfBits + 7) / 8 * 8;
    for (int d = 0, s = last(); d < std::min(n, 128); ++d)
      pattern[static_cast<size_t>(d / 8)] |=
          static_cast<uint8_t>(work.get(s - (n - 1) + d) << (7 - d % 8));
    return pattern;
  }
  int64_t decode(const CardPattern& pattern, int field) const {
    Bits<144> work;
    const int n = (numberOfBits + 7) / 8 * 8;
    for (int d = 0, s = last(); d < std::min(n, 128); ++d)
      work.put(s - (n - 1) + d, pattern[static_cast<size_t>(d / 8)] >> (7 - d % 8) & 1);
    Bits<64> bits;
    for (int p = 143, cursor = 63; p >= 0; --p)
      if (belongs(p, field)) bits.put(cursor--, work.get(p));
    return toValue(bits, field);
  }
};

struct Generator {
  std::mt19937_64 random{20261121};

  size_t below(size_t n) { return random() % n; }
  int64_t number() {
    return static_cast<int64_t>((random() >> below(64)) * (below(4) ? 1 : ~uint64_t{0}));
  }

  // Runs of equal characters; now and then the mask is too short.
  std::string mask(const std::string& characters, size_t size, size_t longest) {
    std::string text;
    while (text.size() < size)
      text.append(1 + below(longest), characters[below(characters.size())]);
    text.resize(below(4) == 0 ? below(size + 1) : size);
    return text;
  }
  TestLayout layout(bool vff, size_t width) {
    TestLayout result;
    const char* const outputs[] = {"ABCDEFGHP.-*", "AB", "H*", "ABP.", "A*.P-a"};
    result.masks[0] = mask(outputs[below(5)], width, 1 + below(60));
    result.masks[1] = mask(below(2) == 0 ? "." : "01...", width, 1 + below(9));
    for (std::string& parity : std::span(result.masks).subspan(2))
      parity = below(3) ? mask("XXX..E-O.", width, 1 + below(30)) : std::string(width, '.');
    result.cardNumberField = static_cast<int>(below(8));
    result.parityBits = static_cast<int>(below(10)) - 1;
    const char* const fields[] = {"MSB,BIN", "LSB,BIN", "MSB,BCD", "LSB,BCD",
                                  "MSB,MSD", "LSB,MSD", "LSB,"};
    for (int i = 0; i < 8; ++i)  // A VFF file has nothing to say on the other fields.
      if (!vff || i == result.cardNumberField)
        result.fields[static_cast<size_t>(i)] = fields[below(7)];
    return result;
  }
};

void compare(CardFormat& format, const Judge& judge, Generator& make) {
  std::array<int64_t, 8> values{};
  ASSERT_EQ(format.lastUsedBit(), judge.last());
  for (int card = 0; card < 3; ++card) {
    for (size_t f = 0; f < 8 && card != 1; ++f)
      format.setFieldValue(static_cast<int32_t>(f), values[f] = make.number());
    const int64_t number = make.number();
    CardPattern pattern;
    int32_t bits = -1;
    format.encodeCard(number, pattern, bits);
    ASSERT_EQ(pattern, judge.encode(values, number));
    ASSERT_EQ(bits, judge.numberOfBits);
    if (card == 2)
      for (uint8_t& byte : pattern) byte = static_cast<uint8_t>(make.below(256));
    ASSERT_EQ(format.decodeCardNumber(pattern),
              judge.decode(pattern, judge.layout.cardNumberField));
    for (int f = 0; f < 8; ++f) {
      int64_t value = -1;
      format.decodeField(pattern, f, value);
      ASSERT_EQ(value, judge.decode(pattern, f)) << "field " << f;
      ASSERT_EQ(format.fieldBitCount(f), judge.width(f));
    }
  }
}

TEST(BitLayout, AgreesWithTheJudge) {
  TestFolder folder;
  Generator make;
  for (int round = 0; round < 1000 && !HasFatalFailure(); ++round) {
    SCOPED_TRACE(round);
    const size_t width = 48 * (1 + make.below(3));
    const TestLayout text = make.layout(false, width);
    CdfCardFormat cdf;
    ASSERT_EQ(cdf.loadFormatFile(folder.write("cdf", text.cdf(width)).c_str()), kSuccess);
    Judge judge{text, false, std::min(text.parityBits, 8)};
    judge.numberOfBits = judge.used();
    compare(cdf, judge, make);

    const TestLayout records = make.layout(true, 144);
    Judge other{records, true, 0, static_cast<int>(make.below(145))};
    for (const std::string& mask : std::span(records.masks).subspan(2))
      other.parityBits += mask != std::string(144, '.');
    std::string kind = records.fields[static_cast<size_t>(records.cardNumberField)];
    kind[3] = ' ';
    const std::string definition = std::to_string(other.numberOfBits) + " " +
                                   std::to_string(records.cardNumberField + 1) + " " + kind;
    VffCardFormat vff;
    const std::string path = folder.write("vff", twoBytes(records.vffText(definition)));
    ASSERT_EQ(vff.loadFormatFile(path.c_str()), kSuccess);
    compare(vff, other, make);
  }
}

}  // namespace
}  // namespace badgemint
