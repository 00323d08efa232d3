// The logger: the one place where the system reports to its operators.
//
// A message carries a numeric level and is written when the level passes the logger's filter; lower
// numbers are more important. Each write opens the log file, appends and closes it again, so that
// the log is complete on disk after every message even if the process dies. The modules do not call
// the logger themselves: they use the LOG macro of "support/log.h".
#ifndef BADGEMINT_SUPPORT_LOGGER_H
#define BADGEMINT_SUPPORT_LOGGER_H

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <span>

#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// Names a file that lists the levels to write, in place of a threshold.
struct LevelList {
  const char* path;
};

// Threads: every operation may be called from several threads at once; each single write comes out
// whole. Filtering takes no lock.
class Logger {
 public:
  // Logs to a file, which is created or truncated at once, or to standard output or standard error
  // when `path` is exactly "stdout" or "stderr". Messages pass when their level is at most
  // `threshold` taken as a signed number. Not open when the path cannot be copied or the file not
  // be created.
  Logger(const char* path, uint32_t threshold);

  // Logs what a level list names (see readLevelList). Not open when the list cannot be read: what
  // passes threshold 0 is then appended to a file of that path, whatever the path is. A log file
  // that cannot be created does not count here.
  Logger(const char* path, LevelList list);

  // The same to standard error.
  explicit Logger(LevelList list);

  // Logs to standard error by threshold.
  explicit Logger(uint32_t threshold);

  // Logs by threshold to a stream that the caller has opened and closes after the logger is gone.
  // Its error indicator shows whether a text could not be written.
  Logger(std::FILE* stream, uint32_t threshold);

  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // Whether the output could be created; the level list constructors: whether the list was read.
  bool isOpen() const;

  void setThreshold(uint32_t threshold);

  // Whether a message of this level is written. With a level list: when the list names it.
  bool passes(int32_t level) const {
    return _levelCount == 0 ? _threshold.load(std::memory_order_relaxed) >= level : isListed(level);
  }

  // Writes one formatted text, cut after 199 characters. Adds nothing: the text carries its
  // newline.
  void write(int32_t level, const char* format, ...) __attribute__((format(printf, 3, 4)));

  // Writes at most 100 bytes as "%02X " each, without a newline; more than that gives the text
  // "hex data buffer not large enough\n".
  void dumpHex(int32_t level, std::span<const uint8_t> bytes);

  // Writes at most 25 bytes as eight bits and a blank each, the most significant bit first, without
  // a newline; more than that gives the text "bin data bufr not large enough\n".
  void dumpBits(int32_t level, std::span<const uint8_t> bytes);

 private:
  static constexpr int32_t kMaxListedLevels = 100;

  bool openOutput();
  bool createFile() const;
  // Reads a level list: a line names one level, or the two ends of a range. Blank lines and lines
  // that begin with '#' are skipped; levels beyond the hundredth are ignored.
  bool readLevelList(const char* path);
  void listLevels(char* line);
  bool isListed(int32_t level) const;
  void put(const char* text, size_t length);

  std::unique_ptr<char[]> _path;  // Null when there is none, or no memory for it.
  std::FILE* _stream = nullptr;   // Standard output or standard error; null for a file.
  std::atomic<int32_t> _threshold = 0;
  int32_t _levelCount = 0;  // 0: the threshold decides.
  bool _open = false;
  std::array<int32_t, kMaxListedLevels> _levels{};
  std::mutex _mutex;  // Held for each write: texts of two threads never mix.
};

// The logger of the run, null when there is none. Owned by the entry function that created it.
extern Logger* theLogger;

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_LOGGER_H
