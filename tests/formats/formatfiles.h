// Writes card formats as the three kinds of files.
#ifndef BADGEMINT_TESTS_FORMATS_FORMATFILES_H
#define BADGEMINT_TESTS_FORMATS_FORMATFILES_H

#include <array>
#include <string>

namespace badgemint {

// Two bytes a character; the bits that carry nothing differ from character to character.
inline std::string twoBytes(const std::string& text) {
  std::string bytes;
  for (const char c : text) {
    bytes += static_cast<char>((c & 0xF) << 2 | (c & 3) | (c * 5 & 0xC0));
    bytes += static_cast<char>((c >> 4 & 0xF) << 2 | (c * 3 & 0xC3));
  }
  return bytes;
}

// An EFF file of the lines of a CDF text.
inline std::string effFile(std::string text) {
  for (char& c : text)
    if (c == '\n') c = '~';
  return twoBytes(text);
}

// A layout by its masks, output, fixed and parity, each up to 144 characters.
struct TestLayout {
  std::array<std::string, 10> masks;
  std::array<std::string, 8> fields;  // "MSB,BIN" and the like, for A to H.
  int cardNumberField = 0;
  int parityBits = 0;

  // The masks' first 48, 96 or 144 positions.
  std::string cdf(size_t width = 48) const {
    std::string text =
        "Name\n11\n21\n2026\n1\n2\n8\nA\n" + std::to_string(parityBits) + "\n0\n0\nH\n";
    text[text.find("\nA\n") + 1] = static_cast<char>('A' + cardNumberField);
    for (const std::string& field : fields) text += "F,0,0," + field + "\n";
    for (size_t from = 0; from < width; from += 48)
      for (const std::string& mask : masks)
        text += (from < mask.size() ? mask.substr(from, 48) : "") + "\n";
    return text;
  }

  // The text of 17 records, to be written with twoBytes; `definition` is record 6.
  std::string vffText(const std::string& definition) const {
    std::string text;
    const auto add = [&text](std::string record) {
      record.resize(144, ' ');
      text += record;
    };
    for (const char* const record : {"card.vff", "1.0", "today", "T1", "none"}) add(record);
    add(definition);
    for (const std::string& mask : masks) add(mask);
    add("4711");
    return text;
  }
};

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_FORMATS_FORMATFILES_H
