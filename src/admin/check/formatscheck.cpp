#include "admin/check/sitecheck.h"

#include <cerrno>
#include <cstring>

#include "admin/check/oddtext.h"
#include "admin/files/folder.h"
#include "formats/fmtfile.h"
#include "support/result.h"
#include "support/tokenizer.h"

namespace badgemint::admin {
namespace {

constexpr LineField kFormatId = {"format ID", FieldKind::kNumber, UINT32_MAX};

// Loads each format where its entry is read, as a build does.
class FormatsCheck : TextFileCheck {
 public:
  FormatsCheck(Findings& findings, int file, CardFormatSet& formats, const std::string& folder,
               CheckedFormats& checked)
      : TextFileCheck(findings, file), _formats(formats), _folder(folder), _checked(checked) {}

  void run(const std::string& path) {
    requireRegularFile(path);
    const bool isOpen = _reader.open(path.c_str());
    while (isOpen && _reader.readLine(kMaxFormatsLine) == LineReader::Status::kLine) {
      if (isUtf16(_reader))  // A build finds no format in it.
        return _findings.warn({_file, 1, 0}, "text", kUtf16Text);
      checkLine();
    }
    Place place = {_file, _reader.lineNumber()};
    _checked.complete = isOpen && !_reader.failed();
    if (_checked.complete && !_reader.endedLine()) _findings.warn(place, "text", kNoNewlineText);
    if (_checked.complete) return;
    if (isOpen) ++place.line;
    const int32_t result = isOpen ? kFormatsReadFailed : kFormatsOpenFailed;
    _findings.fail(place, result, "cannot be read: {}", std::strerror(errno));
  }

 private:
  void checkLine() {
    const bool isMark = isMergeMark({_reader.line(), _reader.length()});
    const std::optional<OddText> odd = findOddText(_reader, true);
    Tokenizer words;
    words.split(_reader.line(), kWordDelimiters);
    FormatsEntry read;
    const FormatsLineKind kind = readFormatsLine(words, read);
    const bool isFormat = kind == FormatsLineKind::kEntry && addEntry(words, read, isMark);
    if (isMark) return;
    if (odd) return warn(_reader.line() + odd->offset, "text", "{}", odd->effect);
    const bool isTooShort = kind == FormatsLineKind::kTooFewWords;
    if (isTooShort || kind == FormatsLineKind::kIdOutOfRange)
      warn(words.word(0), "format-id", "{}: the line is skipped",
           isTooShort ? "no file name" : "the format ID is outside the range 1 to 4294967295");
    if (isFormat) checkEntry(words.word(0), words.word(1), _checked.formats.back());
  }

  // False, with an error, when a build cannot load such a file: it may be a cards file, and the
  // word a PIN, which is not shown.
  bool addEntry(const Tokenizer& words, FormatsEntry& read, bool isMark) {
    cutToBaseName(read.fileName);
    const Place line = {_file, _reader.lineNumber()};
    CheckedFormat& entry = _checked.formats.emplace_back();
    entry = {read.formatID, read.fileName.data(), nullptr, line.line};
    if (CardFormatSet::isFormatFile(read.fileName.data())) {
      load(entry);
      return true;
    }
    entry.error = isMark ? reportMergeMark(_findings, _mergeMark, line, kFormatNotAdded)
                         : _findings.fail(at(words.word(1)), kFormatNotAdded,
                                          "the second word is not the name of a format file: it "
                                          "does not contain .cdf, .eff or .vff");
    return false;
  }

  void checkEntry(const char* id, const char* path, const CheckedFormat& entry) {
    const CheckedFormat &sameId = *_checked.find(entry.id), &sameFile = firstOf(entry.fileName);
    if (!isNumber(id))
      warn(id, "format-id", "format ID {} is not a number and is read as {}", shown(id, kFormatId),
           entry.id);
    else if (entry.id == 0)
      warn(id, "format-id", "format ID 0 cannot be used by a card set: IDs start at 1");
    else if (&sameId != &entry)
      warn(id, "format-id", "format ID {} is already used in line {}: this format is never used",
           entry.id, sameId.line);
    const std::string name = inQuotes(entry.fileName);
    struct stat meant, read;
    if (stat(path, &meant) == 0 && stat(pathIn(_folder, entry.fileName).c_str(), &read) == 0 &&
        !isSameFile(meant, read))
      warn(path, "format-id",
           "the folder is ignored: {} in the current folder is read, which is another file", name);
    if (sameFile.id != entry.id)
      warn(path, "format-id",
           "{} is already format {} in line {}: cards of both formats have the same keys", name,
           sameFile.id, sameFile.line);
  }

  // The findings of a file that occurs twice are those of its first entry.
  void load(CheckedFormat& entry) {
    const CheckedFormat& first = firstOf(entry.fileName);
    Findings repeated;
    checkFormatFile(pathIn(_folder, entry.fileName), entry, _formats,
                    &first == &entry ? _findings : repeated);
    entry.error = first.error;
  }

  const CheckedFormat& firstOf(const std::string& fileName) const {
    return *std::ranges::find(_checked.formats, fileName, &CheckedFormat::fileName);
  }

  CardFormatSet& _formats;
  const std::string& _folder;
  CheckedFormats& _checked;
};

}  // namespace

const CheckedFormat* CheckedFormats::find(uint32_t id) const {
  const auto found = std::ranges::find(formats, id, &CheckedFormat::id);
  return found != formats.end() ? &*found : nullptr;
}

CheckedFormats checkFormats(const std::string& formatsFile, CardFormatSet& formats,
                            Findings& findings, const std::string& folder) {
  CheckedFormats checked;
  FormatsCheck(findings, findings.addFile(formatsFile), formats, folder, checked).run(formatsFile);
  return checked;
}

}  // namespace badgemint::admin
