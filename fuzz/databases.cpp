// Both database files, damaged in any way: the indexes, lookups, changes, checks and the dump.
// Input: a byte with the number of whole ident records, a byte with the number of records that the
// indexes get room for, the ident records, and the access database.
#include <algorithm>
#include <map>
#include <vector>

#include "carddb/accessfile.h"
#include "carddb/identfile.h"
#include "cardsets/cardsets.h"
#include "fuzz.h"
#include "site/accesslevel.h"
#include "support/result.h"
#include "tools/badgemint.h"

extern "C" unsigned sleep(unsigned /*seconds*/) {  // The pause of the dump.
  return 0;
}

namespace badgemint {
namespace {

// What an ident file does, done to a plain list. Of several records of a card the first counts.
struct PlainIdents {
  std::vector<IdentRecord> records;
  std::map<CardPattern, CardPattern> pairs;  // Neighbours by unique ID when the file was loaded.

  explicit PlainIdents(std::string_view bytes) {
    for (; bytes.size() >= IdentRecord::kSize; bytes.remove_prefix(IdentRecord::kSize)) {
      RecordImage<IdentRecord> image;
      std::copy_n(bytes.begin(), image.size(), image.begin());
      records.push_back(decodeRecord<IdentRecord>(image));
    }
    std::vector<IdentRecord> byHolder = records;
    std::ranges::stable_sort(byHolder, {}, &IdentRecord::uniqid);
    for (size_t i = 1; i < byHolder.size(); ++i) {
      const IdentRecord &one = byHolder[i - 1], &other = byHolder[i];
      if (one.uniqid != other.uniqid) continue;
      pairs[one.cardnumber] = other.cardnumber;
      pairs[other.cardnumber] = one.cardnumber;
    }
  }

  auto firstOf(const CardPattern& card) {
    return std::ranges::find(records, card, &IdentRecord::cardnumber);
  }
  void addOrReplace(const IdentRecord& record) {
    if (firstOf(record.cardnumber) == records.end()) records.push_back(record);
    *firstOf(record.cardnumber) = record;
  }
  int32_t mark(const CardPattern& card, uint32_t deleted) {
    const CardPattern other = pairs[card];
    const bool isPaired = other != CardPattern{};
    const bool differs = isPaired && firstOf(other)->uniqid != firstOf(card)->uniqid;
    firstOf(card)->deleted = deleted;
    if (isPaired && !differs) firstOf(other)->deleted = deleted;
    return differs ? kPairedHolderDiffers : kSuccess;
  }
  bool areIn(const MemoryFile& file) const {
    return PlainIdents(WorkFolder::read(file.path())).records == records;
  }
};

// Looks for every card, and marks it as deleted or valid.
void useCards(IdentFile& ident, PlainIdents& plain, const MemoryFile& file) {
  const auto records = plain.records;
  for (uint32_t recno = 0; recno < records.size(); ++recno) {
    const CardPattern& card = records[recno].cardnumber;
    const auto first = plain.firstOf(card);
    IdentRecord found;
    CardPattern paired;
    uint32_t number = 0, deleted = 7;
    require(ident.readRecordAt(found, recno) == kSuccess && found == plain.records[recno],
            "every record can be read");
    require(ident.findCard(card, found, number) == kSuccess && found == *first &&
                number == first - plain.records.begin(),
            "every card is found");
    require(ident.getPairedCard(card, paired) == kSuccess && paired == plain.pairs[card],
            "and has its pair or none");
    require(ident.verifyCard(card, number, deleted) == kSuccess && number == first->uniqid &&
                deleted == first->deleted,
            "and is verified");
    const bool isRestored = recno % 3 == 0;
    const int32_t result =
        isRestored ? ident.setCardUndeleted(card, number) : ident.setCardDeleted(card, number);
    require(result == plain.mark(card, isRestored ? 0 : 1) && number == first->uniqid,
            "and is marked");
  }
  require(plain.areIn(file), "the file holds what the list does");
}

void useIdent(const MemoryFile& file, uint32_t requested, PlainIdents plain) {
  IdentFile ident;
  require(ident.loadIndex(file.path(), requested), "every file gives an index");
  require(ident.index()->count() == plain.records.size(), "the index holds every whole record");
  static_cast<void>(ident.index()->countDuplicates());
  cardsets sets;
  require(sets.create(0) == kSuccess && ident.countUnloadedCardSets(sets) >= 0, "it is walked");
  useCards(ident, plain, file);
  const auto given = plain.records;
  for (size_t i = 0; i < given.size(); ++i) {
    IdentRecord any = given[given.size() - 1 - i];
    if (i % 2 == 0) any.cardnumber[i % any.cardnumber.size()] ^= 0x7F;
    if (ident.addOrReplace(any) != kSuccess) return;  // There is no room, or the end is cut.
    plain.addOrReplace(any);
  }
  useCards(ident, plain, file);
}

void useAccess(const MemoryFile& file, uint32_t requested, uint32_t records) {
  AccessFile access;
  require(access.loadIndex(file.path(), requested) == kSuccess, "every file gives an index");
  require(access.index()->count() == records, "the index holds every whole record");
  static_cast<void>(access.index()->countDuplicates());
  for (uint32_t recno = 0; recno < records; ++recno) {
    AccessRecord record;
    AccessRecord found;
    char text[AccessRecord::kTextSize];
    require(access.readRecordAt(record, recno) == kSuccess, "every record can be read");
    require(access.findAccess(record.uniqid, found) == kSuccess && found.uniqid == record.uniqid,
            "and found");
    record.toText(text);
    record.toShortText(text);
    static_cast<void>(access.setFlag3(record.uniqid));
    static_cast<void>(access.updateAccessTimes(record));
    static_cast<void>(access.mergeAccess(record, recno % 2 == 0));
    record.uniqid ^= 1;
    static_cast<void>(access.mergeAccess(record, true));
  }
  const AccessLevelSet levels;
  require(access.checkAccessLevels(levels) >= 0, "it is walked");
  for (const AccessIndexEntry* entry = access.index()->first(); entry != nullptr;)
    entry = access.index()->next();
}

void dump(const MemoryFile& ident, const MemoryFile& access) {
  require(DumpCardFile("", ident.path(), access.path(), "formats", "cardsets", "dumped",
                       "/dev/null", 25) <= 0,
          "the result of a dump is 0 or negative");
}

}  // namespace
}  // namespace badgemint

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace badgemint;
  static const FormatsFolder folder;
  if (size < 2) return 0;
  WorkFolder::write("cardsets", "f 1 1 A 5\nf 2 2\n");
  const uint32_t requested = data[1];
  const std::string_view bytes = textOf(data + 2, size - 2);
  const size_t identSize = std::min(bytes.size(), data[0] * IdentRecord::kSize);
  const MemoryFile ident(bytes.substr(0, identSize));
  const MemoryFile access(bytes.substr(identSize));

  dump(ident, access);
  const DroppedLog everything(100);
  useIdent(ident, requested, PlainIdents(bytes.substr(0, identSize)));
  useAccess(access, requested,
            static_cast<uint32_t>((bytes.size() - identSize) / AccessRecord::kSize));
  return 0;
}
