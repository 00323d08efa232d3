#include "cardsets/cardset.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cinttypes>
#include <cstring>

#include "support/fieldscanner.h"
#include "support/log.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

namespace {

constexpr char kLogModule[] = "cardset";
constexpr const char* kTextDelimiters = " \n\r";

// The next word, as a text that goes on after it; null when there is none. A word of white space
// alone, such as a tab, reads as an empty text: as a number it must not run on into the next word.
const char* nextWord(const char*& rest) {
  const char* const word = rest + std::strspn(rest, kTextDelimiters);
  if (*word == '\0') return nullptr;
  rest = word + std::strcspn(word, kTextDelimiters);
  return std::all_of(word, rest, isSpace) ? "" : word;
}

int32_t upperIndex(char letter) {
  return std::toupper(static_cast<unsigned char>(letter)) - 'A';
}

}  // namespace

void cardset::setValue(int32_t index, int64_t value) {
  if (index >= 0 && index < kCardSetFields) fldvalues[static_cast<size_t>(index)] = value;
}

int64_t cardset::value(int32_t index) const {
  return index >= 0 && index < kCardSetFields ? fldvalues[static_cast<size_t>(index)] : 0;
}

void cardset::setValueOf(char letter, int64_t value) {
  setValue(upperIndex(letter), value);
}

int64_t cardset::valueOf(char letter) const {
  return value(upperIndex(letter));
}

void cardset::printInfo() const {
  LOG(kLogRecord, "Card Set Info:\n");
  LOG(kLogRecord, "csid=%u\n", csid);
  LOG(kLogRecord, "fmtid=%u\n", fmtid);
  LOG(kLogRecord, "fldvalues  n=%d\n", kCardSetFields);
  for (int32_t i = 0; i < kCardSetFields; ++i)
    LOG(kLogRecord, "   ii=%d, fldvalues=%" PRId64 "\n\n", i, value(i));
}

int32_t parseCardSetText(cardset& record, const char* text) {
  const char* rest = text;
  if (nextWord(rest) == nullptr) {
    LOG(kLogError, "Unable to parse f in card set line %s\n", text);
    return kBadCardSetText;
  }
  const char* word = nextWord(rest);
  if (word == nullptr) {
    LOG(kLogError, "Unable to parse csid in card set line %s\n", text);
    return kBadCardSetText;
  }
  record.csid = static_cast<uint32_t>(textToInt32(word));
  word = nextWord(rest);
  if (word == nullptr) {
    LOG(kLogError, "Unable to parse fmtid in card set line %s\n", text);
    return kBadCardSetText;
  }
  record.fmtid = static_cast<uint32_t>(textToInt32(word));
  while (const char* const letter = nextWord(rest)) {
    const char* const value = nextWord(rest);
    if (value == nullptr) break;
    record.setValue(*letter - 'A', textToInt64(value));
  }
  return kSuccess;
}

CardSetLine::CardSetLine(const cardset& record) {
  appendText("f ");
  appendNumber(record.csid);
  appendNumber(record.fmtid);
  for (int32_t i = 0; i < kCardSetFields; ++i) {
    if (record.value(i) <= 0) continue;
    const char letter[] = {static_cast<char>('A' + i), ' '};
    appendText({letter, sizeof letter});
    appendNumber(record.value(i));
  }
  appendText("\n");
}

void CardSetLine::appendText(std::string_view text) {
  _length += text.copy(_text.data() + _length, _text.size() - _length);
}

// Every number is followed by a blank, the last one too.
void CardSetLine::appendNumber(int64_t number) {
  char* const end = _text.data() + _text.size();
  _length =
      static_cast<size_t>(std::to_chars(_text.data() + _length, end, number).ptr - _text.data());
  appendText(" ");
}

}  // namespace badgemint
