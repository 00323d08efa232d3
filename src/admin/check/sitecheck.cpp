#include "admin/check/sitecheck.h"

#include <cerrno>
#include <memory>
#include <new>
#include <system_error>

#include "admin/check/cardscheck.h"
#include "admin/check/formatscheck.h"
#include "inputcards/sitecards.h"
#include "support/linereader.h"
#include "support/result.h"

namespace badgemint::admin {

void readLevels(const std::string& path, AccessLevelSet& levels) {
  const auto reader = std::make_unique<LineReader>();
  if (!reader->open(path.c_str())) throw std::system_error(errno, std::generic_category(), path);
  if (!levels.readAccessLevels(*reader)) throw std::bad_alloc();
  if (reader->failed()) throw std::system_error(errno, std::generic_category(), path);
}

SiteSummary checkSite(const SiteCheckOptions& options, Findings& findings) {
  AccessLevelSet levels;
  if (!options.levels.empty()) readLevels(options.levels, levels);
  const auto site = std::make_unique<SiteCards>();
  if (site->create() != kSuccess) throw std::bad_alloc();

  SiteSummary summary;
  const CheckedFormats formats = checkFormats(options.formats, site->formats(), findings);
  summary.inputs.push_back(options.formats);
  for (const CheckedFormat& format : formats.formats) summary.inputs.push_back(format.fileName);
  summary.inputs.push_back(options.cards);

  const auto cards = std::make_unique<CardsCheck>(
      options, *site, formats, options.levels.empty() ? nullptr : &levels, findings);
  cards->run(summary);
  return summary;
}

}  // namespace badgemint::admin
