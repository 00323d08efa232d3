// What is wrong in an access levels file. Messages quote no word but a level number: the file may
// be another one, given by mistake, in which any word may be a PIN.
#include <cerrno>
#include <map>
#include <memory>
#include <system_error>

#include "admin/check/sitecheck.h"
#include "admin/check/word.h"
#include "support/linereader.h"
#include "support/tokenizer.h"

namespace badgemint::admin {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr int kLineLimit = 600;
constexpr uint32_t kMostPairs = (Tokenizer::kMaxWords - 1) / 2;  // Words beyond are not read.

struct LevelsCheck {
  Findings& findings;
  int file;
  LineReader& reader;
  std::map<int64_t, int64_t> lineOfLevel{};
  bool hasLevel = false;  // Whether a line looks like one of an access levels file.

  // `word` points into the line.
  Place at(const char* word) const {
    return {file, reader.lineNumber(), reader.bytesBefore() + 1 + (word - reader.line())};
  }
};

bool isId(const char* word) {
  const int64_t value = wordValue(word);
  return value >= 0 && value <= UINT32_MAX;
}

// Reports a word that is not a number, or not an ID. Returns whether the line is read on.
bool checkId(const LevelsCheck& check, const char* word, const char* what) {
  if (!isId(word))
    check.findings.warn(check.at(word), "level",
                        "the {} is not 0 to {}: the line is ignored, so holders of this level can "
                        "pass none of its doors; correct the number",
                        what, UINT32_MAX);
  else if (!isNumber(word))
    check.findings.warn(check.at(word), "number",
                        "the {} is not a number: only the digits that it begins with are read, or "
                        "0, so holders may pass other doors, or none; write only digits",
                        what);
  return isId(word);
}

void checkPairs(const LevelsCheck& check, Tokenizer& words, const char* level) {
  if (words.count() == 1)
    check.findings.warn(check.at(level), "level",
                        "the level has no door group and schedule: its holders can pass no door; "
                        "write a door group and a schedule, or delete the line");
  while (const char* const group = words.next()) {
    if (!checkId(check, group, "door group")) return;
    const char* const schedule = words.next();
    if (schedule == nullptr && words.count() == Tokenizer::kMaxWords)
      check.findings.warn(check.at(group), "level",
                          "more than {} pairs: this one and all later ones are ignored, so holders "
                          "of the level cannot pass their doors; use another level for the rest",
                          kMostPairs);
    else if (schedule == nullptr)
      check.findings.warn(check.at(group), "level",
                          "the door group has no schedule after it: it is ignored, so holders of "
                          "the level cannot pass its doors; write the schedule");
    else if (!checkId(check, schedule, "schedule"))
      return;
  }
}

void checkLevel(LevelsCheck& check, char* text) {
  Tokenizer words;
  words.split(text, kWordDelimiters);
  const char* const level = words.next();
  if (level == nullptr) return;
  if (!checkId(check, level, "level") || !isNumber(level)) return;
  if (words.count() == 1 || isNumber(words.word(1))) check.hasLevel = true;
  const int64_t number = wordValue(level);
  const auto [first, isFirst] = check.lineOfLevel.try_emplace(number, check.reader.lineNumber());
  if (!isFirst)
    check.findings.warn(check.at(level), "level",
                        "line {} defines this level too, and only that line counts: its holders "
                        "cannot pass the doors of this line; write all pairs in one line",
                        first->second);
  else if (number == 0 || number > UINT16_MAX)
    check.findings.warn(check.at(level), "level",
                        "the level is not 1 to {}: no holder can have it, so the line opens no "
                        "door; write another number, or delete the line",
                        UINT16_MAX);
  checkPairs(check, words, level);
}

void checkHiddenByte(const LevelsCheck& check, std::string_view line) {
  const std::optional<HiddenByte> hidden = findHiddenByte(line);
  if (!hidden) return;
  const bool isPartOfWord = (line[hidden->offset] & 0x80) != 0;
  if (isPartOfWord && hidden->offset > line.find('#')) return;
  check.findings.warn(check.at(&line[hidden->offset]), "text",
                      "{}, so holders may pass other doors than the line shows; write a newline "
                      "or a space in its place",
                      hidden->effect);
}

void checkLine(LevelsCheck& check) {
  char* text = check.reader.line();
  const std::string_view line(text, check.reader.length());
  const auto warn = [&](const char* effect) {
    check.findings.warn(check.at(text), "text", "{}", effect);
  };
  if (check.reader.bytesBefore() > 0)
    return warn(
        "a line of more than 600 characters: the rest is read as another line, so holders of the "
        "level cannot pass its doors; write fewer pairs");
  if (isMergeMark(line)) return warn(kMergeMarkText);
  checkHiddenByte(check, line);
  if (check.reader.lineNumber() == 1 && line.starts_with(kByteOrderMark)) {
    warn(
        "the file begins with a byte order mark, so its first line is read as level 0, which opens "
        "no door for anybody; save the file without the mark");
    text += kByteOrderMark.size();
  }
  checkLevel(check, text);
}

}  // namespace

void checkLevelsFile(const std::string& path, Findings& findings) {
  const auto reader = std::make_unique<LineReader>();
  if (!reader->open(path.c_str())) throw std::system_error(errno, std::generic_category(), path);
  LevelsCheck check{findings, findings.addFile(path), *reader};
  while (reader->readLine(kLineLimit) == LineReader::Status::kLine) {
    if (reader->lineNumber() == 1 && isUtf16({reader->line(), reader->length()}))
      throw Failure(ExitStatus::kRefused, "{}: {}", printable(path), kUtf16Text);
    checkLine(check);
  }
  if (reader->failed()) throw std::system_error(errno, std::generic_category(), path);
  if (!check.hasLevel)
    throw Failure(ExitStatus::kRefused,
                  "{}: no line defines an access level, so no holder could pass a door and nothing "
                  "was checked; give --levels the access levels file of the site",
                  printable(path));
}

}  // namespace badgemint::admin
