// Both database files, damaged in any way: the indexes, lookups, changes, checks and the dump.
// Input: a byte with the number of whole ident records, a byte with the number of records that the
// indexes get room for, the ident records, and the access database.
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

void useIdent(const MemoryFile& file, uint32_t requested, uint32_t records) {
  IdentFile ident;
  require(ident.loadIndex(file.path(), requested), "every file gives an index");
  require(ident.index()->count() == records, "the index holds every whole record");
  static_cast<void>(ident.index()->countDuplicates());
  for (uint32_t recno = 0; recno < records; ++recno) {
    IdentRecord record;
    IdentRecord found;
    uint32_t foundAt = 0;
    uint32_t uniqid = 0;
    uint32_t deleted = 0;
    CardPattern paired;
    require(ident.readRecordAt(record, recno) == kSuccess, "every record can be read");
    require(ident.findCard(record.cardnumber, found, foundAt) == kSuccess, "and found");
    require(found.cardnumber == record.cardnumber && foundAt <= recno, "by its card number");
    require(ident.verifyCard(record.cardnumber, uniqid, deleted) == kSuccess, "and verified");
    require(ident.getPairedCard(record.cardnumber, paired) == kSuccess, "and has a pair or none");
    static_cast<void>(ident.setCardDeleted(record.cardnumber, uniqid));
    static_cast<void>(ident.setCardUndeleted(record.cardnumber, uniqid));
    record.cardnumber[0] ^= 1;
    static_cast<void>(ident.addOrReplace(record));
  }
  cardsets sets;
  require(sets.create(0) == kSuccess && ident.countUnloadedCardSets(sets) >= 0, "it is walked");
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
  useIdent(ident, requested, static_cast<uint32_t>(identSize / IdentRecord::kSize));
  useAccess(access, requested,
            static_cast<uint32_t>((bytes.size() - identSize) / AccessRecord::kSize));
  return 0;
}
