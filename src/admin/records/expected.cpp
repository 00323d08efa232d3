#include "admin/records/expected.h"

#include <algorithm>
#include <new>

#include "admin/console.h"
#include "admin/files/folder.h"
#include "admin/records/wording.h"
#include "carddb/recordfile.h"
#include "formats/loadformats.h"
#include "support/linereader.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

std::unique_ptr<SiteCards> siteWithFormats(const std::string& formatsName) {
  auto site = std::make_unique<SiteCards>();
  int32_t result = site->create();
  if (result == kSuccess)
    result = loadFormats("badgemint-admin", "", formatsName.c_str(), site->formats());
  if (result == kOutOfMemory) throw std::bad_alloc();
  if (result < 0)
    throw Failure(ExitStatus::kRefused, "{}: its formats cannot be loaded any more (result {})",
                  formatsName, result);
  return site;
}

// The file keeps no values below 1.
bool isSameSet(const cardset& expected, const cardset& stored) {
  for (int32_t field = 0; field < kCardSetFields; ++field)
    if (stored.value(field) != std::max<int64_t>(expected.value(field), 0)) return false;
  return stored.fmtid == expected.fmtid;
}

// Reads both databases along with the records that a build makes.
class ProofWalk {
 public:
  explicit ProofWalk(const SitePaths& files) : _files(files) {
    throwErrnoUnless(_idents.open(files.ident.c_str()), files.ident);
    throwErrnoUnless(_accesses.open(files.access.c_str()), files.access);
  }

  void compareNext(const ExpectedRecord& expected) {
    compare(_idents, _identCount, expected.ident, expected.line, _files.ident);
    if (expected.access != nullptr)
      compare(_accesses, _accessCount, *expected.access, expected.line, _files.access);
  }

  // Returns the number of credentials.
  int64_t finish() {
    requireEnd<IdentRecord>(_idents, _files.ident);
    requireEnd<AccessRecord>(_accesses, _files.access);
    return _identCount;
  }

 private:
  template <typename Record>
  void compare(RecordReader& reader, int64_t& count, const Record& expected, int32_t line,
               const std::string& database) {
    Record stored;
    if (!reader.next(stored)) {
      throwErrnoUnless(!reader.failed(), database);
      throw Failure(ExitStatus::kRefused, "not proved: {} ends before line {} of {}", database,
                    line, _files.cards);
    }
    if (stored != expected)
      throw Failure(ExitStatus::kRefused,
                    "not proved: record {} of {} differs from line {} of {}: {}", count, database,
                    line, _files.cards, differingField(stored, expected));
    ++count;
  }

  template <typename Record>
  void requireEnd(RecordReader& reader, const std::string& database) {
    Record record;
    const bool hasMore = reader.next(record) || reader.rest() != 0;
    throwErrnoUnless(!reader.failed(), database);
    if (hasMore)
      throw Failure(ExitStatus::kRefused, "not proved: {} goes on after the last line of {}",
                    database, _files.cards);
  }

  const SitePaths& _files;
  RecordReader _idents, _accesses;
  int64_t _identCount = 0, _accessCount = 0;
};

}  // namespace

ExpectedRecords::ExpectedRecords(const std::string& formatsName, Visit visit)
    : _site(siteWithFormats(formatsName)), _writer(*_site, *this), _visit(std::move(visit)) {}

// The writer that calls this is built without exceptions: none may pass through it.
int32_t ExpectedRecords::put(const IdentRecord& ident, const AccessRecord* access) {
  try {
    _visit({_line, ident, access});
    return kSuccess;
  } catch (...) {
    _thrown = std::current_exception();
    return kInvalidLine;
  }
}

int32_t ExpectedRecords::readLine(InputLine line) {
  _line = line.number;
  const int32_t result = _writer.write(line);
  if (_thrown) std::rethrow_exception(std::exchange(_thrown, nullptr));
  return result;
}

void ExpectedRecords::readFile(const std::string& cardsName) {
  LineReader lines;
  throwErrnoUnless(lines.open(cardsName.c_str()), cardsName);
  uint32_t number = 0;  // Wraps where a signed number must not.
  while (lines.readLine(kMaxInputLine) == LineReader::Status::kLine) {
    const int32_t result = readLine({lines.line(), static_cast<int32_t>(++number)});
    if (result == kOutOfMemory) throw std::bad_alloc();
    if (result < 0)
      throw Failure(ExitStatus::kRefused,
                    "line {} of {} has become invalid since it was checked (result {})", number,
                    cardsName, result);
  }
  throwErrnoUnless(!lines.failed(), cardsName);
}

std::string differenceOfCardSets(const cardsets& expected, const cardsets& stored) {
  for (uint32_t id = 0; id <= UINT8_MAX; ++id) {
    const cardset* const set = expected.getCardSet(id);
    const cardset* const inFile = stored.getCardSet(id);
    if (set == nullptr && inFile == nullptr) continue;
    if (set == nullptr) return fmt::format("card set {} should not be there", id);
    if (inFile == nullptr) return fmt::format("card set {} is missing", id);
    if (!isSameSet(*set, *inFile)) return fmt::format("card set {} differs", id);
  }
  return stored.count() == expected.count() ? "" : "there are more card sets";
}

int64_t prove(const SitePaths& files) {
  ProofWalk walk(files);
  ExpectedRecords records(files.formats,
                          [&walk](const ExpectedRecord& record) { walk.compareNext(record); });
  records.readFile(files.cards);
  cardsets stored;
  throwErrnoUnless(stored.load(files.cardSets.c_str()) >= 0, files.cardSets);
  if (const auto difference = differenceOfCardSets(records.cardSets(), stored); !difference.empty())
    throw Failure(ExitStatus::kRefused, "not proved: {}: {}", files.cardSets, difference);
  return walk.finish();
}

}  // namespace badgemint::admin
