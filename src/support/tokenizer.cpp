#include "support/tokenizer.h"

#include <cstring>

#include "support/fieldscanner.h"

namespace badgemint {

void Tokenizer::split(char* line, const char* delimiters) {
  _cursor = 0;
  _count = 0;
  char* rest = nullptr;
  for (char* word = strtok_r(line, delimiters, &rest); word != nullptr && _count < kMaxWords;
       word = strtok_r(nullptr, delimiters, &rest)) {
    if (char* const comment = std::strchr(word, '#')) *comment = '\0';
    if (*word == '\0') break;
    _words[_count++] = word;
  }
  _words[_count] = nullptr;
}

char* Tokenizer::next() {
  char* const word = _words[_cursor];
  if (_cursor < _count) ++_cursor;
  return word;
}

int32_t Tokenizer::nextInt() {
  const char* const word = next();
  return word != nullptr ? textToInt32(word) : 0;
}

char* Tokenizer::unquoteSecond() {
  if (_count < 2) return nullptr;
  char*& word = _words[1];
  if (*word == '"') ++word;
  if (const size_t length = std::strlen(word); length > 0 && word[length - 1] == '"')
    word[length - 1] = '\0';
  return word;
}

char* Tokenizer::stripEqualsFirst() {
  if (_count == 0 || *_words[0] == '\0') return nullptr;
  char* const word = _words[0];
  if (const size_t last = std::strlen(word) - 1; word[last] == '=') word[last] = '\0';
  return word;
}

}  // namespace badgemint
