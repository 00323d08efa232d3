// Checks the cards file line by line as a build does, but goes on behind lines that fail, and looks
// for what a build takes without a word.
#ifndef BADGEMINT_ADMIN_CHECK_CARDSCHECK_H
#define BADGEMINT_ADMIN_CHECK_CARDSCHECK_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "admin/check/checkedline.h"
#include "admin/check/formatscheck.h"
#include "admin/check/holderrules.h"
#include "admin/check/placedscanner.h"
#include "admin/check/sitecheck.h"
#include "admin/check/wholefile.h"
#include "inputcards/cardindex.h"
#include "inputcards/inputfile.h"
#include "inputcards/linechecker.h"
#include "inputcards/sitecards.h"

namespace badgemint::admin {

class CardsCheck {
 public:
  // `site` has the formats that `formats` tells of; all must outlive this.
  CardsCheck(const SiteCheckOptions& options, SiteCards& site, const CheckedFormats& formats,
             const AccessLevelSet* levels, Findings& findings);

  // Reads the file and counts what it has.
  void run(SiteSummary& summary);

 private:
  // An error of which others are the consequence, and in how many lines.
  struct Cause {
    size_t error = Findings::kNotKept;
    int64_t more = 0;
  };
  using Causes = std::unordered_map<uint32_t, Cause>;

  bool open(InputFile& input);
  void checkLine(LineReader& input);
  // `isHidden`: an eye does not see what is wrong in the line, and only errors are looked for.
  void checkHolderLine(const CheckedLine& line, bool isHidden);
  void checkFieldsLine(const CheckedLine& line, bool isHidden);
  void checkBlock(const CheckedLine& line, bool isHidden);

  void checkIdentity(const CheckedLine& line, const PlacedScanner& fields);
  bool checkFlaw(const CheckedLine& line, const PlacedScanner& fields, bool isWrong);
  void checkBlockWords(const CheckedLine& line, const MultiCardsLine& words, int32_t result);
  void checkBlockRanges(const CheckedLine& line, const MultiCardsLine& words);
  static const char* wordBehind(const CheckedLine& line, const MultiCardsLine& words);
  void addUnindexed(const MultiCardsLine& words);

  // What of a line is an error, each in a finding of its own; true when there was one.
  void explainHolder(const CheckedLine& line, const PlacedScanner& fields, int32_t result);
  bool explainCard(const CheckedLine& line, const PlacedScanner& fields);
  void explainBlock(const CheckedLine& line, const MultiCardsLine& words, int32_t result,
                    int64_t sound);
  bool explainCardSet(const CheckedLine& line, const char* word, int32_t csid);
  bool explainNumber(const CheckedLine& line, std::string_view number, int32_t csid, bool isHex);
  bool explainPin(const CheckedLine& line, std::string_view pin, size_t most);
  bool explainEncoding(const CheckedLine& line, const char* word, int32_t csid);
  CardEncoder encoderOf(const cardset& set) const;
  void explainMismatch(const CheckedLine& line, std::string_view word, const cardset& set);
  void explainStart(const CheckedLine& line);
  // Takes from a line whose start is wrong what other lines ask for: its card set, its unique IDs.
  void takeBehindStart(const CheckedLine& line);

  // Tells an error, or counts it when its cause has been told.
  void followsFrom(Causes& causes, uint32_t id, Place place, int32_t code, const std::string& text);
  void tellMore(const Causes& causes, const char* what);
  // The format of the card set when it is known not to load, else null.
  const CheckedFormat* unloadedFormat(int32_t csid) const;

  const SiteCheckOptions& _options;
  SiteCards& _site;
  const CheckedFormats& _formats;
  Findings& _findings;
  CardIndex _index;
  LineChecker _checker;
  HolderRules _rules;
  int _file;
  int64_t _cardsToCount = 1 << 22;  // Of blocks, behind the first card that does not fit.
  std::vector<UniqidRange> _unindexed;
  std::vector<int32_t> _misread;  // Lines without an error that are not what they look like.
  std::unordered_map<uint32_t, int64_t> _lineOfSet;  // The 'f' line of each card set ID.
  Causes _undefinedSets;                             // Or whose 'f' line fails.
  Causes _unlistedFormats;
  Causes _unloadedFormats;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_CARDSCHECK_H
