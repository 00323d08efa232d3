// What is wrong or dangerous in a site's files. Each finding has its place, a text that says what
// is wrong and what comes of it, and in brackets the result of the build that it would fail or the
// name of the rule that it breaks.
#ifndef BADGEMINT_ADMIN_CHECK_FINDING_H
#define BADGEMINT_ADMIN_CHECK_FINDING_H

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "admin/console.h"
#include "carddb/identrecord.h"
#include "formats/bitpattern.h"
#include "inputcards/cardline.h"
#include "support/fieldscanner.h"
#include "support/textutil.h"

namespace badgemint::admin {

// Where something stands. Lines and columns are those of an editor, counted from 1; 0 is none: a
// finding about a line as a whole, or about the file. Records of a database and their offsets are
// counted from 0; record -1 is none.
struct Place {
  int file = 0;  // As Findings::addFile numbered it.
  int64_t line = 0;
  int64_t column = 0;
  int64_t record = -1;
  int64_t offset = 0;
};

// The holder or card that a finding is about; of a block the first card. A PIN is never part of it.
struct About {
  std::optional<uint32_t> holder{};
  int32_t set = 0;     // The card set, if it is one that a site may use.
  std::string card{};  // As written; shown when it is a card number. Empty for a PIN.
  bool isHex = false;  // Whether the card number is hexadecimal.
  std::string key{};   // Hexadecimal digits; empty for none.
  std::optional<IdentRecord> credential{};  // If set, it replaces the four above.

  bool hasNumber() const;
  // "card 5 of holder 7"; empty when there is nothing to name.
  std::string name() const;
};

// One error, warning or fault, with its place and text.
struct Finding {
  Place place{};
  std::string text{};
  int32_t code = 0;         // The result of a build, for an error.
  std::string_view rule{};  // The name of the rule, for a warning and for a fault.
  bool isFault = false;     // An error in databases that are there already.
  int64_t further = 0;      // How many more fail for the same reason.
  About about{};

  bool isError() const { return isFault || rule.empty(); }
  // What stands in the brackets.
  std::string kind() const { return rule.empty() ? fmt::to_string(code) : std::string(rule); }
};

// How a build of the files would end, and where it would meet what ends it.
struct Verdict {
  int32_t result = 0;
  Place place;
};

// All that one run finds. Of one code or rule only the first hundred are kept unless all are asked
// for; so findings of one code or rule must come in the order of their places. The text of a
// finding that is not kept is never made.
class Findings {
 public:
  static constexpr size_t kNotKept = SIZE_MAX;

  explicit Findings(bool keepAll = false) : _mostOfOneKind(keepAll ? SIZE_MAX : 100) {}

  // Files are numbered in the order in which their findings are to be printed. `name` is as the
  // user knows it.
  int addFile(std::string name);
  const std::string& fileName(int file) const { return _files.at(static_cast<size_t>(file)); }

  // Add an error at which a build ends, if it gets there, with the result code of the build, and a
  // warning with its rule. The compiler checks the arguments against the format. `rule` must be a
  // literal. fail() returns the error's number for countFurther(), kNotKept when the error was not
  // kept.
  template <typename... Args>
  size_t fail(Place place, int32_t code, fmt::format_string<Args...> format, Args&&... args) {
    setVerdict(code, {place.file, place.line});
    return add({place, {}, code, {}}, format, fmt::make_format_args(args...));
  }
  template <typename... Args>
  void warn(Place place, std::string_view rule, fmt::format_string<Args...> format,
            Args&&... args) {
    add({place, {}, 0, rule}, format, fmt::make_format_args(args...));
  }
  // The same for a fault.
  void fault(Place place, std::string_view rule, const std::string& text, const About& about = {}) {
    add({.place = place, .rule = rule, .isFault = true, .about = about}, "{}",
        fmt::make_format_args(text));
  }
  // The common part, for callers that check the arguments themselves. Returns the number of the
  // finding, kNotKept when it was not kept.
  size_t add(Finding finding, fmt::string_view format, fmt::format_args args);

  // A finding by its number; null when it was not kept.
  Finding* find(size_t number) { return number < _kept.size() ? &_kept[number] : nullptr; }

  // Replaces all warnings of a rule, of which there must be at least one, with one warning at the
  // place of the first. Invalidates the numbers of findings.
  void combine(std::string_view rule, const std::string& text);

  // Counts one more line or card that fails for the same reason as this error.
  void countFurther(size_t error);

  // Only the first call has an effect: a build ends at its first error.
  void setVerdict(int32_t result, Place place);
  const Verdict& verdict() const { return _verdict; }

  size_t errors() const { return _errors; }
  size_t warnings() const { return _warnings; }

  // The findings that were kept, in the order of files, lines and columns.
  std::vector<Finding> sorted() const;
  // How many there are of each code or rule, by what stands in the brackets.
  const std::map<std::string, size_t>& counts() const { return _counts; }
  // How many of these were not kept.
  std::map<std::string, size_t> notKept() const;

  // "cards.txt:14:9", without what the place lacks; "ident.db: record 2 (offset 56)".
  std::string placeText(const Place& place) const;

  // Prints the findings, a line each, and then how many of each kind were not kept; as JSON an
  // object a line, without these numbers.
  void print(Console& console, bool asJson = false) const;
  JsonObject json(const Finding& finding) const;

 private:
  size_t _mostOfOneKind;
  std::vector<std::string> _files;
  std::vector<Finding> _kept;
  std::map<std::string, size_t> _counts;  // By their kinds.
  size_t _errors = 0;
  size_t _warnings = 0;
  Verdict _verdict;
};

// The 32 hexadecimal digits of a key.
std::string keyText(const CardPattern& key);
// printable() in double quotes, as messages show a word of a file; cut after `most` characters.
std::string inQuotes(std::string_view word, size_t most = 60);

// The length of the decimal number at the start of a text, with its sign; 0 for none.
size_t numberLength(std::string_view text);

inline bool isNumber(std::string_view word) {
  return !word.empty() && numberLength(word) == word.size();
}
inline bool isZero(std::string_view word) {
  return word.find_first_not_of('0') == std::string_view::npos;
}

// The number that a word begins with, and 0 where there is none; it saturates at 64 bits. A NUL or
// another character that is not a digit must follow the word.
inline int64_t wordValue(std::string_view word) {
  SaturatedInt64 number{};
  return digitsToInt64(word, number) ? number.value : textToInt64(word.data());
}

// How a message shows a word of a wrong line, which may be a PIN. The word of a PIN field is not
// shown. Any other is quoted up to the first character that its field cannot have, or shown as "of
// N digits" if it has more digits than the largest value. Only card numbers without format have
// hexadecimal digits.
std::string shown(std::string_view word, const LineField& field, bool isHex = false);
// What becomes of a word, for a message in which shown() shows it: ": it is read as 5". Empty when
// it is not shown, since its digits could be worked out from the number.
std::string effectOf(std::string_view shownWord, const char* effect, int64_t number);
// A word that ought to be letters, up to its first digit.
std::string shownName(std::string_view word);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_FINDING_H
