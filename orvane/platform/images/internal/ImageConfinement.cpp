#include <orvane/platform/images/internal/ImageConfinement.h>

#include <orvane/platform/images/internal/ImageMessage.h>

#include <seccomp.h>

#include <malloc.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace orvane::platform {
namespace {

void limit(decltype(RLIMIT_CORE) resource, rlim_t most) {
  const rlimit bounds{.rlim_cur = most, .rlim_max = most};
  setrlimit(resource, &bounds);
}

/// Memory, threads, what is open already, and the clock. A name that the architecture does not know
/// is skipped.
constexpr int kAllowed[] = {
    SCMP_SYS(brk),           SCMP_SYS(munmap),          SCMP_SYS(mremap),
    SCMP_SYS(mprotect),      SCMP_SYS(madvise),         SCMP_SYS(membarrier),
    SCMP_SYS(futex),         SCMP_SYS(set_robust_list), SCMP_SYS(rseq),
    SCMP_SYS(exit),          SCMP_SYS(exit_group),      SCMP_SYS(gettid),
    SCMP_SYS(getpid),        SCMP_SYS(sched_yield),     SCMP_SYS(sched_getaffinity),
    SCMP_SYS(sched_getattr), SCMP_SYS(getcpu),          SCMP_SYS(rt_sigprocmask),
    SCMP_SYS(rt_sigaction),  SCMP_SYS(rt_sigreturn),    SCMP_SYS(restart_syscall),
    SCMP_SYS(read),          SCMP_SYS(pread64),         SCMP_SYS(readv),
    SCMP_SYS(lseek),         SCMP_SYS(_llseek),         SCMP_SYS(fstat),
    SCMP_SYS(fstat64),       SCMP_SYS(close),           SCMP_SYS(dup),
    SCMP_SYS(write),         SCMP_SYS(recvmsg),         SCMP_SYS(sendto),
    SCMP_SYS(send),          SCMP_SYS(clock_gettime),   SCMP_SYS(clock_nanosleep),
    SCMP_SYS(nanosleep),     SCMP_SYS(getrandom)};

/// Memory that `RLIMIT_DATA` counts, and files. It counts neither memory that could be shared nor
/// stacks that grow.
void allowMappings(scmp_filter_ctx filter) {
  constexpr scmp_datum_t kPrivate = MAP_PRIVATE;
  for (const int call : {SCMP_SYS(mmap), SCMP_SYS(mmap2)}) {
    seccomp_rule_add(filter, SCMP_ACT_ALLOW, call, 1,
                     SCMP_A3(SCMP_CMP_MASKED_EQ, MAP_TYPE | MAP_GROWSDOWN, kPrivate));
    seccomp_rule_add(filter, SCMP_ACT_ALLOW, call, 1,
                     SCMP_A3(SCMP_CMP_MASKED_EQ, MAP_ANONYMOUS | MAP_GROWSDOWN, 0));
  }
}

}  // namespace

void limitResources() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // Each further arena would reserve 64 MiB of addresses.
  mallopt(M_ARENA_MAX, 1);
  limit(RLIMIT_DATA, kWorkerMemory);
  // Code and files that are mapped take addresses too, which no decoder can give a size.
  limit(RLIMIT_AS, 2 * kWorkerMemory);
  limit(RLIMIT_FSIZE, 0);
  limit(RLIMIT_CORE, 0);
  // A core dump that goes to a program knows no limit. This ends them all, and tracing.
  prctl(PR_SET_DUMPABLE, 0);
  // Not to keep a file system busy.
  if (chdir("/") != 0) std::_Exit(EXIT_FAILURE);
}

void confine() {
  constexpr rlim_t kDescriptors = 16;
  limit(RLIMIT_NOFILE, kDescriptors);
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ERRNO(EPERM));
  if (filter == nullptr) return;
  for (const int call : kAllowed) seccomp_rule_add(filter, SCMP_ACT_ALLOW, call, 0);
  allowMappings(filter);
  // `abort` sends itself a signal; other processes are out of reach.
  seccomp_rule_add(filter, SCMP_ACT_ALLOW, SCMP_SYS(tgkill), 1,
                   SCMP_A0(SCMP_CMP_EQ, static_cast<scmp_datum_t>(getpid())));
  // Threads, but no processes. The C library asks in the older way when the newer one, whose
  // arguments a filter cannot see, is missing.
  seccomp_rule_add(filter, SCMP_ACT_ALLOW, SCMP_SYS(clone), 1,
                   SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_THREAD, CLONE_THREAD));
  seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0);
  // Names of threads.
  seccomp_rule_add(filter, SCMP_ACT_ALLOW, SCMP_SYS(prctl), 1,
                   SCMP_A0(SCMP_CMP_EQ, PR_SET_NAME, 0));
  seccomp_load(filter);  // Where the kernel has no filters, the limits remain.
  seccomp_release(filter);
}

}  // namespace orvane::platform
