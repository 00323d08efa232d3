// What the four entry functions share: the log of the run, its start and end lines, the file names,
// and the pause before they return.
#ifndef BADGEMINT_TOOLS_ENTRYRUN_H
#define BADGEMINT_TOOLS_ENTRYRUN_H

#include <array>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <memory>

#include "support/logger.h"

namespace badgemint {

// All entry functions log as one module.
inline constexpr char kEntryModule[] = "badgemintdump";

// Seconds that the entry functions wait before they return, whatever the result.
inline constexpr unsigned kDatabasePause = 5;
inline constexpr unsigned kPatternPause = 1;

// The files of a build, or of the dump that writes the cards file again.
struct SiteFiles {
  const char *cards, *identDb, *accessDb, *formats, *cardSets;
};

// A file name to be joined to the base directory, and what messages call its file.
struct NameToJoin {
  const char** name;
  const char* what;
};

// One run of an entry function. It owns the logger that `theLogger` points to while it lasts.
class EntryRun {
 public:
  // `function` names the entry function in the log. The texts are not copied.
  EntryRun(const char* function, const char* baseDirectory, unsigned pause)
      : _function(function), _baseDirectory(baseDirectory), _pause(pause) {}

  // Opens the log, runs `body` (which returns a result code) if that worked, logs the end line,
  // closes the log, pauses, and returns the result: the body's, kOutOfMemory or kLogNotOpen.
  template <typename Body>
  int32_t run(const char* logName, uint32_t logLevel, Body body) {
    int32_t result = openLog(logName, logLevel);
    if (result == 0) result = body(*this);
    close(result);
    return result;
  }

  // From run() on the log goes to this open stream, not to the file of the log name.
  void logTo(std::FILE* stream) { _stream = stream; }

  void logStart() const;
  // Logs the names of the files and of the log itself, joined as they are, at level 75.
  void logFiles(const SiteFiles& files) const;
  const char* baseDirectory() const { return _baseDirectory; }

  // Joins the names to the base directory, in this order, and puts the joined paths, which the run
  // owns, in their place. Once a run, for at most as many names as a site has files. kSuccess;
  // kOutOfMemory with "Not enough memory to create %s filename\n" (level 25).
  [[nodiscard]] int32_t joinNames(std::initializer_list<NameToJoin> names);

 private:
  int32_t openLog(const char* logName, uint32_t logLevel);
  void close(int32_t result);

  const char* _function;
  const char* _baseDirectory;
  unsigned _pause;
  std::FILE* _stream = nullptr;
  std::unique_ptr<char[]> _logPath;
  std::array<std::unique_ptr<char[]>, sizeof(SiteFiles) / sizeof(char*)> _paths;
  std::unique_ptr<Logger> _logger;
};

}  // namespace badgemint

#endif  // BADGEMINT_TOOLS_ENTRYRUN_H
