#include "support/logger.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <string_view>

#include "support/fieldscanner.h"
#include "support/linereader.h"
#include "support/textutil.h"
#include "support/tokenizer.h"

namespace badgemint {

Logger* theLogger = nullptr;

namespace {

constexpr size_t kMessageSize = 200;  // One formatted message and its NUL.
constexpr size_t kMaxHexBytes = 100;
constexpr size_t kMaxBitBytes = 25;
constexpr int kMaxLevelListLine = 80;

std::FILE* standardStream(std::string_view path) {
  if (path == "stdout") return stdout;
  if (path == "stderr") return stderr;
  return nullptr;
}

}  // namespace

Logger::Logger(const char* path, uint32_t threshold)
    : _path(copyText(path)), _threshold(static_cast<int32_t>(threshold)) {
  _open = openOutput();
}

Logger::Logger(const char* path, LevelList list) : _path(copyText(path)) {
  if (!readLevelList(list.path)) return;
  static_cast<void>(openOutput());
  _open = _path != nullptr;
}

Logger::Logger(LevelList list) : _stream(stderr) {
  _open = readLevelList(list.path);
}

Logger::Logger(uint32_t threshold) : Logger(stderr, threshold) {}

Logger::Logger(std::FILE* stream, uint32_t threshold)
    : _stream(stream), _threshold(static_cast<int32_t>(threshold)), _open(true) {}

bool Logger::openOutput() {
  if (!_path) return false;
  _stream = standardStream(_path.get());
  return _stream != nullptr || createFile();
}

bool Logger::createFile() const {
  const int file = open(_path.get(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  return file >= 0 && close(file) == 0;
}

bool Logger::readLevelList(const char* path) {
  LineReader reader;
  if (!reader.open(path)) return false;
  while (reader.readLine(kMaxLevelListLine) == LineReader::Status::kLine) listLevels(reader.line());
  return true;
}

// A tab or '=' separates words for the blank-line test, but not the two ends of a range: "25=30" is
// the single level 25.
void Logger::listLevels(char* line) {
  std::array<char, kMaxLevelListLine + 1> words{};
  std::strncpy(words.data(), line, kMaxLevelListLine);
  Tokenizer tokens;
  tokens.split(words.data(), kWordDelimiters);
  if (tokens.count() == 0) return;

  char* rest = nullptr;
  // A line with words has one here as well.
  const char* const lowWord = strtok_r(line, " \n\r", &rest);
  const char* const highWord = strtok_r(nullptr, " \n\r", &rest);
  const int64_t low = textToInt32(lowWord);
  const int64_t high = highWord != nullptr ? textToInt32(highWord) : 0;
  for (int64_t level = low; level <= std::max(low, high) && _levelCount < kMaxListedLevels; ++level)
    _levels[static_cast<size_t>(_levelCount++)] = static_cast<int32_t>(level);
}

bool Logger::isOpen() const {
  return _open;
}

void Logger::setThreshold(uint32_t threshold) {
  _threshold = static_cast<int32_t>(threshold);
}

bool Logger::isListed(int32_t level) const {
  const auto end = _levels.begin() + _levelCount;
  return std::find(_levels.begin(), end, level) != end;
}

void Logger::write(int32_t level, const char* format, ...) {
  if (!passes(level)) return;
  std::array<char, kMessageSize> message{};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message.data(), message.size(), format, arguments);
  va_end(arguments);
  put(message.data(), std::strlen(message.data()));
}

void Logger::dumpHex(int32_t level, std::span<const uint8_t> bytes) {
  if (!passes(level)) return;
  if (bytes.size() > kMaxHexBytes) return write(level, "hex data buffer not large enough\n");
  std::array<char, 3 * kMaxHexBytes> text;
  size_t length = 0;
  for (const uint8_t byte : bytes) {
    putHex(byte, &text[length]);
    text[length + 2] = ' ';
    length += 3;
  }
  put(text.data(), length);
}

void Logger::dumpBits(int32_t level, std::span<const uint8_t> bytes) {
  if (!passes(level)) return;
  if (bytes.size() > kMaxBitBytes) return write(level, "bin data bufr not large enough\n");
  std::array<char, 9 * kMaxBitBytes> text;
  size_t length = 0;
  for (const uint8_t byte : bytes) {
    for (int bit = 7; bit >= 0; --bit) text[length++] = (byte >> bit & 1) != 0 ? '1' : '0';
    text[length++] = ' ';
  }
  put(text.data(), length);
}

// A text that cannot be written is dropped: a log that fails must not stop the run.
void Logger::put(const char* text, size_t length) {
  const std::lock_guard<std::mutex> lock(_mutex);
  if (_stream != nullptr) {
    static_cast<void>(std::fwrite(text, 1, length, _stream));
    std::fflush(_stream);
  } else if (_path) {
    const int file = open(_path.get(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (file < 0) return;
    static_cast<void>(!::write(file, text, length));
    static_cast<void>(close(file));
  }
}

}  // namespace badgemint
