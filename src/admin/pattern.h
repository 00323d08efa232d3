// The verb `pattern`: what a reader delivers for cards of these numbers, bit by bit.
#ifndef BADGEMINT_ADMIN_PATTERN_H
#define BADGEMINT_ADMIN_PATTERN_H

#include <string>
#include <vector>

#include "admin/console.h"
#include "admin/site.h"

namespace badgemint::admin {

struct PatternOptions {
  SiteNames site;
  std::string format;              // A format file, in place of a site; empty for none.
  std::string values;              // Of its fields, such as "A=101 B=7".
  std::vector<std::string> words;  // A card set, unless there is a format file; card numbers.
};
ExitStatus pattern(const PatternOptions& options, Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_PATTERN_H
