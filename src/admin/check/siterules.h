// What is wrong or dangerous in an 'f' line, which defines a card set.
#ifndef BADGEMINT_ADMIN_CHECK_SITERULES_H
#define BADGEMINT_ADMIN_CHECK_SITERULES_H

#include <bitset>
#include <cstdint>

#include "admin/check/checkedline.h"
#include "cardsets/cardset.h"
#include "formats/CardFormat.h"
#include "support/tokenizer.h"

namespace badgemint::admin {

// Whether cards of the format have this field beside their number.
bool hasSiteValue(const CardFormat& format, int32_t field);

class SiteRules {
 public:
  // `words` of the operations are those of `copy`, a copy of the line that was split.
  SiteRules(Findings& findings, const CheckedLine& line, const char* copy)
      : _findings(findings), _line(line), _copy(copy) {}

  // Tells why a build rejects the line with this result; returns the finding.
  size_t explain(const Tokenizer& words, int32_t result) const;

  // A second line of a card set, of which the first counts.
  void checkRepeated(Tokenizer& words, const cardset& set, int64_t firstLine) const;

  // The values of the card set; the format is null when it is not known or did not load.
  void checkValues(const Tokenizer& words, const CardFormat* format) const;

  // The two parts of that: the values that the line gives, and those that it does not give.
  using Fields = std::bitset<kCardSetFields>;
  Fields checkGiven(const Tokenizer& words, const CardFormat* format) const;
  void checkMissing(Fields given, const CardFormat& format) const;

 private:
  void checkPair(const char* letter, const char* value, const CardFormat* format,
                 bool isRepeated) const;
  void checkFits(const char* letter, const char* value, int32_t field,
                 const CardFormat& format) const;
  void warn(const char* word, const std::string& text) const {
    _findings.warning(at(word), "site-value", text);
  }
  Place at(const char* word) const { return _line.at(_line.text.data() + (word - _copy)); }

  Findings& _findings;
  const CheckedLine& _line;
  const char* _copy;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_SITERULES_H
