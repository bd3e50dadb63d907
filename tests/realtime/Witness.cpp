#include "Witness.h"

#include <linux/prctl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <ucontext.h>

#include <cerrno>
#include <utility>

#include "testkit/Interpose.h"

namespace witness {

Deeds seen;

namespace {

constinit thread_local bool isWatched = false;
constinit thread_local bool isDispatched = false;
constinit thread_local volatile char selector = SYSCALL_DISPATCH_FILTER_ALLOW;
constinit thread_local Deeds deeds;

void See(unsigned long& count) {
  if (isWatched) ++count;
}

/** Lets the call happen after all, and those that follow until the next Watch. */
void OnCall(int, siginfo_t* info, void* context) {
  constexpr long BYTES_OF_SYSCALL = 2;
  selector = SYSCALL_DISPATCH_FILTER_ALLOW;
  deeds.call = info->si_syscall;
  static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RIP] -= BYTES_OF_SYSCALL;
}

/** From here on the kernel asks the selector before each call of this thread. */
void Dispatch() {
  struct sigaction action {};
  action.sa_sigaction = OnCall;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSYS, &action, nullptr);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, SIGSYS);
  pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
  prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_ON, 0, 0, &selector);
  isDispatched = true;
}

}  // namespace

std::string Deeds::Text() const {
  return std::string(memory != 0 ? "m" : "") + (locks != 0 ? "l" : "") + (call >= 0 ? "s" : "");
}

void Watch() {
  if (!isDispatched) Dispatch();
  isWatched = true;
  selector = SYSCALL_DISPATCH_FILTER_BLOCK;
}

void Rest() {
  selector = SYSCALL_DISPATCH_FILTER_ALLOW;
  isWatched = false;
  if (isDispatched) prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_OFF, 0, 0, 0);
  isDispatched = false;
  seen = std::exchange(deeds, {});
}
}  // namespace witness

#define SEEN(count, call) (witness::See(witness::deeds.count), call)

#pragma GCC visibility push(default)
extern "C" {
void* malloc(std::size_t bytes) { return SEEN(memory, __libc_malloc(bytes)); }
void* calloc(std::size_t count, std::size_t bytes) { return SEEN(memory, __libc_calloc(count, bytes)); }
void* realloc(void* old, std::size_t bytes) { return SEEN(memory, __libc_realloc(old, bytes)); }
void* memalign(std::size_t alignment, std::size_t bytes) { return SEEN(memory, __libc_memalign(alignment, bytes)); }
void* aligned_alloc(std::size_t alignment, std::size_t bytes) { return memalign(alignment, bytes); }
int posix_memalign(void** memory, std::size_t alignment, std::size_t bytes) {
  return (*memory = memalign(alignment, bytes)) != nullptr ? 0 : ENOMEM;
}
void free(void* memory) {
  if (memory != nullptr) SEEN(memory, __libc_free(memory));
}

#define LOCKS(function, Lock)       \
  int function(Lock* lock) {        \
    REAL(function);                 \
    return SEEN(locks, real(lock)); \
  }
LOCKS(pthread_mutex_lock, pthread_mutex_t)
LOCKS(pthread_rwlock_rdlock, pthread_rwlock_t)
LOCKS(pthread_rwlock_wrlock, pthread_rwlock_t)
}
#pragma GCC visibility pop
