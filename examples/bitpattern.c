/* Prints the bits that a reader delivers for a card, as hexadecimal digits. The exit status is 0 if
 * it succeeds. */
#include <badgemint.h>
#include <badgemint/support/standardfiles.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char* argv[]) {
  if (takeStandardFiles() != 0) return 1;
  if (argc != 6) {
    puts("Usage: bitpattern CardSetID CardNumber FormatsFile CardSetsFile LogFile");
    return 2;
  }
  char digits[33]; /* 32 digits and a NUL. */
  uint32_t cardSet = (uint32_t)strtoul(argv[1], NULL, 10);
  int32_t result = ComputeCardBitPattern(cardSet, argv[2], "", argv[3], argv[4], argv[5], 25,
                                         digits, (int32_t)sizeof digits);
  if (result != 0) {
    printf("bitpattern result = %d\n", result);
    return 1;
  }
  puts(digits);
  return 0;
}
