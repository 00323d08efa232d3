// Whether a build of a dump gives the databases that it was made from, and if not, why.
#ifndef BADGEMINT_ADMIN_RECORDS_DUMPPROOF_H
#define BADGEMINT_ADMIN_RECORDS_DUMPPROOF_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "admin/console.h"
#include "admin/files/sitepaths.h"
#include "admin/records/cardlines.h"
#include "admin/records/databases.h"
#include "inputcards/cardrecord.h"
#include "inputcards/linechecker.h"
#include "inputcards/linewriter.h"

namespace badgemint::admin {

// What databases hold and the text of a cards file cannot say: of each kind the first ones, in the
// order in which they are found, and how many more.
class DumpWarnings {
 public:
  void add(const std::string& kind, const std::string& text);
  void addMore(const std::string& kind, size_t count) { _counts[kind] += count; }
  bool any() const { return !_texts.empty(); }
  void tell(Console& console) const;

 private:
  static constexpr size_t kMostOfOneKind = 10;

  std::vector<std::string> _texts;
  std::map<std::string, size_t> _counts;
};

// Keeps the records of the last line.
class LastRecords final : public RecordSink {
 public:
  [[nodiscard]] int32_t put(const IdentRecord& ident, const AccessRecord* access) override {
    _card.ident = ident;
    if (access != nullptr) _card.access = *access;
    return kSuccess;
  }
  const CardRecord& card() const { return _card; }

 private:
  CardRecord _card;
};

// Takes the lines of a dump as both passes of a build do, and holds what they would write against
// the records.
class DumpProof {
 public:
  // All must outlive it. Throws std::bad_alloc.
  DumpProof(const SitePaths& names, const Databases& databases, bool withPins,
            DumpWarnings& warnings);

  // An 'f' line, before the first card of its set.
  void define(std::string line, int32_t number);
  // The line of a credential, with its PINs, whether they are shown or not. Its number is that in
  // the dump.
  void take(std::string& line, int32_t number, const Credential& credential);
  // What only the whole file can tell.
  void finish(const std::string& dumpName);

 private:
  std::string textOf(const IdentRecord& ident) const;
  void addFieldDifferences(const AccessRecord& access, const AccessRecord& made);

  const SitePaths& _names;
  const Databases& _databases;
  const bool _withPins;
  DumpWarnings& _warnings;
  const std::unique_ptr<SiteCards> _site;
  CardIndex _index;
  LineChecker _checker;
  LastRecords _output;
  LineWriter _writer;
};

// "ident.db: record 3 (holder 1001)".
std::string recordText(const std::string& database, size_t number, uint32_t uniqid);

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_DUMPPROOF_H
