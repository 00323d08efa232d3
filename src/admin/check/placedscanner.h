// Scans the fields of a 'c', 'n', 'p' or 'o' line as a build does, and notes where each of them
// stands and what keeps the line from being what it looks like.
#ifndef BADGEMINT_ADMIN_CHECK_PLACEDSCANNER_H
#define BADGEMINT_ADMIN_CHECK_PLACEDSCANNER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/fieldscanner.h"
#include "support/textutil.h"

namespace badgemint::admin {

// Takes the place of a FieldScanner in the functions of the grammar.
class PlacedScanner {
 private:
  template <typename Scan>
  auto placed(Scan scan) -> decltype(scan()) {
    if (_flaw != Flaw::kNone) return scan();
    const char* const begin = skipSpace(_scanner.position());
    const auto value = scan();
    const char* const end = _scanner.position();
    _begins[_count] = begin;
    _ends[_count++] = end;
    if (_scanner.failed()) {
      _flaw = *begin == '\0' ? Flaw::kMissing : Flaw::kNoNumber;
    } else if (*end != '\0' && !isSpace(*end)) {
      _flaw = Flaw::kCut;
    }
    return value;
  }

 public:
  static constexpr size_t kMostFields = 24;

  enum class Flaw {
    kNone,
    kMissing,   // The line ends before this field.
    kNoNumber,  // A number was due and the word does not begin with one.
    kCut,       // The field ends within a word, whose rest is read as the next field.
  };

  explicit PlacedScanner(const char* text) : _scanner(text) {}

  int32_t nextInt() {
    return placed([this] { return _scanner.nextInt(); });
  }
  uint32_t nextUnsigned() {
    return placed([this] { return _scanner.nextUnsigned(); });
  }
  std::string_view nextWord(size_t width) {
    return placed([this, width] { return _scanner.nextWord(width); });
  }

  // The fields up to the first that has a flaw, which is the last one then.
  size_t count() const { return _count; }
  // Those before it.
  size_t sound() const { return _count - (_flaw == Flaw::kNone ? 0 : 1); }
  Flaw flaw() const { return _flaw; }
  // What a field is read from: its begin to the end of the word that it stands in.
  std::string_view word(size_t field) const {
    const bool isSound = field + 1 < _count || _flaw == Flaw::kNone;
    const char* end = isSound ? _ends[field] : _begins[field];
    while (!isSound && *end != '\0' && !isSpace(*end)) ++end;
    return {_begins[field], end};
  }
  const char* begin(size_t field) const { return _begins[field]; }
  // What follows the last field, white space left out.
  const char* rest() const { return skipSpace(_scanner.position()); }

 private:
  static const char* skipSpace(const char* text) {
    while (isSpace(*text)) ++text;
    return text;
  }

  FieldScanner _scanner;
  std::array<const char*, kMostFields> _begins;
  std::array<const char*, kMostFields> _ends;
  size_t _count = 0;
  Flaw _flaw = Flaw::kNone;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_PLACEDSCANNER_H
