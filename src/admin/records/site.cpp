#include "admin/records/site.h"

#include <algorithm>
#include <new>
#include <set>

#include "admin/files/folder.h"
#include "admin/files/replacement.h"
#include "cardsets/card_functions.h"
#include "support/linereader.h"
#include "support/tokenizer.h"

namespace badgemint::admin {

void Site::loadFormats(const std::string& name) {
  Findings findings;
  _checked = checkFormats(name, _formats, findings);
  for (const Finding& finding : findings.sorted())
    if (finding.isError())
      throw Failure(ExitStatus::kNotDone, findings.placeText(finding.place) + ": " + finding.text);
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
  if (wrongLines == 0) return;
  console.reportText(name + ":" + std::to_string(firstWrong) + ": this line defines no card set" +
                     (wrongLines == 1 ? "" : "; further ones: " + std::to_string(wrongLines - 1)));
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

void tryTo(Console& console, const std::function<void()>& step) {
  try {
    step();
  } catch (const std::runtime_error& failure) {
    console.reportText(failure.what());
  }
}

void tellOfCutShort(std::initializer_list<std::string> names, Console& console) {
  std::set<std::string> told;
  for (const std::string& name : names) {
    const std::string note = noteOfCutShort(splitPath(name).folder);
    if (!note.empty() && told.insert(note).second) console.reportText(note);
  }
}

}  // namespace badgemint::admin
