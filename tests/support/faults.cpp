#include "support/faults.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdarg>
#include <new>
#include <string_view>
#include <utility>

#include "support/logger.h"

namespace badgemint {
namespace {

Fault armed;
int count = 0;
std::vector<unsigned> sleeps;

// Whether this call is to fail; sets errno then.
bool strikes(std::string_view call) {
  const bool isMemory = call == "allocate" || call == "new";
  if (armed.call != call && (armed.call != "any" || isMemory)) return false;
  ++count;
  const bool hit = armed.forEver ? count >= armed.nth : count == armed.nth;
  if (hit && armed.signal != 0) return raise(armed.signal) != 0;
  if (hit) errno = armed.error;
  return hit;
}

// The same for a transfer. A short one goes on: half is written, some bytes are read.
bool strikesTransfer(std::string_view call, size_t& size) {
  if (!strikes(call)) return false;
  if (armed.isShort) size = call == "write" ? size / 2 : std::min(size, size_t{7});
  return !armed.isShort;
}

}  // namespace

ArmedFault::ArmedFault(const Fault& fault) {
  count = 0;
  armed = fault;
}
ArmedFault::~ArmedFault() {
  armed = {};
}
bool ArmedFault::struck() const {
  return count > 0 && count >= armed.nth;
}

std::vector<unsigned> takeSleeps() {
  return std::exchange(sleeps, {});
}

}  // namespace badgemint

using namespace badgemint;

extern "C" {

decltype(malloc) __real_malloc;
decltype(realloc) __real_realloc;
void* __real__Znwm(size_t size);
void* __real__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& nothrow);
void* __real__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& nothrow);
decltype(open) __real_open;
decltype(read) __real_read;
decltype(pread) __real_pread;
decltype(write) __real_write;
decltype(lseek) __real_lseek;
decltype(close) __real_close;
decltype(chmod) __real_chmod;
decltype(stat) __real_stat;
decltype(fstat) __real_fstat;
decltype(fcntl) __real_fcntl;
decltype(sysconf) __real_sysconf;
decltype(openat) __real_openat;
decltype(mkdirat) __real_mkdirat;
decltype(fstatat) __real_fstatat;
decltype(linkat) __real_linkat;
decltype(renameat) __real_renameat;
decltype(unlinkat) __real_unlinkat;
decltype(fchmod) __real_fchmod;
decltype(fchown) __real_fchown;
decltype(flock) __real_flock;

// What the compiler makes of a realloc of nothing.
void* __wrap_malloc(size_t size) {
  return strikes("allocate") ? nullptr : __real_malloc(size);
}
void* __wrap_realloc(void* old, size_t size) {
  return strikes("allocate") ? nullptr : __real_realloc(old, size);
}

// The memory of containers.
void* __wrap__Znwm(size_t size) {
  if (strikes("new")) throw std::bad_alloc();
  return __real__Znwm(size);
}

// new (std::nothrow), of one object and of an array.
void* __wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& nothrow) {
  return strikes("allocate") ? nullptr : __real__ZnwmRKSt9nothrow_t(size, nothrow);
}
void* __wrap__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& nothrow) {
  return strikes("allocate") ? nullptr : __real__ZnamRKSt9nothrow_t(size, nothrow);
}

// A mode that the caller did not give is not looked at.
int __wrap_open(const char* path, int flags, mode_t mode) {
  return strikes("open") ? -1 : __real_open(path, flags, mode);
}
ssize_t __wrap_read(int file, void* buffer, size_t size) {
  return strikesTransfer("read", size) ? -1 : __real_read(file, buffer, size);
}
ssize_t __wrap_pread(int file, void* buffer, size_t size, off_t offset) {
  return strikesTransfer("read", size) ? -1 : __real_pread(file, buffer, size, offset);
}
ssize_t __wrap_write(int file, const void* buffer, size_t size) {
  return strikesTransfer("write", size) ? -1 : __real_write(file, buffer, size);
}
off_t __wrap_lseek(int file, off_t offset, int whence) {
  return strikes("lseek") ? -1 : __real_lseek(file, offset, whence);
}

// A failing close has closed the descriptor all the same.
int __wrap_close(int file) {
  const int result = __real_close(file);
  return strikes("close") ? -1 : result;
}
int __wrap_openat(int folder, const char* name, int flags, mode_t mode) {
  return strikes("openat") ? -1 : __real_openat(folder, name, flags, mode);
}
int __wrap_mkdirat(int folder, const char* name, mode_t mode) {
  return strikes("mkdirat") ? -1 : __real_mkdirat(folder, name, mode);
}
int __wrap_fstatat(int folder, const char* name, struct stat* status, int flags) {
  return strikes("fstatat") ? -1 : __real_fstatat(folder, name, status, flags);
}
int __wrap_linkat(int folder, const char* name, int newFolder, const char* newName, int flags) {
  return strikes("linkat") ? -1 : __real_linkat(folder, name, newFolder, newName, flags);
}
int __wrap_renameat(int folder, const char* name, int newFolder, const char* newName) {
  return strikes("renameat") ? -1 : __real_renameat(folder, name, newFolder, newName);
}
int __wrap_unlinkat(int folder, const char* name, int flags) {
  return strikes("unlinkat") ? -1 : __real_unlinkat(folder, name, flags);
}
int __wrap_fchmod(int file, mode_t mode) {
  return strikes("fchmod") ? -1 : __real_fchmod(file, mode);
}
int __wrap_fchown(int file, uid_t owner, gid_t group) {
  return strikes("fchown") ? -1 : __real_fchown(file, owner, group);
}
int __wrap_flock(int file, int operation) {
  return strikes("flock") ? -1 : __real_flock(file, operation);
}
// Nothing is written through to the disk: tests lose no power.
int __wrap_fsync(int /*file*/) {
  return strikes("fsync") ? -1 : 0;
}
int __wrap_chmod(const char* path, mode_t mode) {
  return strikes("chmod") ? -1 : __real_chmod(path, mode);
}
long __wrap_sysconf(int name) {
  const bool isReplaced = name == _SC_PHYS_PAGES && badgemint::machinePages != 0;
  return isReplaced ? badgemint::machinePages : __real_sysconf(name);
}
int __wrap_stat(const char* path, struct stat* status) {
  return strikes("stat") ? -1 : __real_stat(path, status);
}
int __wrap_fstat(int file, struct stat* status) {
  return strikes("fstat") ? -1 : __real_fstat(file, status);
}

// The locks of the product: its only use of this call.
int __wrap_fcntl(int file, int command, struct flock* lock) {
  return strikes("fcntl") ? -1 : __real_fcntl(file, command, lock);
}

unsigned __wrap_sleep(unsigned seconds) {
  sleeps.push_back(seconds);
  return 0;
}

// Logger::write. The prefix of a message comes out as "[level module] ": tests see every level, and
// no source line, which changes with every edit.
void __real__ZN9badgemint6Logger5writeEiPKcz(Logger&, int32_t, const char*, ...);
__attribute__((format(printf, 3, 4))) void __wrap__ZN9badgemint6Logger5writeEiPKcz(
    Logger& logger, int32_t level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char text[1000];
  if (format == std::string_view("%s %d ")) {
    std::snprintf(text, sizeof text, "[%d %s] ", level, va_arg(arguments, const char*));
  } else {
    std::vsnprintf(text, sizeof text, format, arguments);
  }
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
