// Small shared pieces of text handling: numbers, copies, the path join, the blank test, debug
// printers, and the hook for error reports.
#ifndef BADGEMINT_SUPPORT_TEXTUTIL_H
#define BADGEMINT_SUPPORT_TEXTUTIL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// The longest path that a join gives; longer ones are cut here.
inline constexpr size_t kMaxJoinedPath = 254;

// A heap copy of `text` with a NUL after it; null when there is no memory.
std::unique_ptr<char[]> copyText(std::string_view text);

// Copies `text` into a buffer of at least one character, cut to leave room for a NUL, and fills the
// rest of the buffer with NULs. The text may stand in the buffer itself.
void copyCut(std::string_view text, std::span<char> buffer);

// Joins a directory and the NUL-terminated name in `name`, in place: the directory, one backslash
// unless it ends in one, the name. An empty directory leaves the name as it is. The separator is a
// backslash on every system and no slash counts as one. The result is cut to `kMaxJoinedPath`
// characters and to what `name`, of `size` characters with the NUL, can hold; callers give it the
// length of both parts + 2.
void joinPath(const char* directory, char* name, size_t size);

// joinPath on a copy: the joined path, owned by the caller; null when there is no memory.
std::unique_ptr<char[]> joinedPath(const char* directory, const char* name);

// White space in the "C" locale: blank, \t, \n, \v, \f, \r.
constexpr bool isSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// Writes a byte as two upper-case hexadecimal digits.
constexpr void putHex(uint8_t byte, char* digits) {
  digits[0] = "0123456789ABCDEF"[byte >> 4];
  digits[1] = "0123456789ABCDEF"[byte & 0xF];
}

// The length of a text for "%.*s".
constexpr int printLength(std::string_view text) {
  return static_cast<int>(text.size());
}

// Whether every character is white space; so the empty text is blank.
bool isBlank(const char* text);

// Debug printers to standard output. Hex: "%02X " a byte, then a newline. Bits: eight digits a byte
// from the most significant bit and two blanks, then a newline.
void printHexLine(std::span<const uint8_t> bytes);
void printBitLine(std::span<const uint8_t> bytes);

// Error codes that are reported to `reportSystemError`.
inline constexpr uint16_t kReportOutOfMemory = 2;
inline constexpr uint16_t kReportConfiguration = 14;  // The file, or one of its lines.
inline constexpr uint16_t kReportEntryMissing = 15;   // The configuration lacks an entry.
inline constexpr uint16_t kReportEntryUnopened = 16;  // The file of an entry cannot be opened.

// The hook for error reports: takes the reporting module or area, an error code and what it is
// about, has no visible effect, and returns its first argument.
uint16_t reportSystemError(uint16_t module, uint16_t code, const char* what = "");

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_TEXTUTIL_H
