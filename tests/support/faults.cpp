#include "support/faults.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdarg>
#include <new>
#include <optional>

#include "support/testfiles.h"

using namespace badgemint;

extern "C" decltype(fstatat) __real_fstatat;

namespace {

// Whether this call is to fail; sets errno then.
bool mustFail(std::string_view call) {
  return ArmedFault::now != nullptr && ArmedFault::now->countCall(call);
}

// The same for a transfer. A short one goes on: half is written, some bytes are read.
bool mustFailTransfer(std::string_view call, size_t& size) {
  if (!mustFail(call)) return false;
  const bool isShort = ArmedFault::now->isShort();
  if (isShort) size = call == "write" ? size / 2 : std::min(size, size_t{7});
  return !isShort;
}

// A name that a call may have changed.
struct Place {
  int folder;
  const char* name;
  bool isChanged = true;
};

// Records what stands in these places when the call went well, and returns its result.
template <typename Result>
Result recorded(Result result, std::initializer_list<Place> places) {
  if (result < 0 || DiskRecorder::now == nullptr) return result;
  DiskChange change;
  for (const auto& [folder, name, isChanged] : places) {
    const fs::path path = name;
    if (isChanged)
      change.entries.push_back(
          {inodeOf(folder, path.parent_path()), path.filename(), inodeOf(folder, path)});
  }
  if (!change.entries.empty()) DiskRecorder::now->changes.push_back(change);
  return result;
}

// Makes a folder of its own the current one of each test; that of the test before goes away.
struct TestFolders : testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override {
    fs::current_path(_folder.emplace().path(""));
  }

 private:
  std::optional<TestFolder> _folder;
};

[[maybe_unused]] const bool hasTestFolders =
    (testing::UnitTest::GetInstance()->listeners().Append(new TestFolders), true);

}  // namespace

uint64_t badgemint::inodeOf(int folder, const std::string& name) {
  struct stat status;
  const int flags = AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH;
  return __real_fstatat(folder, name.c_str(), &status, flags) == 0 ? status.st_ino : 0;
}

bool ArmedFault::countCall(std::string_view call) {
  const bool isMemory = call == "allocate" || call == "new";
  if (_fault.call != call && (_fault.call != "any" || isMemory)) return false;
  ++_calls;
  const bool hit = _fault.forEver ? _calls >= _fault.nth : _calls == _fault.nth;
  if (hit && _fault.signal != 0) return raise(_fault.signal) != 0;
  if (hit) errno = _fault.error;
  return hit;
}

