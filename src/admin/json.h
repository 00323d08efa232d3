// The form of --json: one object a line, with its keys in the order in which they are added.
#ifndef BADGEMINT_ADMIN_JSON_H
#define BADGEMINT_ADMIN_JSON_H

#include <fmt/format.h>

#include <concepts>
#include <ranges>
#include <string>
#include <string_view>

namespace badgemint::admin {

// A JSON object that grows. It is written as text at once: a list of a million holders takes a
// fifth of the time that a library for JSON documents takes. Keys are literals that need no escape;
// values may be any bytes: those that are not UTF-8 become the text "\xNN".
class JsonObject {
 public:
  JsonObject() {
    _text.reserve(500);  // Enough for nearly all.
    _text = "{}";
  }

  JsonObject& add(std::string_view key, std::string_view value) {
    begin(key);
    append(value);
    return end();
  }
  JsonObject& add(std::string_view key, const char* value) {
    return add(key, std::string_view(value));
  }
  template <std::integral Number>
  JsonObject& add(std::string_view key, Number value) {
    begin(key);
    append(value);
    return end();
  }
  JsonObject& add(std::string_view key, const JsonObject& value) {
    begin(key);
    _text += value._text;
    return end();
  }
  // An array of values of any of these types.
  template <std::ranges::range Values>
  requires(!std::convertible_to<const Values&, std::string_view>)
      JsonObject& add(std::string_view key, const Values& values) {
    begin(key);
    _text += '[';
    for (const auto& value : values) {
      if (_text.back() != '[') _text += ',';
      append(value);
    }
    return end("]}");
  }
  // An array of objects: `fill` adds to this one, as it is then, what the object of an element has.
  template <typename Elements, typename Fill>
  JsonObject& addEach(std::string_view key, const Elements& elements, Fill fill) {
    begin(key);
    _text += '[';
    for (const auto& element : elements) {
      if (_text.back() != '[') _text += ',';
      _text += "{}";
      fill(*this, element);
    }
    return end("]}");
  }

  // Without a newline.
  const std::string& text() const { return _text; }

 private:
  void begin(std::string_view key);
  void append(std::string_view value);
  void append(bool value) { _text += value ? "true" : "false"; }
  void append(std::integral auto value) {
    const fmt::format_int digits(value);
    _text.append(digits.data(), digits.size());
  }
  JsonObject& end(const char* brackets = "}") {
    _text += brackets;
    return *this;
  }

  std::string _text;  // Always a whole object.
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_JSON_H
