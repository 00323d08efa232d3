#include "admin/json.h"

#include <algorithm>
#include <bit>

namespace badgemint::admin {

namespace {

// The length of the UTF-8 character that begins a text, which is not empty; 0 when none does.
size_t characterLength(std::string_view text) {
  const auto byteAt = [text](size_t i) { return static_cast<uint8_t>(text[i]); };
  const uint8_t first = byteAt(0);
  if (first < 0x80) return 1;
  const auto length = static_cast<size_t>(std::countl_one(first));
  if (length < 2 || length > 4 || length > text.size()) return 0;
  uint32_t code = first & (0x7FU >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((byteAt(i) & 0xC0) != 0x80) return 0;
    code = code << 6 | (byteAt(i) & 0x3FU);
  }
  constexpr uint32_t kLeastOfLength[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
  return code >= kLeastOfLength[length] && code <= 0x10FFFF && !isSurrogate ? length : 0;
}

}  // namespace

void JsonObject::begin(std::string_view key) {
  if (_text[_text.size() - 2] == '{')
    _text.pop_back();
  else
    _text.back() = ',';
  _text += '"';
  _text += key;
  _text += '"';
  _text += ':';
}

void JsonObject::append(std::string_view value) {
  const auto isPlain = [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; };
  _text += '"';
  while (true) {
    const auto plain = std::ranges::find_if_not(value, isPlain) - value.begin();
    _text.append(value, 0, static_cast<size_t>(plain));
    value.remove_prefix(static_cast<size_t>(plain));
    if (value.empty()) break;
    const size_t length = characterLength(value);
    const auto byte = static_cast<uint8_t>(value.front());
    if (length == 0)
      _text += fmt::format(R"(\\x{:02X})", byte);
    else if (byte == '"' || byte == '\\')
      _text.append({'\\', value.front()});
    else if (byte < ' ' || byte == 0x7F)
      _text += fmt::format(R"(\u{:04X})", byte);
    else
      _text.append(value.substr(0, length));
    value.remove_prefix(length == 0 ? 1 : length);
  }
  _text += '"';
}

}  // namespace badgemint::admin
