#include "support/masterconfiguration.h"

#include <strings.h>
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>

#include "support/fieldscanner.h"
#include "support/textutil.h"

namespace badgemint {

MasterConfiguration::MasterConfiguration(uint32_t moduleId, const char* path)
    : _moduleId(moduleId) {
  copyCut(path, _path);
}

void MasterConfiguration::load() {
  _loaded = true;
  LineReader reader;
  if (!reader.open(_path.data())) {
    reportUnopened(_path.data());
    return;
  }
  _count = 0;
  Tokenizer words;
  for (uint32_t number = 1; reader.readLine(kLineLimit) == LineReader::Status::kLine; ++number) {
    words.split(reader.line(), kWordDelimiters);
    addEntry(words, number);
  }
}

void MasterConfiguration::ensureLoaded() {
  if (!_loaded) load();
}

void MasterConfiguration::addEntry(const Tokenizer& words, uint32_t lineNumber) {
  if (words.count() == 0) return;
  if (words.count() == 1) return reportLine(lineNumber, "no task path");
  if (_count == kMaxEntries) return reportLine(lineNumber, " exceeds param limit");
  Entry& entry = _entries[_count++];
  copyCut(words.word(0), entry.name);
  copyCut(words.word(1), entry.value);
  entry.number = words.count() > 2 ? textToInt32(words.word(2)) : 0;
}

const MasterConfiguration::Entry* MasterConfiguration::find(const char* name) {
  return lookUp(name);
}

MasterConfiguration::Entry* MasterConfiguration::lookUp(const char* name) {
  ensureLoaded();
  const auto entries = std::span(_entries).first(_count);
  const auto found = std::find_if(entries.begin(), entries.end(), [name](const Entry& entry) {
    return strcasecmp(entry.name.data(), name) == 0;
  });
  return found != entries.end() ? &*found : nullptr;
}

int32_t MasterConfiguration::number(const char* name) {
  const Entry* const entry = lookUp(name);
  return entry != nullptr ? entry->number : 0;
}

bool MasterConfiguration::setValue(const char* name, const char* value) {
  Entry* const entry = lookUp(name);
  if (entry == nullptr) return false;
  copyCut(value, entry->value);
  return true;
}

bool MasterConfiguration::save(const char* path) {
  ensureLoaded();
  std::FILE* const file = std::fopen(path, "we");
  if (file == nullptr) {
    reportUnopened(path);
    return false;
  }
  for (const Entry& entry : std::span(_entries).first(_count))
    std::fprintf(file, "%s %s %d\n", entry.name.data(), entry.value.data(), entry.number);
  const bool written = std::ferror(file) == 0;
  if (std::fclose(file) == 0 && written) return true;
  report(kReportConfiguration, path);
  return false;
}

bool MasterConfiguration::openEntryFile(const char* name, LineReader& reader) {
  const Entry* const entry = lookUp(name);
  if (entry == nullptr) {
    errno = 0;
    report(kReportEntryMissing, name);
    return false;
  }
  if (reader.open(entry->value.data())) return true;
  report(kReportEntryUnopened, entry->value.data());
  return false;
}

bool MasterConfiguration::entryFileExists(const char* name) {
  const Entry* const entry = lookUp(name);
  struct stat status {};
  return entry != nullptr && stat(entry->value.data(), &status) == 0;
}

void MasterConfiguration::reportUnopened(const char* path) const {
  syslog(LOG_ERR, "MasterConfiguration: failed to open master configuration (%s)\n", path);
  report(kReportConfiguration, path);
}

void MasterConfiguration::reportLine(uint32_t lineNumber, const char* reason) const {
  std::array<char, 48> what{};
  std::snprintf(what.data(), what.size(), "line %u:%s", lineNumber, reason);
  report(kReportConfiguration, what.data());
}

void MasterConfiguration::report(uint16_t code, const char* what) const {
  reportSystemError(static_cast<uint16_t>(_moduleId), code, what);
}

}  // namespace badgemint
