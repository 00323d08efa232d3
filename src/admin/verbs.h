// The verbs of badgemint-admin: each takes what the command line said and answers with the status
// that the program ends with. They may throw Failure and what the standard library throws.
#ifndef BADGEMINT_ADMIN_VERBS_H
#define BADGEMINT_ADMIN_VERBS_H

#include <cstdint>
#include <string>

#include "admin/console.h"
#include "admin/site.h"

namespace badgemint::admin {

struct CheckOptions {
  SiteNames site;
  std::string levels;  // The access levels file; empty for none.
  bool strict = false;
  bool all = false;
  bool withPins = false;
};
ExitStatus check(const CheckOptions& options, Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_VERBS_H
