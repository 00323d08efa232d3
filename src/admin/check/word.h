// What a word of an input file is, which of its bytes an editor does not show, and how much of it a
// message may show.
#ifndef BADGEMINT_ADMIN_CHECK_WORD_H
#define BADGEMINT_ADMIN_CHECK_WORD_H

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "inputcards/cardline.h"
#include "support/textutil.h"

namespace badgemint::admin {

enum class WordKind : uint8_t {
  kNumber,          // Decimal digits, perhaps after a sign.
  kNumberWithRest,  // Begins with a number, as "12A": a build reads the number only.
  kDate,            // Three numbers with slashes between them; what follows is the rest.
  kTime,            // The same with colons.
  kComment,         // Begins with '#'.
  kOther,
};

struct Word {
  WordKind kind = WordKind::kOther;
  std::string_view rest{};  // What follows the number, the date or the time.
};

// Classifies a word, which has no white space.
Word classify(std::string_view word);

inline bool isNumber(std::string_view word) {
  return classify(word).kind == WordKind::kNumber;
}

// The number that a word begins with, and 0 where there is none; it saturates at 64 bits. A NUL or
// another character that is no digit has to follow the word.
int64_t wordValue(std::string_view word);

// A byte of a line that an editor does not show, or shows as a blank.
struct HiddenByte {
  size_t offset;
  const char* effect;  // What it is, and what that does.
};

// The first NUL with something after it, carriage return before the end of the line, or no-break
// space, from `from` on; in a comment, which begins at `comment`, a no-break space does no harm.
// The newline may be there.
std::optional<HiddenByte> findHiddenByte(std::string_view line, size_t from = 0,
                                         size_t comment = std::string_view::npos);

inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
// Whether the line is one of those that a version control system leaves where versions conflict.
bool isMergeMark(std::string_view line);
// Whether a file that begins like this is in UTF-16, which is read as if each character were two.
bool isUtf16(std::string_view start);
inline constexpr char kMergeMarkText[] =
    "a mark of a merge conflict: choose one of the two versions that follow and delete the marks";
inline constexpr char kUtf16Text[] = "the file is UTF-16: save it as UTF-8";

// How a message shows a word of a wrong line, in which any word may be a PIN: never that of a PIN;
// any other up to the first character that its field cannot have, and not at all when that part has
// more digits than the largest value of the field. The text of the word must live as long.
struct ShownWord {
  std::string_view word;
  size_t length = 0;  // Of the part that the field can have.
  size_t digits = 0;  // In that part.
  size_t mostDigits = 0;

  bool hasTooManyDigits() const { return digits > mostDigits; }
  // In double quotes, or "of N digits" for a word with too many of them.
  std::string text() const;
};

ShownWord shown(std::string_view word, const LineField& field);
// The same of a word that ought to be letters.
ShownWord shownName(std::string_view word);

}  // namespace badgemint::admin

template <>
struct fmt::formatter<badgemint::admin::ShownWord> : fmt::formatter<std::string> {
  template <typename Context>
  auto format(const badgemint::admin::ShownWord& word, Context& context) const {
    return fmt::formatter<std::string>::format(word.text(), context);
  }
};

#endif  // BADGEMINT_ADMIN_CHECK_WORD_H