extern "C" {

// Replaces a call that returns -1 when it fails, and may change what stands in these places.
#define REPLACE(call, parameters, arguments, ...)                    \
  decltype(call) __real_##call;                                      \
  auto __wrap_##call parameters->decltype(__real_##call arguments) { \
    if (mustFail(#call)) return -1;                                  \
    return recorded(__real_##call arguments, {__VA_ARGS__});         \
  }

REPLACE(stat, (const char* path, struct stat* status), (path, status))
REPLACE(fstat, (int file, struct stat* status), (file, status))
REPLACE(fstatat, (int folder, const char* name, struct stat* status, int flags),
        (folder, name, status, flags))
REPLACE(lseek, (int file, off_t offset, int whence), (file, offset, whence))
REPLACE(chmod, (const char* path, mode_t mode), (path, mode))
REPLACE(fchmod, (int file, mode_t mode), (file, mode))
REPLACE(fchown, (int file, uid_t owner, gid_t group), (file, owner, group))
REPLACE(flock, (int file, int operation), (file, operation))
// The locks of the product: its only use of this call.
REPLACE(fcntl, (int file, int command, struct flock* lock), (file, command, lock))
// A mode that the caller did not give is not looked at.
REPLACE(open, (const char* path, int flags, mode_t mode), (path, flags, mode),
        {AT_FDCWD, path, (flags & O_CREAT) != 0})
REPLACE(openat, (int folder, const char* name, int flags, mode_t mode), (folder, name, flags, mode),
        {folder, name, (flags & O_CREAT) != 0})
REPLACE(mkdirat, (int folder, const char* name, mode_t mode), (folder, name, mode), {folder, name})
REPLACE(linkat, (int folder, const char* name, int newFolder, const char* newName, int flags),
        (folder, name, newFolder, newName, flags), {newFolder, newName})
REPLACE(renameat, (int folder, const char* name, int newFolder, const char* newName),
        (folder, name, newFolder, newName), {folder, name}, {newFolder, newName})
REPLACE(unlinkat, (int folder, const char* name, int flags), (folder, name, flags), {folder, name})

// The same for memory, with a null pointer: malloc is what the compiler makes of a realloc of
// nothing, the others are new (std::nothrow), of one object and of an array.
#define REPLACE_MEMORY(call, parameters, arguments)                  \
  void* __real_##call parameters;                                    \
  void* __wrap_##call parameters {                                   \
    return mustFail("allocate") ? nullptr : __real_##call arguments; \
  }

REPLACE_MEMORY(malloc, (size_t size), (size))
REPLACE_MEMORY(realloc, (void* old, size_t size), (old, size))
REPLACE_MEMORY(_ZnwmRKSt9nothrow_t, (size_t size, const std::nothrow_t& n), (size, n))
REPLACE_MEMORY(_ZnamRKSt9nothrow_t, (size_t size, const std::nothrow_t& n), (size, n))

decltype(read) __real_read;
decltype(pread) __real_pread;
decltype(write) __real_write;
decltype(ftruncate) __real_ftruncate;
decltype(close) __real_close;
decltype(sysconf) __real_sysconf;

// The memory of containers.
void* __real__Znwm(size_t size);
void* __wrap__Znwm(size_t size) {
  if (mustFail("new")) throw std::bad_alloc();
  return __real__Znwm(size);
}

ssize_t __wrap_read(int file, void* buffer, size_t size) {
  return mustFailTransfer("read", size) ? -1 : __real_read(file, buffer, size);
}
ssize_t __wrap_pread(int file, void* buffer, size_t size, off_t offset) {
  return mustFailTransfer("read", size) ? -1 : __real_pread(file, buffer, size, offset);
}
ssize_t __wrap_write(int file, const void* buffer, size_t size) {
  if (mustFailTransfer("write", size)) return -1;
  if (diskRoom == 0 && size > 0) return errno = ENOSPC, -1;
  size = std::min(size, static_cast<size_t>(diskRoom));
  diskRoom -= static_cast<long>(size);
  return __real_write(file, buffer, size);
}
int __wrap_ftruncate(int file, off_t size) {
  diskRoom += __real_lseek(file, 0, SEEK_END) - size;
  return __real_ftruncate(file, size);
}

// A failing close has closed the descriptor all the same.
int __wrap_close(int file) {
  const int result = __real_close(file);
  return mustFail("close") ? -1 : result;
}
// Nothing is written through to the disk: tests only model that power is lost.
int __wrap_fsync(int file) {
  if (mustFail("fsync")) return -1;
  const std::string path = "/proc/self/fd/" + std::to_string(file);
  const std::string content = fs::is_regular_file(path) ? contentOf(path) : "";
  if (DiskRecorder::now != nullptr)
    DiskRecorder::now->changes.push_back({{}, inodeOf(file, ""), content});
  return 0;
}

long __wrap_sysconf(int name) {
  const bool isReplaced = name == _SC_PHYS_PAGES && machinePages != 0;
  return isReplaced ? machinePages : __real_sysconf(name);
}

unsigned __wrap_sleep(unsigned seconds) {
  sleeps.push_back(seconds);
  return 0;
}

// Pauses between two attempts are shorter for tests.
decltype(nanosleep) __real_nanosleep;
int __wrap_nanosleep(const timespec* asked, timespec* /*rest*/) {
  const timespec given = {asked->tv_sec / 20, asked->tv_nsec / 20};
  return __real_nanosleep(&given, nullptr);
}

// Logger::write. The prefix of a message comes out as "[level module] ": tests see every level, and
// no source line, which changes with every edit.
void __real__ZN9badgemint6Logger5writeEiPKcz(Logger&, int32_t, const char*, ...);
__attribute__((format(printf, 3, 4))) void __wrap__ZN9badgemint6Logger5writeEiPKcz(
    Logger& logger, int32_t level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char prefix[40];
  std::snprintf(prefix, sizeof prefix, "[%d %%s] ", level);
  if (format == std::string_view("%s %d ")) format = prefix;
  char text[1000];
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  __real__ZN9badgemint6Logger5writeEiPKcz(logger, level, "%s", text);
}

__attribute__((format(printf, 2, 3))) void __wrap_syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char text[1000];
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (theLogger != nullptr) theLogger->write(0, "[syslog %d] %s", priority, text);
}

// reportSystemError, which has no effect of its own.
uint16_t __wrap__ZN9badgemint17reportSystemErrorEttPKc(uint16_t module, uint16_t code,
                                                       const char* what) {
  if (theLogger != nullptr) theLogger->write(0, "[report %u/%u \"%s\"]\n", module, code, what);
  return module;
}

}  // extern "C"
