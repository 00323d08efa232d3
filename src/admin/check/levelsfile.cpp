// What is wrong in an access levels file. Messages quote no word but a level number: the file may
// be another one, given by mistake, in which any word may be a PIN.
#include <new>

#include "admin/check/oddtext.h"
#include "admin/check/sitecheck.h"
#include "admin/files/folder.h"
#include "support/tokenizer.h"

namespace badgemint::admin {

namespace {

constexpr int kLineLimit = 600;

// The check of an access levels file.
class LevelsCheck : TextFileCheck {
 public:
  LevelsCheck(Findings& findings, int file) : TextFileCheck(findings, file) {}

  void run(const std::string& path, AccessLevelSet& levels, ExitStatus ifOtherFile) {
    requireRegularFile(path);
    throwErrnoUnless(_reader.open(path.c_str()), path);
    while (_reader.readLine(kLineLimit) == LineReader::Status::kLine) {
      if (isUtf16(_reader)) throw Failure(ifOtherFile, "{}: {}", printable(path), kUtf16Text);
      checkLine();
    }
    throwErrnoUnless(!_reader.failed(), path);
    if (!_hasLevel)
      throw Failure(ifOtherFile,
                    "{}: no line defines an access level, so no holder could pass a door and "
                    "nothing was checked; give --levels the access levels file of the site",
                    printable(path));
    throwErrnoUnless(_reader.open(path.c_str()), path);
    if (!levels.readAccessLevels(_reader)) throw std::bad_alloc();
    throwErrnoUnless(!_reader.failed(), path);
  }

 private:
  void checkLine() {
    char* text = _reader.line();
    const std::string_view line(text, _reader.length());
    if (isMergeMark(line)) {
      reportMergeMark(_findings, _mergeMark, {_file, _reader.lineNumber()}, 0);
      return;
    }
    if (const auto odd = findOddText(_reader, true); odd)
      warn(text + odd->offset, "text", "{}: holders may pass other doors than the line shows",
           odd->effect);
    if (_reader.bytesBefore() == 0)
      checkLevel(line.starts_with(kByteOrderMark) ? text + kByteOrderMark.size() : text);
  }

  void checkLevel(char* text) {
    Tokenizer words;
    words.split(text, kWordDelimiters);
    const char* const level = words.word(0);
    if (level == nullptr || !checkId(level, "level") || !isNumber(level)) return;
    if (words.count() == 1 || isNumber(words.word(1))) _hasLevel = true;
    const int64_t number = wordValue(level);
    const auto [first, isFirst] = _lineOfLevel.try_emplace(number, _reader.lineNumber());
    if (!isFirst)
      warn(level, "level",
           "line {} defines this level too, and only that line counts: its holders cannot pass the "
           "doors of this line; write all pairs in one line",
           first->second);
    else if (number == 0 || number > UINT16_MAX)
      warn(level, "level", "the level is outside the range 1 to {}: nobody has it", UINT16_MAX);
    checkPairs(words);
  }

  void checkPairs(const Tokenizer& words) {
    const uint32_t count = words.count();
    for (uint32_t i = 1; i < count; ++i)
      if (!checkId(words.word(i), i % 2 == 1 ? "door group" : "schedule")) return;
    if (count == 1)
      warn(words.word(0), "level",
           "the level has no door group and schedule: its holders can pass no door");
    else if (count % 2 == 0)
      warn(words.word(count - 1), "level", "{}: holders of the level cannot pass the doors",
           count == Tokenizer::kMaxWords
               ? "a level has at most 74 pairs, and this one and all later ones are ignored"
               : "the door group has no schedule after it");
  }

  // Reports a word that is not a number, or not an ID. Returns whether the line is read on.
  bool checkId(const char* word, const char* what) {
    const int64_t value = wordValue(word);
    const bool isId = value >= 0 && value <= UINT32_MAX;
    if (!isId)
      warn(word, "level",
           "the {} is outside the range 0 to {}: the line is ignored, so holders of this level can "
           "pass none of its doors",
           what, UINT32_MAX);
    else if (!isNumber(word))
      warn(word, "number",
           "the {} is not a number: only the digits that it begins with are read, or 0, so holders "
           "may pass other doors, or none",
           what);
    return isId;
  }

  std::map<int64_t, int64_t> _lineOfLevel;
  bool _hasLevel = false;  // Whether a line looks like one of an access levels file.
};

}  // namespace

void readLevels(const std::string& path, AccessLevelSet& levels, Findings& findings,
                ExitStatus ifOtherFile) {
  LevelsCheck(findings, findings.addFile(path)).run(path, levels, ifOtherFile);
}

}  // namespace badgemint::admin
