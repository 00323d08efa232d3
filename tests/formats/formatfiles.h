// Writes card formats as the three kinds of files.
#ifndef BADGEMINT_TESTS_FORMATS_FORMATFILES_H
#define BADGEMINT_TESTS_FORMATS_FORMATFILES_H

#include <array>
#include <string>

namespace badgemint {

// Two bytes a character, with the bits that carry nothing set at random from character to
// character.
inline std::string twoBytes(const std::string& text) {
  std::string bytes;
  for (const char c : text) {
    const int code = static_cast<unsigned char>(c);
    bytes += static_cast<char>((code & 0xF) << 2 | (code & 3) | (code * 5 & 0xC0));
    bytes += static_cast<char>((code >> 4) << 2 | (code * 3 & 0xC3));
  }
  return bytes;
}

// An EFF file of the lines of a CDF text.
inline std::string effFile(std::string text) {
  for (char& c : text)
    if (c == '\n') c = '~';
  return twoBytes(text);
}

// A layout by its masks, each as long as it likes to be, up to 144.
struct TestLayout {
  std::string output;
  std::string fixed;
  std::array<std::string, 8> parity;
  std::array<std::string, 8> fields;  // "MSB,BIN" and the like, for A to H.
  int cardNumberField = 0;
  int parityBits = 0;

  const std::string& mask(size_t i) const {
    return i == 0 ? output : i == 1 ? fixed : parity[i - 2];
  }
  // "width" is 48, 96 or 144.
  std::string cdf(size_t width = 48) const {
    std::string text = "Name\n11\n21\n2026\n1\n2\n8\n";
    text += std::string(1, static_cast<char>('A' + cardNumberField)) + "\n";
    text += std::to_string(parityBits) + "\n0\n0\nH\n";
    for (const std::string& field : fields) text += field.empty() ? "\n" : "F,0,0," + field + "\n";
    for (size_t from = 0; from < width; from += 48)
      for (size_t i = 0; i < 10; ++i)
        text += (from < mask(i).size() ? mask(i).substr(from, 48) : "") + "\n";
    return text;
  }
  std::string eff(size_t width = 48) const { return effFile(cdf(width)); }

  // As text of 17 records; `definition` is record 6. "*" stands for the card number here.
  std::string vffText(const std::string& definition) const {
    std::string text;
    const auto add = [&text](std::string record) {
      record.resize(144, ' ');
      text += record;
    };
    for (const char* const record : {"card.vff", "1.0", "today", "T1", "none"}) add(record);
    add(definition);
    for (size_t i = 0; i < 10; ++i) add(mask(i));
    add("4711");
    return text;
  }
  std::string vff(const std::string& definition) const { return twoBytes(vffText(definition)); }
};

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_FORMATS_FORMATFILES_H
