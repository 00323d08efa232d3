// Result codes: the one way in which an operation of this system says how it went.
//
// A result is a signed 32-bit number: 0 is success, a negative number a failure that is passed up
// unchanged, and a few readers return 1 for the end of a file. Every code has its name here and
// nowhere else. The ranges: -1xx general, -3xx and -4xx files, -5xx input cards and entry
// functions, -10xx cards and ident lookups, -11xx access lookups.
#ifndef BADGEMINT_SUPPORT_RESULT_H
#define BADGEMINT_SUPPORT_RESULT_H

#include <cstdint>

#include "support/exported.h"

namespace BADGEMINT_EXPORTED badgemint {

inline constexpr int32_t kSuccess = 0;
inline constexpr int32_t kEndOfFile = 1;  // Readers only: nothing was read, nothing is wrong.

// Answers of the positioned record operations and of lookups that have no code of their own.
inline constexpr int32_t kNotFound = -1;  // Also: the file could not be opened.
inline constexpr int32_t kIndexFull = -1;
inline constexpr int32_t kShortTransfer = -2;  // Also: the stored bytes differ from the key.

// General.
inline constexpr int32_t kOutOfMemory = -100;
inline constexpr int32_t kInvalidDate = -106;

// Format files.
inline constexpr int32_t kFormatFileOpenFailed = -302;  // A CDF or EFF file.
inline constexpr int32_t kBadCardNumberField = -303;    // Line 8 of a CDF or EFF file is not A-H.
inline constexpr int32_t kEffReadFailed = -335;
inline constexpr int32_t kCdfReadFailed = -338;
inline constexpr int32_t kVffOpenFailed = -434;
inline constexpr int32_t kVffReadFailed = -435;

// Access database file.
inline constexpr int32_t kAccessOpenFailed = -340;
inline constexpr int32_t kAccessReadFailed = -341;  // Also: the seek before an append failed.
inline constexpr int32_t kAccessWriteFailed = -342;

// Card sets file and formats file.
inline constexpr int32_t kCardSetsOpenFailed = -347;
inline constexpr int32_t kCardSetsTransferFailed = -348;
inline constexpr int32_t kFormatsOpenFailed = -370;
inline constexpr int32_t kFormatsReadFailed = -371;

// Ident database file.
inline constexpr int32_t kIdentOpenFailed = -382;
inline constexpr int32_t kIdentReadFailed = -383;  // Also: the seek before an append failed.
inline constexpr int32_t kIdentWriteFailed = -385;

// Input cards and entry functions.
inline constexpr int32_t kUnpairedPinIdent = -500;  // An 'o' line without its card.
inline constexpr int32_t kInputOpenFailed = -501;
inline constexpr int32_t kInputReadFailed = -502;  // Also: not the same in both passes.
inline constexpr int32_t kInvalidLine = -503;
inline constexpr int32_t kCardIndexNotInitialised = -504;
inline constexpr int32_t kFormatNotAdded = -505;
inline constexpr int32_t kCardMismatch = -506;  // A card does not decode to its own number.
inline constexpr int32_t kMultiCardsWordMissing = -507;
inline constexpr int32_t kFieldsWordMissing = -508;
inline constexpr int32_t kLogNotOpen = -509;
inline constexpr int32_t kLoaderNotInitialised = -510;
inline constexpr int32_t kBufferTooSmall = -511;
inline constexpr int32_t kOutputFailed = -513;
inline constexpr int32_t kBadCardSetText = -514;

// Cards and ident lookups.
inline constexpr int32_t kDuplicateUniqueId = -1001;
inline constexpr int32_t kInvalidCardNumber = -1003;
inline constexpr int32_t kInvalidPin = -1004;
inline constexpr int32_t kInvalidCardSet = -1006;  // Out of range, not defined, or not added.
inline constexpr int32_t kFormatNotDefined = -1007;
inline constexpr int32_t kEmptyCardNumber = -1010;
inline constexpr int32_t kDuplicateCardKey = -1011;
inline constexpr int32_t kCardNotFound = -1016;
inline constexpr int32_t kPairedHolderDiffers = -1019;

// Access lookups.
inline constexpr int32_t kAccessNotFound = -1105;
inline constexpr int32_t kAccessEntryLost = -1108;
inline constexpr int32_t kAccessRecordDiffers = -1109;

}  // namespace badgemint

#endif  // BADGEMINT_SUPPORT_RESULT_H
