// The formats and card sets of a site, for the verbs that look at cards and at existing databases.
#ifndef BADGEMINT_ADMIN_RECORDS_SITE_H
#define BADGEMINT_ADMIN_RECORDS_SITE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "admin/check/formatscheck.h"
#include "admin/console.h"
#include "admin/files/sitepaths.h"
#include "carddb/identrecord.h"
#include "cardsets/cardsets.h"

namespace badgemint::admin {

class Site {
 public:
  // Loads every format that loads. Throws Failure (not done) that tells of the first one that does
  // not: the others are there all the same.
  void loadFormats(const std::string& name);
  // Reads the card sets that the file defines, as the library does, and complains of lines that
  // define none. Throws std::system_error when it cannot be opened or read.
  void loadCardSets(const std::string& name, Console& console);

  // In the order of the formats file; those that did not load have no `format`.
  const std::vector<CheckedFormat>& formats() const { return _checked.formats; }
  const CardFormatSet& formatSet() const { return _formats; }
  const cardsets& sets() const { return _sets; }

  // Null when there is no such card set, or its format did not load.
  const CardFormat* formatOfSet(uint32_t csid) const;
  // None for what is no card of a card set, and where there is no format to decode it.
  std::optional<int64_t> cardNumberOf(const IdentRecord& record) const;

 private:
  CardFormatSet _formats;
  CheckedFormats _checked;
  cardsets _sets;
};

// A step without which a verb can still do its work: what keeps it from being done is complained
// of. Memory that runs out is no such thing.
void tryTo(Console& console, const std::function<void()>& step);

// Complains when one of these files stands in a folder where a replacement was cut short.
void tellOfCutShort(std::initializer_list<std::string> names, Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_SITE_H
