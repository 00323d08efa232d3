// What all tests share, included by each of them: the framework, faults, a folder of their own with
// files in it, and the log as they see it.
#ifndef BADGEMINT_TESTS_SUPPORT_TESTFILES_H
#define BADGEMINT_TESTS_SUPPORT_TESTFILES_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>

#include "carddb/recordlayout.h"
#include "support/faults.h"
#include "support/logger.h"

namespace badgemint {

namespace fs = std::filesystem;

// Whether a text contains this part; the text is shown when that is not as expected.
inline testing::AssertionResult contains(const std::string& text, const std::string& part) {
  return testing::AssertionResult(text.find(part) != std::string::npos) << text;
}

// The bytes of a file; none when there is no such file.
inline std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Writes a file anew: one that is cut to nothing first would be slow.
inline void writeFile(const std::string& path, const std::string& content) {
  fs::remove_all(path);
  std::ofstream(path, std::ios::binary) << content;
}

// A temporary folder that goes away with all that is in it. Each test begins in an empty one as its
// current folder.
class TestFolder {
 public:
  TestFolder() {
    std::string name = (fs::temp_directory_path() / "badgemint-XXXXXX").string();
    _path = mkdtemp(name.data());
  }
  ~TestFolder() {
    std::error_code ignored;
    fs::remove_all(_path, ignored);
  }

  std::string path(const std::string& name) const { return _path + "/" + name; }

 private:
  std::string _path;
};

// Records as they stand in a database file.
template <typename Record>
std::string bytesOf(const std::vector<Record>& records) {
  std::string bytes;
  for (const Record& record : records) {
    const auto image = encodeRecord(record);
    bytes.append(image.begin(), image.end());
  }
  return bytes;
}
template <typename Record>
void writeRecords(const std::string& path, const std::vector<Record>& records) {
  writeFile(path, bytesOf(records));
}

// A logger of its own for one test: published while it lives, its text to be taken at the end.
class TestLog {
 public:
  explicit TestLog(uint32_t threshold = 100) : _logger(_folder.path("log").c_str(), threshold) {
    publish();
  }
  ~TestLog() { theLogger = nullptr; }

  Logger& logger() { return _logger; }

  // Again, after an entry function, which has a logger of its own.
  void publish() { theLogger = &_logger; }

  // What was logged since the last call, with "[level module] " for each prefix.
  std::string take() {
    const std::string text = contentOf(_folder.path("log"));
    fs::resize_file(_folder.path("log"), 0);
    return text;
  }

 private:
  TestFolder _folder;
  Logger _logger;
};

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_SUPPORT_TESTFILES_H
