// The verb `dump`: writes the cards file of existing databases, and reports what such a file cannot
// express. Each line is given to a build's own code, which must make the records that it came from.
#include <filesystem>
#include <iostream>

#include "admin/records/expected.h"
#include "admin/verbs/verb.h"
#include "inputcards/cardindex.h"

namespace badgemint::admin {

namespace {

struct DumpOptions {
  SitePaths site;
  std::string output;  // Empty for standard output.
  bool force = false, withPins = false;
};

// Records of one credential.
struct Credential {
  const IdentRecord& ident;
  const AccessRecord* access;             // Null for the PIN beside a card.
  std::optional<std::string> cardNumber;  // None for a PIN.
};

// A line of a cards file, field by field, and where its PIN stands.
class CardsLine {
 public:
  // Makes the 'c', 'n', 'p' or 'o' line of a credential, its newline included.
  void write(const Credential& credential) {
    credential.cardNumber ? writeCard(credential) : writePin(credential);
    _text += '\n';
  }

  std::string& text() { return _text; }
  void hidePin() { _text.replace(_pin.start, _pin.length, 1, '*'); }

  // Appends a field.
  template <typename Value>
  void operator()(const LineField& field, const Value& value) {
    _text += ' ';
    const size_t start = _text.size();
    if constexpr (std::integral<Value>) {
      const fmt::format_int digits(value);
      _text.append(digits.data(), digits.size());
    } else {
      _text += value;
    }
    if (field.kind == FieldKind::kPin) _pin = {start, _text.size() - start};
  }

 private:
  void writeCard(const Credential& credential) {
    const uint32_t code = credential.ident.cardsetcode;
    const bool hasFormat = code != kFormatlessCode;
    const std::string pin = pinDigits<kMaxPinDigits>(credential.access->pincode);
    _text = hasFormat ? kCardLine : kNoFormatCardLine;
    forEachCardField(CardLine{.csid = hasFormat ? static_cast<int32_t>(code) : 0,
                              .cardNumber = *credential.cardNumber,
                              .pin = pin,
                              .uniqid = credential.access->uniqid},
                     std::ref(*this));
    writeHolder(*credential.access);
    (*this)(kLastFlagField, credential.access->flag(5));
  }

  void writePin(const Credential& credential) {
    const std::string pin = pinDigits<kMaxPinIdentDigits>(credential.ident.cardnumber);
    _text = credential.access != nullptr ? kPinLine : kPinIdentLine;
    forEachPinField(PinLine{.pin = pin, .uniqid = credential.ident.uniqid}, std::ref(*this));
    if (credential.access != nullptr) writeHolder(*credential.access);
  }

  void writeHolder(const AccessRecord& access) {
    const DateAndTime start = splitDateTime(formatDateTime(access.starttime).data());
    const DateAndTime end = splitDateTime(formatDateTime(access.endtime).data());
    HolderFields holder = {.accessLevels = {},
                           .flag2 = access.flag(2),
                           .flag1 = access.flag(1),
                           .flag4 = access.flag(4),
                           .escortId = access.escortid,
                           .startDate = start.date.data(),
                           .startTime = start.time.data(),
                           .endDate = end.date.data(),
                           .endTime = end.time.data(),
                           .elevatorAccess = access.elevatoraccess,
                           .outputRelayGroup = access.outrelaygrpid};
    std::ranges::copy(access.acclevel, holder.accessLevels.begin());
    forEachHolderField(holder, std::ref(*this));
  }

  std::string _text;
  struct {
    size_t start = 0, length = 0;
  } _pin;
};

// "f 3 3 A=666 B=0\n": the value of each field that the format has beside the card number, 0 too.
// Without a format the values that the set has.
std::string fieldsLine(const cardset& set, const CardFormat* format) {
  std::string text = fmt::format("f {} {}", set.csid, set.fmtid);
  for (int32_t field = 0; field < kCardSetFields; ++field) {
    const bool isOfFormat = format != nullptr && hasSiteValue(*format, field);
    if (isOfFormat || set.value(field) != 0)
      text += fmt::format(" {}={}", static_cast<char>('A' + field), set.value(field));
  }
  return text + '\n';
}

// Makes the lines of the cards file in the order of the ident database.
class Dump {
 public:
  // All outlive it.
  Dump(const DumpOptions& options, const Site& site, Console& console)
      : _options(options), _site(site), _console(console) {
    if (!_index.isInitialised()) throw std::bad_alloc();
  }

