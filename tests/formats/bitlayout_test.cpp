// The judge of the compiled layouts: an encoder and a decoder that go position by position through
// the mask characters, compared with the real ones on generated layouts.
#include "formats/bitlayout.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "formats/CdfCardFormat.h"
#include "formats/VffCardFormat.h"
#include "formats/formatfiles.h"
#include "support/result.h"
#include "support/testfiles.h"

namespace badgemint {
namespace {

// Single bits of `Size` positions: outside they read 0 and are never written.
template <int Size>
struct Bits {
  std::array<bool, Size> bit{};
  bool get(int p) const { return p >= 0 && p < Size && bit[static_cast<size_t>(p)]; }
  void put(int p, bool on) {
    if (p >= 0 && p < Size) bit[static_cast<size_t>(p)] = on;
  }
};

const int kDigitCodes[] = {0x01, 0x10, 0x08, 0x19, 0x04, 0x15, 0x0D, 0x1C, 0x02, 0x13};

struct Judge {
  const TestLayout& layout;
  bool vff;
  int parityBits;
  int numberOfBits;

  static char at(const std::string& mask, int p) {
    return p < static_cast<int>(mask.size()) ? mask[static_cast<size_t>(p)] : '\0';
  }
  bool belongsTo(int p, int field) const {
    return at(layout.output, p) == (vff ? '*' : 'A' + field);
  }
  bool isUsed(int p) const {
    const char c = at(layout.output, p), fixed = at(layout.fixed, p);
    if (c == '.') return fixed == '0' || fixed == '1';
    return c == 'P' || (vff ? c == '*' : c >= 'A' && c <= 'H');
  }
  int lastUsed() const {
    int last = 143;
    while (last >= 0 && !isUsed(last)) --last;
    return last;
  }
  int usedCount() const {
    int count = 0;
    for (int p = 0; p < 144; ++p) count += isUsed(p);
    return count;
  }
  int width(int field) const {
    int count = 0;
    for (int p = 0; p < 144; ++p) count += belongsTo(p, field);
    return count;
  }
  bool has(int field, const char* word) const {
    return layout.fields[static_cast<size_t>(field)].find(word) != std::string::npos;
  }

  Bits<64> directed(const Bits<64>& value, int field) const {
    if (!has(field, "LSB")) return value;
    Bits<64> turned;
    const int n = width(field);
    for (int k = 0; k < n; ++k) turned.put(63 - k, value.get(64 - n + k));
    return turned;
  }
  Bits<64> toBits(int64_t value, int field) const {
    Bits<64> bits;
    auto v = static_cast<uint64_t>(value);
    const int groups = width(field) / 5;
    if (has(field, "BIN"))
      for (int p = 63; p >= 0; --p, v >>= 1) bits.put(p, v & 1);
    if (has(field, "BCD"))
      for (int p = 63; p >= 0 && v != 0; p -= 4, v /= 10)
        for (int b = 0; b < 4; ++b) bits.put(p - b, v % 10 >> b & 1);
    if (has(field, "MSD"))
      for (int i = 0; i < groups; ++i, v /= 10)
        for (int b = 0; b < 5; ++b) bits.put(63 - 5 * i - b, kDigitCodes[v % 10] >> b & 1);
    return directed(bits, field);
  }
  int64_t toValue(const Bits<64>& undirected, int field) const {
    const Bits<64> bits = directed(undirected, field);
    uint64_t v = 0;
    if (has(field, "BIN"))
      for (int p = 0; p < 64; ++p) v = v << 1 | bits.get(p);
    const auto group = [&bits](int p, int size) {
      uint64_t digit = 0;
      for (int b = 0; b < size; ++b) digit = digit << 1 | bits.get(p + b);
      return digit;
    };
    if (has(field, "BCD"))
      for (int p = 0; p < 64; p += 4) v = v * 10 + group(p, 4);
    if (has(field, "MSD"))
      for (int p = 64 - width(field); p <= 63; p += 5)
        for (uint64_t digit = 0; digit < 10; ++digit)
          if (group(p, 5) == static_cast<uint64_t>(kDigitCodes[digit])) v = v * 10 + digit;
    return static_cast<int64_t>(v);
  }

