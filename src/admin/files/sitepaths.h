// The files of a site as the verbs of badgemint-admin name them.
#ifndef BADGEMINT_ADMIN_FILES_SITEPATHS_H
#define BADGEMINT_ADMIN_FILES_SITEPATHS_H

#include <string>

namespace badgemint::admin {

// Relative to the current folder, where the format files are looked up as well.
struct SitePaths {
  std::string cards = "cards.txt";
  std::string formats = "formats.txt";
  std::string ident = "ident.db";
  std::string access = "access.db";
  std::string cardSets = "cardsets.txt";
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_FILES_SITEPATHS_H
