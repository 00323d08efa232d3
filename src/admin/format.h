// The verb `format`: shows format files so that two can be compared.
#ifndef BADGEMINT_ADMIN_FORMAT_H
#define BADGEMINT_ADMIN_FORMAT_H

#include <string>
#include <vector>

#include "admin/console.h"

namespace badgemint::admin {

struct FormatOptions {
  std::vector<std::string> files;
};
ExitStatus format(const FormatOptions& options, Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_FORMAT_H
