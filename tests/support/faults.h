// Faults on demand: lets the n-th allocation or system call of the code under test fail, and
// reports what it asked of the system. Works by link-time replacement (--wrap): the product knows
// nothing of it. The log of a test also shows the level of each message, in place of its source
// line, and what went to the system log and to the error report hook.
#ifndef BADGEMINT_TESTS_SUPPORT_FAULTS_H
#define BADGEMINT_TESTS_SUPPORT_FAULTS_H

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace badgemint {

// How one call, or each from one on, is to go wrong.
struct Fault {
  std::string call;      // "allocate", "new", "open", "read", ...; "any" is each system call.
  int nth = 1;           // From 1.
  bool forEver = false;  // Also every later call.
  int error = EIO;
  bool isShort = false;  // A read or write transfers a part of what it was asked for instead.
  int signal = 0;        // This is raised before the call instead.
};

// Arms one fault while it lives; one at a time.
class ArmedFault {
 public:
  explicit ArmedFault(Fault fault) : _fault(std::move(fault)) { now = this; }
  ~ArmedFault() { now = nullptr; }

  // Counts a call, and returns whether it goes wrong.
  bool countCall(std::string_view call);
  bool hasOccurred() const { return _calls >= _fault.nth; }
  int calls() const { return _calls; }
  bool isShort() const { return _fault.isShort; }

  static inline ArmedFault* now = nullptr;

 private:
  Fault _fault;
  int _calls = 0;  // Of its kind.
};

// A call that has changed a folder, or has written a file or a folder through to the disk. Files
// and folders are known by their inodes.
struct DiskChange {
  struct Entry {
    uint64_t folder;
    std::string name;
    uint64_t file;  // 0 when the entry is gone.
  };
  std::vector<Entry> entries;  // What the call has changed, all at once.
  uint64_t synced = 0;         // What is on the disk now,
  std::string content = {};    // and what it contains, if it is a file.
};

// A name in an open folder; without a name the file or folder itself. 0 when it is not there.
uint64_t inodeOf(int folder, const std::string& name);

// Records the changes while it lives; one at a time.
struct DiskRecorder {
  DiskRecorder() { now = this; }
  ~DiskRecorder() { now = nullptr; }

  std::vector<DiskChange> changes;
  static inline DiskRecorder* now = nullptr;
};

// How many bytes may still be written to files.
inline constexpr long kAllRoom = 1L << 40;
inline long diskRoom = kAllRoom;

// How many pages of memory the machine has for the code under test: -1 unknown, 0 what it has.
inline long machinePages = 0;

// What the code under test asked `sleep` for since the last look; it never really sleeps.
inline std::vector<unsigned> sleeps;
inline std::vector<unsigned> takeSleeps() {
  return std::exchange(sleeps, {});
}

}  // namespace badgemint

#endif  // BADGEMINT_TESTS_SUPPORT_FAULTS_H
