#include "admin/records/recordfaults.h"

#include <algorithm>

#include "admin/records/wording.h"

namespace badgemint::admin {

namespace {

// The files of findings, as they are printed.
constexpr int kIdent = 0, kAccess = 1, kCards = 2, kCardSets = 3;

}  // namespace

RecordFaults::RecordFaults(const VerifyOptions& options, const Databases& databases,
                           const Site& site)
    : _databases(databases), _site(site), _withPins(options.withPins), _findings(options.all) {
  for (const std::string& name :
       {options.site.ident, options.site.access, options.cards, options.site.cardSets})
    _findings.addFile(name);
}

void RecordFaults::addLine(int64_t line, const std::string& text) {
  _findings.warning({kCards, line}, "missing", text);
}

std::string RecordFaults::nameOf(const IdentRecord& record) const {
  return "holder " + std::to_string(record.uniqid) + ": " +
         credentialText(record, _site, _withPins);
}

std::string RecordFaults::nameOf(const AccessRecord& record) {
  return "holder " + std::to_string(record.uniqid);
}

template <typename Record>
void RecordFaults::tell(int file, const std::vector<Record>& records, std::vector<Fault>& faults) {
  std::ranges::stable_sort(faults, {}, &Fault::record);
  for (const Fault& fault : faults) {
    std::string text = nameOf(records[fault.record]) + ' ' + fault.text;
    if (fault.number) text += ' ' + std::to_string(*fault.number);
    if (fault.detail != nullptr) text.append(": ").append(fault.detail);
    _findings.warning({file, static_cast<int64_t>(fault.record) + 1}, fault.rule, text);
  }
}

void RecordFaults::tellRest(int file, size_t rest) {
  if (rest == 0) return;
  _findings.warning({file}, "size", "bytes behind the last whole record: " + std::to_string(rest));
}

// The "line" of a record is its number, counted from 1.
std::string RecordFaults::placeText(const Place& place) const {
  if (place.file > kAccess || place.line == 0) return _findings.placeText(place);
  const size_t size = place.file == kIdent ? IdentRecord::kSize : AccessRecord::kSize;
  const size_t record = static_cast<size_t>(place.line) - 1;
  return _findings.placeText({place.file}) + ": record " + std::to_string(record) + " (offset " +
         std::to_string(record * size) + ')';
}

size_t RecordFaults::print(Console& console) {
  tellRest(kIdent, _databases.identRest);
  tell(kIdent, _databases.idents, _idents);
  tellRest(kAccess, _databases.accessRest);
  tell(kAccess, _databases.accesses, _accesses);
  if (!_ofCardSets.empty()) _findings.warning({kCardSets}, "differs", _ofCardSets);
  for (const Finding& finding : _findings.sorted())
    console.output() << placeText(finding.place) << ": " << finding.text << " [" << finding.rule
                     << "]\n";
  for (const auto& [rule, count] : _findings.notKept())
    console.output() << count << " more faults [" << rule << "] (--all prints them)\n";
  return _findings.warnings();
}

}  // namespace badgemint::admin
