// The verb `check`: reports errors and probable mistakes in the files of a site.
#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

struct CheckOptions {
  SiteCheckOptions site;
  bool strict = false, all = false, json = false;
};

ExitStatus check(const CheckOptions& options, Console& console) {
  Findings findings(options.all);
  const SiteSummary summary = checkSite(options.site, findings);
  return report(findings, summary, options.strict, console, options.json);
}

}  // namespace

Run addCheck(Options options) {
  const auto given = std::make_shared<CheckOptions>();
  options.describe("Report errors and probable mistakes in the files of a site",
                   "badgemint-admin check --strict");
  options.file("--cards", given->site.cards, "The cards file");
  options.file("--formats", given->site.formats, "The formats file");
  options.file("--levels", given->site.levels, "Check access levels against this file");
  options.flag("--strict", given->strict, "Warnings count as errors for the exit status");
  options.flag("--all", given->all, "Print all findings, not only 100 of each kind");
  options.flag("--with-pins", given->site.withPins, "Show PINs");
  options.flag("--json", given->json, "Print JSON, one object a line");
  return [given](Console& console) { return check(*given, console); };
}

}  // namespace badgemint::admin
