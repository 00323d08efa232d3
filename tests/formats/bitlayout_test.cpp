// Encoding and decoding with whole format files, compared with a reference that goes position by
// position through the characters of their masks. The manuals show the cards of real formats.

#include <bitset>

#include "formats/formatfile.h"

namespace badgemint::bitlayout_test {

std::string bitText(const auto& units) {
  std::string text;
  for (const auto unit : units) text += std::bitset<8 * sizeof unit>(unit).to_string();
  return text;
}

// How a value becomes the bits of a field, and back: bits as text, the first position at the front.
struct ReferenceField {
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
  std::string toBits(int64_t number) const {
    auto value = static_cast<uint64_t>(number);
    std::string text = state.ftyp == kTypeBin ? std::bitset<64>(value).to_string() : "";
    const bool isBcd = state.ftyp == kTypeBcd;
    const int digits = isBcd ? 16 : state.ftyp == kTypeMsd ? state.nbits / 5 : 0;
    for (int i = 0; i < digits; ++i, value /= 10)
      text.insert(0, isBcd ? std::bitset<4>(value % 10).to_string() : stripeDigit(value % 10));
    return directed(text);
  }
  int64_t toValue(std::string text) const {
    text = directed(text);
    uint64_t value = state.ftyp == kTypeBin ? std::bitset<64>(text).to_ullong() : 0;
    for (size_t p = 0; state.ftyp == kTypeBcd && p < 64; p += 4)
      value = value * 10 + std::bitset<4>(text, p, 4).to_ulong();
    const std::string framed = std::string(80, '0') + text + "0000";
    for (int p = 64 - state.nbits; state.ftyp == kTypeMsd && p <= 63; p += 5) {
      const std::string code = framed.substr(static_cast<size_t>(80 + p), 5);
      uint64_t digit = 0;
      while (digit < 10 && stripeDigit(digit) != code) ++digit;
      if (digit < 10) value = value * 10 + digit;
    }
    return static_cast<int64_t>(value);
  }
};

// What a format file defines, and what its cards then are. Bits are text, the first at the front.
struct ReferenceFormat {
  bool isVff;
  size_t numberField, end = 0;  // After the last position in use.
  int bits = 0, parityMasks = 0;
  std::array<std::string, 8> directions, types;  // Of each field.
  std::array<std::string, 10> masks;             // Output, fixed and parity; blank at some ends.

  explicit ReferenceFormat(std::mt19937_64& random)
      : isVff(random() % 4 == 0), numberField(random() % 8) {
    for (std::string& direction : directions)
      direction = std::array{"MSB", "LSB", "?"}[random() % 3];
    for (std::string& type : types) type = std::array{"BIN", "BCD", "MSD", ""}[random() % 4];
    // Runs of equal characters.
    const auto fill = [&](std::string& mask, const std::string& characters) {
      while (mask.size() < 144)
        mask.append(1 + random() % 30, characters[random() % characters.size()]);
      mask.resize(random() % 4 == 0 ? random() % 145 : 144);
      mask.resize(144, ' ');
    };
    fill(masks[0], std::array{"ABCDEFGHP.-*", "AB*", "H", "*", "ABP.", "A*.P-a"}[random() % 6]);
    fill(masks[1], random() % 2 == 0 ? "." : "01...");
    for (size_t i = 2; i < 10; ++i) fill(masks[i], random() % 3 == 0 ? "." : "XXX..E-O.");
    for (size_t p = 0; p < 144; ++p) {
      if (!isUsed(p)) continue;
      end = p + 1;
      ++bits;
    }
    parityMasks = static_cast<int>(random() % 11) - 1;
    if (!isVff) return;
    bits = static_cast<int>(random() % 145);
    const std::string unused(144, '.');
    parityMasks = static_cast<int>(8 - std::count(masks.begin() + 2, masks.end(), unused));
  }

  std::string file() const {
    FormatLines lines(isVff ? 5 : 12);
    if (isVff) {
      lines.push_back(std::to_string(bits) + ' ' + std::to_string(numberField + 1) + ' ' +
                      directions[numberField] + ' ' + types[numberField]);
      for (std::string mask : masks) {
        const size_t blank = mask.find(' ');
        if (blank < 144 && blank % 2 == 0) mask.replace(blank, mask.npos, std::string("\0E1*X", 5));
        lines.push_back(mask);  // A NUL ends it, as blanks at its end do.
      }
      lines.push_back("0");
      return fileOf("VFF", lines);
    }
    lines[7] = static_cast<char>('A' + numberField);
    lines[8] = std::to_string(parityMasks);
    for (size_t i = 0; i < 8; ++i) lines.push_back("F,0,0," + directions[i] + ',' + types[i]);
    for (const size_t p : {0U, 48U, 96U})
      for (const std::string& mask : masks)
        lines.push_back(mask.substr(p, std::min(mask.find(' ', p) - p, size_t{48})) +
                        (mask.find(' ', p) - p < 48 ? "" : "A1X"));  // Belongs to no position.
    return fileOf("CDF", lines);
  }

