// Loaded into a program before the C library: lets the program end, or fail, at one of its calls
// that change a file.
//
// environment: CRASH_AT   the number of the call, from 1 on
//              CRASH_HOW  "kill" before it, "tear" after half of what it writes, or "fail": it
//                         returns ENOSPC, and all later ones do what they should

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr int kNoDescriptor = -1;

const char* setting(const char* name) {
  const char* const value = getenv(name);
  return value == nullptr ? "0" : value;
}

bool isRegular(int file) {
  struct stat status{};
  return fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

/// Whether the call is the one that is asked for.
bool isDue(int file) {
  static std::atomic<long> calls = 0;
  static const long at = strtol(setting("CRASH_AT"), nullptr, 10);
  return (file == kNoDescriptor || isRegular(file)) && ++calls == at;
}

/// Whether this call is to fail. Does not return where the program is to end; `tear` writes a half.
template <class Tear>
bool mustFail(int file, Tear tear) {
  if (!isDue(file)) return false;
  const std::string_view how = setting("CRASH_HOW");
  if (how == "tear") tear();
  if (how != "fail") raise(SIGKILL);
  errno = ENOSPC;
  return true;
}

template <class... Arguments>
int change(int file, long call, Arguments... arguments) {
  return mustFail(file, [] {}) ? -1 : static_cast<int>(syscall(call, arguments...));
}

ssize_t writeAt(int file, const void* data, size_t size, off_t offset) {
  if (mustFail(file, [&] { syscall(SYS_pwrite64, file, data, size / 2, offset); })) return -1;
  return syscall(SYS_pwrite64, file, data, size, offset);
}

}  // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED ssize_t write(int file, const void* data, size_t size) {
  if (mustFail(file, [&] { syscall(SYS_write, file, data, size / 2); })) return -1;
  return syscall(SYS_write, file, data, size);
}
EXPORTED ssize_t pwrite(int file, const void* data, size_t size, off_t offset) {
  return writeAt(file, data, size, offset);
}
EXPORTED ssize_t pwrite64(int file, const void* data, size_t size, off_t offset) {
  return writeAt(file, data, size, offset);
}
EXPORTED int fsync(int file) { return change(kNoDescriptor, SYS_fsync, file); }
EXPORTED int fdatasync(int file) { return change(kNoDescriptor, SYS_fdatasync, file); }
EXPORTED int ftruncate(int file, off_t size) { return change(file, SYS_ftruncate, file, size); }
EXPORTED int ftruncate64(int file, off_t size) { return change(file, SYS_ftruncate, file, size); }
EXPORTED int rename(const char* from, const char* to) {
  return change(kNoDescriptor, SYS_rename, from, to);
}
EXPORTED int link(const char* from, const char* to) {
  return change(kNoDescriptor, SYS_link, from, to);
}
EXPORTED int unlink(const char* name) { return change(kNoDescriptor, SYS_unlink, name); }
