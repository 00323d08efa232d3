#include "formats/EffCardFormat.h"

#include "support/log.h"
#include "support/result.h"

namespace badgemint {
namespace {

constexpr char kLogModule[] = "EffCardFormat";
constexpr char kEndOfLine = '~';

}  // namespace

int32_t EffCardFormat::readFormatLine(LineReader& file, FormatLine& line, bool /*reportErrors*/) {
  if (!readToMarker(file, line)) {
    file.close();
    if (_broken) LOG(kLogError, "Error reading EFF file\n");
    return kEffReadFailed;
  }
  stripLineEnd(line.data());
  return kSuccess;
}

// Reads a line with a newline in place of its end marker.
bool EffCardFormat::readToMarker(LineReader& file, FormatLine& line) {
  line.fill('\0');
  for (size_t length = 0; length <= kMaxLine; ++length) {
    char& character = line[length];
    const bool read = readCharacter(file, character);
    _broken = file.failed();
    if (!read || character == kErrorMarker) return false;
    if (character != kEndOfLine) continue;
    character = '\n';
    return true;
  }
  _broken = true;
  return false;
}

bool EffCardFormat::openFormatFile(const char* path, LineReader& file) {
  if (file.open(path)) return true;
  LOG(kLogError, "Error opening EFF file %s\n", path);
  return false;
}

}  // namespace badgemint
