// The rule `mask`: what the masks of a format file make of each other, position by position.
#include <algorithm>
#include <string_view>
#include <vector>

#include "admin/check/formatfile.h"
#include "formats/bitlayout.h"

namespace badgemint::admin {
namespace {

constexpr int32_t kPositions = BitPattern::kPositions;
constexpr int32_t kCardBits = 8 * static_cast<int32_t>(sizeof(CardPattern));
constexpr size_t kOutput = 0;
constexpr size_t kFixed = 1;

// What fills a mask where it has nothing.
bool isFiller(char c) {
  return c == '\0' || std::string_view(". -_").find(c) != std::string_view::npos;
}
bool isFixing(char c) {
  return c == '0' || c == '1';
}
bool isParityTarget(char c) {
  return c == 'E' || c == 'O';
}

const char* plural(int32_t count) {
  return count == 1 ? "" : "s";
}

// Several rules can fail at one position. The order is: the output mask, the fixed mask, gaps, the
// number of bits, parity. What an earlier one reports at a position, a later one leaves out.
class MaskRules {
 public:
  MaskRules(const FormatFile& file, const CardFormat& format, Findings& findings)
      : _file(file),
        _masks(format.masks()),
        _applied(std::clamp(format.numberOfParityBits(), 0, kParityMaskCount)),
        _bitCount(format.bitCount()),
        _findings(findings) {}

  bool check(bool isParityCountValid) {
    checkOutput();
    checkFixed();
    checkGaps();
    checkBitCount();
    for (int32_t mask = 0; mask < _applied; ++mask) checkParity(mask);
    if (isParityCountValid) {
      checkNotApplied();
      checkUnsetParity();
    }
    return !hasPosition([this](int32_t p) { return isInvalid(p); });
  }

 private:
  void checkOutput();
  void checkFixed();
  void warnOfFixed(int32_t first, int32_t count);
  void checkGaps();
  void checkBitCount();
  void checkParity(int32_t mask);
  void checkCover(int32_t mask);
  void checkNotApplied();
  void checkUnsetParity();

  template <typename... Args>
  void warn(size_t mask, int32_t position, fmt::format_string<Args...> format, Args&&... args) {
    _findings.warn(_file.placeInMask(mask, position), "mask", format, std::forward<Args>(args)...);
  }

  static char at(const BitMask& mask, int32_t p) { return mask[static_cast<size_t>(p)]; }
  char output(int32_t p) const { return at(_masks.output, p); }
  char fixed(int32_t p) const { return at(_masks.fixed, p); }
  char parity(int32_t mask, int32_t p) const {
    return at(_masks.parity[static_cast<size_t>(mask)], p);
  }
  static size_t parityMask(int32_t mask) { return static_cast<size_t>(2 + mask); }

  // The first position from `from` on that meets a condition; kPositions for none.
  template <typename Condition>
  static int32_t findPosition(Condition condition, int32_t from = 0) {
    int32_t p = from;
    while (p < kPositions && !condition(p)) ++p;
    return p;
  }
  template <typename Condition>
  static bool hasPosition(Condition condition) {
    return findPosition(condition) < kPositions;
  }

  bool isField(int32_t p) const {
    return output(p) != '\0' &&
           std::ranges::find(_masks.letters, output(p)) != _masks.letters.end();
  }
  bool isUsed(int32_t p) const { return isUsedPosition(_masks, p); }
  int32_t nextUsed(int32_t from) const {
    return findPosition([this](int32_t p) { return isUsed(p); }, from);
  }
  // Whether the character of the output mask, or of the fixed mask, cannot stand there.
  bool isOutputInvalid(int32_t p) const {
    return !isFiller(output(p)) && output(p) != 'P' && !isField(p);
  }
  bool isFixedInvalid(int32_t p) const {
    const bool isFixable = output(p) == '.' || output(p) == 'P';
    return !isFiller(fixed(p)) && !isOutputInvalid(p) && !(isFixing(fixed(p)) && isFixable);
  }
  bool isInvalid(int32_t p) const { return isOutputInvalid(p) || isFixedInvalid(p); }

  // The position that a parity mask sets, and the first one with an unknown character in it.
  int32_t targetOf(int32_t mask) const {
    return findPosition([&](int32_t p) { return isParityTarget(parity(mask, p)); });
  }
  int32_t unknownIn(int32_t mask) const {
    return findPosition([&](int32_t p) {
      const char c = parity(mask, p);
      return !isFiller(c) && c != 'X' && !isParityTarget(c);
    });
  }
  int32_t coverOf(int32_t mask) const {
    return findPosition([&](int32_t p) { return parity(mask, p) == 'X'; });
  }
  bool hasWrongTarget(int32_t mask) const {
    const int32_t target = targetOf(mask);
    return target < kPositions && output(target) != 'P' && !isInvalid(target);
  }
  // Whether a mask sets no bit, or another one than it should.
  bool missesTarget(int32_t mask) const {
    const int32_t unknown = unknownIn(mask);
    if (unknown < kPositions) return output(unknown) != 'P';
    const bool isWithoutTarget = targetOf(mask) == kPositions && coverOf(mask) < kPositions;
    return isWithoutTarget || hasWrongTarget(mask);
  }

