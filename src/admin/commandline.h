// The command line of badgemint-admin.
#ifndef BADGEMINT_ADMIN_COMMANDLINE_H
#define BADGEMINT_ADMIN_COMMANDLINE_H

#include "admin/console.h"

namespace badgemint::admin {

// Does what the arguments ask for and returns the exit status of the program. `-C DIR` changes the
// current folder of the process. Throws nothing.
int run(int argc, const char* const* argv, Console& console) noexcept;

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_COMMANDLINE_H
