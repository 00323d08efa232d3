// The grammar of the input cards file: each line type as a struct of its fields. Both passes read
// their lines here, so that no field can be read in two ways.
#ifndef BADGEMINT_INPUTCARDS_CARDLINE_H
#define BADGEMINT_INPUTCARDS_CARDLINE_H

#include <array>
#include <cstdint>
#include <string_view>

#include "formats/bitpattern.h"
#include "support/fieldscanner.h"

namespace badgemint {

// A line is read in pieces of at most this many characters, its newline included.
inline constexpr int kMaxInputLine = 300;

// The line types, by the first character of a line.
inline constexpr char kFieldsLine = 'f';
inline constexpr char kCardLine = 'c';
inline constexpr char kNoFormatCardLine = 'n';
inline constexpr char kPinLine = 'p';
inline constexpr char kPinIdentLine = 'o';
inline constexpr char kMultiCardsLine = 'd';
inline constexpr char kCommentLine = '#';

// All fields are views into the line that is scanned. Fields that the line lacks are 0 or empty.

// What identifies the holder of a card: the front of a 'c' or 'n' line.
struct CardLine {
  int32_t csid;
  std::string_view cardNumber;
  std::string_view pin;
  uint32_t uniqid;
};

// What identifies the holder of a PIN: the front of a 'p' line and all of an 'o' line.
struct PinLine {
  std::string_view pin;
  uint32_t uniqid;
};

// What a holder may do: the rest of a 'c', 'n' or 'p' line.
struct HolderFields {
  std::array<int32_t, 8> accessLevels;
  int32_t flag2, flag1, flag4;  // Named by their bits in the record's flags; any value but 0 is on.
  uint32_t escortId;
  std::string_view startDate, startTime, endDate, endTime;
  int32_t elevatorAccess;
  int32_t outputRelayGroup;
};

inline constexpr size_t kMaxNumberWord = 99;    // Card numbers and PINs, before they are checked.
inline constexpr size_t kMaxDateTimeWord = 14;  // A date or a time.

// The key of a PIN: its digits packed.
CardPattern packedPin(std::string_view pin);

// The scanner stands behind the line type: a FieldScanner, or one that has its nextInt,
// nextUnsigned and nextWord and notes where the fields stand. The flag of bit 5 ends 'c' and 'n'
// lines only: it is the next number after the holder's fields. Braced lists are evaluated from left
// to right: the fields stand in the order of the line.

template <typename Scanner>
CardLine scanCardLine(Scanner& scanner) {
  return {scanner.nextInt(), scanner.nextWord(kMaxNumberWord), scanner.nextWord(kMaxNumberWord),
          scanner.nextUnsigned()};
}

template <typename Scanner>
PinLine scanPinLine(Scanner& scanner) {
  return {scanner.nextWord(kMaxNumberWord), scanner.nextUnsigned()};
}

template <typename Scanner>
HolderFields scanHolderFields(Scanner& scanner) {
  HolderFields holder;
  for (int32_t& level : holder.accessLevels) level = scanner.nextInt();
  holder.flag2 = scanner.nextInt();
  holder.flag1 = scanner.nextInt();
  holder.flag4 = scanner.nextInt();
  holder.escortId = scanner.nextUnsigned();
  holder.startDate = scanner.nextWord(kMaxDateTimeWord);
  holder.startTime = scanner.nextWord(kMaxDateTimeWord);
  holder.endDate = scanner.nextWord(kMaxDateTimeWord);
  holder.endTime = scanner.nextWord(kMaxDateTimeWord);
  holder.elevatorAccess = scanner.nextInt();
  holder.outputRelayGroup = scanner.nextInt();
  return holder;
}

// The words of a 'd' line; words that the line lacks are null. The line is split in place. Unlike
// in the other lines a tab does not separate.
struct MultiCardsLine {
  const char *type, *csid, *firstCard, *count, *firstUniqid, *accessLevel;
};
MultiCardsLine splitMultiCardsLine(char* line);

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_CARDLINE_H
