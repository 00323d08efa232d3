// The verb `build`: replaces a site's databases by proved ones, or leaves them as they are.
#ifndef BADGEMINT_ADMIN_BUILD_H
#define BADGEMINT_ADMIN_BUILD_H

#include <cstdint>
#include <string>

#include "admin/console.h"
#include "admin/site.h"

namespace badgemint::admin {

struct BuildOptions {
  SiteNames site;
  std::string log;  // Empty for none.
  uint32_t logLevel = 25;
  std::string maxRemoved = "50%";  // Of the old holders: a number, or a percentage with its sign.
  bool strict = false;
  bool allowEmpty = false;
  bool dryRun = false;
  bool keep = false;
};
ExitStatus build(const BuildOptions& options, Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_BUILD_H
