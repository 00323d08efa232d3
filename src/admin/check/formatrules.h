// What keeps a format file from being loaded, and what of a file that loads is not what it looks
// like.
#ifndef BADGEMINT_ADMIN_CHECK_FORMATRULES_H
#define BADGEMINT_ADMIN_CHECK_FORMATRULES_H

#include <cstdint>

#include "admin/check/finding.h"
#include "admin/check/formattext.h"
#include "formats/CardFormat.h"

namespace badgemint::admin {

// Adds every error of a file that could be opened but whose load gave `result`. The place is that
// of the first.
Place tellFormatErrors(const FormatText& text, int32_t result, Findings& findings);

// Adds what is wrong with a file that loaded as `format`.
void applyFormatRules(const FormatText& text, const CardFormat& format, Findings& findings);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_CHECK_FORMATRULES_H
