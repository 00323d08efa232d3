#include "support/textutil.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <new>

namespace badgemint {

std::unique_ptr<char[]> copyText(std::string_view text) {
  std::unique_ptr<char[]> copy(new (std::nothrow) char[text.size() + 1]);
  if (!copy) return copy;
  std::copy(text.begin(), text.end(), copy.get());
  copy[text.size()] = '\0';
  return copy;
}

void copyCut(std::string_view text, std::span<char> buffer) {
  const size_t length = std::min(text.size(), buffer.size() - 1);
  if (length > 0) std::memmove(buffer.data(), text.data(), length);
  std::fill(buffer.begin() + static_cast<std::ptrdiff_t>(length), buffer.end(), '\0');
}

void joinPath(const char* directory, char* name, size_t size) {
  const std::string_view base(directory);
  if (base.empty() || size == 0) return;
  std::array<char, kMaxJoinedPath + 1> joined{};
  const auto shown = static_cast<int>(std::min(base.size(), kMaxJoinedPath));
  std::snprintf(joined.data(), std::min(joined.size(), size), "%.*s%s%s", shown, directory,
                base.back() == '\\' ? "" : "\\", name);
  std::strcpy(name, joined.data());
}

std::unique_ptr<char[]> joinedPath(const char* directory, const char* name) {
  const size_t size = std::strlen(directory) + std::strlen(name) + 2;
  std::unique_ptr<char[]> joined(new (std::nothrow) char[size]);
  if (!joined) return joined;
  std::strcpy(joined.get(), name);
  joinPath(directory, joined.get(), size);
  return joined;
}

bool isBlank(const char* text) {
  while (isSpace(*text)) ++text;
  return *text == '\0';
}

void printHexLine(std::span<const uint8_t> bytes) {
  for (const uint8_t byte : bytes) std::printf("%02X ", byte);
  std::putchar('\n');
}

void printBitLine(std::span<const uint8_t> bytes) {
  for (const uint8_t byte : bytes) {
    for (int bit = 7; bit >= 0; --bit) std::printf("%1d", byte >> bit & 1);
    std::fputs("  ", stdout);
  }
  std::putchar('\n');
}

uint16_t reportSystemError(uint16_t module, uint16_t /*code*/, const char* /*what*/) {
  return module;
}

}  // namespace badgemint
