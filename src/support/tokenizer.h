// The word splitter of the system's line-oriented files.
#ifndef BADGEMINT_SUPPORT_TOKENIZER_H
#define BADGEMINT_SUPPORT_TOKENIZER_H

#include <array>
#include <cstdint>

#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

// What separates the words of configuration and data files: '=' separates a key from its value
// exactly like a blank.
inline constexpr const char* kWordDelimiters = " \t\n\r=";

// The words of one line. They point into the line that was split, which the caller owns and must
// keep as long as it uses the words.
class Tokenizer {
 public:
  static constexpr uint32_t kMaxWords = 150;

  // Splits `line` in place at runs of the delimiter characters. A '#' inside a word cuts the word
  // there and splitting goes on after it; a word that begins with '#' ends the line. So "abc#def
  // ghi" is two words and "abc #def ghi" is one. Words beyond the 150th are ignored.
  void split(char* line, const char* delimiters);

  uint32_t count() const { return _count; }

  // The word at index i (0 to count - 1); null at count. No other index is allowed.
  char* word(uint32_t i) const { return _words[i]; }

  // The word at the cursor, which moves on; null past the end.
  char* next();

  // next() as a number, as textToInt32 reads it; 0 past the end.
  int32_t nextInt();

  // The second word without a leading double quote and then without a closing one; null when there
  // is no second word. A cut word is cut in the line.
  char* unquoteSecond();

  // The first word without a '=' at its end; null when there is none or it is empty.
  char* stripEqualsFirst();

 private:
  uint32_t _cursor = 0;
  uint32_t _count = 0;
  std::array<char*, kMaxWords + 1> _words{};  // The slot after the last word is null.
};

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_TOKENIZER_H
