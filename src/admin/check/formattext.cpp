#include "admin/check/formattext.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <span>

#include "formats/CdfCardFormat.h"
#include "formats/EffCardFormat.h"
#include "formats/VffCardFormat.h"

namespace badgemint::admin {
namespace {

constexpr size_t kMostEffCharacters = 100;

std::unique_ptr<CardFormat> makeFormat(FormatText::Kind kind) {
  if (kind == FormatText::Kind::kVff) return std::make_unique<VffCardFormat>();
  if (kind == FormatText::Kind::kEff) return std::make_unique<EffCardFormat>();
  return std::make_unique<CdfCardFormat>();
}

// Without the NULs that fill it up.
std::string decoded(const FormatLine& line) {
  std::string text(line.begin(), line.end());
  text.erase(text.find_last_not_of('\0') + 1);
  return text;
}

}  // namespace

FormatText::Kind FormatText::kindOf(const CardFormat& format) {
  if (dynamic_cast<const VffCardFormat*>(&format) != nullptr) return Kind::kVff;
  if (dynamic_cast<const EffCardFormat*>(&format) != nullptr) return Kind::kEff;
  return Kind::kCdf;
}

FormatText::FormatText(const std::string& path, const CardFormat& format, int file)
    : _kind(kindOf(format)), _file(file) {
  LineReader reader;
  _isOpened = reader.open(path.c_str());
  if (_isOpened)
    read(reader);
  else
    _systemError = errno;
}

void FormatText::read(LineReader& reader) {
  const std::unique_ptr<CardFormat> format = makeFormat(_kind);
  FormatLine line{};
  while (_lines.size() <= mostLines()) {
    const bool got = format->readFormatLine(reader, line, false) >= 0;
    const int error = errno;
    const bool isText = _kind == Kind::kCdf;
    const auto count = static_cast<int64_t>(_lines.size());
    _endLine = (isText ? reader.lineNumber() : count) + 1;
    if (!got) {
      if (reader.failed()) _systemError = error;
      if (!isText) _unfinished = line.data();
      return;
    }
    _lines.push_back({line.data(),
                      isText ? std::string(reader.line(), reader.length()) : decoded(line),
                      isText ? reader.lineNumber() : count + 1, isText ? reader.bytesBefore() : 0});
  }
}

Place FormatText::at(size_t item, size_t offset) const {
  if (item >= _lines.size()) return file();
  const Line& line = _lines[item];
  return {_file, line.number, line.bytesBefore + static_cast<int64_t>(offset) + 1};
}

size_t FormatText::maskItem(size_t mask, int32_t position) const {
  if (isVff()) return kFirstMaskRecord + mask;
  return kFirstMaskLine + static_cast<size_t>(position) / kPositionsPerLine * kMasks + mask;
}

Place FormatText::maskPlace(size_t mask, int32_t position) const {
  const auto offset = static_cast<size_t>(position);
  return at(maskItem(mask, position), isVff() ? offset : offset % kPositionsPerLine);
}

bool FormatText::isWhole() const {
  if (_lines.size() >= mostLines()) return true;
  if (isVff() || _systemError != 0 || _unfinished.size() > kMostEffCharacters) return false;
  return _lines.size() == 30 || _lines.size() == 40;
}

const FormatText::Line* FormatText::firstLongLine() const {
  const std::span<const Line> lines(_lines.data(), std::min(_lines.size(), mostLines()));
  const auto line = std::ranges::find_if(lines, [](const Line& l) { return l.bytesBefore > 0; });
  return line != lines.end() ? &*line : nullptr;
}

}  // namespace badgemint::admin
