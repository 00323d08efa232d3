// What the checks of the cards file's lines share. A run reads the file once, line by line, as a
// build does, but goes on after lines that fail, and looks for what a build accepts silently.
#ifndef BADGEMINT_ADMIN_CHECK_CARDSCHECK_H
#define BADGEMINT_ADMIN_CHECK_CARDSCHECK_H

#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "admin/check/finding.h"
#include "admin/check/formatscheck.h"
#include "admin/check/sitecheck.h"
#include "admin/check/word.h"
#include "inputcards/cardindex.h"
#include "inputcards/linechecker.h"
#include "inputcards/sitecards.h"

namespace badgemint::admin {

// Whom a line is about, as messages name him. A PIN is never part of it.
struct Subject {
  enum class Kind { kNone, kCard, kPin, kBlock };

  Kind kind = Kind::kNone;
  int32_t csid = 0;             // Of a card that has a card set.
  std::string_view cardNumber;  // As written; shown when it is a number. The first of a block.
  uint32_t uniqid = 0;
  bool hasHolder = true;  // Whether the line has a unique ID.

  std::string text() const;
  About about() const;

 private:
  bool hasNumber() const;
};

// A line that is being checked. The text is the reader's and may be split in place once a build's
// check of the line is done.
struct CheckedLine {
  Findings& findings;
  Place start;  // Of the text.
  char* text;
  Subject subject{};
  std::string note{};  // Of hidden bytes, which may explain an error.

  bool hasHidden() const { return !note.empty(); }
  Place whole() const { return {start.file, start.line, 0}; }
  // `word` points into the text.
  Place at(const char* word) const {
    return {start.file, start.line, start.column + (word - text)};
  }
  Place at(std::string_view word) const { return at(word.data()); }

  // As those of Findings.
  template <typename... Args>
  size_t error(Place place, int32_t code, fmt::format_string<Args...> format,
               Args&&... args) const {
    return findings.add({.place = place, .code = code, .about = subject.about()}, format,
                        fmt::make_format_args(args...), note);
  }
  template <typename... Args>
  size_t warn(Place place, std::string_view rule, fmt::format_string<Args...> format,
              Args&&... args) const {
    return findings.add({.place = place, .rule = rule, .about = subject.about()}, format,
                        fmt::make_format_args(args...));
  }
};

// Dates that are not year/month/day are held back until one is: when all are in one other notation
// they are one finding.
class OtherDates {
 public:
  explicit OtherDates(Findings& findings) : _findings(findings) {}

  // A date that cannot be read, with its finding.
  void add(std::string_view date, Finding finding);
  // One that can, or that cannot be read for another reason.
  void addOtherwise() {
    if (!_isMixed) flush();
  }
  // When there are no more.
  void finish();

 private:
  void flush();

  Findings& _findings;
  bool _isMixed = false;
  std::string _notation;  // Of the first, with N for each number.
  std::vector<Finding> _kept;
  size_t _count = 0;
};

// The numbers of errors that others follow from, by card set or format.
using ErrorNumbers = std::unordered_map<uint32_t, size_t>;

struct CardsCheck {
  const SiteCheckOptions& options;
  SiteCards& site;  // With the formats of `formats`.
  const CheckedFormats& formats;
  const AccessLevelSet* levels;  // Null: access levels are not looked at.
  Findings& findings;
  int file;  // The cards file.
  CardIndex index{};
  LineChecker checker{site, index};

  // For the checks of the whole file.
  std::vector<UniqidRange> unindexed{};
  std::vector<EscortUse> escorts{};
  std::vector<SlippedEscort> slippedEscorts{};
  std::vector<int32_t> misread{};  // Lines without an error that are not what they look like.

  std::unordered_map<uint32_t, int64_t> lineOfSet{};  // The 'f' line of each card set ID.
  ErrorNumbers undefinedSets{};                       // Or whose 'f' line fails.
  ErrorNumbers unlistedFormats{};
  int64_t cardsToCount = 1 << 22;  // Of blocks, after the first card that does not fit.

  OtherDates otherDates{findings};

  // What a field of a format may hold by its definition; `high` is 0 where it has no bounds.
  struct NumberRange {
    bool isKnown = false;
    int64_t low = 0, high = 0;
  };
  std::array<NumberRange, kLastCardSetId + 1> numberRanges{};  // Of card numbers, by card set.
  // The card sets by their format and the bits that their site values give a card.
  std::map<std::pair<uint32_t, PatternWords>, uint32_t> setsByValues{};
  size_t mergeMark = Findings::kNotKept;  // The error of the first mark of a merge conflict.
  bool hasMergeMark = false;

  // The result of a build for the line; cards of a format that is known not to load are not
  // encoded. The words of an 'f' or 'd' line are split in place. Throws std::bad_alloc.
  int32_t checkAsBuild(const CheckedLine& line, char* text, int32_t csid);

  // The format of the card set when it is known not to load, else null.
  const CheckedFormat* unloadedFormat(int32_t csid) const;
  // Of a card set whose format has been found.
  CardEncoder encoderOf(const cardset& set) const;

  // The unique IDs of a block that a build rejects.
  void addUnindexed(const MultiCardsLine& words);

  // What 'c' and 'd' lines have in common: each reports an error, if there is one, and returns
  // whether there is. The words point into the line.
  bool reportCardSet(const CheckedLine& line, std::string_view word, const LineField& field,
                     int32_t csid) const;
  bool reportCardNumber(const CheckedLine& line, std::string_view number, const LineField& field,
                        int32_t csid) const;
  bool reportEncoding(const CheckedLine& line, std::string_view number, int32_t csid);

  // A number outside what its record keeps; `value` is the word's.
  void checkRange(const CheckedLine& line, std::string_view word, const LineField& field,
                  int64_t value) const;
  // Whether the format of a card set, which is loaded, defines bounds for card numbers.
  bool hasNumberRange(int32_t csid);
  // A card number outside these bounds. Returns whether it is.
  bool checkNumberRange(const CheckedLine& line, std::string_view word, const LineField& field,
                        int32_t csid, int64_t number);
  void checkLevel(const CheckedLine& line, std::string_view word, const LineField& field,
                  int64_t level) const;
};

// The checks of the lines, by their types. They return the result of a build for the line.
int32_t checkHolderLine(CardsCheck& check, CheckedLine& line);
int32_t checkBlockLine(CardsCheck& check, CheckedLine& line);
int32_t checkCardSetLine(CardsCheck& check, CheckedLine& line);

// What a message that a number is not in its range says of the number that is read.
std::string readAs(std::string_view word, const LineField& field, int64_t value);

// A field as messages name it: "the PIN", but "access level 1".
std::string named(const LineField& field);

inline constexpr char kEarlyComment[] =
    "'#' where {} is expected; a comment is allowed only after the last field";

}  // namespace badgemint::admin

template <>
struct fmt::formatter<badgemint::admin::Subject> : fmt::formatter<std::string> {
  template <typename Context>
  auto format(const badgemint::admin::Subject& subject, Context& context) const {
    return fmt::formatter<std::string>::format(subject.text(), context);
  }
};

#endif  // BADGEMINT_ADMIN_CHECK_CARDSCHECK_H
