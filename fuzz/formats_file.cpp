// A formats file, read entry by entry and loaded as a whole. Input: the file.
#include "formats/fmtfile.h"
#include "formats/loadformats.h"
#include "fuzz.h"
#include "support/result.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace badgemint;
  static const FormatsFolder folder;
  const DroppedLog log;
  const MemoryFile file(textOf(data, size));

  fmtfile entries;
  require(entries.open(file.path()) == kSuccess, "the file can be opened");
  uint32_t id = 0;
  FormatFileName name{};
  size_t count = 0;
  while (entries.readEntryBaseName(id, name) == kSuccess) {
    require(++count <= size, "an entry takes a line");
    require(
        name.back() == '\0' && std::string_view(name.data()).find('/') == std::string_view::npos,
        "a base name ends and has no folder");
  }

  CardFormatSet formats;
  require(formats.create(20) == kSuccess, "there is memory");
  const int32_t loaded = loadFormats("inputcards", "", file.path(), formats);
  require(loaded <= 0 && static_cast<size_t>(formats.count()) <= count,
          "a format comes from an entry");
  return 0;
}
