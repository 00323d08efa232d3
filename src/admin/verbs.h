// The verbs of badgemint-admin: each takes what the command line said and answers with the status
// that the program ends with. They may throw Failure and what the standard library throws.
#ifndef BADGEMINT_ADMIN_VERBS_H
#define BADGEMINT_ADMIN_VERBS_H

#include <cstdint>
#include <string>

#include "admin/build.h"
#include "admin/console.h"
#include "admin/decode.h"
#include "admin/diff.h"
#include "admin/dump.h"
#include "admin/format.h"
#include "admin/pattern.h"
#include "admin/show.h"
#include "admin/site.h"
#include "admin/verify.h"
#include "check/sitecheck.h"

namespace badgemint::admin {

struct CheckOptions {
  SiteNames site;
  std::string levels;  // The access levels file; empty for none.
  bool strict = false;
  bool all = false;
  bool withPins = false;
};
ExitStatus check(const CheckOptions& options, Console& console);

// Prints findings as `check` does.
void printFindings(const Findings& findings, Console& console);

// The same and the last line of `check`; returns the status with which it ends.
ExitStatus report(const Findings& findings, const SiteSummary& summary, bool isStrict,
                  Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_VERBS_H
