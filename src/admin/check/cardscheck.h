// What the checks of the cards file's lines share. A run reads the file once, line by line, as a
// build does, but goes on after lines that fail, and looks for what a build accepts silently.
#ifndef BADGEMINT_ADMIN_CHECK_CARDSCHECK_H
#define BADGEMINT_ADMIN_CHECK_CARDSCHECK_H

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "admin/check/oddtext.h"
#include "admin/check/sitecheck.h"
#include "inputcards/cardindex.h"
#include "inputcards/linechecker.h"
#include "inputcards/sitecards.h"

namespace badgemint::admin {

// A line that is being checked. The text is the reader's; that of an 'f' line may be split in place
// once a build's check of the line is done.
struct CheckedLine {
  Findings* findings;  // Null when they are not wanted.
  Place start;         // Of the text.
  char* text;
  bool isHidden = false;        // It has bytes that an editor does not show: only errors count.
  std::optional<About> card{};  // What it is about, if its text does not begin with that.

  int32_t number() const { return static_cast<int32_t>(start.line); }
  Place whole() const { return {start.file, start.line, 0}; }
  // `word` points into the text.
  Place at(std::string_view word) const {
    return {start.file, start.line, start.column + (word.data() - text)};
  }

  // As a build reads it, whatever the words are.
  About about() const;

  // As Findings::error and warn, with the holder or card of the line appended to the text.
  template <typename... Args>
  size_t error(Place place, int32_t code, fmt::format_string<Args...> format,
               Args&&... args) const {
    return add({.place = place, .code = code}, format, fmt::make_format_args(args...));
  }
  template <typename... Args>
  size_t warn(Place place, std::string_view rule, fmt::format_string<Args...> format,
              Args&&... args) const {
    return add({.place = place, .rule = rule}, format, fmt::make_format_args(args...));
  }

 private:
  size_t add(const Finding& finding, fmt::string_view format, fmt::format_args args) const;
};

// An escort that a line names, to be looked for when all holders are known.
struct EscortUse {
  uint32_t escort;
  uint32_t uniqid;
  int32_t line;
  int32_t column;  // 0 in an unreliable line: its finding names the escort.
  size_t finding = Findings::kNotKept;
};

// One check of a cards file: what its lines share. Owned by checkSite(); the references must
// outlive it.
struct CardsCheck {
  const SiteCheckOptions& options;
  SiteCards& site;  // With the formats of `formats`.
  const CheckedFormats& formats;
  const AccessLevelSet& levels;  // Empty when access levels are not to be checked.
  Findings& findings;
  int file;           // The cards file.
  CardIndex index{};  // Its lines are those of an editor.
  LineChecker checker{site, index};

  // For the checks of the whole file.
  //
  // Ranges of unique IDs in lines with an error. They count as holders: as partners of PINs and as
  // escorts.
  std::map<uint32_t, uint32_t> unindexed{};
  std::deque<EscortUse> escorts{};
  std::vector<int32_t> unreliableLines{};  // In order; their fields are not what they look like.

  std::unordered_map<uint32_t, int64_t> lineOfSet{};  // The 'f' line of each card set ID.
  // Errors that explain others, by result and ID: a card set whose 'f' line is missing or wrong, a
  // format that is not listed.
  std::map<std::pair<int32_t, uint32_t>, size_t> causes{};
  // When all dates are in one notation that is not year/month/day they become one finding.
  bool hasDate = false;                        // That is year/month/day.
  std::map<std::string, size_t> otherDates{};  // How many by notation, with N for each number.
  size_t mergeMark = Findings::kNotKept;

  // The card sets by their format and the bits that their site values give a card.
  std::map<std::pair<uint32_t, PatternWords>, uint32_t> setsByValues{};

  // The result of a build for the line; cards of a format that is known not to load are not
  // encoded. The words of an 'f' or 'd' line are split in place. Throws std::bad_alloc.
  int32_t checkAsBuild(const CheckedLine& line, char* text, const CheckedFormat* format);

  void addOtherDate(std::string_view date);

  void addUnindexed(uint32_t first, int64_t last) {
    uint32_t& known = unindexed[first];
    known = std::max(known, static_cast<uint32_t>(std::min<int64_t>(last, UINT32_MAX)));
  }

