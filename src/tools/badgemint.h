/* The face of the badgemint library for other programs: four functions with C linkage, usable from
 * C, C++ and any foreign function interface.
 *
 * Conventions of all four:
 * - Every text is NUL-terminated, not null, and only read. File names are joined to the base
 *   directory with a backslash ("site" and "cards.txt" give "site\cards.txt"); an empty base
 *   directory leaves them as they are. Format files are looked up by their base name alone, so with
 *   an empty base directory they stand in the current directory.
 * - The log file is created anew. "stdout" and "stderr" name the standard streams. logLevel is the
 *   highest level that is written: 0 start and end of the run, 25 errors, 75 each step, 100 each
 *   record. Logs above level 25 hold card numbers and PINs.
 * - The result is 0 for success and a negative code otherwise; the log names the cause.
 *   BADGEMINT_LOG_NOT_OPEN and a first BADGEMINT_OUT_OF_MEMORY come without a log.
 * - Only one of the functions may run at a time in one process.
 */
#ifndef BADGEMINT_TOOLS_BADGEMINT_H
#define BADGEMINT_TOOLS_BADGEMINT_H

#include <stdint.h> /* NOLINT(modernize-deprecated-headers): a C header too. */

#define BADGEMINT_OUT_OF_MEMORY (-100)
#define BADGEMINT_LOG_NOT_OPEN (-509)

#pragma GCC visibility push(default) /* What a shared library exports. */
#ifdef __cplusplus
extern "C" {
#endif

/* Builds the ident database, the access database and the card sets file of a site from its input
 * cards file. The old databases are removed first, once the log is open: a result other than 0
 * leaves no databases that could be used. Pauses 5 seconds before it returns. */
int32_t BadgeMint(const char* baseDirectory, const char* inputCardsName, const char* identDbName,
                  const char* accessDbName, const char* formatsName, const char* cardSetsName,
                  const char* logName, uint32_t logLevel);

/* Writes two existing databases as an input cards file that would build them again: a line for each
 * ident record. Deleted ident records are written like any other; the text has no place for the
 * mark. The ident database is opened for writing too, though nothing is written to it. A failure
 * leaves the lines written so far. Pauses 5 seconds before it returns. */
int32_t DumpCardFile(const char* baseDirectory, const char* identDbName, const char* accessDbName,
                     const char* formatsName, const char* cardSetsName, const char* outputName,
                     const char* logName, uint32_t logLevel);

/* Computes the bits that a reader delivers for a card of one of a site's card sets (cardSetId 1 to
 * 253), as hexadecimal digits without the zeros at their end, into cardBitPattern: at most 32
 * digits and a NUL. The buffer, cardBitPatternSize characters of the caller's, is written only on
 * success. Pauses 1 second before it returns. */
int32_t ComputeCardBitPattern(uint32_t cardSetId, const char* cardNumber, const char* baseDirectory,
                              const char* formatsName, const char* cardSetsName,
                              const char* logName, uint32_t logLevel, char* cardBitPattern,
                              int32_t cardBitPatternSize);

/* The same from one format file and one card set given as text ("f 12 3 A 101": its first three
 * words are needed but only its field values count), and proves that the bits decode to the same
 * card number. Pauses 1 second before it returns. */
int32_t ComputeCardBitPattern2(const char* cardNumber, const char* cardSet,
                               const char* baseDirectory, const char* formatName,
                               const char* logName, uint32_t logLevel, char* cardBitPattern,
                               int32_t cardBitPatternSize);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif /* BADGEMINT_TOOLS_BADGEMINT_H */
