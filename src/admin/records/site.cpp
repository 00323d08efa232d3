#include "admin/records/site.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <new>

#include "admin/files/replacement.h"
#include "cardsets/card_functions.h"
#include "cardsets/cardset.h"
#include "support/linereader.h"
#include "support/result.h"
#include "support/tokenizer.h"

namespace badgemint::admin {

namespace {

// Five seconds together.
constexpr std::chrono::milliseconds kPause(10);
constexpr int kMostPauses = 500;

// About the first that is being replaced; empty for none. Where a path leads to a link, the folder
// of the file counts.
std::string noteOfReplacement(std::span<const std::string> paths) {
  for (const std::string& path : paths) {
    std::error_code isMissing;
    const std::filesystem::path file = std::filesystem::canonical(path, isMissing);
    std::string note =
        noteOfCutShort(isMissing ? splitPath(path).folder : file.parent_path().string());
    if (!note.empty()) return note;
  }
  return "";
}

// What is wrong with a line of a card sets file, whose words these are; empty for nothing.
std::string problemOf(bool isWhole, const Tokenizer& words, const cardsets& before) {
  std::string text;
  for (uint32_t i = 0; i < words.count(); ++i) text.append(words.word(i)).append(" ");
  cardset set;
  const bool isSet = isWhole && parseCardSetText(set, text.c_str()) == kSuccess &&
                     badgemint::CardSetLine(set).text() == text + '\n' &&
                     set.csid >= kFirstCardSetId && set.csid <= kLastCardSetId;
  if (!isSet) return "this line is not a card set as a build writes it";
  if (before.getCardSet(set.csid) == nullptr) return "";
  return fmt::format("card set {} is defined twice", set.csid);
}

}  // namespace

void readOneState(std::span<const std::string> paths, const std::function<void()>& read) {
  for (int pauses = 0;; ++pauses) {
    const auto states = statesOf(paths);
    std::string note = noteOfReplacement(paths);
    // In this order: a replacement that ends between the two has changed the states.
    const auto isOneState = [&] {
      note = noteOfReplacement(paths);
      return note.empty() && statesOf(paths) == states;
    };
    if (note.empty()) try {
        read();
        if (isOneState()) return;
      } catch (const std::runtime_error&) {
        if (isOneState()) throw;
      }
    if (pauses == kMostPauses)
      throw NotDone("{}",
                    note.empty() ? paths.front() + " is being written again and again" : note);
    std::this_thread::sleep_for(kPause);
  }
}

void openLevels(const std::string& path, AccessLevelSet& levels) {
  Findings ignored;
  readLevels(path, levels, ignored, ExitStatus::kNotDone);
}

Site::Site(const SitePaths& paths, const Needs& needs, Console* console) {
  if (!paths.formats.empty()) loadFormats(paths);
  const std::vector<std::string> formatsProblems = _problems;
  std::vector<std::string> replaced = {paths.access, paths.ident, paths.cardSets};
  std::erase(replaced, "");
  readOneState(replaced, [&] {
    _problems = formatsProblems;
    if (!paths.cardSets.empty()) readCardSets(paths.cardSets);
    if (!paths.ident.empty()) _databases.readIdents(paths.ident);
    if (!paths.access.empty()) _databases.readAccesses(paths.access);
  });
  if (needs.formats && !_problems.empty()) throw NotDone("{}", _problems.front());
  if (const auto first = _cardSetProblems.begin(); first != _cardSetProblems.end())
    _problems.push_back(fmt::format("{}:{}: {} ({} such lines)", paths.cardSets, first->first,
                                    first->second, _cardSetProblems.size()));
  if (const std::string rest = whyNotWhole(_databases, paths); !rest.empty()) {
    if (needs.wholeRecords) throw Failure(*needs.wholeRecords, "{}", rest);
    _problems.push_back(rest);
  }
  if (needs.sorted) _databases.sort();
  if (console != nullptr)
    for (const std::string& problem : _problems) console->report("{}", problem);
}

void Site::loadFormats(const SitePaths& paths) {
  Findings findings;
  _checked = checkFormats(paths.formats, _siteCards->formats(), findings, paths.formatFolder);
  for (const Finding& finding : findings.sorted())
    if (finding.isError() && _problems.empty())
      _problems.push_back(findings.placeText(finding.place) + ": " + finding.text);
}

void Site::readCardSets(const std::string& path) {
  requireRegularFile(path);
  _sets = std::make_unique<cardsets>();
  _cardSetProblems.clear();
  LineReader reader;
  Tokenizer words;
  if (!reader.open(path.c_str())) return _problems.push_back(path + ": " + std::strerror(errno));
  while (reader.readLine(cardsets::kMaxLine) == LineReader::Status::kLine) {
    const std::string_view line(reader.line(), reader.length());
    const bool isWhole = line.ends_with('\n') && line.find('\0') == std::string_view::npos;
    words.split(reader.line(), kWordDelimiters);
    if (words.count() == 0) continue;
    if (std::string problem = problemOf(isWhole, words, *_sets); !problem.empty())
      _cardSetProblems[reader.lineNumber()] = std::move(problem);
    if (_sets->addCardSetLine(words, 0) == 0 && _sets->count() == _sets->capacity())
      throw std::bad_alloc();
  }
  throwErrnoUnless(!reader.failed(), path);
}

const CardFormat* Site::formatOfSet(uint32_t csid) const {
  const cardset* const set = _sets->getCardSet(csid);
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

}  // namespace badgemint::admin
