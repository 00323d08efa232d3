// What both passes over the input cards file know of a site: its card formats, and the card sets
// that the lines read so far have defined.
#ifndef BADGEMINT_INPUTCARDS_SITECARDS_H
#define BADGEMINT_INPUTCARDS_SITECARDS_H

#include <array>
#include <cstdint>

#include "cardsets/card_functions.h"
#include "cardsets/cardsets.h"
#include "formats/CardFormatSet.h"
#include "inputcards/cardline.h"
#include "support/result.h"
#include "support/textutil.h"

namespace badgemint {

// One line of the input cards file as a NUL-terminated text, and its number in messages. Words are
// split in place.
struct InputLine {
  char* text;
  int32_t number;
};

// A 'd' line's block, checked and ready to be encoded card by card.
struct MultiCards {
  uint32_t csid;
  uint32_t fmtid;
  const CardEncoder* encoder;  // The site's.
  int64_t firstCard;
  int64_t count;  // 0 or less: an empty block.
  uint32_t firstUniqid;
  int32_t accessLevel;
};

// Messages are at level 25, as `inputcards` or as the modules below. The codes of all operations
// are those with which a pass ends.
class SiteCards {
 public:
  SiteCards() = default;
  SiteCards(const SiteCards&) = delete;
  SiteCards& operator=(const SiteCards&) = delete;

  // Before everything else. kOutOfMemory, logged.
  [[nodiscard]] int32_t create();

  CardFormatSet& formats() { return _formats; }
  const cardsets& cardSets() const { return _cardSets; }

  // Takes an 'f' line: defines its card set unless there is one of its ID already. kSuccess;
  // kFieldsWordMissing, kInvalidCardSet.
  [[nodiscard]] int32_t defineCardSet(InputLine line);

  // Whether a line may use this card set ID. kSuccess or kInvalidCardSet.
  [[nodiscard]] static int32_t checkCardSetId(int32_t csid, int32_t lineNumber);

  // Encodes a card of a card set whose ID was checked. kSuccess, kInvalidCardSet,
  // kFormatNotDefined, kCardMismatch.
  [[nodiscard]] int32_t encodeCard(int32_t csid, const SaturatedInt64& number, int32_t lineNumber,
                                   CardPattern& pattern);

  // Takes a 'd' line, without encoding its cards. kSuccess, kMultiCardsWordMissing,
  // kInvalidCardSet, kFormatNotDefined, kInvalidCardNumber.
  [[nodiscard]] int32_t readMultiCards(InputLine line, MultiCards& block);

  // Hands a line to the operation of a pass that its type asks for; a card set is defined in either
  // pass. Blank lines and comments are nothing to a pass.
  template <typename Pass>
  int32_t dispatch(Pass& pass, InputLine line) {
    if (isBlank(line.text)) return kSuccess;
    switch (*line.text) {
      case kCardLine:
        return pass.handleCard(line);
      case kPinIdentLine:
        return pass.handlePinIdent(line);
      case kNoFormatCardLine:
        return pass.handleNoFormatCard(line);
      case kPinLine:
        return pass.handlePin(line);
      case kMultiCardsLine:
        return pass.handleMultiCards(line);
      case kFieldsLine:
        return defineCardSet(line);
      case kCommentLine:
        return kSuccess;
      default:
        return reportInvalidLine(line);
    }
  }

  // What a pass says of a line with a wrong card number and of one that is of no type.
  static int32_t reportCardNumber(int32_t result, int32_t lineNumber);
  static int32_t reportInvalidLine(InputLine line);

 private:
  CardFormatSet _formats;
  cardsets _cardSets;
  std::array<CardEncoder, kLastCardSetId + 1> _encoders;  // By card set ID, when first used.
};

}  // namespace badgemint

#endif  // BADGEMINT_INPUTCARDS_SITECARDS_H