  // Null for a card set that is not defined.
  const cardset* findSet(int32_t csid) const {
    return site.cardSets().getCardSet(static_cast<uint32_t>(csid));
  }
  // Null also when the formats file does not list the format of the card set.
  const CheckedFormat* formatOf(int32_t csid) const {
    const cardset* const set = findSet(csid);
    return set == nullptr ? nullptr : formats.find(set->fmtid);
  }
};

inline constexpr char kBlockDelimiters[] = " \n\r";  // What separates the words of a 'd' line.

// The words of a 'c', 'n', 'p', 'o' or 'd' line as its fields, and what the checks of these lines
// have in common. Nothing here outlives the line. Reports are about the word of a field.
class FieldsCheck {
 protected:
  FieldsCheck(CardsCheck& check, CheckedLine& line, const char* words);

  bool isHex() const { return *_line.text == kNoFormatCardLine; }
  // Whether the words of a line end here.
  static bool isEnd(std::string_view word) { return word.empty() || word[0] == '#'; }
  bool hasCardSet() const { return _csid >= kFirstCardSetId && _csid <= kLastCardSetId; }
  // As a build reads it.
  int32_t numberIn(size_t field) const { return static_cast<int32_t>(wordValue(_words[field])); }

  std::string shownWord(size_t field) const {
    return shown(_words[field], _fields[field], isHex());
  }
  // A field as messages name it: "the PIN", but "access level 1".
  static std::string named(const LineField& field) {
    const std::string_view name = field.name;
    return fmt::format("{}{}", isDigit(name.back()) ? "" : "the ", name);
  }
  std::string earlyComment(size_t field) const {
    return fmt::format("'#' where {} is expected; a comment is allowed only after the last field",
                       named(_fields[field]));
  }

  // About a field, which is named with its word before the text.
  void error(size_t field, int32_t code, std::string_view text) const {
    _line.error(_line.at(_words[field]), code, "{} {} {}", _fields[field].name, shownWord(field),
                text);
  }
  void warn(size_t field, std::string_view rule, std::string_view text) const {
    _line.warn(_line.at(_words[field]), rule, "{} {} {}", _fields[field].name, shownWord(field),
               text);
  }
  // Reports a field that is missing, a comment or not a number.
  void reportUnread(size_t field, int32_t result) const;
  // Reports an invalid card set, card number or PIN. Returns whether it did.
  bool reportWrong(size_t field) const;
  // Reports a card that cannot be encoded; its card set ID must be valid. `number` is empty when
  // the card number itself is invalid. Returns whether it did.
  bool reportEncoding(const CheckedLine& line, std::optional<int64_t> number) const;

  // The same where the card set has no 'f' line (null), or its format is not listed.
  void reportNoFormat(const CheckedLine& line, const cardset* set) const;

  // What a build accepts silently in fields of several lines, and a site would not want. A build
  // keeps the low bits of a number that is too large; checkRange() returns it as it is written.
  int64_t checkRange(size_t field) const;
  // Reports a card number that the format of the card set does not allow. Returns whether it did.
  bool checkNumberRange(int64_t number) const;
  void checkLevel(size_t field) const;
  void warnIfZero(size_t field) const {
    if (isZero(_words[field])) warn(field, "zero", "is used as it is: was it an empty cell?");
  }

  CardsCheck& _check;
  CheckedLine& _line;
  std::span<const LineField> _fields;
  std::array<std::string_view, 32> _words{};  // More than a line has fields; empty at the end.
  int32_t _csid = 0;                          // As a build reads it; 0 for a line without one.
  const CheckedFormat* _listed = nullptr;     // That of the card set, if it is listed.
};

// The checks of the lines, by their types. They return the result of a build for the line.
int32_t checkHolderLine(CardsCheck& check, CheckedLine& line);
int32_t checkBlockLine(CardsCheck& check, CheckedLine& line);
int32_t checkCardSetLine(CardsCheck& check, CheckedLine& line);

// Reports keys and unique IDs that occur twice, PIN idents without a card, and escorts that are not
// holders. Sets the verdict as a build that reaches these checks would. Returns the number of
// distinct unique IDs in the index. Throws std::bad_alloc.
int64_t checkWholeFile(CardsCheck& check);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_CARDSCHECK_H
