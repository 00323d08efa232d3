// What the modules write their messages with. For source files only: the macro is no business of
// those who include the library's headers.
#ifndef BADGEMINT_SUPPORT_LOG_H
#define BADGEMINT_SUPPORT_LOG_H

#include "support/logger.h"

namespace badgemint {

// The levels in use.
inline constexpr int32_t kLogRun = 0;        // Start and end of a run, and its card count.
inline constexpr int32_t kLogDuplicate = 3;  // Duplicates and missing references in existing files.
inline constexpr int32_t kLogSize = 4;
inline constexpr int32_t kLogDecision = 5;
inline constexpr int32_t kLogSummary = 10;
inline constexpr int32_t kLogProgress = 20;  // Stages of loading an index or the access levels.
inline constexpr int32_t kLogError = 25;
inline constexpr int32_t kLogStep = 75;
inline constexpr int32_t kLogRecord = 100;

// Who is to write a message of this level; null when nobody is.
inline Logger* listener(int32_t level) {
  return theLogger != nullptr && theLogger->passes(level) ? theLogger : nullptr;
}

}  // namespace badgemint

// Writes one message under the given module: the prefix and the text are two writes, as the log's
// readers expect. Evaluates its arguments only when the level passes.
#define LOG_AS(module, level, ...)                                           \
  do {                                                                       \
    if (::badgemint::Logger* const logger_ = ::badgemint::listener(level)) { \
      logger_->write(level, "%s %d ", module, __LINE__);                     \
      logger_->write(level, __VA_ARGS__);                                    \
    }                                                                        \
  } while (false)

// Writes one message under the module of the source file, which names it in `kLogModule`.
#define LOG(level, ...) LOG_AS(kLogModule, level, __VA_ARGS__)

// Writes a label, a hex dump of `bytes` and "\n": one prefix, before the label.
#define LOG_HEX(level, bytes, ...)                                           \
  do {                                                                       \
    if (::badgemint::Logger* const logger_ = ::badgemint::listener(level)) { \
      logger_->write(level, "%s %d ", kLogModule, __LINE__);                 \
      logger_->write(level, __VA_ARGS__);                                    \
      logger_->dumpHex(level, bytes);                                        \
      logger_->write(level, "\n");                                           \
    }                                                                        \
  } while (false)

#endif  // BADGEMINT_SUPPORT_LOG_H
