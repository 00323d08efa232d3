// The form of --json: one object a line, with its keys in the order in which they are added.
#ifndef BADGEMINT_ADMIN_JSON_H
#define BADGEMINT_ADMIN_JSON_H

#include <fmt/format.h>

#include <algorithm>
#include <concepts>
#include <cwchar>
#include <locale>
#include <ranges>
#include <string>
#include <string_view>

namespace badgemint::admin {

// A JSON object that grows. It is written as text at once: a list of a million holders takes a
// fifth of the time that a library for JSON documents takes. Keys are literals that need no escape;
// values may be any bytes: those that are not UTF-8 become the text "\xNN".
class JsonObject {
 public:
  JsonObject() { _text.reserve(500); }  // Enough for nearly all.

  // A text, a number, a truth value, an object, or an array of such values.
  template <typename Value>
  JsonObject& add(std::string_view key, const Value& value) {
    begin(key);
    append(value);
    _text += '}';
    return *this;
  }
  // An array of objects: `fill` adds to this one, as it is then, what the object of an element has.
  template <typename Elements, typename Fill>
  JsonObject& addEach(std::string_view key, const Elements& elements, Fill fill) {
    begin(key);
    appendEach(elements, [&](const auto& element) {
      _text += "{}";
      fill(*this, element);
    });
    _text += '}';
    return *this;
  }

  // Without a newline.
  const std::string& text() const { return _text; }

 private:
  void begin(std::string_view key) {
    if (_text[_text.size() - 2] == '{')
      _text.pop_back();
    else
      _text.back() = ',';
    _text.append("\"").append(key).append("\":");
  }
  void append(std::string_view value) {
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
  // The length of the UTF-8 character that begins a text, which is not empty; 0 when none does.
  static size_t characterLength(std::string_view text) {
    using Utf8 = std::codecvt<char32_t, char8_t, std::mbstate_t>;
    std::mbstate_t state{};
    const std::u8string first(text.begin(), text.begin() + std::min<size_t>(text.size(), 4));
    const int length = std::use_facet<Utf8>(std::locale::classic())
                           .length(state, first.data(), first.data() + first.size(), 1);
    const bool isSurrogate = length == 3 && first[0] == 0xED && first[1] >= 0xA0;
    return isSurrogate ? 0 : static_cast<size_t>(length);
  }
  void append(std::same_as<bool> auto value) { _text += value ? "true" : "false"; }
  template <std::integral Number>
  requires(!std::same_as<Number, bool>) void append(Number value) {
    _text += fmt::format_int(value).str();
  }
  void append(const JsonObject& value) { _text += value._text; }
  template <std::ranges::range Values>
  requires(!std::convertible_to<const Values&, std::string_view>) void append(
      const Values& values) {
    appendEach(values, [this](const auto& value) { this->append(value); });
  }
  template <typename Values, typename Append>
  void appendEach(const Values& values, Append appendOne) {
    _text += '[';
    for (const auto& value : values) {
      if (_text.back() != '[') _text += ',';
      appendOne(value);
    }
    _text += ']';
  }

  std::string _text = "{}";  // Always a whole object.
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_JSON_H
