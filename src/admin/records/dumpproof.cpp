#include "admin/records/dumpproof.h"

#include <new>

#include "admin/check/wholefile.h"
#include "admin/records/wording.h"
#include "formats/loadformats.h"

namespace badgemint::admin {

void DumpWarnings::add(const std::string& kind, const std::string& text) {
  if (_counts[kind]++ < kMostOfOneKind) _texts.push_back(text);
}

void DumpWarnings::tell(Console& console) const {
  for (const std::string& text : _texts) console.reportText(text);
  for (const auto& [kind, count] : _counts)
    if (count > kMostOfOneKind)
      console.reportText("and " + std::to_string(count - kMostOfOneKind) + " more: " + kind);
}

std::string recordText(const std::string& database, size_t number, uint32_t uniqid) {
  return database + ": record " + std::to_string(number) + " (holder " + std::to_string(uniqid) +
         ")";
}

DumpProof::DumpProof(const SitePaths& names, const Databases& databases, bool withPins,
                     DumpWarnings& warnings)
    : _names(names),
      _databases(databases),
      _withPins(withPins),
      _warnings(warnings),
      _site(std::make_unique<SiteCards>()),
      _checker(*_site, _index),
      _writer(*_site, _output) {
  if (!_index.isInitialised() || _site->create() < 0 ||
      loadFormats("badgemint-admin", "", names.formats.c_str(), _site->formats()) < 0)
    throw std::bad_alloc();  // The formats were loaded before: memory is all that can be missing.
}

void DumpProof::define(std::string line, int32_t number) {
  static_cast<void>(_checker.check({line.data(), number}));
}

void DumpProof::take(std::string& line, int32_t number, const Credential& credential) {
  const InputLine input = {line.data(), number};
  int32_t result = _checker.check(input);
  if (result == kSuccess) result = _writer.write(input);
  if (result == kOutOfMemory) throw std::bad_alloc();
  if (result < 0)
    return _warnings.add("records at whose line a build ends",
                         textOf(credential.ident) + ": a build ends at its line, as " +
                             (result == kInvalidPin ? "its PIN has digits that are none"
                                                    : "its card number does not come back"));
  const CardRecord& made = _output.card();
  if (made.ident.cardnumber != credential.ident.cardnumber)
    _warnings.add("keys that a build does not make",
                  textOf(credential.ident) + ": key " + keyText(credential.ident, _withPins) +
                      "; a build makes " + keyText(made.ident, _withPins));
  if (credential.access != nullptr && made.access != *credential.access)
    addFieldDifferences(*credential.access, made.access);
}

std::string DumpProof::textOf(const IdentRecord& ident) const {
  return recordText(_names.ident, static_cast<size_t>(&ident - _databases.idents.data()),
                    ident.uniqid);
}

void DumpProof::addFieldDifferences(const AccessRecord& access, const AccessRecord& made) {
  const std::string record = recordText(
      _names.access, static_cast<size_t>(&access - _databases.accesses.data()), access.uniqid);
  for (const AccessField& field : accessFields())
    if (field.valueOf(access) != field.valueOf(made))
      _warnings.add(field.name, record + ": " + field.name + " " +
                                    valueText(field, access, _withPins) + "; a build makes " +
                                    valueText(field, made, _withPins));
}

void DumpProof::finish(const std::string& dumpName) {
  Findings findings;
  const int file = findings.addFile(dumpName);
  const std::vector<EscortUse> noEscorts;
  const std::vector<int32_t> noMisread;
  checkWholeFile({_index, {}, noEscorts, noMisread, file}, findings);
  constexpr char kKind[] = "errors of the whole file";
  size_t told = 0;
  for (const Finding& finding : findings.sorted()) {
    if (!finding.isError()) continue;
    ++told;
    _warnings.add(kKind, findings.placeText(finding.place) + ": " + finding.text +
                             ": a build ends with the result " + std::to_string(finding.code));
  }
  _warnings.addMore(kKind, findings.errors() - told);
}

}  // namespace badgemint::admin