  char letter(size_t field) const { return isVff ? '*' : static_cast<char>('A' + field); }
  bool isFixed(size_t p) const { return masks[1][p] == '0' || masks[1][p] == '1'; }
  bool isUsed(size_t p) const {
    const char c = masks[0][p];
    return c == '.' ? isFixed(p) : c == 'P' || (isVff ? c == '*' : c >= 'A' && c <= 'H');
  }
  size_t alignedBits() const { return static_cast<size_t>((bits + 7) / 8 * 8); }
  fieldstate state(size_t field) const {
    const auto width = static_cast<int>(std::ranges::count(masks[0], letter(field)));
    if (isVff && field != numberField) return {kNotGiven, kNotGiven, width};
    return {typeFromText(types[field]), directionFromText(directions[field]), width};
  }
  void placeParity(size_t i, std::string& work) const {
    const std::string& mask = masks[2 + i];
    const size_t place = mask.find_first_of("EO");
    if (place == std::string::npos) return;
    bool one = mask[place] == 'O';
    for (size_t p = 0; p < 144; ++p) one ^= mask[p] == 'X' && work[p] == '1';
    work[place] = one ? '1' : '0';
  }
  std::string encode(const std::array<int64_t, 8>& values) const {
    std::string work(144, '0');
    for (size_t field = 0; field < 8; ++field) {
      if (isVff && field != numberField) continue;
      std::string digits =
          std::string(80, '0') + ReferenceField{state(field)}.toBits(values[field]);
      for (size_t p = 144; p-- > 0;) {
        if (masks[0][p] != letter(field)) continue;
        work[p] = digits.back();
        digits.pop_back();
      }
    }
    for (size_t p = 0; p < 144; ++p)
      if (isFixed(p)) work[p] = masks[1][p];
    for (int i = 0; i < std::min(parityMasks, 8); ++i) placeParity(static_cast<size_t>(i), work);
    work = std::string(144, '0') + work.substr(0, end);
    work = work.substr(work.size() - alignedBits());
    work.resize(128, '0');
    return work;
  }
  int64_t decode(std::string work, size_t field) const {
    work.resize(alignedBits(), '0');
    work = std::string(144, '0') + work;
    work = work.substr(work.size() - end);
    work.resize(144, '0');
    std::string digits(64, '0');
    for (size_t p = 0; p < 144; ++p)
      if (masks[0][p] == letter(field)) digits += work[p];
    return ReferenceField{state(field)}.toValue(digits);
  }
};

TEST(CardFormat, AgreesWithTheReference) {
  std::mt19937_64 random{20261121};
  const auto number = [&random] {
    return static_cast<int64_t>((random() >> random() % 64) * (random() % 4 ? 1 : ~uint64_t{0}));
  };
  TestFormat test("CDF");
  CardFormat* const cdf = test.format;  // Nothing of the file before may stay.
  for (int round = 0; round < 500; ++round) {
    const ReferenceFormat reference(random);
    test.format = reference.isVff ? test.set.addFormat(7, ".vff") : cdf;
    CardFormat& format = *test.format;
    ASSERT_EQ(test.load(reference.file()), 0);
    ASSERT_EQ(format.lastUsedBit(), static_cast<int32_t>(reference.end) - 1);
    std::array<int64_t, 8> values{};
    for (int32_t f = 0; int64_t & value : values) format.setFieldValue(f++, value = number());
    const int64_t cardNumber = values[reference.numberField] = number();
    CardPattern pattern;
    int32_t bits = -1;
    int64_t value = -1;
    ASSERT_EQ(format.encodeCard(cardNumber, pattern, bits), 0);
    ASSERT_EQ(bitText(pattern), reference.encode(values)) << round << '\n' << reference.file();
    ASSERT_EQ(bits, reference.bits);
    for (uint8_t& byte : pattern) byte ^= static_cast<uint8_t>(round % 3 == 0 ? random() : 0);
    const std::string text = bitText(pattern);
    ASSERT_EQ(format.decodeCardNumber(pattern), reference.decode(text, reference.numberField));
    for (int32_t f = 0; f < 8; ++f) {
      const auto field = static_cast<size_t>(f);
      ASSERT_EQ(format.decodeField(pattern, f, value), 0);
      ASSERT_EQ(value, reference.decode(text, field)) << round << f;
      ASSERT_EQ(format.fieldBitCount(f), reference.state(field).nbits);
      BitPattern work{{random(), random(), random()}};
      std::string expected = bitText(work.words);
      reference.placeParity(field, expected);
      format.computeParityBit(work, f);
      ASSERT_EQ(bitText(work.words), expected) << round << f;
    }
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

}  // namespace badgemint::bitlayout_test
