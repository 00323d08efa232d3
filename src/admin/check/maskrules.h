// The rule `mask`: the masks of a format file against each other and against what else it says.
#ifndef BADGEMINT_ADMIN_CHECK_MASKRULES_H
#define BADGEMINT_ADMIN_CHECK_MASKRULES_H

#include "admin/check/finding.h"
#include "admin/check/formattext.h"
#include "formats/CardFormat.h"

namespace badgemint::admin {

// `countHolds` is false when the number of parity masks is a mistake that is told already. False
// when the fields do not have the positions that they are meant to have.
bool applyMaskRules(const FormatText& text, const CardFormat& format, bool countHolds,
                    Findings& findings);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_MASKRULES_H
