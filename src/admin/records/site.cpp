#include "admin/records/site.h"

#include <new>
#include <set>

#include "admin/files/folder.h"
#include "admin/files/replacement.h"
#include "cardsets/card_functions.h"
#include "support/linereader.h"
#include "support/tokenizer.h"

namespace badgemint::admin {

Site::Site(const SitePaths& paths, Formats need, Console& console) {
  reportCutShort({paths.access, paths.ident, paths.cardSets}, console);
  const auto load = [&](const std::string& path, const auto& step) {
    if (path.empty()) return;
    try {
      step(path);
    } catch (const std::runtime_error& problem) {
      if (need == Formats::kRequired) throw;
      console.report("{}", problem.what());
    }
  };
  load(paths.formats, [&](const std::string& path) { loadFormats(path); });
  load(paths.cardSets, [&](const std::string& path) { loadCardSets(path, console); });
  if (!paths.ident.empty()) _databases.readIdents(paths.ident);
  if (!paths.access.empty()) _databases.readAccesses(paths.access);
}

void Site::loadFormats(const std::string& name) {
  Findings findings;
  _checked = checkFormats(name, _formats, findings);
  for (const Finding& finding : findings.sorted())
    if (finding.isError())
      throw Failure(ExitStatus::kNotDone, "{}: {}", findings.placeText(finding.place),
                    finding.text);
}

void Site::loadCardSets(const std::string& name, Console& console) {
  LineReader reader;
  throwErrnoUnless(reader.open(name.c_str()), name);
  Tokenizer words;
  int64_t firstWrong = 0, wrongLines = 0;
  for (int32_t line = 1; reader.readLine(cardsets::kMaxLine) == LineReader::Status::kLine; ++line) {
    words.split(reader.line(), kWordDelimiters);
    const bool isBlankLine = words.count() == 0;
    if (_sets.addCardSetLine(words, line) == 1 || isBlankLine) continue;
    if (_sets.count() == _sets.capacity()) throw std::bad_alloc();
    if (wrongLines++ == 0) firstWrong = reader.lineNumber();
  }
  throwErrnoUnless(!reader.failed(), name);
  if (wrongLines > 0)
    console.report("{}:{}: this line does not define a card set ({} such lines)", name, firstWrong,
                   wrongLines);
}

const CardFormat* Site::formatOfSet(uint32_t csid) const {
  const cardset* const set = _sets.getCardSet(csid);
  const CheckedFormat* const format = set == nullptr ? nullptr : _checked.find(set->fmtid);
  return format == nullptr ? nullptr : format->format;
}

std::optional<int64_t> Site::cardNumberOf(const IdentRecord& record) const {
  if (record.cardsetcode < kFirstCardSetId || record.cardsetcode > kLastCardSetId)
    return std::nullopt;
  const CardFormat* const format = formatOfSet(record.cardsetcode);
  if (format == nullptr) return std::nullopt;
  return format->decodeCardNumber(record.cardnumber);
}

void reportCutShort(std::initializer_list<std::string> paths, Console& console) {
  std::set<std::string> notes;
  for (const std::string& path : paths)
    if (!path.empty()) notes.insert(noteOfCutShort(splitPath(path).folder));
  for (const std::string& note : notes)
    if (!note.empty()) console.report("{}", note);
}

void tryTo(Console& console, const std::function<void()>& step) {
  try {
    step();
  } catch (const std::runtime_error& failure) {
    console.report("{}", failure.what());
  }
}

}  // namespace badgemint::admin
