// Prints findings and the last line of `check`, for the verbs that check input files.
#ifndef BADGEMINT_ADMIN_CHECK_REPORT_H
#define BADGEMINT_ADMIN_CHECK_REPORT_H

#include "admin/check/finding.h"
#include "admin/check/sitecheck.h"
#include "admin/console.h"

namespace badgemint::admin {

// Prints the findings and the summary line. Returns the status that `check` ends with.
ExitStatus report(const Findings& findings, const SiteSummary& summary, bool isStrict,
                  Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_REPORT_H
