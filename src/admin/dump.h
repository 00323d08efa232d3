// The verb `dump`: writes the cards file of existing databases, and says what it cannot say.
#ifndef BADGEMINT_ADMIN_DUMP_H
#define BADGEMINT_ADMIN_DUMP_H

#include <string>

#include "admin/console.h"
#include "admin/site.h"

namespace badgemint::admin {

struct DumpOptions {
  SiteNames site;
  std::string output;  // Empty for standard output.
  bool force = false;
  bool withPins = false;
};
ExitStatus dump(const DumpOptions& options, Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_DUMP_H
