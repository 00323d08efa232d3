// The rule `mask`: what the masks of a format file make of each other, position by position.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "admin/check/formatfile.h"
#include "formats/bitlayout.h"
#include "support/textutil.h"

namespace badgemint::admin {
namespace {

constexpr size_t kPositions = BitPattern::kPositions;
constexpr size_t kCardBits = 8 * sizeof(CardPattern);
constexpr size_t kNone = std::string_view::npos;
constexpr std::string_view kFillers(". -_\0", 5);  // Where a mask has nothing.
constexpr std::string_view kParityCharacters("XEO. -_\0", 8);
constexpr size_t kOutput = 0;
constexpr size_t kFixed = 1;

const char* plural(size_t count) {
  return count == 1 ? "" : "s";
}

// A digit may be one of a PIN.
std::string shownCharacter(char c) {
  return isDigit(c) ? "a digit" : inQuotes({&c, 1});
}

bool contains(std::string_view characters, char c) {
  return characters.find(c) != kNone;
}

std::string_view rowOf(const BitMask& mask) {
  return {mask.data(), kPositions};
}

// Several rules can fail at one position. What the rules of the output mask and of the fixed mask
// report at a position, the others leave out.
class MaskRules {
 public:
  MaskRules(const FormatFile& file, const CardFormat& format, Findings& findings)
      : _file(file),
        _masks(format.masks()),
        _output(rowOf(_masks.output)),
        _fixed(rowOf(_masks.fixed)),
        _applied(static_cast<size_t>(std::clamp(format.numberOfParityBits(), 0, 8))),
        _bitCount(format.bitCount()),
        _findings(findings) {
    _letters.erase(std::remove(_letters.begin(), _letters.end(), '\0'), _letters.end());
    for (size_t p = 0; p < kPositions; ++p) {
      _used += isUsedPosition(_masks, static_cast<int32_t>(p)) ? 'u' : '.';
      _invalid += isOutputInvalid(p) || isFixedInvalid(p) ? 'x' : '.';
    }
  }

  bool check(bool isParityCountValid) {
    checkOutput();
    checkFixed();
    checkGaps();
    checkBitCount();
    for (size_t mask = 0; mask < _applied; ++mask) checkParity(mask);
    if (isParityCountValid) {
      checkNotApplied();
      checkUnsetParity();
    }
    return !contains(_invalid, 'x');
  }

 private:
  void checkOutput();
  void checkFixed();
  void warnOfFixed(size_t first, size_t count);
  void checkGaps();
  void checkBitCount();
  void checkParity(size_t mask);
  void checkTarget(size_t mask);
  void checkNotApplied();
  void checkUnsetParity();

  template <typename... Args>
  void warn(size_t mask, size_t position, fmt::format_string<Args...> format, Args&&... args) {
    _findings.warn(_file.placeInMask(mask, position), "mask", format, std::forward<Args>(args)...);
  }

  bool isField(size_t p) const { return contains(_letters, _output[p]); }
  // Whether the character of the output mask, or of the fixed mask, cannot stand there.
  bool isOutputInvalid(size_t p) const {
    return _output[p] != 'P' && !isField(p) && !contains(kFillers, _output[p]);
  }
  bool isFixedInvalid(size_t p) const {
    if (contains(kFillers, _fixed[p]) || isOutputInvalid(p)) return false;
    return !contains("01", _fixed[p]) || !contains(".P", _output[p]);
  }

  static size_t parityMask(size_t mask) { return 2 + mask; }
  std::string_view parity(size_t mask) const { return rowOf(_masks.parity[mask]); }
  // The position that a parity mask sets.
  size_t targetOf(size_t mask) const { return parity(mask).find_first_of("EO"); }
  bool hasWrongTarget(size_t mask) const {
    const size_t target = targetOf(mask);
    return target != kNone && _output[target] != 'P' && _invalid[target] == '.';
  }
  // Whether a mask sets no bit, or another one than it should.
  bool missesTarget(size_t mask) const {
    const size_t unknown = parity(mask).find_first_not_of(kParityCharacters);
    if (unknown != kNone) return _output[unknown] != 'P';
    return hasWrongTarget(mask) || (targetOf(mask) == kNone && contains(parity(mask), 'X'));
  }

