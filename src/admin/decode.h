// The verb `decode`: what the bits that a reader delivered can be, under the formats of a site.
#ifndef BADGEMINT_ADMIN_DECODE_H
#define BADGEMINT_ADMIN_DECODE_H

#include <string>

#include "admin/console.h"
#include "admin/site.h"

namespace badgemint::admin {

struct DecodeOptions {
  SiteNames site;
  bool needsIdent = false;  // The ident database may be missing unless it was asked for.
  std::string word;         // Bits, or a key.
};
ExitStatus decode(const DecodeOptions& options, Console& console);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_DECODE_H
