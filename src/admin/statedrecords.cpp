#include "admin/statedrecords.h"

#include <memory>
#include <new>
#include <unordered_map>
#include <vector>

#include "admin/proof.h"
#include "cardsets/card_functions.h"
#include "formats/loadformats.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

class Comparison {
 public:
  Comparison(const Databases& databases, const RecordOrders& orders, RecordFaults& faults)
      : _databases(databases),
        _orders(orders),
        _faults(faults),
        _isStatedIdent(databases.idents.size()),
        _isStatedAccess(databases.accesses.size()) {}

  void run(const VerifyOptions& options, const CardSite& stored) {
    const std::string& formats = options.site.formats;
    if (_site.create() < 0) throw std::bad_alloc();
    if (loadFormats("badgemint-admin", "", formats.c_str(), _site.formats()) < 0)
      throw Failure(ExitStatus::kNotDone, formats + " cannot be loaded any more");
    readStatements(options.cards, _site, [this](const StatedCredential& stated) {
      compare(stated);
      return true;
    });
    tellOfOthers();
    const std::string sets = differenceTo(_site.cardSets(), stored.sets());
    if (!sets.empty()) _faults.addCardSets("a build would not write it: it says " + sets);
  }

 private:
  void compare(const StatedCredential& stated) {
    const IdentRecord built = {keyOf(stated), stated.uniqid, stated.cardSetCode};
    compareIdent(stated, built);
    if (stated.holder != nullptr) compareAccess(stated, built);
  }

  CardPattern keyOf(const StatedCredential& stated) {
    CardPattern key{};
    if (stated.cardSetCode == kFormatlessCode) {
      hexToBits(stated.key, key);
    } else if (stated.cardSetCode == kPinOnlyCode || stated.cardSetCode == kPinIdentCode) {
      key = packedPin(stated.key);
    } else {
      static_cast<void>(_site.encodeCard(static_cast<int32_t>(stated.cardSetCode),
                                         {stated.cardNumber, false}, stated.line, key));
    }
    return key;
  }

  // Most databases are in the order of the file.
  void compareIdent(const StatedCredential& stated, const IdentRecord& built) {
    if (_nextIdent == _databases.idents.size() || _databases.idents[_nextIdent] != built)
      _nextIdent = findIdent(built);
    if (_nextIdent == _databases.idents.size()) {
      _faults.addLine(stated.line, _faults.nameOf(built) + " is not in the ident database");
      return;
    }
    const size_t i = _nextIdent++;
    _isStatedIdent[i] = true;
    StatedCredential ident = stated;
    ident.holder = nullptr;
    if (const char* const what = differenceTo(ident, _databases.idents[i], {}, _site))
      _faults.addIdent({i, "differs", kDiffers, static_cast<uint64_t>(stated.line), what});
  }

  // Of several records with the key, which no other line has, the one that is right; else the first
  // one. The number of records when there is none.
  size_t findIdent(const IdentRecord& built) const {
    const RecordNumbers alike = _orders.identsOf(built.cardnumber);
    for (const size_t i : alike)
      if (_databases.idents[i] == built) return i;
    return alike.empty() ? _databases.idents.size() : alike[0];
  }

  void compareAccess(const StatedCredential& stated, const IdentRecord& built) {
    const size_t end = _databases.accesses.size();
    if (_nextAccess == end || _isStatedAccess[_nextAccess] ||
        _databases.accesses[_nextAccess].uniqid != stated.uniqid)
      _nextAccess = findAccess(stated.uniqid);
    if (_nextAccess == end) {
      _faults.addLine(stated.line, _faults.nameOf(built) + " has no access record");
      return;
    }
    const size_t i = _nextAccess++;
    _isStatedAccess[i] = true;
    if (const char* const what = differenceTo(stated, built, _databases.accesses[i], _site))
      _faults.addAccess({i, "differs", kDiffers, static_cast<uint64_t>(stated.line), what});
  }

  // The first record of a holder that no line has stated yet: cards of several lines may be of one.
  // The number of records when there is none.
  size_t findAccess(uint32_t uniqid) {
    const RecordNumbers rights = _orders.accessesOf(uniqid);
    if (rights.empty()) return _databases.accesses.size();
    size_t& passed = _passed[rights[0]];
    while (passed < rights.size() && _isStatedAccess[rights[passed]]) ++passed;
    return passed == rights.size() ? _databases.accesses.size() : rights[passed];
  }

  void tellOfOthers() {
    for (size_t i = 0; i < _isStatedIdent.size(); ++i)
      if (!_isStatedIdent[i]) _faults.addIdent({i, "other", kOther});
    for (size_t i = 0; i < _isStatedAccess.size(); ++i)
      if (!_isStatedAccess[i]) _faults.addAccess({i, "other", kOther});
  }

  static constexpr char kDiffers[] = "is not as in the cards file, line";
  static constexpr char kOther[] = "is in no line of the cards file";

  const Databases& _databases;
  const RecordOrders& _orders;
  RecordFaults& _faults;
  SiteCards _site;
  std::vector<bool> _isStatedIdent;
  std::vector<bool> _isStatedAccess;
  std::unordered_map<size_t, size_t> _passed;  // Of a holder's records, by the first one.
  size_t _nextIdent = 0, _nextAccess = 0;
};

}  // namespace

void compareWithCards(const VerifyOptions& options, const Databases& databases,
                      const RecordOrders& orders, const CardSite& stored, RecordFaults& faults) {
  std::make_unique<Comparison>(databases, orders, faults)->run(options, stored);
}

}  // namespace badgemint::admin
