#include "admin/records/site.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <new>
#include <thread>

#include "admin/check/sitecheck.h"
#include "admin/files/folder.h"
#include "admin/files/replacement.h"
#include "cardsets/card_functions.h"
#include "cardsets/cardset.h"
#include "inputcards/inputfile.h"
#include "support/linereader.h"
#include "support/result.h"
#include "support/tokenizer.h"

namespace badgemint::admin {

namespace {

// Five seconds together.
constexpr std::chrono::milliseconds kPause(10);
constexpr int kMostPauses = 500;

std::vector<std::optional<FileState>> statesOf(std::span<const std::string> paths) {
  std::vector<std::optional<FileState>> states;
  for (const std::string& path : paths) {
    struct stat status;
    const bool isThere = stat(path.c_str(), &status) == 0;
    states.push_back(isThere ? std::optional(stateOf(status)) : std::nullopt);
  }
  return states;
}

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

// Another current folder while it lives.
class WorkingFolder {
 public:
  explicit WorkingFolder(const std::string& path) : _before(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~WorkingFolder() {
    std::error_code ignored;
    std::filesystem::current_path(_before, ignored);
  }
  WorkingFolder(const WorkingFolder&) = delete;
  WorkingFolder& operator=(const WorkingFolder&) = delete;

 private:
  std::filesystem::path _before;
};

// False when what was read may be of several states.
bool readUnchanged(std::span<const std::string> paths, const std::function<void()>& read) {
  const auto states = statesOf(paths);
  std::exception_ptr failure;
  try {
    read();
  } catch (const std::runtime_error&) {
    failure = std::current_exception();
  }
  // In this order: a replacement that ends between the two has changed the states.
  if (!noteOfReplacement(paths).empty() || statesOf(paths) != states) return false;
  if (failure) std::rethrow_exception(failure);
  return true;
}

}  // namespace

void readOneState(std::span<const std::string> paths, const std::function<void()>& read) {
  for (int pauses = 0;; ++pauses) {
    const std::string note = noteOfReplacement(paths);
    if (note.empty() && readUnchanged(paths, read)) return;
    if (pauses == kMostPauses)
      throw Failure(ExitStatus::kNotDone, "{}",
                    note.empty() ? paths.front() + " is being written again and again" : note);
    std::this_thread::sleep_for(kPause);
  }
}

void openLevels(const std::string& path, AccessLevelSet& levels) {
  requireRegularFile(path);
  Findings ignored;
  try {
    checkLevelsFile(path, ignored);
  } catch (const Failure& failure) {
    throw Failure(ExitStatus::kNotDone, "{}", failure.what());
  }
  readLevels(path, levels);
}

Site::Site(const SitePaths& paths, Formats need, const std::string& formatFolder) {
  for (const std::string& path : {paths.formats, paths.cardSets, paths.ident, paths.access})
    requireRegularFile(path);
  for (const std::string& name : formatFiles(paths.formats))
    requireRegularFile(fmt::format("{}/{}", formatFolder, name));
  const auto attempt = [&](const auto& step) {
    try {
      step();
    } catch (const std::runtime_error& problem) {
      if (need == Formats::kRequired) throw;
      _problems.emplace_back(problem.what());
    }
  };
  if (!paths.formats.empty()) attempt([&] { loadFormats(paths.formats, formatFolder); });
  const std::vector<std::string> formatsProblems = _problems;
  std::vector<std::string> replaced = {paths.access, paths.ident, paths.cardSets};
  std::erase(replaced, "");
  readOneState(replaced, [&] {
    _problems = formatsProblems;
    if (!paths.cardSets.empty()) attempt([&] { readCardSets(paths.cardSets); });
    if (!paths.ident.empty()) _databases.readIdents(paths.ident);
    if (!paths.access.empty()) _databases.readAccesses(paths.access);
  });
  if (!_cardSetProblems.empty())
    _problems.push_back(fmt::format("{}:{}: {} ({} such lines)", paths.cardSets,
                                    _cardSetProblems.front().line, _cardSetProblems.front().text,
                                    _cardSetProblems.size()));
}

Site::Site(const SitePaths& paths, Formats need, Console& console) : Site(paths, need) {
  for (const std::string& problem : _problems) console.report("{}", problem);
}

void Site::loadFormats(std::string path, const std::string& formatFolder) {
  requireRegularFile(path);
  std::optional<WorkingFolder> folder;  // The library looks for format files in the current one.
  if (formatFolder != ".") {
    path = std::filesystem::absolute(path).string();
    folder.emplace(formatFolder);
  }
  Findings findings;
  _checked = checkFormats(path, _formats, findings);
  for (const Finding& finding : findings.sorted())
    if (finding.isError())
      throw Failure(ExitStatus::kNotDone, "{}: {}", findings.placeText(finding.place),
                    finding.text);
}

void Site::readCardSets(const std::string& path) {
  _sets = std::make_unique<cardsets>();
  _cardSetProblems.clear();
  LineReader reader;
  throwErrnoUnless(reader.open(path.c_str()), path);
  Tokenizer words;
  while (reader.readLine(cardsets::kMaxLine) == LineReader::Status::kLine) {
    const std::string_view line(reader.line(), reader.length());
    const bool isWhole = line.ends_with('\n') && line.find('\0') == std::string_view::npos;
    words.split(reader.line(), kWordDelimiters);
    std::string text;
    for (uint32_t i = 0; i < words.count(); ++i) text.append(words.word(i)).append(" ");
    if (text.empty()) continue;
    cardset set;
    const bool isSet = isWhole && parseCardSetText(set, text.c_str()) == kSuccess &&
                       badgemint::CardSetLine(set).text() == text + '\n' &&
                       set.csid >= kFirstCardSetId && set.csid <= kLastCardSetId;
    if (!isSet)
      _cardSetProblems.push_back(
          {reader.lineNumber(), "this line is not a card set as a build writes it"});
    else if (_sets->getCardSet(set.csid) != nullptr)
      _cardSetProblems.push_back(
          {reader.lineNumber(), fmt::format("card set {} is defined twice", set.csid)});
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
