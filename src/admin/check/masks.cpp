// The rule `mask`: what the masks of a format file make of each other, position by position.
#include <algorithm>

#include "admin/check/sitecheck.h"
#include "formats/bitlayout.h"

namespace badgemint::admin {
namespace {

constexpr size_t kPositions = BitPattern::kPositions;
constexpr size_t kCardBits = 8 * sizeof(CardPattern);
constexpr size_t kNone = std::string_view::npos;
constexpr std::string_view kFillers(". -_\0", 5);  // Where a mask has nothing.
// The rows.
constexpr size_t kOutput = 0, kFixed = 1, kParity = 2, kRows = kParity + kParityMaskCount;

bool contains(std::string_view characters, char c) {
  return characters.find(c) != kNone;
}

class MaskRules {
 public:
  MaskRules(const CardFormat& format, int file, Findings& findings)
      : _format(format), _file(file), _findings(findings) {
    for (const BitMask& mask : _masks.parity) _rows.emplace_back(mask.data(), kPositions);
    std::erase(_letters, '\0');
  }

  bool check(bool isParityCountValid) {
    const size_t before = _findings.warnings();
    _isOutputValid =
        checkCharacters(kOutput, _letters + 'P', "is not a field: the card has no bit here");
    checkCharacters(kFixed, "01", "is neither 0 nor 1 and fixes no bit");
    checkFixed();
    const bool areWidthsMeant = _findings.warnings() == before;
    if (_isOutputValid) checkUsedPositions();
    const size_t beforeParity = _findings.warnings();
    for (size_t mask = kParity; mask < _appliedEnd; ++mask) checkParity(mask);
    if (isParityCountValid) checkNotApplied();
    if (_findings.warnings() == beforeParity) checkUnsetParity();
    return areWidthsMeant;
  }

 private:
  // Reports each unknown character once. False when there is one.
  bool checkCharacters(size_t mask, std::string known, const char* effect) {
    const size_t before = _findings.warnings();
    const std::string_view row = _rows[mask];
    known += kFillers;
    for (size_t p = 0; (p = row.find_first_not_of(known, p)) != kNone; known += row[p])
      warn(mask, p, "{} {}", shownName(row.substr(p, 1)), effect);
    return _findings.warnings() == before;
  }

  // Reports once what a fixed bit replaces. What the output mask cannot have is reported there.
  void checkFixed() {
    std::string known = ".P";
    for (size_t p = 0; p < kPositions; ++p) {
      const char replaced = _rows[kOutput][p];
      if (!contains("01", _rows[kFixed][p]) || contains(known, replaced)) continue;
      known += replaced;
      if (contains(_letters, replaced))
        warn(kFixed, p, "this bit of field {} is fixed: part of its value is lost", replaced);
      else if (contains(kFillers, replaced))
        warn(kFixed, p,
             "the output mask has no \".\" here: this fixed bit is not counted as one of the card");
    }
  }

  void checkUsedPositions() {
    std::string used;
    for (int32_t p = 0; p < BitPattern::kPositions; ++p)
      used += isUsedPosition(_masks, p) ? 'u' : '.';
    const auto count = static_cast<int32_t>(std::ranges::count(used, 'u'));
    const size_t end = used.find("u.");
    if (end != kNone && used.find('u', end + 1) != kNone)
      warn(kOutput, end + 1,
           "an unused position between used ones is always 0, and not counted as a bit");
    else if (count != _format.bitCount())
      warn(kOutput, 0, "the file gives the card {} bits, but its output mask uses {}",
           _format.bitCount(), count);
    if (count > static_cast<int32_t>(kCardBits))
      warn(kOutput, kCardBits,
           "the layout has {} bits, but a card has room for 128: the last are lost", count);
  }

  void checkParity(size_t mask) {
    if (!checkCharacters(mask, "XEO", "has no meaning in a parity mask")) return;
    const size_t target = targetOf(mask);
    if (target == kNone) {
      if (const size_t covered = _rows[mask].find('X'); covered != kNone)
        warn(mask, covered, "a mask without E or O sets no parity bit");
      return;
    }
    if (_isOutputValid && _rows[kOutput][target] != 'P')
      warn(mask, target, "the output mask has no P here: the parity bit replaces another bit");
    if (const size_t second = _rows[mask].find_first_of("EO", target + 1); second != kNone)
      warn(mask, second, "a second parity bit in one mask: only the first is set");
    for (size_t later = mask + 1; later < _appliedEnd; ++later)
      if (const size_t p = targetOf(later);
          p != kNone && _rows[kOutput][p] == 'P' && _rows[mask][p] == 'X')
        return warn(mask, p,
                    "X covers the bit of parity mask {}, which is set later and counts as 0",
                    later - kParity + 1);
  }

  // One finding for all: what is wrong is their number.
  void checkNotApplied() {
    for (size_t mask = _appliedEnd; mask < kRows; ++mask)
      if (targetOf(mask) != kNone)
        return warn(mask, targetOf(mask),
                    "parity mask {} is not applied: the format uses only the first {}",
                    mask - kParity + 1, _appliedEnd - kParity);
  }

  void checkUnsetParity() {
    for (size_t p = 0; p < kPositions; ++p) {
      const auto sets = [p](const BitMask& mask) { return contains("EO", mask[p]); };
      if (_rows[kOutput][p] == 'P' && !contains("01", _rows[kFixed][p]) &&
          std::ranges::none_of(_masks.parity, sets))
        warn(kOutput, p, "no parity mask sets this P: it is 0 on every card");
    }
  }

  template <typename... Args>
  void warn(size_t mask, size_t position, fmt::format_string<Args...> format, Args&&... args) {
    _findings.warn(placeOf(mask, position), "mask", format, std::forward<Args>(args)...);
  }

  // A VFF file has a record for each mask; the others have a line for 48 positions of each.
  Place placeOf(size_t mask, size_t position) const {
    const bool isVff = kindName(_format) == "VFF";
    const size_t first = isVff ? 7 : 21, perLine = isVff ? kPositions : 48;
    const size_t line = first + position / perLine * kRows + mask;
    return {_file, static_cast<int64_t>(line), static_cast<int64_t>(position % perLine) + 1};
  }

  // The position that a parity mask sets.
  size_t targetOf(size_t mask) const { return _rows[mask].find_first_of("EO"); }

  const CardFormat& _format;
  const int _file;
  Findings& _findings;
  const LayoutMasks _masks = _format.masks();
  std::vector<std::string_view> _rows{{_masks.output.data(), kPositions},
                                      {_masks.fixed.data(), kPositions}};
  std::string _letters{_masks.letters.begin(), _masks.letters.end()};  // Of fields.
  // Of the parity masks that the format uses.
  const size_t _appliedEnd =
      kParity + static_cast<size_t>(std::clamp(_format.numberOfParityBits(), 0, 8));
  bool _isOutputValid = true;
};

}  // namespace

bool checkMasks(const CardFormat& format, int file, bool isParityCountValid, Findings& findings) {
  return MaskRules(format, file, findings).check(isParityCountValid);
}

}  // namespace badgemint::admin
