// The verbs of badgemint-admin. Each has a file of its own here, which declares its options, its
// help and its work.
#ifndef BADGEMINT_ADMIN_VERBS_VERB_H
#define BADGEMINT_ADMIN_VERBS_VERB_H

#include <functional>

#include "admin/console.h"
#include "admin/verbs/options.h"

namespace badgemint::admin {

// Runs a verb after its options have been parsed. It returns the exit status, and may throw Failure
// and what the standard library throws.
using Run = std::function<ExitStatus(Console&)>;

// Each declares the options of its verb; the function returned holds their values.
Run addBuild(Options options);
Run addCheck(Options options);
Run addDecode(Options options);
Run addDiff(Options options);
Run addDump(Options options);
Run addFormat(Options options);
Run addList(Options options);
Run addPattern(Options options);
Run addShow(Options options);
Run addVerify(Options options);
Run addWhy(Options options);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_VERBS_VERB_H
