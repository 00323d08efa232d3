// The grammar of the input cards file: each line type as a struct of its fields. Both passes read
// their lines here, so that no field can be read in two ways.
#ifndef BADGEMINT_INPUTCARDS_CARDLINE_H
#define BADGEMINT_INPUTCARDS_CARDLINE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

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

// What a field of a line is, for those who check, name or write it.
enum class FieldKind : uint8_t {
  kCardSet,
  kCardNumber,
  kPin,
  kUniqueId,
  kAccessLevel,
  kFlag,
  kEscort,
  kDate,
  kTime,
  kNumber,
};

struct LineField {
  const char* name = "";
  FieldKind kind = FieldKind::kNumber;
  uint32_t most = 0;  // The largest value that its record keeps; 0 for what is no plain number.
};

// The fields of each part of a line, in the order of the line: `visit` is called with each field's
// description and its member. These lists are the only place that knows the order.

template <typename Line, typename Visit>
constexpr void forEachCardField(Line&& line, Visit visit) {
  visit(LineField{"card set", FieldKind::kCardSet, 253}, line.csid);
  visit(LineField{"card number", FieldKind::kCardNumber}, line.cardNumber);
  visit(LineField{"PIN", FieldKind::kPin}, line.pin);
  visit(LineField{"unique ID", FieldKind::kUniqueId, UINT32_MAX}, line.uniqid);
}

template <typename Line, typename Visit>
constexpr void forEachPinField(Line&& line, Visit visit) {
  visit(LineField{"PIN", FieldKind::kPin}, line.pin);
  visit(LineField{"unique ID", FieldKind::kUniqueId, UINT32_MAX}, line.uniqid);
}

template <typename Holder, typename Visit>
constexpr void forEachHolderField(Holder&& holder, Visit visit) {
  constexpr std::array kLevelNames = {"access level 1", "access level 2", "access level 3",
                                      "access level 4", "access level 5", "access level 6",
                                      "access level 7", "access level 8"};
  for (size_t i = 0; i < kLevelNames.size(); ++i)
    visit(LineField{kLevelNames[i], FieldKind::kAccessLevel, UINT16_MAX}, holder.accessLevels[i]);
  visit(LineField{"first flag", FieldKind::kFlag, 1}, holder.flag2);
  visit(LineField{"second flag", FieldKind::kFlag, 1}, holder.flag1);
  visit(LineField{"third flag", FieldKind::kFlag, 1}, holder.flag4);
  visit(LineField{"escort", FieldKind::kEscort, UINT32_MAX}, holder.escortId);
  visit(LineField{"start date", FieldKind::kDate}, holder.startDate);
  visit(LineField{"start time", FieldKind::kTime}, holder.startTime);
  visit(LineField{"end date", FieldKind::kDate}, holder.endDate);
  visit(LineField{"end time", FieldKind::kTime}, holder.endTime);
  visit(LineField{"elevator access", FieldKind::kNumber, UINT8_MAX}, holder.elevatorAccess);
  visit(LineField{"output relay group", FieldKind::kNumber, UINT8_MAX}, holder.outputRelayGroup);
}

// The flag that ends 'c' and 'n' lines only: bit 5 of the record's flags.
inline constexpr LineField kLastFlagField = {"last flag", FieldKind::kFlag, 1};

// The fields of a 'c', 'n', 'p', 'o' or 'd' line after its type, in order; none for any other type.
std::span<const LineField> lineFields(char lineType);

// The scanner stands after the line type: a FieldScanner, or one that has its nextInt, nextUnsigned
// and nextWord and records where the fields stand.

// Reads one field by the type of its member.
template <typename Scanner>
auto fieldReader(Scanner& scanner) {
  return [&scanner]<typename Member>(const LineField& field, Member& member) {
    if constexpr (std::is_same_v<Member, int32_t>) {
      member = scanner.nextInt();
    } else if constexpr (std::is_same_v<Member, uint32_t>) {
      member = scanner.nextUnsigned();
    } else {
      const bool isDateOrTime = field.kind == FieldKind::kDate || field.kind == FieldKind::kTime;
      member = scanner.nextWord(isDateOrTime ? kMaxDateTimeWord : kMaxNumberWord);
    }
  };
}

template <typename Scanner>
CardLine scanCardLine(Scanner& scanner) {
  CardLine line;
  forEachCardField(line, fieldReader(scanner));
  return line;
}

template <typename Scanner>
PinLine scanPinLine(Scanner& scanner) {
  PinLine line;
  forEachPinField(line, fieldReader(scanner));
  return line;
}

template <typename Scanner>
HolderFields scanHolderFields(Scanner& scanner) {
  HolderFields holder;
  forEachHolderField(holder, fieldReader(scanner));
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
