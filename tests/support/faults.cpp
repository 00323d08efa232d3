#include "support/faults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "support/logger.h"
#include "support/textutil.h"

namespace badgemint {
namespace {

std::optional<Fault> armed;
int count = 0;
bool hasStruck = false;
std::vector<unsigned> sleeps;

// Whether this call is to fail; sets errno then.
bool strikes(const char* call) {
  if (!armed || armed->call != call) return false;
  ++count;
  const bool hit = armed->forEver ? count >= armed->nth : count == armed->nth;
  hasStruck = hasStruck || hit;
  if (hit) errno = armed->error;
  return hit;
}

}  // namespace

ArmedFault::ArmedFault(const Fault& fault) {
  count = 0;
  hasStruck = false;
  armed = fault;
}
ArmedFault::~ArmedFault() {
  armed.reset();
}
bool ArmedFault::struck() const {
  return hasStruck;
}

std::vector<unsigned> takeSleeps() {
  return std::exchange(sleeps, {});
}

}  // namespace badgemint

using badgemint::strikes;

extern "C" {

void* __real_malloc(size_t size);
void* __real_realloc(void* old, size_t size);
void* __real__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& nothrow);
void* __real__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& nothrow);
int __real_open(const char* path, int flags, ...);
ssize_t __real_read(int file, void* buffer, size_t size);
ssize_t __real_pread(int file, void* buffer, size_t size, off_t offset);
ssize_t __real_write(int file, const void* buffer, size_t size);
off_t __real_lseek(int file, off_t offset, int whence);
int __real_close(int file);
int __real_unlink(const char* path);
int __real_chmod(const char* path, mode_t mode);
long __real_sysconf(int name);
int __real_stat(const char* path, struct stat* status);
int __real_fstat(int file, struct stat* status);
int __real_fcntl(int file, int command, ...);

// What the compiler makes of a realloc of nothing.
void* __wrap_malloc(size_t size) {
  return strikes("allocate") ? nullptr : __real_malloc(size);
}

void* __wrap_realloc(void* old, size_t size) {
  return strikes("allocate") ? nullptr : __real_realloc(old, size);
}

// new (std::nothrow), of one object and of an array.
void* __wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& nothrow) {
  return strikes("allocate") ? nullptr : __real__ZnwmRKSt9nothrow_t(size, nothrow);
}
void* __wrap__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& nothrow) {
  return strikes("allocate") ? nullptr : __real__ZnamRKSt9nothrow_t(size, nothrow);
}

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return strikes("open") ? -1 : __real_open(path, flags, mode);
}

ssize_t __wrap_read(int file, void* buffer, size_t size) {
  if (!strikes("read")) return __real_read(file, buffer, size);
  if (!badgemint::armed->isShort) return -1;
  const ssize_t got = __real_read(file, buffer, size);
  if (got > 1) __real_lseek(file, -(got / 2), SEEK_CUR);
  return got - got / 2;
}

ssize_t __wrap_pread(int file, void* buffer, size_t size, off_t offset) {
  if (!strikes("read")) return __real_pread(file, buffer, size, offset);
  if (!badgemint::armed->isShort) return -1;
  const ssize_t got = __real_pread(file, buffer, size, offset);
  return got - got / 2;
}

ssize_t __wrap_write(int file, const void* buffer, size_t size) {
  if (!strikes("write")) return __real_write(file, buffer, size);
  return badgemint::armed->isShort ? __real_write(file, buffer, size / 2) : -1;
}

off_t __wrap_lseek(int file, off_t offset, int whence) {
  return strikes("lseek") ? -1 : __real_lseek(file, offset, whence);
}

// A failing close has closed the descriptor all the same.
int __wrap_close(int file) {
  const bool fails = strikes("close");
  const int error = errno;
  const int result = __real_close(file);
  if (!fails) return result;
  errno = error;
  return -1;
}

int __wrap_unlink(const char* path) {
  return strikes("unlink") ? -1 : __real_unlink(path);
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
  badgemint::sleeps.push_back(seconds);
  return 0;
}

// Logger::write. The prefix of a message comes out as "[level module] ": tests see every level, and
// no source line, which changes with every edit.
void __real__ZN9badgemint6Logger5writeEiPKcz(badgemint::Logger&, int32_t, const char*, ...);
__attribute__((format(printf, 3, 4))) void __wrap__ZN9badgemint6Logger5writeEiPKcz(
    badgemint::Logger& logger, int32_t level, const char* format, ...) {
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
  if (badgemint::theLogger != nullptr)
    badgemint::theLogger->write(0, "[syslog %d] %s", priority, text);
}

// reportSystemError, which has no effect of its own.
uint16_t __wrap__ZN9badgemint17reportSystemErrorEttPKc(uint16_t module, uint16_t code,
                                                       const char* what) {
  if (badgemint::theLogger != nullptr)
    badgemint::theLogger->write(0, "[report %u/%u \"%s\"]\n", unsigned{module}, unsigned{code},
                                what);
  return module;
}

}  // extern "C"
