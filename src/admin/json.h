// The form of --json: one object a line, with its keys in the order in which they are added.
#ifndef BADGEMINT_ADMIN_JSON_H
#define BADGEMINT_ADMIN_JSON_H

#include <fmt/format.h>

#include <concepts>
#include <string>
#include <string_view>
#include <vector>

namespace badgemint::admin {

// A JSON object that grows. It is written as text at once: a list of a million holders takes a
// fifth of the time that a library for JSON documents takes. Keys are literals that need no escape;
// values may be any bytes: those that are not UTF-8 become the text "\xNN".
class JsonObject {
 public:
  JsonObject& add(std::string_view key, std::string_view value);
  JsonObject& add(std::string_view key, const char* value) {
    return add(key, std::string_view(value));
  }
  JsonObject& add(std::string_view key, const std::string& value) {
    return add(key, std::string_view(value));
  }
  JsonObject& add(std::string_view key, bool value) {
    return addRaw(key, value ? "true" : "false");
  }
  template <std::integral Number>
  JsonObject& add(std::string_view key, Number value) {
    const fmt::format_int digits(value);
    return addRaw(key, {digits.data(), digits.size()});
  }
  JsonObject& add(std::string_view key, const JsonObject& value) {
    return addRaw(key, value.text());
  }
  // An array of values of any of these types.
  template <typename Value>
  JsonObject& add(std::string_view key, const std::vector<Value>& values) {
    addRaw(key, "[");
    for (const auto& value : values) {
      if (_text.back() != '[') _text += ',';
      append(value);
    }
    _text += ']';
    return *this;
  }

  // Without a newline.
  std::string text() const { return _text + '}'; }

 private:
  JsonObject& addRaw(std::string_view key, std::string_view json);
  void append(std::string_view value);
  void append(const std::string& value) { append(std::string_view(value)); }
  void append(const JsonObject& value) { _text += value.text(); }
  template <std::integral Number>
  void append(Number value) {
    const fmt::format_int digits(value);
    _text.append(digits.data(), digits.size());
  }

  std::string _text = "{";
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_JSON_H
