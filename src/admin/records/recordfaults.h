// What is wrong with the records of databases, as people are told.
#ifndef BADGEMINT_ADMIN_RECORDS_RECORDFAULTS_H
#define BADGEMINT_ADMIN_RECORDS_RECORDFAULTS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "admin/check/finding.h"
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

class RecordFaults {
 public:
  // All outlive it.
  RecordFaults(const VerifyOptions& options, const Databases& databases, const Site& site);

  // What is said of a record behind what it is. `rule`, `text` and `detail` must be literals.
  struct Fault {
    size_t record;
    std::string_view rule;
    const char* text;
    std::optional<uint64_t> number = {};  // Behind the text.
    const char* detail = nullptr;         // Behind a colon.
  };
  // In any order.
  void addIdent(const Fault& fault) { _idents.push_back(fault); }
  void addAccess(const Fault& fault) { _accesses.push_back(fault); }

  // Of a line of the cards file, which come in their order.
  void addLine(int64_t line, const std::string& text);
  void addCardSets(const std::string& text) { _ofCardSets = text; }

  // How texts begin: "holder 1001: card 15890 of card set 1".
  std::string nameOf(const IdentRecord& record) const;
  static std::string nameOf(const AccessRecord& record);

  // Prints all of them, in the order of files and records. Returns their number.
  size_t print(Console& console);

 private:
  template <typename Record>
  void tell(int file, const std::vector<Record>& records, std::vector<Fault>& faults);
  void tellRest(int file, size_t rest);
  std::string placeText(const Place& place) const;

  const Databases& _databases;
  const Site& _site;
  bool _withPins;
  std::vector<Fault> _idents, _accesses;
  std::string _ofCardSets;
  Findings _findings;
};

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_RECORDFAULTS_H
