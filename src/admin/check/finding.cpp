#include "admin/check/finding.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "support/textutil.h"

namespace badgemint::admin {

int Findings::addFile(std::string name) {
  _files.push_back(std::move(name));
  return static_cast<int>(_files.size()) - 1;
}

size_t Findings::error(Place place, int32_t code, std::string text) {
  ++_errors;
  return _lastError = add({place, std::move(text), code, {}}, std::to_string(code));
}

void Findings::warning(Place place, std::string_view rule, std::string text) {
  ++_warnings;
  add({place, std::move(text), 0, rule}, std::string(rule));
}

size_t Findings::add(Finding finding, std::string kind) {
  if (++_counts[std::move(kind)] > kMostOfOneKind && !_keepAll) return kNotKept;
  _kept.push_back(std::move(finding));
  return _kept.size() - 1;
}

void Findings::amend(size_t error, std::string_view more) {
  if (error != kNotKept) _kept.at(error).text += more;
}

void Findings::setVerdict(int32_t result, Place place) {
  if (_verdict.result == 0) _verdict = {result, place};
}

std::vector<Finding> Findings::sorted() const {
  std::vector<Finding> findings = _kept;
  std::ranges::stable_sort(findings, {}, [](const Finding& finding) {
    return std::tuple(finding.place.file, finding.place.line, finding.place.column);
  });
  return findings;
}

std::map<std::string, size_t> Findings::notKept() const {
  std::map<std::string, size_t> more;
  for (const auto& [kind, count] : _counts)
    if (!_keepAll && count > kMostOfOneKind) more[kind] = count - kMostOfOneKind;
  return more;
}

std::string Findings::placeText(const Place& place) const {
  std::string text = printable(fileName(place.file));
  if (place.line > 0) text += ':' + std::to_string(place.line);
  if (place.line > 0 && place.column > 0) text += ':' + std::to_string(place.column);
  return text;
}

std::string printable(std::string_view text) {
  std::string shown;
  for (const char c : text) {
    if (c >= ' ' && c <= '~') {
      shown += c;
    } else {
      char digits[2];
      putHex(static_cast<uint8_t>(c), digits);
      shown.append("\\x").append(digits, 2);
    }
  }
  return shown;
}

std::string quoted(std::string_view word) {
  constexpr size_t kMost = 60;
  return '"' + printable(word.substr(0, kMost)) + (word.size() > kMost ? "...\"" : "\"");
}

}  // namespace badgemint::admin