  void placeParity(const std::string& mask, Bits<144>& work) const {
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
  CardPattern encode(const std::array<int64_t, 8>& values, int64_t card) const {
    Bits<144> work, output;
    for (int field = 0; field < 8; ++field) {
      const bool isCard = field == layout.cardNumberField;
      if (vff && !isCard) continue;
      const Bits<64> bits = toBits(isCard ? card : values[static_cast<size_t>(field)], field);
      int cursor = 63;
      for (int p = 143; p >= 0; --p)
        if (belongsTo(p, field)) work.put(p, bits.get(cursor--));
    }
    for (int p = 143; p >= 0; --p)
      if (const char c = at(layout.fixed, p); c == '0' || c == '1') work.put(p, c == '1');
    for (int i = 0; i < parityBits; ++i) placeParity(layout.parity[static_cast<size_t>(i)], work);
    const int n = (numberOfBits + 7) / 8 * 8, s = lastUsed();
    for (int d = n - 1; d >= 0; --d) output.put(d, work.get(s - (n - 1) + d));
    CardPattern pattern{};
    for (int p = 0; p < 128; ++p)
      pattern[static_cast<size_t>(p / 8)] |= static_cast<uint8_t>(output.get(p) << (7 - p % 8));
    return pattern;
  }
  int64_t decode(const CardPattern& pattern, int field) const {
    Bits<144> work;
    const int n = (numberOfBits + 7) / 8 * 8, s = lastUsed();
    for (int d = std::min(n, 128) - 1; d >= 0; --d)
      work.put(s - (n - 1) + d, pattern[static_cast<size_t>(d / 8)] >> (7 - d % 8) & 1);
    Bits<64> bits;
    int cursor = 63;
    for (int p = 143; p >= 0; --p)
      if (belongsTo(p, field)) bits.put(cursor--, work.get(p));
    return toValue(bits, field);
  }
};

class Generator {
 public:
  int below(int n) { return static_cast<int>(_random() % static_cast<unsigned>(n)); }
  int64_t number() {
    const auto v = static_cast<int64_t>(_random() >> below(64));
    return below(4) == 0 ? -v : v;
  }
  // Runs of up to `longest` equal characters.
  std::string mask(const std::string& characters, size_t size, int longest) {
    std::string text;
    while (text.size() < size)
      text.append(static_cast<size_t>(1 + below(longest)),
                  characters[static_cast<size_t>(below(static_cast<int>(characters.size())))]);
    text.resize(below(4) == 0 ? static_cast<size_t>(below(static_cast<int>(size) + 1)) : size);
    return text;
  }
  TestLayout layout(bool vff, size_t width) {
    TestLayout result;
    const char* const outputs[] = {"ABCDEFGHP.-*", "AB", "H*", "ABP.", "A*.P-a"};
    result.output = mask(outputs[below(5)], width, 1 + below(60));
    result.fixed = mask(below(2) == 0 ? "." : "01...", width, 1 + below(9));
    for (std::string& parity : result.parity)
      parity = below(3) == 0 ? std::string(width, '.') : mask("XXX..E-O.", width, 1 + below(30));
    const char* const fields[] = {"MSB,BIN", "LSB,BIN", "MSB,BCD", "LSB,BCD", "MSB,MSD", "LSB,MSD"};
    for (std::string& field : result.fields) field = fields[below(6)];
    if (below(4) == 0) result.fields[static_cast<size_t>(below(8))] = "LSB,";
    result.cardNumberField = below(8);
    result.parityBits = below(10) - 1;
    if (vff)  // The other fields of such a file have neither direction nor type.
      for (size_t i = 0; i < 8; ++i)
        if (static_cast<int>(i) != result.cardNumberField) result.fields[i].clear();
    return result;
  }
  CardPattern pattern() {
    CardPattern result;
    for (uint8_t& byte : result) byte = static_cast<uint8_t>(below(256));
    return result;
  }

 private:
  std::mt19937_64 _random{20261121};
};

std::string vffDefinition(const TestLayout& layout, int bits) {
  std::string field = layout.fields[static_cast<size_t>(layout.cardNumberField)];
  field[3] = ' ';
  return std::to_string(bits) + " " + std::to_string(layout.cardNumberField + 1) + " " + field;
}

TEST(BitLayout, AgreesWithTheJudge) {
  TestFolder folder;
  Generator make;
  for (int round = 0; round < 3000; ++round) {
    SCOPED_TRACE(round);
    const bool vff = round % 4 == 0;
    const size_t width = vff ? 144 : 48 * static_cast<size_t>(1 + make.below(3));
    const TestLayout layout = make.layout(vff, width);
    Judge judge{layout, vff, std::min(layout.parityBits, 8), 0};
    judge.numberOfBits = vff ? make.below(145) : judge.usedCount();
    std::unique_ptr<CardFormat> format;
    std::string file;
    if (vff) {
      format = std::make_unique<VffCardFormat>();
      file = layout.vff(vffDefinition(layout, judge.numberOfBits));
      judge.parityBits = 0;
      for (const std::string& mask : layout.parity)
        judge.parityBits += mask != std::string(144, '.');
    } else {
      format = std::make_unique<CdfCardFormat>();
      file = layout.cdf(width);
    }
    ASSERT_EQ(format->loadFormatFile(folder.write("layout", file).c_str()), kSuccess);
    ASSERT_EQ(format->lastUsedBit(), judge.lastUsed());
    std::array<int64_t, 8> values{};
    for (int card = 0; card < 4; ++card) {
      if (card != 1)
        for (int f = 0; f < 8; ++f)
          format->setFieldValue(f, values[static_cast<size_t>(f)] = make.number());
      const int64_t number = make.number();
      CardPattern pattern;
      int32_t bits = -1;
      EXPECT_EQ(format->encodeCard(number, pattern, bits), kSuccess);
      ASSERT_EQ(pattern, judge.encode(values, number)) << layout.output << "\n" << layout.fixed;
      ASSERT_EQ(bits, judge.numberOfBits);
      if (card == 3) pattern = make.pattern();
      ASSERT_EQ(format->decodeCardNumber(pattern), judge.decode(pattern, layout.cardNumberField));
      for (int f = 0; f < 8; ++f) {
        int64_t value = -1;
        EXPECT_EQ(format->decodeField(pattern, f, value), kSuccess);
        ASSERT_EQ(value, judge.decode(pattern, f)) << "field " << f << "\n" << layout.output;
        ASSERT_EQ(format->fieldBitCount(f), judge.width(f));
      }
    }
  }
}

}  // namespace
}  // namespace badgemint
