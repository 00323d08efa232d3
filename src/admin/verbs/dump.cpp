// The verb `dump`: writes the cards file of existing databases, and says what it cannot say.
#include <functional>
#include <memory>
#include <optional>

#include "admin/files/folder.h"
#include "admin/records/dumpproof.h"
#include "admin/records/holderwalk.h"
#include "admin/records/site.h"
#include "admin/records/wording.h"
#include "admin/signals.h"
#include "admin/verbs/verb.h"

namespace badgemint::admin {

namespace {

struct DumpOptions {
  SitePaths site;
  std::string output;  // Empty for standard output.
  bool force = false;
  bool withPins = false;
};

constexpr char kNoPins[] =
    "# PINs are left out: no databases can be built from this file (dump --with-pins has them)\n";
constexpr size_t kBlockSize = size_t{64} * 1024;

using Write = std::function<void(std::string_view)>;

// Writes the lines of the cards file in the order of the ident database.
class Dump {
 public:
  Dump(const DumpOptions& options, const Site& site, const Databases& databases, Write write,
       DumpWarnings& warnings)
      : _options(options),
        _site(site),
        _databases(databases),
        _write(std::move(write)),
        _warnings(warnings),
        _proof(options.site, databases, options.withPins, warnings),
        _holders(databases.accesses) {}

  void run() {
    tellOfRest(_options.site.ident, _databases.identRest);
    tellOfRest(_options.site.access, _databases.accessRest);
    if (!_options.withPins) addLine(kNoPins);
    for (const IdentRecord& ident : _databases.idents) addCredential(ident);
    for (uint32_t csid = kFirstCardSetId; csid <= kLastCardSetId; ++csid) define(csid);
    _write(_text);
    tellOfIdleRecords();
    _proof.finish(_options.output.empty() ? "dump" : _options.output);
  }

 private:
  void tellOfRest(const std::string& database, size_t rest) {
    if (rest != 0)
      _warnings.add("rest", database + " ends within a record: its last " + std::to_string(rest) +
                                " bytes are left out");
  }

  void addLine(std::string_view line) {
    _text += line;
    ++_lines;
    if (_text.size() < kBlockSize) return;
    _write(_text);
    _text.clear();
  }

  // The 'f' line of a card set, once.
  void define(uint32_t csid) {
    const cardset* const set = _site.sets().getCardSet(csid);
    if (set == nullptr || _isDefined.at(csid)) return;
    _isDefined.at(csid) = true;
    const std::string line = fieldsLine(*set, _site.formatOfSet(csid));
    addLine(line);
    _proof.define(line, _lines);
  }

  void addCredential(const IdentRecord& ident) {
    const bool hasHolder = ident.cardsetcode != kPinIdentCode;
    const HolderWalk::Step step = hasHolder ? _holders.take(ident.uniqid) : HolderWalk::Step{};
    const std::optional<int64_t> number = _site.cardNumberOf(ident);
    if (hasHolder && step.record == nullptr) return leaveOut(ident, "there is no access record");
    if (!number && !isWithoutCardSet(ident))
      return leaveOut(
          ident, "card set " + std::to_string(ident.cardsetcode) + " or its format is not known");
    if (number) define(ident.cardsetcode);
    const Credential credential = {ident, step.record, number.value_or(0)};
    if (ident.deleted != 0) return addDeleted(credential);
    addStated(credential);
    tellOfStep(ident, step);
  }

  static bool isWithoutCardSet(const IdentRecord& ident) {
    return ident.cardsetcode == kPinOnlyCode || ident.cardsetcode == kFormatlessCode ||
           ident.cardsetcode == kPinIdentCode;
  }

  void addStated(const Credential& credential) {
    _line.clear();
    appendLine(_line, credential, true);
    _proof.take(_line, _lines + 1, credential);
    if (!_options.withPins) {
      _line.clear();
      appendLine(_line, credential, false);
    }
    addLine(_line);
  }

