// What `verify` finds wrong with the records of databases: the faults, and the rules that any
// databases keep, whoever has maintained them since a build made them.
#ifndef BADGEMINT_ADMIN_RECORDS_RECORDRULES_H
#define BADGEMINT_ADMIN_RECORDS_RECORDRULES_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "admin/console.h"
#include "admin/files/sitepaths.h"
#include "admin/records/site.h"
#include "admin/records/wording.h"

namespace badgemint::admin {

struct VerifyOptions {
  SitePaths site;
  std::string cards;  // The cards file to compare with; empty for none.
  bool all = false;
  bool withPins = false;
  bool json = false;
};

// The files that can have faults, in the order in which these are printed.
enum class FaultFile { kIdent, kAccess, kCards, kCardSets };

struct FaultPlace {
  static constexpr int64_t kWholeFile = -1;

  FaultFile file;
  int64_t number = kWholeFile;  // Of a record from 0 on, of a line from 1 on.

  auto operator<=>(const FaultPlace&) const = default;
};

struct Fault {
  FaultPlace place;
  std::string_view rule;  // A literal.
  std::string text;
  std::optional<uint32_t> holder{};
  std::optional<IdentRecord> credential{};
};

// Takes faults in any order, and prints them in the order of files and records. Of one rule it
// keeps the first hundred unless all are asked for.
class Faults {
 public:
  // Both outlive it.
  Faults(const VerifyOptions& options, const Site& site) : _options(options), _site(site) {}

  void add(Fault fault);
  // Of a credential: the text goes on after its name. It is a record of the ident database, or one
  // that a line of the cards file makes.
  void add(FaultPlace place, const IdentRecord& record, std::string_view rule,
           const std::string& text);
  void add(const IdentRecord& record, std::string_view rule, const std::string& text);
  // Of a record of the access database: the text goes on after its holder.
  void add(const AccessRecord& record, std::string_view rule, const std::string& text);

  size_t count() const { return _count; }
  // Of a rule with more than twenty faults, their number comes first.
  void print(Console& console) const;

 private:
  static constexpr size_t kMostOfOneRule = 100;
  static constexpr size_t kMostUncounted = 20;

  struct OfRule {
    size_t count = 0;
    std::multimap<FaultPlace, Fault> kept{};
  };

  void print(const Fault& fault, Console& console) const;

  const VerifyOptions& _options;
  const Site& _site;
  std::map<std::string_view, OfRule> _rules;
  size_t _count = 0;
};

// Which records are exactly as a build makes them.
struct ExpectedNumbers {
  std::vector<bool> idents, accesses;
};

// Adds the faults of the site's records. Returns the number of holders: of different unique IDs in
// the access database.
size_t checkRecords(const Site& site, const ExpectedNumbers& expected, Faults& faults);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_RECORDRULES_H
