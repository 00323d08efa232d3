#include "support/faults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <new>
#include <utility>

namespace badgemint {
namespace {

const Fault* armed = nullptr;
Fault current;
int count = 0;
bool hasStruck = false;
std::vector<unsigned> sleeps;

// Whether this call is to fail; sets errno then.
bool strikes(Call call) {
  if (armed == nullptr || current.call != call) return false;
  ++count;
  const bool hit =
      current.nth > 0 && (current.forEver ? count >= current.nth : count == current.nth);
  hasStruck = hasStruck || hit;
  if (hit) errno = current.error;
  return hit;
}

}  // namespace

ArmedFault::ArmedFault(const Fault& fault) {
  current = fault;
  count = 0;
  hasStruck = false;
  armed = &current;
}
ArmedFault::~ArmedFault() {
  armed = nullptr;
}
int ArmedFault::calls() const {
  return count;
}
bool ArmedFault::struck() const {
  return hasStruck;
}

std::vector<unsigned> takeSleeps() {
  return std::exchange(sleeps, {});
}

}  // namespace badgemint

using badgemint::Call;
using badgemint::strikes;

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return strikes(Call::kAllocate) ? nullptr : std::malloc(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return strikes(Call::kAllocate) ? nullptr : std::malloc(size);
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete[](void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  std::free(p);
}
void* operator new(std::size_t size) {
  if (void* const p = std::malloc(size)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
  return operator new(size);
}

extern "C" {

void* __real_realloc(void* old, size_t size);
int __real_open(const char* path, int flags, ...);
ssize_t __real_read(int file, void* buffer, size_t size);
ssize_t __real_write(int file, const void* buffer, size_t size);
off_t __real_lseek(int file, off_t offset, int whence);
int __real_close(int file);
int __real_unlink(const char* path);
int __real_chmod(const char* path, mode_t mode);
int __real_stat(const char* path, struct stat* status);
int __real_fcntl(int file, int command, ...);

void* __wrap_realloc(void* old, size_t size) {
  return strikes(Call::kAllocate) ? nullptr : __real_realloc(old, size);
}

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return strikes(Call::kOpen) ? -1 : __real_open(path, flags, mode);
}

ssize_t __wrap_read(int file, void* buffer, size_t size) {
  if (!strikes(Call::kRead)) return __real_read(file, buffer, size);
  return badgemint::current.isShort ? __real_read(file, buffer, size / 2) : -1;
}

ssize_t __wrap_write(int file, const void* buffer, size_t size) {
  if (!strikes(Call::kWrite)) return __real_write(file, buffer, size);
  return badgemint::current.isShort ? __real_write(file, buffer, size / 2) : -1;
}

off_t __wrap_lseek(int file, off_t offset, int whence) {
  return strikes(Call::kSeek) ? -1 : __real_lseek(file, offset, whence);
}

// A failing close has closed the descriptor all the same.
int __wrap_close(int file) {
  const bool fails = strikes(Call::kClose);
  const int error = errno;
  const int result = __real_close(file);
  if (!fails) return result;
  errno = error;
  return -1;
}

int __wrap_unlink(const char* path) {
  return strikes(Call::kUnlink) ? -1 : __real_unlink(path);
}
int __wrap_chmod(const char* path, mode_t mode) {
  return strikes(Call::kChmod) ? -1 : __real_chmod(path, mode);
}
int __wrap_stat(const char* path, struct stat* status) {
  return strikes(Call::kStat) ? -1 : __real_stat(path, status);
}

// The locks of the product: its only use of this call.
int __wrap_fcntl(int file, int command, struct flock* lock) {
  return strikes(Call::kFcntl) ? -1 : __real_fcntl(file, command, lock);
}

unsigned __wrap_sleep(unsigned seconds) {
  badgemint::sleeps.push_back(seconds);
  return 0;
}

}  // extern "C"
