// For the transition: sitecheck.h has it now.
#ifndef BADGEMINT_ADMIN_CHECK_WHOLEFILE_H
#define BADGEMINT_ADMIN_CHECK_WHOLEFILE_H

#include "admin/check/sitecheck.h"

#endif  // BADGEMINT_ADMIN_CHECK_WHOLEFILE_H
