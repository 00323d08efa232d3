// The records of a site's databases in memory, each file read once from first to last; the order by
// unique ID in which the verbs go through them; and the access record of each credential.
#ifndef BADGEMINT_ADMIN_RECORDS_DATABASES_H
#define BADGEMINT_ADMIN_RECORDS_DATABASES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <span>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "admin/files/folder.h"
#include "carddb/accessrecord.h"
#include "carddb/identrecord.h"

namespace badgemint::admin {

// Of a record, or of one that is pointed at.
uint32_t uniqidOf(const auto& record) {
  return record.uniqid;
}
uint32_t uniqidOf(const auto* record) {
  return record->uniqid;
}

// Goes through two vectors that are in the order of unique IDs: both databases, or an old and a new
// one. `visit` is called for each unique ID with the elements of either vector that have it; one of
// the two may be empty.
template <typename A, typename B, typename Visit>
void forEachUniqid(const std::vector<A>& as, const std::vector<B>& bs, Visit visit) {
  auto a = as.begin();
  auto b = bs.begin();
  while (a != as.end() || b != bs.end()) {
    const bool isFirstOfA = b == bs.end() || (a != as.end() && uniqidOf(*a) < uniqidOf(*b));
    const uint32_t uniqid = isFirstOfA ? uniqidOf(*a) : uniqidOf(*b);
    const auto isOther = [uniqid](const auto& element) { return uniqidOf(element) != uniqid; };
    const auto fromA = std::span(a, std::find_if(a, as.end(), isOther));
    const auto fromB = std::span(b, std::find_if(b, bs.end(), isOther));
    visit(uniqid, fromA, fromB);
    a += std::ssize(fromA);
    b += std::ssize(fromB);
  }
}

// The records in the order of unique IDs; of one unique ID in the order of the file.
template <typename Record>
std::vector<const Record*> orderByUniqid(const std::vector<Record>& records);

// A holder: whoever has an access record or a credential.
struct Holder {
  uint32_t uniqid = 0;
  std::span<const AccessRecord> accesses;
  std::span<const IdentRecord> credentials;

  bool exists() const { return !accesses.empty() || !credentials.empty(); }
};

// The order of credentials once they are sorted.
inline auto orderOf(const IdentRecord& record) {
  return std::tie(record.uniqid, record.cardnumber, record.cardsetcode, record.deleted);
}

// In the order of the files until they are sorted: record n of a vector is record n of its file.
// The records may hold anything.
struct Databases {
  std::vector<IdentRecord> idents;
  std::vector<AccessRecord> accesses;
  size_t identRest = 0, accessRest = 0;  // Bytes after the last whole record.

  // Throw std::system_error when the file cannot be opened or read.
  void readIdents(const std::string& name);
  void readAccesses(const std::string& name);

  // Sorts both by unique IDs. Access records of one holder keep their order; credentials of one
  // holder are in that of their keys, and where these are the same, of all that they say.
  void sort();

  // Once they are sorted.
  Holder holder(uint32_t uniqid) const;
  template <typename Visit>
  void forEachHolder(Visit visit) const {
    forEachUniqid(accesses, idents, [&](uint32_t uniqid, auto own, auto credentials) {
      visit(Holder{uniqid, own, credentials});
    });
  }
};

// Which of the files, which `paths` names, ends within a record; empty when both are whole.
std::string whyNotWhole(const Databases& databases, const SitePaths& paths);
// Why these cannot be the databases of a site: a record holds what no such record holds, or a file
// ends within a record. Empty when they can be.
std::string whyImpossible(const Databases& databases, const SitePaths& paths);

// Finds one record after the other by what `Key` gives, each record once. What is looked for is
// mostly in the order of the file, so the next record is tried first; records that stand elsewhere
// are searched for. The records must outlive it.
template <typename Record, auto Key>
class RecordWalk {
 public:
  using KeyType = std::decay_t<decltype(std::declval<Record>().*Key)>;

  explicit RecordWalk(const std::vector<Record>& records)
      : _records(records), _isUsed(records.size()) {}

  struct Step {
    const Record* record = nullptr;  // Null when there is none with this key.
    bool isShared = false;           // All with this key were used before; this is one of them.
    bool isEarlier = false;          // It stands before one that was used before.
  };
  Step next(const KeyType& key) {
    if (_next < _records.size() && _records[_next].*Key == key && !_isUsed[_next])
      return use(_next);
    if (_byKey.empty())
      for (size_t i = 0; i < _records.size(); ++i) _byKey.emplace(_records[i].*Key, i);
    auto [found, end] = _byKey.equal_range(key);
    if (found == end) return {};
    while (_isUsed[found->second] && std::next(found) != end) found = _byKey.erase(found);
    if (_isUsed[found->second]) return {&_records[found->second], true, false};
    return use(found->second);
  }

  bool isUsed(size_t number) const { return _isUsed[number]; }

 private:
  Step use(size_t number) {
    const bool isEarlier = number < _next;
    _isUsed[number] = true;
    _next = number + 1;
    return {&_records[number], false, isEarlier};
  }

  const std::vector<Record>& _records;
  std::vector<bool> _isUsed;
  size_t _next = 0;  // The number after that of the last one used.
  // The numbers of the records, once they are needed; used ones go as they are met.
  std::multimap<KeyType, size_t> _byKey;
};
// The access records of one credential after the other: a build appends one with each credential
// but the PIN beside a card.
using AccessWalk = RecordWalk<AccessRecord, &AccessRecord::uniqid>;
using IdentWalk = RecordWalk<IdentRecord, &IdentRecord::cardnumber>;

}  // namespace badgemint::admin

#endif  // BADGEMINT_ADMIN_RECORDS_DATABASES_H
