// What the tests share: a folder of their own with files in it, and the log as they see it.
#ifndef BADGEMINT_TESTS_SUPPORT_TESTFILES_H
#define BADGEMINT_TESTS_SUPPORT_TESTFILES_H

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "support/logger.h"

namespace badgemint {

// The bytes of a file; none when there is no such file.
inline std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// A temporary folder that goes away with all that is in it.
class TestFolder {
 public:
  TestFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "badgemint-XXXXXX").string();
    _path = mkdtemp(name.data());
  }
  ~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  std::string path(const std::string& name) const { return _path + "/" + name; }

  // Writes a file and returns its path.
  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }
  std::string read(const std::string& name) const { return contentOf(path(name)); }

 private:
  std::string _path;
};

// Bytes as hexadecimal digits in groups of four bytes, `perLine` bytes a line.
template <typename Bytes>
std::string hexLines(const Bytes& bytes, size_t perLine = 64) {
  std::string text;
  char digits[4];
  for (size_t i = 0; const auto byte : bytes) {
    if (i % perLine % 4 == 0 && !text.empty() && text.back() != '\n') text += ' ';
    std::snprintf(digits, sizeof digits, "%02X", static_cast<uint8_t>(byte));
    text += digits;
    if (++i % perLine == 0) text += '\n';
  }
  return text;
}

// A logger of its own for one test: published while it lives, its text to be taken at the end.
class TestLog {
 public:
  explicit TestLog(uint32_t threshold = 100) {
    _logger.emplace(_folder.path("log").c_str(), threshold);
    publish();
  }
  ~TestLog() { theLogger = nullptr; }
  TestLog(const TestLog&) = delete;
  TestLog& operator=(const TestLog&) = delete;

  Logger& logger() { return *_logger; }

  // Again, after an entry function, which has a logger of its own.
  void publish() { theLogger = &*_logger; }

  // What was logged since the last call, with "[level module] " for each prefix.
  std::string take() {
    const std::string text = _folder.read("log");
    std::filesystem::resize_file(_folder.path("log"), 0);
    return text;
  }

 private:
  TestFolder _folder;
  std::optional<Logger> _logger;
};

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_SUPPORT_TESTFILES_H
