#include "admin/records/expected.h"

#include <new>

#include "admin/records/wording.h"
#include "support/linereader.h"
#include "support/result.h"

namespace badgemint::admin {

namespace {

template <typename Record>
void requireEqual(const std::vector<Record>& records, const std::vector<Record>& expected,
                  const std::string& name) {
  const auto [stored, made] = std::ranges::mismatch(records, expected);
  if (stored == records.end() && made == expected.end()) return;
  const bool isEnd = stored == records.end() || made == expected.end();
  throw Refused("{}: record {} differs from the cards file ({}); build again", name,
                stored - records.begin(), isEnd ? "record count" : differingField(*stored, *made));
}

std::string lineOf(const cardset* set) {
  return set == nullptr ? "" : std::string(badgemint::CardSetLine(*set).text());
}

}  // namespace

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
  while (lines.readLine(kMaxInputLine) == LineReader::Status::kLine) {
    const int32_t result = readLine({lines.line(), static_cast<int32_t>(lines.lineNumber())});
    if (result == kOutOfMemory) throw std::bad_alloc();
    if (result < 0)
      throw Refused("line {} of {} has become invalid since it was checked (result {})",
                    lines.lineNumber(), cardsName, result);
  }
  throwErrnoUnless(!lines.failed(), cardsName);
}

std::string differenceOfCardSets(const Site& site) {
  const cardsets &expected = site.siteCards().cardSets(), &stored = site.sets();
  for (uint32_t id = 0; id <= UINT8_MAX; ++id)
    if (lineOf(expected.getCardSet(id)) != lineOf(stored.getCardSet(id)))
      return fmt::format("card set {} differs from the cards file", id);
  return stored.count() == expected.count() ? "" : "some card sets are not in the cards file";
}

Site prove(const SitePaths& files) {
  Site site(files, {.formats = true, .wholeRecords = ExitStatus::kRefused});
  Databases &databases = site.databases(), expected;
  ExpectedRecords records(site, [&expected](const ExpectedRecord& made) {
    expected.idents.push_back(made.ident);
    if (made.access != nullptr) expected.accesses.push_back(*made.access);
  });
  records.readFile(files.cards);
  requireEqual(databases.idents, expected.idents, files.ident);
  requireEqual(databases.accesses, expected.accesses, files.access);
  const std::string difference = differenceOfCardSets(site);
  if (!difference.empty()) throw Refused("{}: {}; build again", files.cardSets, difference);
  databases.sort();
  return site;
}

}  // namespace badgemint::admin