  // Returns the text of the cards file.
  std::string run() {
    for (const std::string& problem : _site.problems()) warn("{}", problem);
    constexpr std::string_view kNoPins =
        "# PINs are left out: no databases can be built from this file (dump --with-pins has "
        "them)\n";
    constexpr size_t kUsualLine = 120;
    _text.reserve(kUsualLine * _databases.idents.size());
    if (!_options.withPins) addLine(kNoPins);
    for (const IdentRecord& ident : _databases.idents) addCredential(ident);
    for (uint32_t csid = kFirstCardSetId; csid <= kLastCardSetId; ++csid) define(csid);
    for (size_t i = 0; i < _databases.accesses.size(); ++i)
      if (!_accessWalk.isUsed(i))
        warn("{} has no credential: it is left out", textOf(_databases.accesses[i]));
    warnOfDuplicates();
    if (_warnings > kMostWarnings)
      _console.report("and {} more differences", _warnings - kMostWarnings);
    return std::move(_text);
  }
  bool hasWarned() const { return _warnings > 0; }

 private:
  static constexpr size_t kMostWarnings = 50;

  // Of what the databases hold and a cards file cannot express.
  template <typename... Args>
  void warn(fmt::format_string<Args...> format, Args&&... args) {
    if (_warnings++ < kMostWarnings) _console.report(format, std::forward<Args>(args)...);
  }

  void addLine(std::string_view line) {
    _text += line;
    ++_lines;
  }

  // The 'f' line of a card set, once, where there is such a set.
  void define(uint32_t csid) {
    const cardset* const set = _site.sets().getCardSet(csid);
    if (set == nullptr || csid > kLastCardSetId ||
        _site.siteCards().cardSets().getCardSet(csid) != nullptr)
      return;
    std::string line = fieldsLine(*set, _site.formatOfSet(csid));
    addLine(line);
    static_cast<void>(_expected.readLine({line.data(), _lines}));  // Splits the line.
  }

  void addCredential(const IdentRecord& ident) {
    const bool hasHolder = ident.cardsetcode != kPinIdentCode;
    const auto [access, isShared, isEarlier] =
        hasHolder ? _accessWalk.next(ident.uniqid) : AccessWalk::Step{};
    if (hasHolder && access == nullptr) return leaveOut(ident, "there is no access record");
    const Credential credential = {ident, access, cardNumberText(ident, _site)};
    define(ident.cardsetcode);
    if (!credential.cardNumber && hasHolder && ident.cardsetcode != kPinOnlyCode)
      return leaveOut(ident,
                      fmt::format("card set {} or its format is not known", ident.cardsetcode));
    _line.write(credential);
    const bool isDeleted = ident.deleted != 0;  // A build of its line would make it valid again.
    if (!isDeleted) compareWithBuild(credential);
    if (!_options.withPins) _line.hidePin();
    if (isDeleted) _line.text().insert(0, "# deleted: ");
    addLine(_line.text());
    if (isDeleted)
      warn("{} is marked as deleted: its line is a comment", textOf(ident));
    else if (isShared || isEarlier)
      warn(
          "{}: its access record is shared or in another order: a build writes one for each "
          "credential, in the order of the ident database",
          textOf(ident));
  }

  void leaveOut(const IdentRecord& ident, const std::string& why) {
    addLine(fmt::format("# left out: {} of holder {}: {}\n",
                        credentialText(ident, _site, _options.withPins), ident.uniqid, why));
    warn("{} is left out: {}", textOf(ident), why);
  }

