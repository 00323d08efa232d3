// The verb `verify`: whether existing databases are sound, and what a build would make.
#include <memory>

#include "admin/check/report.h"
#include "admin/records/databases.h"
#include "admin/records/recordfaults.h"
#include "admin/records/recordorders.h"
#include "admin/records/recordrules.h"
#include "admin/records/site.h"
#include "admin/records/statedrecords.h"
#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

size_t countHolders(const Databases& databases, const RecordOrders& orders) {
  size_t holders = 0;
  for (RecordNumbers rest = orders.accessesByUniqid(); !rest.empty(); ++holders)
    rest = rest.subspan(firstAlike(rest, databases.accesses, &AccessRecord::uniqid).size());
  return holders;
}

ExitStatus verify(const VerifyOptions& options, Console& console) {
  const SitePaths& names = options.site;
  tellOfCutShort({names.access, names.ident, names.cardSets}, console);
  Site site;
  site.loadFormats(names.formats);
  site.loadCardSets(names.cardSets, console);
  if (!options.cards.empty()) {
    Findings findings(options.all);
    const SiteSummary summary =
        checkSite({options.cards, names.formats, "", options.withPins}, findings);
    if (findings.errors() > 0) return report(findings, summary, false, console);
  }
  Databases databases;
  databases.readIdents(names.ident);
  databases.readAccesses(names.access);
  const RecordOrders orders(databases);
  RecordFaults faults(options, databases, site);
  judgeRecords(databases, orders, site, faults);
  if (!options.cards.empty()) compareWithCards(options, databases, orders, site, faults);

  // Always of the same words, for programs that read it.
  const size_t count = faults.print(console);
  console.output() << (count == 0 ? "no faults; " : std::to_string(count) + " faults; ")
                   << databases.idents.size() << " credentials of "
                   << countHolders(databases, orders) << " holders\n";
  return count == 0 ? ExitStatus::kAllWell : ExitStatus::kRefused;
}

}  // namespace

Run addVerify(Options options) {
  const auto given = std::make_shared<VerifyOptions>();
  options.describe("Tell what is wrong with existing databases",
                   "badgemint-admin verify --cards cards.txt");
  options.file("--cards", given->cards, "Compare with what a build of this file would make");
  options.databases(given->site);
  options.flag("--all", given->all, "Print more than 100 faults of one kind");
  options.flag("--with-pins", given->withPins, "Show PINs");
  return [given](Console& console) { return verify(*given, console); };
}

}  // namespace badgemint::admin