  // A build of a line would make the credential valid again.
  void addDeleted(const Credential& credential) {
    _line = "# deleted: ";
    appendLine(_line, credential, _options.withPins);
    addLine(_line);
    _warnings.add("records marked as deleted",
                  textOf(credential.ident) + " is marked as deleted: its line is a comment");
  }

  void leaveOut(const IdentRecord& ident, const std::string& why) {
    addLine("# left out: " + credentialText(ident, _site, _options.withPins) + " of holder " +
            std::to_string(ident.uniqid) + ": " + why + "\n");
    _warnings.add("records that are left out", textOf(ident) + " is left out: " + why);
  }

  void tellOfStep(const IdentRecord& ident, const HolderWalk::Step& step) {
    if (step.isShared)
      _warnings.add("records that share an access record",
                    textOf(ident) + " shares its access record: a build makes one of its own");
    if (step.isBack)
      _warnings.add("access records in another order",
                    textOf(ident) +
                        ": its access record stands before others: a build gives access records "
                        "the order of the ident database");
  }

  // Access records that no line has.
  void tellOfIdleRecords() {
    for (size_t i = 0; i < _databases.accesses.size(); ++i)
      if (!_holders.isTaken(i))
        _warnings.add("access records without a credential",
                      recordText(_options.site.access, i, _databases.accesses[i].uniqid) +
                          " has no credential: it is left out");
  }

  std::string textOf(const IdentRecord& ident) const {
    return recordText(_options.site.ident, static_cast<size_t>(&ident - _databases.idents.data()),
                      ident.uniqid);
  }

  const DumpOptions& _options;
  const Site& _site;
  const Databases& _databases;
  const Write _write;
  DumpWarnings& _warnings;
  DumpProof _proof;
  HolderWalk _holders;
  std::array<bool, kLastCardSetId + 1> _isDefined{};
  std::string _text, _line;  // What is not yet written, and the line at hand.
  int32_t _lines = 0;
};

void demandOutputApart(const DumpOptions& options) {
  const SitePaths& site = options.site;
  std::vector<std::string> inputs = formatFiles(site.formats);
  inputs.insert(inputs.end(), {site.ident, site.access, site.cardSets, site.formats});
  requireDistinctFiles(inputs, {options.output});
}

void dumpTo(const Write& write, const DumpOptions& options, Console& console,
            DumpWarnings& warnings) {
  Site site;
  site.loadFormats(options.site.formats);
  site.loadCardSets(options.site.cardSets, console);
  Databases databases;
  databases.readIdents(options.site.ident);
  databases.readAccesses(options.site.access);
  Dump(options, site, databases, write, warnings).run();
}

void dumpToFile(const DumpOptions& options, Console& console, DumpWarnings& warnings) {
  deferTerminationSignals();
  demandOutputApart(options);
  NewFile file(options.output, options.force);
  dumpTo([&file](std::string_view text) { file.write(text); }, options, console, warnings);
  throwIfInterrupted();
  file.finish();
}

ExitStatus dump(const DumpOptions& options, Console& console) {
  tellOfCutShort({options.site.ident, options.site.access, options.site.cardSets}, console);
  DumpWarnings warnings;
  if (options.output.empty()) {
    dumpTo([&console](std::string_view text) { console.output() << text; }, options, console,
           warnings);
  } else {
    dumpToFile(options, console, warnings);
  }
  warnings.tell(console);
  return warnings.any() ? ExitStatus::kFound : ExitStatus::kAllWell;
}

}  // namespace

Run addDump(Options options) {
  const auto given = std::make_shared<DumpOptions>();
  options.describe("Write the cards file of existing databases",
                   "badgemint-admin dump --with-pins --output cards.txt");
  options.databases(given->site);
  options.file("--output", given->output, "Write here, not to standard output");
  options.flag("--force", given->force, "Also over a file that is there");
  options.flag("--with-pins", given->withPins, "With the PINs, as a build needs them");
  return [given](Console& console) { return dump(*given, console); };
}

}  // namespace badgemint::admin
