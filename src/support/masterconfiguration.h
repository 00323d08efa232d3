// The master configuration: a small table of named entries, each with a text (usually a path) and a
// number, read from a text file on first use.
#ifndef BADGEMINT_SUPPORT_MASTERCONFIGURATION_H
#define BADGEMINT_SUPPORT_MASTERCONFIGURATION_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "support/linereader.h"

namespace badgemint {

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

  // Reads the file. Every other operation does so on first use, and only once, also when it failed.
  void load();

  // The first entry of this name, ignoring case; null when there is none. Owned by the table.
  const Entry* find(const char* name);

  // The number of the entry of this name; 0 when there is none.
  int32_t number(const char* name);

  // Changes the value of an entry. False when there is none of this name.
  bool setValue(const char* name, const char* value);

  // Writes all entries to a file, "%s %s %d\n" each. False when it cannot be opened or written.
  bool save(const char* path);

  // Opens the file that the value of this entry names. False, reported to the hook, when there is
  // no such entry (errno is then 0) or the file cannot be opened.
  bool openEntryFile(const char* name, LineReader& reader);

  // Whether there is such an entry and its file exists.
  bool entryFileExists(const char* name);
};

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_MASTERCONFIGURATION_H
