/* The standard descriptors of a program. For C and C++. */
#ifndef BADGEMINT_SUPPORT_STANDARDFILES_H
#define BADGEMINT_SUPPORT_STANDARDFILES_H

#include <fcntl.h>
#include <unistd.h>

/* Opens /dev/null for each of the descriptors 0, 1 and 2 that is closed: else the next file that is
 * opened, a database, would get its number and all that is printed. Programs that use the library
 * begin with it. 0, or -1 with errno when a descriptor stays closed: the program must end then. */
static inline int takeStandardFiles(void) {
  for (int file = STDIN_FILENO; file <= STDERR_FILENO; ++file) {
    if (fcntl(file, F_GETFD) < 0 && open("/dev/null", O_RDWR) != file) return -1;
  }
  return 0;
}

#endif /* BADGEMINT_SUPPORT_STANDARDFILES_H */
