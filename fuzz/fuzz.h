// What the fuzz targets share. A target is one function that gets any bytes and must return: no
// crash, no leak, no endless loop. It also checks what must be true for every input.
#ifndef BADGEMINT_FUZZ_FUZZ_H
#define BADGEMINT_FUZZ_FUZZ_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "support/logger.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace badgemint {

// Ends the process if a condition is false that must be true.
inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

inline std::string_view textOf(const uint8_t* data, size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// Removes the text before the next `end`, and `end` itself, and returns that text.
inline std::string_view takeUntil(std::string_view& text, std::string_view end) {
  const size_t at = text.find(end);
  const std::string_view taken = text.substr(0, at);
  text.remove_prefix(at == text.npos ? text.size() : at + end.size());
  return taken;
}

// A file that is only in memory but has a path.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view content) : _file(memfd_create("input", 0)) {
    require(write(_file, content.data(), content.size()) == static_cast<ssize_t>(content.size()),
            "the input can be written");
    std::snprintf(_path, sizeof _path, "/proc/self/fd/%d", _file);
  }
  ~MemoryFile() { close(_file); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  const char* path() const { return _path; }

 private:
  int _file;
  char _path[32];
};

// The current directory while the process runs, empty at first.
class WorkFolder {
 public:
  WorkFolder() {
    const bool inMemory = std::filesystem::exists("/dev/shm");
    std::string name = inMemory ? "/dev/shm/badgemint-XXXXXX" : "/tmp/badgemint-XXXXXX";
    _path = mkdtemp(name.data());
    std::filesystem::current_path(_path);
  }
  ~WorkFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(_path, ignored);
  }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  static void write(const char* name, std::string_view content) {
    std::ofstream(name, std::ios::binary) << content;
  }
  static std::string read(const char* name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

 private:
  std::filesystem::path _path;
};

// Formats the messages, but keeps none of them.
class DroppedLog {
 public:
  explicit DroppedLog(uint32_t threshold = 25) : _logger("/dev/null", threshold) {
    theLogger = &_logger;
  }
  ~DroppedLog() { theLogger = nullptr; }
  DroppedLog(const DroppedLog&) = delete;
  DroppedLog& operator=(const DroppedLog&) = delete;

 private:
  Logger _logger;
};

// A CDF file of a layout of up to 48 positions; A is a fixed field and B the card number.
inline std::string smallFormat(const char* outputMask, const char* type, const char* parity) {
  return std::string("Fuzz\n1\n31\n2024\n1\n1\n2\nB\n1\n0\n0\n-\nA,0,0,MSB,BIN\nB,0,0,MSB,") +
         type + "\n\n\n\n\n\n\n" + outputMask + "\n\n" + parity + "\n\n\n\n\n\n\n\n";
}

// A work folder with two formats whose card numbers are short, so that no block of cards is long,
// and the file that lists them.
class FormatsFolder {
 public:
  FormatsFolder() {
    writeFormatFiles();
    WorkFolder::write("formats", "1 bin.cdf\n2 bcd.cdf\n");
  }
  static void writeFormatFiles() {
    WorkFolder::write("bin.cdf", smallFormat("PAAAAAABBBBBBBBBBB", "BIN", "EXXXXXXXXXXXXXXXXX"));
    WorkFolder::write("bcd.cdf", smallFormat("AABBBBBBBBBBBBP", "BCD", "XXXXXXXXXXXXXXO"));
  }

 private:
  WorkFolder _folder;
};

}  // namespace badgemint

#endif  // BADGEMINT_FUZZ_FUZZ_H
