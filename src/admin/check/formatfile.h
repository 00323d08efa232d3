// A format file once more, line by line with the places, and the rules that it is checked against:
// a loaded format no longer knows what its file contained, and one that did not load cannot report
// why.
#ifndef BADGEMINT_ADMIN_CHECK_FORMATFILE_H
#define BADGEMINT_ADMIN_CHECK_FORMATFILE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "admin/check/finding.h"
#include "formats/CardFormat.h"

namespace badgemint::admin {

enum class FormatKind { kCdf, kEff, kVff };
FormatKind kindOf(const CardFormat& format);
const char* kindName(FormatKind kind);

// The lines of a CDF or EFF file, or the records of a VFF file. The constructor reads the file;
// when it has changed since its format was loaded, items may be missing.
class FormatFile {
 public:
  // Where the items stand, counted from 0.
  static constexpr size_t kCardNumberFieldLine = 7;
  static constexpr size_t kParityCountLine = 8;
  static constexpr size_t kFirstFieldLine = 12;
  static constexpr size_t kFirstMaskLine = 20;
  static constexpr size_t kMasks = 2 + kParityMaskCount;
  static constexpr size_t kPositionsPerLine = 48;
  static constexpr size_t kDefinitionRecord = 5;
  static constexpr size_t kFirstMaskRecord = 6;
  static constexpr size_t kLongestLine = 100;

  struct Line {
    std::string text;     // As the format reads it.
    std::string raw;      // As it is in the file, or decoded.
    int64_t number;       // The pieces of a CDF line that is too long have the same number.
    int64_t bytesBefore;  // In that line.
  };

  // `file` is the number of the file among the findings.
  FormatFile(const std::string& path, const CardFormat& format, int file);

  FormatKind kind() const { return _kind; }
  bool isVff() const { return _kind == FormatKind::kVff; }

  // Those that belong to the format and one more, as far as they exist.
  const std::vector<Line>& lines() const { return _lines; }
  size_t mostLines() const { return isVff() ? 17 : 50; }

  Place place() const { return {_file, 0, 0}; }
  Place placeOf(size_t item) const;
  Place placeOf(size_t item, size_t offset) const;
  // Mask 0 is the output mask, 1 the fixed mask, and 2 to 9 are the parity masks.
  Place placeInMask(size_t mask, size_t position) const;

  // How reading ended: with an error of the system, or with these characters of a line or record
  // that is not complete.
  bool isOpened() const { return _isOpened; }
  int systemError() const { return _systemError; }
  const std::string& unfinished() const { return _unfinished; }
  Place end() const { return {_file, _endLine, 0}; }
  // Whether a format may end there.
  bool isWhole() const;

  // The first line that is too long and read as several; null when there is none.
  const Line* firstLongLine() const;
  // What makes a text file something else as a whole, and where it is noticed first.
  struct Misread {
    Place place;
    const char* text;
  };
  std::optional<Misread> findMisread() const;

 private:
  void read(LineReader& reader);

  FormatKind _kind;
  int _file;
  std::vector<Line> _lines;
  bool _isOpened = false;
  int _systemError = 0;
  std::string _unfinished;
  int64_t _endLine = 1;
};

// A word of letters, in quotes: a digit and what follows is left out, since it may be a PIN.
std::string shownLetters(std::string_view word);

// Warns of what is wrong in a file that loaded as `format`.
void checkFormatFile(const FormatFile& file, const CardFormat& format, Findings& findings);

// The rule `mask`: the masks against each other and against what else the file contains. The number
// of parity masks counts only if `isParityCountValid`. False when a field does not get the
// positions that it seems to have.
bool checkMasks(const FormatFile& file, const CardFormat& format, bool isParityCountValid,
                Findings& findings);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_FORMATFILE_H
