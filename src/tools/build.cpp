// The build: from an input cards file to the two databases.
#include "tools/build.h"

#include <unistd.h>

#include <new>

#include "inputcards/inputcards.h"
#include "support/log.h"
#include "support/result.h"
#include "tools/badgemint.h"
#include "tools/entryrun.h"

namespace badgemint {

namespace {

constexpr const char* kLogModule = kEntryModule;

int32_t runStages(const EntryRun& run, const SiteFiles& files) {
  const std::unique_ptr<InputCards> loader(
      new (std::nothrow) InputCards(files.cards, files.identDb, files.accessDb, files.cardSets));
  if (!loader) {
    LOG(kLogError, "Not enough memory to create input cards\n");
    return kOutOfMemory;
  }
  if (!loader->isInitialised()) return kLoaderNotInitialised;

  int32_t result = loader->loadFormats(run.baseDirectory(), files.formats);
  if (result == kSuccess || result == kEndOfFile) result = loader->pass1();
  if (result == kSuccess) result = loader->pass2();
  return result;
}

}  // namespace

int32_t buildSite(EntryRun& run, SiteFiles files) {
  if (const int32_t rc = run.joinNames({{&files.cards, "input cards"},
                                        {&files.identDb, "ident"},
                                        {&files.accessDb, "access"},
                                        {&files.formats, "formats"},
                                        {&files.cardSets, "card sets"}});
      rc < 0)
    return rc;
  unlink(files.identDb);
  unlink(files.accessDb);
  run.logStart();
  run.logFiles(files);
  return runStages(run, files);
}

}  // namespace badgemint

int32_t BadgeMint(const char* baseDirectory, const char* inputCardsName, const char* identDbName,
                  const char* accessDbName, const char* formatsName, const char* cardSetsName,
                  const char* logName, uint32_t logLevel) {
  using namespace badgemint;
  const SiteFiles names = {inputCardsName, identDbName, accessDbName, formatsName, cardSetsName};
  EntryRun entry("BadgeMint", baseDirectory, kDatabasePause);
  return entry.run(logName, logLevel, [&](EntryRun& run) { return buildSite(run, names); });
}
