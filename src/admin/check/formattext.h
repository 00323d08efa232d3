// The lines of a format file once more, as its kind reads them, with their places: a loaded format
// no longer knows what its file said, and one that did not load cannot say why.
#ifndef BADGEMINT_ADMIN_CHECK_FORMATTEXT_H
#define BADGEMINT_ADMIN_CHECK_FORMATTEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "admin/check/finding.h"
#include "admin/check/word.h"
#include "formats/CardFormat.h"

namespace badgemint::admin {

class FormatText {
 public:
  enum class Kind { kCdf, kEff, kVff };
  static Kind kindOf(const CardFormat& format);

  // Where the items stand, counted from 0: lines of a CDF or EFF file, records of a VFF file.
  static constexpr size_t kCardNumberFieldLine = 7;
  static constexpr size_t kParityCountLine = 8;
  static constexpr size_t kFirstFieldLine = 12;
  static constexpr size_t kFirstMaskLine = 20;
  static constexpr size_t kMasks = 2 + kParityMaskCount;
  static constexpr size_t kPositionsPerLine = 48;
  static constexpr size_t kDefinitionRecord = 5;
  static constexpr size_t kFirstMaskRecord = 6;

  struct Line {
    std::string text;  // As the format takes it.
    std::string raw;   // As it stands in the file, or is decoded.
    int64_t number;    // Of a CDF line that is longer than the limit, the same for each piece.
    int64_t bytesBefore;
  };

  // `format` tells the kind; `file` is its number among the findings.
  FormatText(const std::string& path, const CardFormat& format, int file);

  Kind kind() const { return _kind; }
  bool isVff() const { return _kind == Kind::kVff; }

  // Those that belong to the format and one more, as far as there are so many.
  const std::vector<Line>& lines() const { return _lines; }
  size_t mostLines() const { return isVff() ? 17 : 50; }

  Place file() const { return {_file, 0, 0}; }
  // An item that is there as a whole, and a character of an item; the file when the item is gone,
  // as it may be when the file has changed since it was loaded.
  Place line(size_t item) const { return {_file, _lines[item].number, 0}; }
  Place at(size_t item, size_t offset) const;

  // Mask 0 is the output mask, 1 the fixed one, then those of parity.
  size_t maskItem(size_t mask, int32_t position) const;
  Place maskPlace(size_t mask, int32_t position) const;

  // How the reading ended: with an error of the system, or at these characters of a line or record
  // that has no end.
  bool isOpened() const { return _isOpened; }
  int systemError() const { return _systemError; }
  const std::string& unfinished() const { return _unfinished; }
  Place end() const { return {_file, _endLine, 0}; }
  // Whether a format may end there.
  bool isWhole() const;

  // The first line that is read as several because it is too long; null when there is none.
  const Line* firstLongLine() const;

 private:
  void read(LineReader& reader);

  Kind _kind;
  int _file;
  std::vector<Line> _lines;
  bool _isOpened = false;
  int _systemError = 0;
  std::string _unfinished;
  int64_t _endLine = 1;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_FORMATTEXT_H
