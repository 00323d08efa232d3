#include "tools/entryrun.h"

#include <unistd.h>

#include <new>

#include "support/log.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

namespace {

constexpr const char* kLogModule = kEntryModule;

}  // namespace

int32_t EntryRun::openLog(const char* logName, uint32_t logLevel) {
  theLogger = nullptr;
  _logPath = joinedPath(_baseDirectory, logName);
  if (!_logPath) return kOutOfMemory;
  _logger.reset(_stream != nullptr ? new (std::nothrow) Logger(_stream, logLevel)
                                   : new (std::nothrow) Logger(_logPath.get(), logLevel));
  if (!_logger) return kOutOfMemory;
  theLogger = _logger.get();
  return _logger->isOpen() ? kSuccess : kLogNotOpen;
}

void EntryRun::logStart() const {
  LOG(kLogRun, "%s version %s\n", _function, BADGEMINT_VERSION);
}

void EntryRun::logFiles(const SiteFiles& files) const {
  LOG(kLogStep, "Files:\n");
  LOG(kLogStep, "Cards file=%s\n", files.cards);
  LOG(kLogStep, "Formats file=%s\n", files.formats);
  LOG(kLogStep, "Card Sets file=%s\n", files.cardSets);
  LOG(kLogStep, "Ident file=%s\n", files.identDb);
  LOG(kLogStep, "Access file=%s\n", files.accessDb);
  LOG(kLogStep, "Log file=%s\n", _logPath.get());
}

int32_t EntryRun::joinNames(std::initializer_list<NameToJoin> names) {
  auto path = _paths.begin();
  for (const auto& [name, what] : names) {
    *path = joinedPath(_baseDirectory, *name);
    if (!*path) {
      LOG(kLogError, "Not enough memory to create %s filename\n", what);
      return kOutOfMemory;
    }
    *name = (path++)->get();
  }
  return kSuccess;
}

void EntryRun::close(int32_t result) {
  LOG(kLogRun, "%s Complete, result=%d\n", _function, result);
  theLogger = nullptr;
  _logger.reset();
  sleep(_pause);
}

}  // namespace badgemint
