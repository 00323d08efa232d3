// The hazards in what a 'c', 'n', 'p' or 'o' line says of its holder: what a build takes without a
// word and a site would not want.
#ifndef BADGEMINT_ADMIN_CHECK_HOLDERRULES_H
#define BADGEMINT_ADMIN_CHECK_HOLDERRULES_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "admin/check/checkedline.h"
#include "admin/check/placedscanner.h"
#include "site/accesslevel.h"
#include "support/datetime.h"

namespace badgemint::admin {

// An escort that a line names, to be looked for when all holders are known.
struct EscortUse {
  uint32_t escort;
  uint32_t uniqid;
  int32_t line;
  int32_t column;
};

class HolderRules {
 public:
  // `levels` may be null: access levels are not looked at then.
  HolderRules(Findings& findings, const AccessLevelSet* levels)
      : _findings(findings), _levels(levels) {}

  // Looks at the fields from `first` on, of which there are at most those of a 'c' line, without a
  // field that has a flaw.
  void check(const CheckedLine& line, const PlacedScanner& fields, size_t first);

  // A number that a record stores in less than it may be given as.
  void checkRange(const CheckedLine& line, std::string_view word, int64_t value, int64_t high,
                  const char* what);
  void checkLevel(const CheckedLine& line, std::string_view word, int64_t level);

  std::vector<EscortUse>& escorts() { return _escorts; }

 private:
  struct End;
  void checkPeriod(const CheckedLine& line, const PlacedScanner& fields, size_t first);
  uint32_t checkPeriodEnd(const CheckedLine& line, const End& end);
  void warn(const CheckedLine& line, std::string_view word, std::string_view rule,
            std::string text) {
    _findings.warning(line.at(word.data()), rule, std::move(text));
  }

  void warnOfHolder(const CheckedLine& line, std::string_view word, std::string_view rule,
                    const std::string& text) {
    warn(line, word, rule, text + line.subject.inBrackets());
  }

  Findings& _findings;
  const AccessLevelSet* _levels;
  std::vector<EscortUse> _escorts;
};

// The number that a word begins with, which a text goes on behind; it saturates at 64 bits.
int64_t valueOf(std::string_view word);

// The names of the fields of such a line, from `card set` or `PIN` on.
const char* fieldName(char lineType, size_t field);
// How many fields it has behind its type, and which of them is the first that HolderRules judges.
size_t fieldCount(char lineType);
size_t firstHolderField(char lineType);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_HOLDERRULES_H