  const FormatFile& _file;
  const LayoutMasks _masks;
  const std::string_view _output, _fixed;
  std::string _letters{_masks.letters.begin(), _masks.letters.end()};  // Of fields.
  std::string _used, _invalid;  // 'u' and 'x' at such positions, '.' at all others.
  const size_t _applied;
  const int32_t _bitCount;
  Findings& _findings;
};

// Of each invalid character the first one is reported.
void MaskRules::checkOutput() {
  for (size_t p = 0; p < kPositions; ++p) {
    const char c = _output[p];
    if (!isOutputInvalid(p) || _output.find(c) < p) continue;
    const auto count = static_cast<size_t>(std::ranges::count(_output, c));
    warn(kOutput, p, "{} is not a field: the card loses {} bit{}", shownCharacter(c), count,
         plural(count));
  }
}

// Of neighbours with the same defect the first one is reported.
void MaskRules::checkFixed() {
  for (size_t p = 0, end = 0; p < kPositions; p = std::max(end, p + 1)) {
    if (!isFixedInvalid(p)) continue;
    const auto isSame = [&](size_t q) {
      return isFixedInvalid(q) && _output[q] == _output[p] &&
             contains("01", _fixed[q]) == contains("01", _fixed[p]);
    };
    for (end = p; end < kPositions && isSame(end);) ++end;
    warnOfFixed(p, end - p);
  }
}

void MaskRules::warnOfFixed(size_t first, size_t count) {
  const char c = _fixed[first];
  if (!contains("01", c))
    return warn(kFixed, first, "{} is neither 0 nor 1 and fixes no bit", shownCharacter(c));
  if (isField(first))
    return warn(kFixed, first, "{} bit{} of {}{} fixed: part of its value is lost", count,
                plural(count), _output[first] == '*' ? "the card number" : "field ",
                _output[first] == '*' ? "" : _output.substr(first, 1));
  warn(kFixed, first,
       "the output mask has no \".\" here: this fixed bit is not counted as one of the card");
}

void MaskRules::checkGaps() {
  for (size_t end = _used.find('u'); end != kNone;) {
    const size_t begin = _used.find('.', end);
    end = _used.find('u', begin);
    if (end != kNone && !contains(_invalid.substr(begin, end - begin), 'x'))
      warn(kOutput, begin,
           "{} unused position{} between used ones: always 0, and not counted as a bit",
           end - begin, plural(end - begin));
  }
}

void MaskRules::checkBitCount() {
  const auto used = static_cast<int32_t>(std::ranges::count(_used, 'u'));
  const bool hasGap = used > 0 && _used.find("u.") < _used.rfind('u');
  size_t invalid = 0;
  while (invalid < kPositions && !isOutputInvalid(invalid)) ++invalid;
  if (used != _bitCount && !hasGap && invalid == kPositions)
    _findings.warn(_file.placeOf(FormatFile::kDefinitionRecord, 0), "mask",
                   "the file gives the card {} bits, but its output mask uses {}", _bitCount, used);
  if (used > static_cast<int32_t>(kCardBits))
    warn(kOutput, kCardBits,
         "the layout has {} bits, but a card has room for 128: the last are lost", used);
}

void MaskRules::checkParity(size_t mask) {
  const size_t unknown = parity(mask).find_first_not_of(kParityCharacters);
  const size_t covered = parity(mask).find('X');
  if (unknown != kNone)
    warn(parityMask(mask), unknown,
         "{} has no meaning in a parity mask: X is covered, E or O is set",
         shownCharacter(parity(mask)[unknown]));
  else if (targetOf(mask) != kNone)
    checkTarget(mask);
  else if (covered != kNone)
    warn(parityMask(mask), covered, "a mask without E or O sets no parity bit");
}

void MaskRules::checkTarget(size_t mask) {
  const size_t target = targetOf(mask);
  if (hasWrongTarget(mask))
    warn(parityMask(mask), target,
         "the output mask has no P here: the parity bit replaces another bit");
  if (const size_t second = parity(mask).find_first_of("EO", target + 1); second != kNone)
    warn(parityMask(mask), second, "a second parity bit in one mask: only the first is set");
  for (size_t later = mask + 1; later < _applied; ++later) {
    const size_t p = targetOf(later);
    if (p == kNone || _output[p] != 'P' || parity(mask)[p] != 'X') continue;
    return warn(parityMask(mask), p,
                "X covers the bit of parity mask {}, which is set later and counts as 0",
                later + 1);
  }
}

// One finding for all: what is wrong is their number.
void MaskRules::checkNotApplied() {
  size_t mask = _applied;
  while (mask < kParityMaskCount && targetOf(mask) == kNone) ++mask;
  if (mask == kParityMaskCount) return;
  if (_file.isVff())
    warn(parityMask(mask), targetOf(mask),
         "parity mask {} is not applied: masks in use come first, all others are 144 dots",
         mask + 1);
  else
    warn(parityMask(mask), targetOf(mask), "parity mask {} is not applied: line 9 declares {}",
         mask + 1, _applied);
}

// A mask that misses its target explains one P that nothing sets.
void MaskRules::checkUnsetParity() {
  std::vector<size_t> unset;
  for (size_t p = 0; p < kPositions; ++p) {
    const auto isMeant = [p](const BitMask& mask) {
      return mask[p] != 'X' && !contains(kFillers, mask[p]);
    };
    if (_output[p] == 'P' && !contains("01", _fixed[p]) && _invalid[p] == '.' &&
        std::ranges::none_of(_masks.parity, isMeant))
      unset.push_back(p);
  }
  size_t explained = 0;
  for (size_t mask = 0; mask < _applied; ++mask) explained += missesTarget(mask) ? 1 : 0;
  for (size_t i = explained; i < unset.size(); ++i)
    warn(kOutput, unset[i], "no parity mask sets this P: it is 0 on every card");
}

}  // namespace

bool checkMasks(const FormatFile& file, const CardFormat& format, bool isParityCountValid,
                Findings& findings) {
  return MaskRules(file, format, findings).check(isParityCountValid);
}

}  // namespace badgemint::admin
