// What the two kinds of database files share, through both of them; their indexes and records.
#include <functional>

#include "carddb/testdatabases.h"
#include "cardsets/cardsets.h"
#include "formats/fmtfile.h"
#include "site/accesslevel.h"
#include "support/masterconfiguration.h"

namespace badgemint::databases_test {

TEST(Databases, ReportWhichCallFailed) {
  const WorkFolder here;
  static uint32_t uniqid;
  static AccessRecord holder;
  const auto append = [](auto& f) { return f.appendRecord({}); };
  const auto next = []<typename F>(F& f) {
    auto found = kThree<F>[0];
    return f.readNext(found);
  };
  const auto read = []<typename F>(F& f) {
    auto found = kThree<F>[0];
    return f.readRecordAt(found, 2);
  };
  const auto write = [](auto& f) { return f.writeRecordAt({}, 2); };
  const std::tuple<State, int32_t (*)(IdentFile&), std::string> idents[] = {
      {kClosed, append,
       "open -382 reported; lseek -383 reported; write -385 reported; close -385 reported"},
      {kReadingAhead, next, "read -383 reported; short read 0"},
      {kOpen, read, "open -1; lseek -2; read -2; close -385 reported, 0"},
      {kOpen, write, "open -1; lseek -2; write -2; close -385 reported, -2"},
      // What cannot be read counts as not found: it is appended.
      {kClosed, [](IdentFile& f) { return f.addOrReplace({{3}}); },
       "open 0 and a new record, -1; lseek 0 and a new record, -2; read 0 and a new record; "
       "write -2; close 0, -2"},
      {kClosed, [](IdentFile& f) { return f.setCardDeleted({3}, uniqid); },
       "open -383, -385, -383, -385; lseek -383, -385, -383, -385; read -383, -383; "
       "write -385, -385; close 0, -385, 0, -385"},
      {kClosed, [](IdentFile& f) { return f.countUnloadedCardSets({}); },
       "open -382 reported; read 0 reported, 1 reported, 2 reported, 3 reported; "
       "short read 0, 1, 2, 3; close 3"},
  };
  for (const auto& [state, run, expected] : idents) EXPECT_EQ(failures(state, run), expected);
  const std::string changed =
      "open -340 reported, -340; lseek -341 reported, -342; read -341 reported; write -342; "
      "close 0, -342";
  const std::tuple<State, int32_t (*)(AccessFile&), std::string> accesses[] = {
      {kClosed, append,
       "open -340 reported; lseek -341 reported; write -342 reported; close -342 reported"},
      {kReadingAhead, next, "read -2; short read 0"},
      {kOpen, read,
       "open -340 reported; lseek -341 reported; read -341 reported; close -342 reported, 0"},
      {kOpen, write, "open -340; lseek -342; write -342; close -342 reported, -342"},
      {kClosed, [](AccessFile& f) { return f.setFlag3(30); }, changed},
      {kClosed, [](AccessFile& f) { return f.mergeAccess(holder = {30}, true); }, changed},
      {kClosed, [](AccessFile& f) { return f.updateAccessTimes({30}); },
       "open -1105 reported, -340; lseek -1105 reported, -342; read -1105 reported; write -342; "
       "close 0, -342"},
      {kClosed, [](AccessFile& f) { return f.loadIndex("access", 0); },
       "allocate -100[25 accessfile] Not enough memory to create access filename\n"
       ", -100[25 accessfile] Not enough memory to create access index\n"
       "; stat -340 reported; open -340[25 accessindx] Error opening access file access\n"
       "; read -341[25 accessindx] Error reading access file access\n"
       ", -341[25 accessindx] Error reading access file access\n"
       "; short read 0, 0; close 0"},
  };
  for (const auto& [state, run, expected] : accesses) EXPECT_EQ(failures(state, run), expected);
}

// Two blocks and a part of a record; a read that is cut short is read on.
TEST(Databases, ReadsAheadWhatIsThere) {
  std::mt19937 random(1);
  std::vector<AccessRecord> list(400);
  for (uint32_t i = 0; i < 400; ++i) list[i].uniqid = i;
  Prepared<AccessFile> file(kReadingAhead);
  file.write("access", bytesOf(list) + "tail");
  AccessRecord found;
  for (uint32_t step = 0; step < 1000; ++step) {
    const ArmedFault fault({"read", static_cast<int>(random() % 3), false, EIO, true});
    const auto recno = static_cast<uint32_t>(random() % 402);
    EXPECT_EQ(file.readRecordAt(found, recno), recno < 400 ? 0 : -341);
    EXPECT_EQ(found.uniqid, recno < 400 ? recno : 0);
    EXPECT_EQ(file.readNext(found), recno < 399 ? 0 : -2);
    EXPECT_EQ(found.uniqid, recno < 399 ? recno + 1 : recno < 400 ? recno : 0);
  }
}

TEST(Databases, AreNamedByTheConfigurationAsTheOtherFiles) {
  const WorkFolder here;
  here.write("f", "f 1 1");
  here.write("empty", "");
  here.write("named", "ident ident -1\naccess access -1\nfmts f\ncardsets f\naccesslvls f\n");
  MasterConfiguration named(1, "named"), empty(1, "empty");
  IdentFile idents;
  AccessFile accesses;
  fmtfile formats;
  cardsets sets;
  AccessLevelSet levels;
  prepare(idents, kOpen);
  prepare(accesses, kOpen);
  const std::function<bool(MasterConfiguration&)> loads[] = {
      [&](MasterConfiguration& table) { return idents.loadIndexFromConfig(table); },
      [&](MasterConfiguration& table) { return accesses.loadIndexFromConfig(table); },
      [&](MasterConfiguration& table) { return formats.openFromConfiguration(table) == 0; },
      [&](MasterConfiguration& table) { return sets.loadFromConfiguration(table); },
      [&](MasterConfiguration& table) { return levels.loadAccessLevels(table); }};
  for (const auto& load : loads) EXPECT_TRUE(load(named));
  EXPECT_EQ(idents.index()->count(), 3);
  EXPECT_EQ(idents.index()->capacity() + accesses.index()->capacity(), 206);
  TestLog log(3);
  std::string reported;
  for (const auto& load : loads) {
    errno = EINVAL;
    EXPECT_FALSE(load(empty));
    reported += std::to_string(errno) + ' ' + log.take();
  }
  EXPECT_EQ(reported,
            "0 [report 1/15 \"\"]\n0 [report 2/15 \"\"]\n"
            "0 [report 1/15 \"fmts\"]\n[report 1/21 \"\"]\n"
            "0 [report 1/15 \"\"]\n22 [report 2/15 \"\"]\n");
}

// What no file of the databases shows of its index: with room for three holders, one more is
// inserted after those of a file of any length.
TEST(AccessIndex, TakesWholeRecordsUpToItsRoom) {
  const WorkFolder here;
  for (size_t size = 0; size <= 4 * AccessRecord::kSize; ++size) {
    SCOPED_TRACE(size);
    here.write("access", bytesOf<AccessRecord>({{2}, {1}, {3}, {4}}).substr(0, size));
    AccessIndex index;
    EXPECT_TRUE(index.create(3));
    EXPECT_EQ(index.loadFromFile("access"), 0);
    const auto count = static_cast<int32_t>(std::min<size_t>(3, size / AccessRecord::kSize));
    EXPECT_EQ(index.count(), count);
    EXPECT_EQ(index.findRecno(2), count > 0 ? 0 : -1);
    EXPECT_EQ(index.findRecno(4), -1);
    EXPECT_EQ(index.countDuplicates(), 0);  // Not sorted.
    EXPECT_EQ(index.insert(1), count < 3 ? 0 : -1);
    EXPECT_EQ(index.findRecno(1), std::min(count, 1));
    EXPECT_EQ(index.countDuplicates(), count == 2 ? 1 : 0);
  }
}

TEST(Indexes, CountDuplicatesAndSizes) {
  IdentIndex idents;
  AccessIndex accesses;
  EXPECT_TRUE(idents.create(2) && accesses.create(2));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(idents.insert({5}) + accesses.insert(5), 0);
  EXPECT_EQ(idents.insert({6}), -1);
  EXPECT_EQ(idents.findRecno({5}), 0);
  EXPECT_EQ(idents.findRecno({6}), -1);
  TestLog log;
  EXPECT_EQ(idents.countDuplicates() + accesses.countDuplicates(), 2);
  AccessIndex::printEntrySize();
  EXPECT_EQ(log.take(),
            "[3 identindx] duplicate records for :05 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "\n[3 accessindx] duplicate records for 5 \n"
            "[10 accessindx] size of access index rec is 40\n");
  testing::internal::CaptureStdout();
  EXPECT_EQ(idents.buildFromFile("none"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "error loading none\n");
}

// The walk goes in the order of the keys. An entry whose unique ID is not positive as a signed
// number counts as empty when its record number is 0, and so does what is after the entries.
TEST(AccessIndex, WalksToAnEmptyEntry) {
  const std::vector<std::pair<std::vector<uint32_t>, std::vector<uint32_t>>> rows = {
      {{8, 7}, {7, 8}}, {{8, 0}, {0, 8}}, {{0, 8}, {}}, {{1u << 31, 8}, {8}}, {{}, {}}};
  for (const auto& [uniqids, expected] : rows) {
    AccessIndex index;
    EXPECT_EQ(index.first(), nullptr);
    EXPECT_TRUE(index.create(2));
    for (const uint32_t uniqid : uniqids) EXPECT_EQ(index.insert(uniqid), 0);
    std::vector<uint32_t> walk;
    for (AccessIndexEntry* at = index.first(); at != nullptr; at = index.next())
      walk.push_back(at->uniqid);
    EXPECT_EQ(walk, expected);
    for (int i = 0; i < 3; ++i) index.next();
    EXPECT_EQ(index.next(), nullptr);
  }
}

// That the fields follow each other without a gap is checked where they are listed.
TEST(Records, HaveTheirFieldsInTheirPlaces) {
  const IdentRecord ident{{0xA0, 0xA1}, 0x10111213, 0x20212223, 0x30313233};
  TestLog log;
  log.logger().dumpHex(25, encodeRecord(ident));
  EXPECT_EQ(log.take(),
            "A0 A1 00 00 00 00 00 00 00 00 00 00 00 00 00 00 13 12 11 10 23 22 21 20 33 32 31 30 ");
  AccessRecord record{0x01020304, {0x12, 0x34}, {},   0x61626364, 0x71727374, 0x81828384,
                      0x91929394, 0x2A,         0xB1, 0xC1,       0xD1};
  // Slots that there are not read as 0 and take nothing.
  for (int32_t slot = -1; slot <= 8; ++slot) {
    record.setAccessLevel(slot, static_cast<uint16_t>(0x8001 + slot));
    EXPECT_EQ(record.accessLevel(slot), slot < 0 || slot > 7 ? 0 : 0x8001 + slot);
  }
  log.logger().dumpHex(25, encodeRecord(record));
  EXPECT_EQ(log.take(),
            "04 03 02 01 12 34 00 00 01 80 02 80 03 80 04 80 05 80 06 80 07 80 08 80 "
            "64 63 62 61 74 73 72 71 84 83 82 81 94 93 92 91 2A B1 C1 D1 ");
}

TEST(IdentRecord, HasTexts) {
  char text[100];
  const IdentRecord record{{}, UINT32_MAX, 254, 1};
  record.toIdentifierText("0042", true, text);
  EXPECT_STREQ(text, "0042 0 1 4294967295 1");
  record.toIdentifierText("0042", false, text);
  EXPECT_STREQ(text, "0042 254 0 4294967295 1");
  record.toNumericText(5, 1, text);
  EXPECT_STREQ(text, "4294967301 254 4294967295");
}

// A blank PIN becomes 0 and is reported once.
TEST(AccessRecord, HasTexts) {
  TestLog log;
  char text[AccessRecord::kTextSize];
  AccessRecord record{
      7, {0x31, 0x32, 0x33, 0x34}, {11, 12, 13, 14, 15, 16, 17, 18}, 0, 86400, 21, 22, 0x0D, 31, 32,
      33};
  record.toText(text);
  EXPECT_STREQ(text,
               "31323334 0000000007 11 12 13 14 15 16 17 18 1 1 0 1 0 22 0 "
               "1970/01/02-00:00:00 21 31 32 33 0");
  record.toShortText(text);
  EXPECT_STREQ(text, "0000000007 1234 11 12 13 14 15 16 17 18 1 1 0 22 31 32 33 0");
  EXPECT_EQ(log.take(), "");
  record.pincode = {0xF1, 0x23, 0, 0x67};
  for (int i = 0; i < 2; ++i) record.toText(text);
  EXPECT_TRUE(std::string(text).starts_with("0 0000000007 11 "));
  record.toShortText(text);
  EXPECT_TRUE(std::string(text).starts_with("0000000007    \x0F 11 "));
  EXPECT_EQ(log.take(), "[25 accessrecord] pincode for uniqid=7 was blank and is now 0\n");
}

}  // namespace badgemint::databases_test
