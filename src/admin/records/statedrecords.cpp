#include "admin/records/statedrecords.h"

#include <memory>
#include <new>
#include <vector>

#include "admin/records/holderwalk.h"
#include "admin/records/proof.h"
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
        _holders(databases.accesses) {}

  void run(const VerifyOptions& options, const Site& stored) {
    const std::string& formats = options.site.formats;
    if (_site.create() < 0 ||
        loadFormats("badgemint-admin", "", formats.c_str(), _site.formats()) < 0)
      throw std::bad_alloc();  // The formats were loaded before: memory is all that can be missing.
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
    const HolderWalk::Step step = _holders.take(stated.uniqid);
    if (step.record == nullptr || step.isShared) {
      _faults.addLine(stated.line, _faults.nameOf(built) + " has no access record");
      return;
    }
    if (const char* const what = differenceTo(stated, built, *step.record, _site))
      _faults.addAccess({static_cast<size_t>(step.record - _databases.accesses.data()), "differs",
                         kDiffers, static_cast<uint64_t>(stated.line), what});
  }

  void tellOfOthers() {
    for (size_t i = 0; i < _isStatedIdent.size(); ++i)
      if (!_isStatedIdent[i]) _faults.addIdent({i, "other", kOther});
    for (size_t i = 0; i < _databases.accesses.size(); ++i)
      if (!_holders.isTaken(i)) _faults.addAccess({i, "other", kOther});
  }

  static constexpr char kDiffers[] = "is not as in the cards file, line";
  static constexpr char kOther[] = "is in no line of the cards file";

  const Databases& _databases;
  const RecordOrders& _orders;
  RecordFaults& _faults;
  SiteCards _site;
  std::vector<bool> _isStatedIdent;
  size_t _nextIdent = 0;
  HolderWalk _holders;
};

}  // namespace

void compareWithCards(const VerifyOptions& options, const Databases& databases,
                      const RecordOrders& orders, const Site& stored, RecordFaults& faults) {
  std::make_unique<Comparison>(databases, orders, faults)->run(options, stored);
}

}  // namespace badgemint::admin
