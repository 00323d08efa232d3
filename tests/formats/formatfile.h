// Format files of every kind, made from their lines.
#ifndef BADGEMINT_TESTS_FORMATS_FORMATFILE_H
#define BADGEMINT_TESTS_FORMATS_FORMATFILE_H

#include "formats/CardFormatSet.h"
#include "support/testfiles.h"

namespace badgemint {

// The lines of a CDF or EFF file, or the records of a VFF file.
using FormatLines = std::vector<std::string>;

// Masks of up to 48 positions - output, fixed, parity - with the card number in field B.
inline FormatLines linesOf(const std::string& kind, const FormatLines& masks) {
  FormatLines lines = {"", "1", "1", "2026", "", std::to_string(masks[0].size()) + " 2 MSB BIN"};
  if (kind != "VFF") {
    lines.insert(lines.end(), {"", "B", "2", "", "", ""});
    lines.resize(20, "F,0,0,MSB,BIN");
  }
  lines.insert(lines.end(), masks.begin(), masks.end());
  lines.resize(kind == "VFF" ? 17 : 30);
  return lines;
}

// Two bytes a character; the bits that carry nothing differ from character to character.
inline std::string twoBytes(const std::string& text) {
  std::string bytes;
  for (const char c : text) {
    bytes += static_cast<char>((c & 0xF) << 2 | (c & 3) | (c * 5 & 0xC0));
    bytes += static_cast<char>((c >> 4 & 0xF) << 2 | (c * 3 & 0xC3));
  }
  return bytes;
}

// The bytes of a file: "CDF", "EFF" or "VFF".
inline std::string fileOf(const std::string& kind, const FormatLines& lines) {
  std::string text;
  for (size_t records = 0; const std::string& line : lines) {
    text += line;
    if (kind == "VFF")
      text.resize(144 * ++records, ' ');
    else
      text += kind == "CDF" ? '\n' : '~';
  }
  return kind == "CDF" ? text : twoBytes(text);
}

// A format of ID 7 and its log. It loads its files as "f" from the current folder.
struct TestFormat {
  explicit TestFormat(const std::string& kind, uint32_t level = 100)
      : log(level), format(set.addFormat(7, ("." + kind).c_str())) {}

  int32_t load(const std::string& bytes) const {
    writeFile("f", bytes);
    return format->loadFormatFile("f");
  }

  TestLog log;
  CardFormatSet set;
  CardFormat* format;
};

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_FORMATS_FORMATFILE_H
