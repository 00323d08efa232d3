// Faults on demand: lets the n-th allocation or system call of the code under test fail, and tells
// what it asked of the system. Works by link-time replacement (--wrap): the product knows nothing
// of it. The log of a test also shows the level of each message, in place of its source line, and
// what went to the system log and to the error report hook.
#ifndef BADGEMINT_TESTS_SUPPORT_FAULTS_H
#define BADGEMINT_TESTS_SUPPORT_FAULTS_H

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

namespace badgemint {

struct Fault {
  std::string call;      // "allocate", "new", "open", "read", ...; "any" is each system call.
  int nth = 0;           // From 1.
  bool forEver = false;  // Also every later call.
  int error = EIO;
  bool isShort = false;  // A read or write transfers a part of what it was asked for instead.
  int signal = 0;        // This is raised before the call instead.
};

inline Fault armedFault;     // No call of an empty name is made.
inline int faultyCalls = 0;  // Of its kind, since it was armed.

// Arms one fault while it lives.
class ArmedFault {
 public:
  explicit ArmedFault(const Fault& fault) {
    armedFault = fault;
    faultyCalls = 0;
  }
  ~ArmedFault() { armedFault = {}; }

  bool struck() const { return faultyCalls > 0 && faultyCalls >= armedFault.nth; }
};

// How many bytes may still be written to files: to all of them together, and to each from its
// start.
struct DiskRoom {
  long all = 1L << 40, each = 1L << 40;
};
inline DiskRoom diskRoom;

// How many pages of memory the machine has for the code under test: -1 unknown, 0 what it has.
inline long machinePages = 0;

// What the code under test asked `sleep` for since the last look; it never really sleeps.
inline std::vector<unsigned> sleeps;
inline std::vector<unsigned> takeSleeps() {
  return std::exchange(sleeps, {});
}

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_SUPPORT_FAULTS_H
