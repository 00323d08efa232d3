// The verb `show`: holders, with all that they have, in plain words.
#ifndef BADGEMINT_ADMIN_SHOW_H
#define BADGEMINT_ADMIN_SHOW_H

#include <string>
#include <vector>

#include "admin/console.h"
#include "admin/site.h"

namespace badgemint::admin {

struct ShowOptions {
  SiteNames site;
  std::vector<std::string> holders;  // Unique IDs.
  std::vector<std::string> cards;    // "SET:NUMBER".
  std::vector<std::string> keys;     // Hexadecimal.
  std::string levels;                // The access levels file; empty for none.
  std::string at;                    // The time that counts as now; empty for the clock.
  bool withPins = false;
};
ExitStatus show(const ShowOptions& options, Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_SHOW_H