  const FormatFile& _file;
  const LayoutMasks _masks;
  const int32_t _applied;
  const int32_t _bitCount;
  Findings& _findings;
};

// Of each invalid character the first one is reported.
void MaskRules::checkOutput() {
  for (int32_t p = 0; p < kPositions; ++p) {
    const char c = output(p);
    const auto isSame = [&](int32_t q) { return output(q) == c; };
    if (!isOutputInvalid(p) || findPosition(isSame) < p) continue;
    const auto count = static_cast<int32_t>(std::ranges::count(_masks.output, c));
    warn(kOutput, p, "{} is not a field: the card loses {} bit{}", quoted({&c, 1}), count,
         plural(count));
  }
}

// Of neighbours with the same defect the first one is reported.
void MaskRules::checkFixed() {
  for (int32_t p = 0; p < kPositions; ++p) {
    if (!isFixedInvalid(p)) continue;
    const int32_t end = findPosition(
        [&](int32_t q) {
          return !isFixedInvalid(q) || output(q) != output(p) ||
                 isFixing(fixed(q)) != isFixing(fixed(p));
        },
        p);
    warnOfFixed(p, end - p);
    p = end - 1;
  }
}

void MaskRules::warnOfFixed(int32_t first, int32_t count) {
  const char c = fixed(first);
  if (!isFixing(c))
    return warn(kFixed, first, "{} is neither 0 nor 1 and fixes no bit", quoted({&c, 1}));
  if (isField(first))
    return warn(kFixed, first, "{} bit{} of {}{} fixed: part of its value is lost", count,
                plural(count), output(first) == '*' ? "the card number" : "field ",
                output(first) == '*' ? "" : std::string(1, output(first)));
  warn(kFixed, first,
       "the output mask has no \".\" here: this fixed bit is not counted as one of the card");
}

void MaskRules::checkGaps() {
  for (int32_t p = nextUsed(0); p < kPositions; ++p) {
    const int32_t end = nextUsed(p);
    if (end == p || end == kPositions) continue;
    if (findPosition([this](int32_t q) { return isInvalid(q); }, p) >= end)
      warn(kOutput, p, "{} unused position{} between used ones: always 0, and not counted as a bit",
           end - p, plural(end - p));
    p = end;
  }
}

void MaskRules::checkBitCount() {
  int32_t used = 0, end = 0;
  for (int32_t p = nextUsed(0); p < kPositions; p = nextUsed(end = p + 1)) ++used;
  const bool hasGap = used < end - nextUsed(0);
  const bool hasUnknown = hasPosition([this](int32_t p) { return isOutputInvalid(p); });
  if (used != _bitCount && !hasGap && !hasUnknown)
    _findings.warn(_file.placeOf(FormatFile::kDefinitionRecord, 0), "mask",
                   "the file gives the card {} bits, but its output mask uses {}", _bitCount, used);
  if (used > kCardBits)
    warn(kOutput, kCardBits,
         "the layout has {} bits, but a card has room for 128: the last are lost", used);
}

void MaskRules::checkParity(int32_t mask) {
  if (const int32_t unknown = unknownIn(mask); unknown < kPositions) {
    const char c = parity(mask, unknown);
    return warn(parityMask(mask), unknown,
                "{} has no meaning in a parity mask: X is covered, E or O is set", quoted({&c, 1}));
  }
  if (targetOf(mask) < kPositions) return checkCover(mask);
  if (const int32_t covered = coverOf(mask); covered < kPositions)
    warn(parityMask(mask), covered, "a mask without E or O sets no parity bit");
}

void MaskRules::checkCover(int32_t mask) {
  const int32_t target = targetOf(mask);
  if (hasWrongTarget(mask))
    warn(parityMask(mask), target,
         "the output mask has no P here: the parity bit replaces another bit");
  const int32_t second =
      findPosition([&](int32_t p) { return isParityTarget(parity(mask, p)); }, target + 1);
  if (second < kPositions)
    warn(parityMask(mask), second, "a second parity bit in one mask: only the first is set");
  for (int32_t later = mask + 1; later < _applied; ++later) {
    const int32_t p = targetOf(later);
    if (p == kPositions || output(p) != 'P' || parity(mask, p) != 'X') continue;
    return warn(parityMask(mask), p,
                "X covers the bit of parity mask {}, which is set later and counts as 0",
                later + 1);
  }
}

// One finding for all: what is wrong is their number.
void MaskRules::checkNotApplied() {
  for (int32_t mask = _applied; mask < kParityMaskCount; ++mask) {
    const int32_t target = targetOf(mask);
    if (target == kPositions) continue;
    if (!_file.isVff())
      return warn(parityMask(mask), target, "parity mask {} is not applied: line 9 declares {}",
                  mask + 1, _applied);
    return warn(parityMask(mask), target,
                "parity mask {} is not applied: masks in use come first, all others are 144 dots",
                mask + 1);
  }
}

// A mask that misses its target explains one P that nothing sets.
void MaskRules::checkUnsetParity() {
  std::vector<int32_t> unset;
  for (int32_t p = 0; p < kPositions; ++p) {
    if (output(p) != 'P' || isFixing(fixed(p)) || isInvalid(p)) continue;
    const auto isMeant = [&](const BitMask& mask) {
      return !isFiller(at(mask, p)) && at(mask, p) != 'X';
    };
    if (std::ranges::none_of(_masks.parity, isMeant)) unset.push_back(p);
  }
  size_t explained = 0;
  for (int32_t mask = 0; mask < _applied; ++mask) explained += missesTarget(mask) ? 1 : 0;
  for (size_t i = explained; i < unset.size(); ++i)
    warn(kOutput, unset[i], "no parity mask sets this P: it is 0 on every card");
}

}  // namespace

bool checkMasks(const FormatFile& file, const CardFormat& format, bool isParityCountValid,
                Findings& findings) {
  return MaskRules(file, format, findings).check(isParityCountValid);
}

}  // namespace badgemint::admin
