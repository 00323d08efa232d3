// The check of 'd' lines, blocks of cards.
#include <algorithm>
#include <cstring>
#include <new>

#include "admin/check/cardscheck.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

constexpr const char* kBlockDelimiters = " \n\r";

std::string gluedType(const char* word) {
  return quoted(word) + " is read as d: the card set is the next word";
}

}  // namespace

void CardsCheck::checkBlock(const CheckedLine& line, bool isHidden) {
  auto copy = copyOf(line);
  const MultiCardsLine words = splitMultiCardsLine(copy.data());
  CheckedLine placed = line;
  placed.text = {copy.data(), line.text.size()};
  if (words.firstUniqid != nullptr)
    placed.subject = {true, words.firstCard, static_cast<uint32_t>(textToInt32(words.firstUniqid))};
  const int32_t csid = words.csid == nullptr ? 0 : textToInt32(words.csid);
  const int32_t before = _index.count();
  auto checked = copyOf(line);
  const int32_t result = unloadedFormat(csid) != nullptr
                             ? kFormatNotDefined
                             : _checker.check({checked.data(), static_cast<int32_t>(line.number)});
  if (result == kOutOfMemory) throw std::bad_alloc();
  if (result < 0) {
    _findings.setVerdict(result, line.whole());
    explainBlock(placed, words, result, _index.count() - before);
    addUnindexed(words);
  }
  if (!isHidden && words.firstUniqid != nullptr) checkBlockWords(placed, words, result);
}

void CardsCheck::addUnindexed(const MultiCardsLine& words) {
  if (words.firstUniqid == nullptr) return;
  const auto first = static_cast<uint32_t>(textToInt32(words.firstUniqid));
  const int64_t count = std::max(textToInt32(words.count), 1);
  _unindexed.push_back(
      {first, static_cast<uint32_t>(std::min<int64_t>(first + count - 1, UINT32_MAX))});
}

void CardsCheck::explainBlock(const CheckedLine& line, const MultiCardsLine& words, int32_t result,
                              int64_t sound) {
  if (std::strlen(words.type) > 1) {
    _findings.error(line.at(words.type), result, gluedType(words.type));
    return;
  }
  const struct {
    const char *word, *name;
  } needed[] = {{words.csid, "card set"},
                {words.firstCard, "first card"},
                {words.count, "number of cards"},
                {words.firstUniqid, "first unique ID"}};
  for (const auto& [word, name] : needed) {
    if (word != nullptr) continue;
    _findings.error(line.whole(), result, std::string("the ") + name + " is missing");
    return;
  }
  const int32_t csid = textToInt32(words.csid);
  const bool wrongSet = explainCardSet(line, words.csid, csid);
  const bool wrongNumber = explainNumber(line, words.firstCard, csid, false);
  if (wrongSet || explainEncoding(line, words.firstCard, csid) || wrongNumber) return;
  const int64_t first = textToInt32(words.firstCard) + sound;
  const int64_t left = textToInt32(words.count) - sound;
  const cardset* const set = _site.cardSets().getCardSet(static_cast<uint32_t>(csid));
  const CardEncoder encoder = encoderOf(*set);
  int64_t wrong = 0;
  const int64_t looked = std::min(left, _cardsToCount);
  _cardsToCount -= looked;
  for (int64_t card = first; card < first + looked; ++card)
    wrong += encoder.decode(encoder.encode(card)) != card ? 1 : 0;
  const auto uniqid = static_cast<uint32_t>(textToInt32(words.firstUniqid) + sound);
  std::string text = "card " + std::to_string(first) + " of holder " + std::to_string(uniqid);
  if (wrong > 1)
    text += (looked < left ? " and at least " : " and ") + std::to_string(wrong - 1) +
            " more of the block";
  text +=
      (wrong > 1 ? " do not fit format " : " does not fit format ") + std::to_string(set->fmtid);
  _findings.error(line.at(words.firstCard), result, text);
}

