#include "admin/check/maskrules.h"

#include <algorithm>
#include <bitset>
#include <string>
#include <string_view>

#include "formats/bitlayout.h"
#include "support/fieldscanner.h"

namespace badgemint::admin {
namespace {

constexpr int32_t kPositions = BitPattern::kPositions;
constexpr int32_t kCardBits = 8 * static_cast<int32_t>(sizeof(CardPattern));
constexpr size_t kOutput = 0;
constexpr size_t kFixed = 1;

// What fills a mask where it says nothing.
bool isFiller(char c) {
  return c == '\0' || std::string_view(". -_").find(c) != std::string_view::npos;
}
bool isFixed(char c) {
  return c == '0' || c == '1';
}
bool setsParity(char c) {
  return c == 'E' || c == 'O';
}

std::string quotedChar(char c) {
  return quoted({&c, 1});
}
std::string positionsText(int32_t count) {
  return std::to_string(count) + (count == 1 ? " position" : " positions");
}

class MaskRules {
 public:
  MaskRules(const FormatText& text, const CardFormat& format, Findings& findings)
      : _text(text),
        _masks(format.masks()),
        _applied(std::clamp(format.numberOfParityBits(), 0, kParityMaskCount)),
        _bitCount(format.bitCount()),
        _findings(findings) {}

  bool apply(bool countHolds) {
    checkOutput();
    checkFixed();
    const bool widthsHold = _told.none();
    checkUnused();
    checkBitCount();
    for (int32_t i = 0; i < _applied; ++i) checkParity(i);
    if (countHolds) {
      checkNotApplied();
      checkUnsetParity();
    }
    return widthsHold;
  }

 private:
  void warn(size_t mask, int32_t position, const std::string& text) {
    _findings.warning(_text.maskPlace(mask, position), "mask", text);
  }

  void checkOutput();
  void checkFixed();
  void checkFixedBit(int32_t p);
  void checkUnused();
  void checkBitCount();
  void checkParity(int32_t i);
  void checkParityCharacter(int32_t i, int32_t p);
  void checkCover(int32_t i);
  void checkNotApplied();
  void checkUnsetParity();

  static char at(const BitMask& mask, int32_t p) { return mask[static_cast<size_t>(p)]; }
  char output(int32_t p) const { return at(_masks.output, p); }
  char fixed(int32_t p) const { return at(_masks.fixed, p); }
  char parity(int32_t i, int32_t p) const { return at(_masks.parity[static_cast<size_t>(i)], p); }
  static size_t parityMask(int32_t i) { return static_cast<size_t>(2 + i); }
  bool isField(int32_t p) const {
    return output(p) != '\0' &&
           std::ranges::find(_masks.letters, output(p)) != _masks.letters.end();
  }
  bool isTold(int32_t p) const { return _told[static_cast<size_t>(p)]; }
  void tell(int32_t p) { _told.set(static_cast<size_t>(p)); }
  bool isUsed(int32_t p) const { return isUsedPosition(_masks, p); }
  // The position that mask i sets, or -1.
  int32_t parityPosition(int32_t i) const {
    for (int32_t p = 0; p < kPositions; ++p)
      if (setsParity(parity(i, p))) return p;
    return -1;
  }
  // Where mask i has this character first, or -1.
  int32_t positionOf(int32_t i, char c) const {
    for (int32_t p = 0; p < kPositions; ++p)
      if (parity(i, p) == c) return p;
    return -1;
  }

  const FormatText& _text;
  const LayoutMasks _masks;
  const int32_t _applied;
  const int32_t _bitCount;
  Findings& _findings;

