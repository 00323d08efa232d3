#include "admin/verify.h"

#include "admin/cardsite.h"
#include "admin/databases.h"
#include "admin/recordfaults.h"
#include "admin/recordorders.h"
#include "admin/recordrules.h"
#include "admin/statedrecords.h"
#include "admin/verbs.h"

namespace badgemint::admin {

namespace {

size_t countHolders(const Databases& databases, const RecordOrders& orders) {
  size_t holders = 0;
  for (RecordNumbers rest = orders.accessesByUniqid(); !rest.empty(); ++holders)
    rest = rest.subspan(firstAlike(rest, databases.accesses, &AccessRecord::uniqid).size());
  return holders;
}

}  // namespace

ExitStatus verify(const VerifyOptions& options, Console& console) {
  const SiteNames& names = options.site;
  tellOfCutShort({names.access, names.ident, names.cardSets}, console);
  CardSite site;
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

}  // namespace badgemint::admin
