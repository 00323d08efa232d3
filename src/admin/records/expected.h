// What a build makes of the lines of a cards file, for those who compare it with what is there: one
// walk, which makes the records with the code that builds them.
#ifndef BADGEMINT_ADMIN_RECORDS_EXPECTED_H
#define BADGEMINT_ADMIN_RECORDS_EXPECTED_H

#include <cstdint>
#include <exception>
#include <functional>
#include <string>

#include "admin/records/site.h"
#include "inputcards/linewriter.h"

namespace badgemint::admin {

// The records of one credential, and the line that a build makes them of.
struct ExpectedRecord {
  int32_t line;
  const IdentRecord& ident;
  const AccessRecord* access;  // Null for the PIN beside a card, which has no access record.
};

// Hands the records of each line to a function, in the order of a build. It uses the formats of a
// site, which must outlive it and has one of these only: the card sets that the lines define are
// those of its siteCards().
class ExpectedRecords final : private RecordSink {
 public:
  using Visit = std::function<void(const ExpectedRecord&)>;

  ExpectedRecords(const Site& site, Visit visit)
      : _writer(site.siteCards(), *this), _visit(std::move(visit)) {}

  // One line. kSuccess, or the code with which a build ends at it. Exceptions of `visit` are passed
  // on.
  int32_t readLine(InputLine line);
  // All lines of a file that a build accepts. Throws Failure (refused) at a line that it does not
  // accept, and std::system_error.
  void readFile(const std::string& cardsName);

 private:
  [[nodiscard]] int32_t put(const IdentRecord& ident, const AccessRecord* access) override;

  LineWriter _writer;
  const Visit _visit;
  int32_t _line = 0;
  std::exception_ptr _thrown;  // By `visit`.
};

// How the card sets file of a site differs from the one that a build would write, once all lines of
// the cards file are read; empty if it does not.
std::string differenceOfCardSets(const Site& site);

// Proves that the databases hold the records that a build makes of the cards file, in its order,
// and no others, and that the card sets file has its card sets. Returns the site,
// its databases sorted. Throws Failure (refused) that names what differs, and std::system_error.
//
// Both sides are made by the same encoding, so this does not find an error in the encoding; that
// every card decodes to its own number, the build itself checks. What it finds is all that can
// happen to files on their way to the disk and back: records that are cut, torn, swapped or from
// another build, and inputs that have changed since they were read.
Site prove(const SitePaths& files);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_EXPECTED_H
