// What keeps a format file from being loaded, and what of a file that loads is not what it looks
// like.
#ifndef BADGEMINT_CHECK_FORMATRULES_H
#define BADGEMINT_CHECK_FORMATRULES_H

#include <cstdint>

#include "check/finding.h"
#include "check/formattext.h"
#include "formats/CardFormat.h"

namespace badgemint {

// Adds every error of a file that could be opened but whose load gave `result`. The place is that
// of the first.
Place tellFormatErrors(const FormatText& text, int32_t result, Findings& findings);

// Adds what is wrong with a file that loaded as `format`.
void applyFormatRules(const FormatText& text, const CardFormat& format, Findings& findings);

}  // namespace badgemint

#endif  // BADGEMINT_CHECK_FORMATRULES_H
