// Writes card formats as the kinds of files that spread a character over two bytes.
#ifndef BADGEMINT_TESTS_FORMATS_FORMATFILES_H
#define BADGEMINT_TESTS_FORMATS_FORMATFILES_H

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

// A VFF file of lines, a record of 144 characters each.
inline std::string vffFile(const std::string& lines) {
  std::string text;
  for (const char c : lines)
    c == '\n' ? text.resize((text.size() + 143) / 144 * 144, ' ') : void(text += c);
  return twoBytes(text);
}

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_FORMATS_FORMATFILES_H
