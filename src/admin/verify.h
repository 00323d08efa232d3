// The verb `verify`: whether existing databases are sound, and what a build would make.
#ifndef BADGEMINT_ADMIN_VERIFY_H
#define BADGEMINT_ADMIN_VERIFY_H

#include <string>

#include "admin/console.h"
#include "admin/site.h"

namespace badgemint::admin {

struct VerifyOptions {
  SiteNames site;
  std::string cards;  // The cards file to compare with; empty for none.
  bool all = false;
  bool withPins = false;
};

// kAllWell, or kRefused for faults and for a cards file of which no build would come.
ExitStatus verify(const VerifyOptions& options, Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_VERIFY_H
