/* Writes two existing databases as an input cards file. The exit status is 0 if it succeeds. */
#include <badgemint.h>
#include <badgemint/support/standardfiles.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char* argv[]) {
  if (takeStandardFiles() != 0) return 1;
  if (argc != 8) {
    puts(
        "Usage: dump IdentDBFile AccessDBFile FormatsFile CardSetsFile OutputCards LogFile "
        "LogLevel");
    return 2;
  }
  int32_t result = DumpCardFile("", argv[1], argv[2], argv[3], argv[4], argv[5], argv[6],
                                (uint32_t)strtol(argv[7], NULL, 10));
  printf("dump result = %d\n", result);
  return result == 0 ? 0 : 1;
}