void CardsCheck::checkBlockWords(const CheckedLine& line, const MultiCardsLine& words,
                                 int32_t result) {
  const struct {
    const char *word, *name;
  } numbers[] = {{words.csid, "card set"},
                 {words.count, "number of cards"},
                 {words.firstUniqid, "first unique ID"},
                 {words.accessLevel, "access level"}};
  const auto warn = [&](const char* word, const char* rule, const std::string& text) {
    _findings.warning(line.at(word), rule, text + line.subject.inBrackets());
  };
  if (std::strlen(words.type) > 1) {
    if (result == kSuccess) warn(words.type, "fields", gluedType(words.type));
    return;
  }
  for (const auto& [word, name] : numbers) {
    if (word == nullptr || (word == words.accessLevel && isRemark(word))) continue;
    const char* const behind = word + (*word == '-' || *word == '+' ? 1 : 0);
    const size_t digits = std::strspn(behind, "0123456789");
    const char next = behind[digits];
    if (digits > 0 && (next == '\0' || (word == words.accessLevel && next == '#'))) continue;
    if (result < 0) return;
    if (isRemark(word)) {
      warn(word, "text", earlyRemark(name));
    } else {
      warn(word, "number",
           quoted(word) + " is not wholly a number: the " + name + " is read as " +
               std::to_string(textToInt32(word)));
    }
    return;
  }
  if (const char* const extra = wordBehind(line, words); extra != nullptr) {
    std::string_view word(extra);
    word = word.substr(0, word.find_first_of(kBlockDelimiters));
    warn(extra, "fields", quoted(word) + " behind the last field is ignored");
    return;
  }
  if (words.accessLevel != nullptr && !isRemark(words.accessLevel))
    _rules.checkLevel(line, words.accessLevel, textToInt64(words.accessLevel));
  if (result == kSuccess) checkBlockRanges(line, words);
}

// What stands behind the sixth word, unless it is a remark or the sixth word begins one.
const char* CardsCheck::wordBehind(const CheckedLine& line, const MultiCardsLine& words) {
  if (words.accessLevel == nullptr || std::strchr(words.accessLevel, '#') != nullptr)
    return nullptr;
  const char* const end = line.text.data() + line.text.size();
  const char* next = words.accessLevel + std::strlen(words.accessLevel);
  while (next < end && (*next == '\0' || std::strchr(kBlockDelimiters, *next) != nullptr)) ++next;
  return next == end || isRemark(next) ? nullptr : next;
}

void CardsCheck::checkBlockRanges(const CheckedLine& line, const MultiCardsLine& words) {
  const auto warn = [&](const char* word, const char* rule, const std::string& text) {
    _findings.warning(line.at(word), rule, text + line.subject.inBrackets());
  };
  const auto cut = [](const char* word) { return std::to_string(textToInt32(word)); };
  if (textToInt64(words.csid) != textToInt32(words.csid))
    warn(words.csid, "range",
         "card set " + printable(words.csid) + " is read as " + cut(words.csid));
  if (textToInt64(words.firstCard) > INT32_MAX)
    warn(words.firstCard, "range",
         "first card " + printable(words.firstCard) + " is read as card " + cut(words.firstCard) +
             ": blocks are for numbers up to 2147483647");
  const int64_t count = textToInt64(words.count);
  if (count > INT32_MAX || count < INT32_MIN) {
    warn(words.count, "range",
         "number of cards " + printable(words.count) + " is read as " + cut(words.count));
  } else if (count < 1) {
    warn(words.count, "range", "a block of no cards");
  }
  const int64_t uniqid = textToInt64(words.firstUniqid);
  if (uniqid < 0 || uniqid > UINT32_MAX) {
    warn(words.firstUniqid, "range",
         "first unique ID " + printable(words.firstUniqid) + " is read as " +
             std::to_string(static_cast<uint32_t>(uniqid)));
  } else if (count <= INT32_MAX && uniqid + count - 1 > UINT32_MAX) {
    warn(words.firstUniqid, "range",
         "the unique IDs of the block run past 4294967295 and on from 0");
  } else if (uniqid == 0 && count > 0) {
    warn(words.firstUniqid, "zero", "unique ID 0");
  }
  if (textToInt32(words.firstCard) == 0 && textToInt64(words.firstCard) == 0 && count > 0)
    warn(words.firstCard, "zero", "card number 0");
}

}  // namespace badgemint::admin
