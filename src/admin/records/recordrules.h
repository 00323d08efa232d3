// What `verify` finds wrong with the records of databases: the faults, and the rules that any
// databases keep, whoever has maintained them since a build made them.
#ifndef BADGEMINT_ADMIN_RECORDS_RECORDRULES_H
#define BADGEMINT_ADMIN_RECORDS_RECORDRULES_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "admin/console.h"
#include "admin/files/sitepaths.h"
#include "admin/records/databases.h"
#include "admin/records/site.h"

namespace badgemint::admin {

struct VerifyOptions {
  SitePaths site;
  std::string cards;  // The cards file to compare with; empty for none.
  bool all = false;
  bool withPins = false;
};

// The files that can have faults, in the order in which these are printed.
enum class FaultFile { kIdent, kAccess, kCards, kCardSets };

struct FaultPlace {
  static constexpr int64_t kWholeFile = -1;

  FaultFile file;
  int64_t number = kWholeFile;  // Of a record from 0 on, of a line from 1 on.

  auto operator<=>(const FaultPlace&) const = default;
};

// Takes faults in any order, and prints them in the order of files and records. Of one rule it
// keeps the first hundred unless all are asked for. A rule must be a literal.
class Faults {
 public:
  // Both outlive it.
  Faults(const VerifyOptions& options, const Site& site)
      : _options(options), _databases(site.databases()), _site(site) {}

  template <typename... Args>
  void add(FaultPlace place, std::string_view rule, fmt::format_string<Args...> format,
           Args&&... args) {
    if (std::string* const text = keep(place, rule))
      *text = fmt::format(format, std::forward<Args>(args)...);
  }
  // Of a record: the text goes on after its name.
  template <typename... Args>
  void addIdent(size_t number, std::string_view rule, fmt::format_string<Args...> format,
                Args&&... args) {
    if (std::string* const text = keep({FaultFile::kIdent, static_cast<int64_t>(number)}, rule))
      *text = fmt::format("{} {}", nameOf(_databases.idents[number]),
                          fmt::format(format, std::forward<Args>(args)...));
  }
  template <typename... Args>
  void addAccess(size_t number, std::string_view rule, fmt::format_string<Args...> format,
                 Args&&... args) {
    if (std::string* const text = keep({FaultFile::kAccess, static_cast<int64_t>(number)}, rule))
      *text = fmt::format("holder {} {}", _databases.accesses[number].uniqid,
                          fmt::format(format, std::forward<Args>(args)...));
  }

  // "holder 1001: card 15890 of card set 1".
  std::string nameOf(const IdentRecord& record) const;

  size_t count() const { return _count; }
  void print(Console& console) const;

 private:
  static constexpr size_t kMostOfOneRule = 100;
  static constexpr size_t kMostUncounted = 20;

  struct OfRule {
    size_t count = 0;
    std::multimap<FaultPlace, std::string> kept;
  };

  // Where the text of a fault goes; null when it is not kept.
  std::string* keep(FaultPlace place, std::string_view rule);
  std::string placeText(const FaultPlace& place) const;

  const VerifyOptions& _options;
  const Databases& _databases;
  const Site& _site;
  std::map<std::string_view, OfRule> _rules;
  size_t _count = 0;
};

// Which records are exactly as a build makes them; empty when that is not known.
struct ExpectedNumbers {
  std::vector<bool> idents, accesses;

  bool hasIdent(size_t number) const { return !idents.empty() && idents[number]; }
  bool hasAccess(size_t number) const { return !accesses.empty() && accesses[number]; }
};

// Adds the faults of the site's records. Returns the number of holders: of different unique IDs in
// the access database.
size_t checkRecords(const Site& site, const ExpectedNumbers& expected, Faults& faults);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_RECORDRULES_H