  // The line is not in the text yet.
  void compareWithBuild(const Credential& credential) {
    _credential = &credential;
    if (const int32_t result = _expected.readLine({_line.text().data(), _lines + 1}); result < 0)
      warn("{}: a build ends at its line with result {}", textOf(credential.ident), result);
  }

  void compare(const ExpectedRecord& made) {
    const auto& [ident, access, cardNumber] = *_credential;
    if (const char* const field = differingField(made.ident, ident))
      warn("{}: a build would write a different {}", textOf(ident), field);
    if (_index.add(made.ident.cardnumber, ident.uniqid, _line.text()[0], made.line, 0, 0) < 0)
      throw std::bad_alloc();
    if (access == nullptr) return;
    if (const char* const field = differingField(*made.access, *access))
      warn("{}: a build would write a different {}", textOf(*access), field);
  }

  // What only the whole file can show.
  void warnOfDuplicates() {
    int32_t result = _index.checkDuplicateKeys();
    if (result == kSuccess) result = _index.checkDuplicateUniqueIds();
    if (result == kOutOfMemory) throw std::bad_alloc();
    if (result < 0)
      warn("a build of the dump ends with result {} (verify names the records)", result);
  }

  std::string textOf(const IdentRecord& ident) const {
    return recordText(_options.site.ident, &ident - _databases.idents.data(), ident.uniqid);
  }
  std::string textOf(const AccessRecord& access) const {
    return recordText(_options.site.access, &access - _databases.accesses.data(), access.uniqid);
  }
  static std::string recordText(const std::string& database, ptrdiff_t number, uint32_t uniqid) {
    return fmt::format("{}: record {} (holder {})", database, number, uniqid);
  }

  const DumpOptions& _options;
  const Site& _site;
  const Databases& _databases = _site.databases();
  Console& _console;
  size_t _warnings = 0;
  AccessWalk _accessWalk{_databases.accesses};
  ExpectedRecords _expected{_site, [this](const ExpectedRecord& made) { compare(made); }};
  const Credential* _credential = nullptr;  // Of the line that is compared.
  CardIndex _index;
  std::string _text;
  CardsLine _line;
  int32_t _lines = 0;
};

void openOutput(const DumpOptions& options, std::optional<NewFile>& file) {
  deferTerminationSignals();
  const SitePaths& paths = options.site;
  std::vector<std::string> inputs = formatFiles(paths.formats);
  inputs.insert(inputs.end(), {paths.formats, paths.ident, paths.access, paths.cardSets});
  requireDistinctFiles(inputs, {options.output});
  file.emplace(options.output, options.force);
}

ExitStatus dump(const DumpOptions& options, Console& console) {
  std::optional<NewFile> file;
  if (!options.output.empty()) openOutput(options, file);
  const Site site(options.site, {.formats = true});
  const auto dump = std::make_unique<Dump>(options, site, console);
  const std::string text = dump->run();
  ExitStatus status = dump->hasWarned() ? ExitStatus::kFound : ExitStatus::kAllWell;
  if (!file) console.output() << text;
  if (file) file->write(text);
  throwIfInterrupted();
  if (file && !file->finish(console)) status = ExitStatus::kFound;
  if (options.withPins) {
    std::vector<std::string> withPins = {options.site.ident, options.site.access};
    std::error_code isPipe;
    if (!file && &console.output() == &std::cout)
      withPins.push_back(std::filesystem::canonical("/dev/stdout", isPipe));
    reportReadableByOthers(withPins, console);
  }
  return status;
}

}  // namespace

Run addDump(Options options) {
  const auto given = std::make_shared<DumpOptions>();
  options.describe("Write the cards file of existing databases",
                   "badgemint-admin dump --with-pins --output cards.txt");
  options.databases(given->site);
  options.file("--output", given->output, "Write here, not to standard output");
  options.flag("--force", given->force, "Replace a file that is already there");
  options.flag("--with-pins", given->withPins, "Include PINs, as a build needs them");
  return [given](Console& console) { return dump(*given, console); };
}

}  // namespace badgemint::admin