  std::bitset<kPositions> _told;  // Positions that a finding is about already.
  int32_t _parityGoneAstray = 0;  // Masks whose parity bit goes nowhere or elsewhere.
  bool _isBitCountTold = false;
};

void MaskRules::checkOutput() {
  std::string seen;
  for (int32_t p = 0; p < kPositions; ++p) {
    const char c = output(p);
    if (isFiller(c) || c == 'P' || isField(p)) continue;
    tell(p);
    if (seen.find(c) != std::string::npos) continue;
    seen += c;
    const auto count = static_cast<int32_t>(std::ranges::count(_masks.output, c));
    warn(kOutput, p,
         quotedChar(c) + " is no field: " + positionsText(count) + " of the card left out");
    _isBitCountTold = true;
  }
}

void MaskRules::checkFixed() {
  for (int32_t p = 0; p < kPositions; ++p)
    if (!isFiller(fixed(p)) && !isTold(p)) checkFixedBit(p);
}

// Of neighbours with one fault the first tells for all.
void MaskRules::checkFixedBit(int32_t p) {
  if (isFixed(fixed(p)) && (output(p) == '.' || output(p) == 'P')) return;
  const auto isSame = [&](int32_t q) {
    return isFixed(fixed(q)) == isFixed(fixed(p)) && output(q) == output(p) && !isFiller(fixed(q));
  };
  int32_t end = p;
  for (; end < kPositions && isSame(end); ++end) tell(end);
  if (!isFixed(fixed(p)))
    return warn(kFixed, p, quotedChar(fixed(p)) + " is neither 0 nor 1: it fixes no bit");
  if (isField(p))
    return warn(kFixed, p,
                positionsText(end - p) + " of field " + output(p) +
                    " fixed: the value of the field is lost there");
  warn(kFixed, p, "the output mask has no \".\" here: the fixed bit is none of the card");
}

void MaskRules::checkUnused() {
  int32_t last = kPositions - 1;
  while (last >= 0 && !isUsed(last)) --last;
  int32_t first = 0;
  while (first < last && !isUsed(first)) ++first;
  for (int32_t p = first; p < last; ++p) {
    if (isUsed(p)) continue;
    const int32_t begin = p;
    bool isKnown = false;
    for (; !isUsed(p); ++p) isKnown = isKnown || isTold(p);
    _isBitCountTold = true;
    if (!isKnown)
      warn(kOutput, begin,
           positionsText(p - begin) + " not used between used ones: always 0, and not counted");
  }
}

void MaskRules::checkBitCount() {
  int32_t used = 0;
  for (int32_t p = 0; p < kPositions; ++p) used += isUsed(p) ? 1 : 0;
  if (used != _bitCount && !_isBitCountTold)
    _findings.warning(_text.at(FormatText::kDefinitionRecord, 0), "mask",
                      "the card is given " + std::to_string(_bitCount) +
                          " bits, and its mask uses " + positionsText(used));
  if (used > kCardBits)
    warn(kOutput, kCardBits,
         "the layout has " + std::to_string(used) +
             " bits, and a card holds 128: the last are lost");
}

void MaskRules::checkParity(int32_t i) {
  const int32_t target = parityPosition(i);
  for (int32_t p = 0; p < kPositions; ++p) {
    const char c = parity(i, p);
    if (isFiller(c) || c == 'X' || setsParity(c)) continue;
    ++_parityGoneAstray;
    return warn(parityMask(i), p,
                quotedChar(c) + " means nothing here: X is covered, E or O is set");
  }
  if (target >= 0) return checkCover(i);
  const int32_t covered = positionOf(i, 'X');
  if (covered < 0) return;
  ++_parityGoneAstray;
  warn(parityMask(i), covered, "a mask without E or O sets no parity bit");
}

void MaskRules::checkCover(int32_t i) {
  const int32_t target = parityPosition(i);
  if (output(target) != 'P' && !isTold(target)) {
    ++_parityGoneAstray;
    warn(parityMask(i), target, "no P stands here: the parity bit replaces another bit");
  }
  int32_t second = target + 1;
  while (second < kPositions && !setsParity(parity(i, second))) ++second;
  if (second < kPositions)
    warn(parityMask(i), second, "a second parity bit in one mask: only the first is set");
  for (int32_t later = i + 1; later < _applied; ++later) {
    const int32_t p = parityPosition(later);
    if (p < 0 || output(p) != 'P' || parity(i, p) != 'X') continue;
    return warn(parityMask(i), p,
                "X covers the bit of parity mask " + std::to_string(later + 1) +
                    ", which is set later: it counts as 0");
  }
}

// One finding for all: what is wrong is their number.
void MaskRules::checkNotApplied() {
  for (int32_t i = _applied; i < kParityMaskCount; ++i) {
    const int32_t p = parityPosition(i);
    if (p < 0) continue;
    return warn(parityMask(i), p,
                "parity mask " + std::to_string(i + 1) + " is not applied: " +
                    (_text.isVff() ? "those in use come first, and the others are 144 dots"
                                   : "line 9 declares " + std::to_string(_applied)));
  }
}

void MaskRules::checkUnsetParity() {
  for (int32_t p = 0; p < kPositions; ++p) {
    if (output(p) != 'P' || isFixed(fixed(p)) || isTold(p)) continue;
    bool isMeant = false;
    for (int32_t i = 0; i < kParityMaskCount; ++i)
      isMeant = isMeant || (!isFiller(parity(i, p)) && parity(i, p) != 'X');
    if (isMeant || _parityGoneAstray-- > 0) continue;
    warn(kOutput, p, "no parity mask sets this P: it is 0 on every card");
  }
}

}  // namespace

bool applyMaskRules(const FormatText& text, const CardFormat& format, bool countHolds,
                    Findings& findings) {
  return MaskRules(text, format, findings).apply(countHolds);
}

}  // namespace badgemint::admin
