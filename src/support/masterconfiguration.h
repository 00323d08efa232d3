// The master configuration: a small table of named entries, each with a text (usually a path) and a
// number, read from a text file on first use.
#ifndef BADGEMINT_SUPPORT_MASTERCONFIGURATION_H
#define BADGEMINT_SUPPORT_MASTERCONFIGURATION_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "support/exported.h"
#include "support/linereader.h"
#include "support/tokenizer.h"

namespace BADGEMINT_EXPORTED badgemint {

// Owns its entries. A line of the file (of at most 255 characters: what is longer is a line of its
// own) is "name value number", separated by white space or '='; the number may be missing and is
// then 0, and '#' begins a comment. A line with a name alone and entries beyond the fortieth are
// reported and skipped.
class MasterConfiguration {
 public:
  static constexpr uint32_t kMaxEntries = 40;
  static constexpr size_t kTextSize = 128;  // Names and values are cut at 127 characters.

  struct Entry {
    std::array<char, kTextSize> name{};
    std::array<char, kTextSize> value{};
    int32_t number = 0;
  };

  // The low 16 bits of `moduleId` go to the error report hook. The path is copied and cut at 128
  // characters. Nothing is read yet.
  MasterConfiguration(uint32_t moduleId, const char* path);

  // Reads the file, in place of what the table held. Every other operation does so on first use,
  // and only once, also when it failed. A file that cannot be opened goes to the system's log
  // (LOG_ERR) and leaves the table as it was.
  void load();

  // The first entry of this name, ignoring case; null when there is none. Owned by the table.
  const Entry* find(const char* name);

  // The number of the entry of this name; 0 when there is none.
  int32_t number(const char* name);

  // Changes the value of an entry. False when there is none of this name.
  bool setValue(const char* name, const char* value);

  // Creates or truncates a file and writes all entries to it, "%s %s %d\n" each. False, reported to
  // the hook, when it cannot be opened (also logged as a failing load is) or written.
  bool save(const char* path);

  // Opens the file that the value of this entry names. False, reported to the hook, when there is
  // no such entry (errno is then 0) or the file cannot be opened.
  bool openEntryFile(const char* name, LineReader& reader);

  // Whether there is such an entry and its file exists.
  bool entryFileExists(const char* name);

 private:
  static constexpr size_t kMaxPath = 128;
  static constexpr int kLineLimit = 255;

  void ensureLoaded();
  void addEntry(const Tokenizer& words, uint32_t lineNumber);
  Entry* lookUp(const char* name);

  void reportUnopened(const char* path) const;
  void reportLine(uint32_t lineNumber, const char* reason) const;
  void report(uint16_t code, const char* what) const;

  uint32_t _moduleId;
  bool _loaded = false;  // A load was attempted.
  std::array<char, kMaxPath + 1> _path{};
  uint32_t _count = 0;
  std::array<Entry, kMaxEntries> _entries{};
};

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_MASTERCONFIGURATION_H
