// For LD_PRELOAD: makes one call of one kind fail.
//
//   VORN_INJECT=KIND:N        the n-th call of that kind in the process fails, counted from 1
//   VORN_INJECT_COUNTS=FILE   how many calls of each kind there were, written when the process exits
//
// Kinds: malloc open read write close output fsync rename link thread. A close that fails has closed nevertheless, as
// the system does; output is the close of a file that was open for writing. Where link fails, the file system is one
// that only renames over what is there. Allocations of libsndfile always succeed: it looks at few of them.
#include <fcntl.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "testkit/Interpose.h"

namespace {

enum Kind { MALLOC, OPEN, READ, WRITE, CLOSE, OUTPUT, FSYNC, RENAME, LINK, THREAD, KINDS, NONE = KINDS };
constexpr const char* NAMES[KINDS] = {"malloc", "open",  "read",   "write", "close",
                                      "output", "fsync", "rename", "link",  "thread"};
constexpr int ERRORS[KINDS] = {ENOMEM, EMFILE, EIO, ENOSPC, EIO, EIO, EIO, EACCES, EMLINK, EAGAIN};

std::atomic<long> calls[KINDS];
std::atomic<bool> counts{false};  // not while the loader is at work
Kind failing = NONE;
long failingCall = 0;

bool IsSpared(void* caller) {
  Dl_info info;
  return caller && dladdr(caller, &info) != 0 && strstr(info.dli_fname, "libsndfile") != nullptr;
}

bool Fails(Kind kind, void* caller = nullptr) {
  if (!counts) return false;
  const long call = ++calls[kind];
  if (kind != failing || call != failingCall || IsSpared(caller)) return false;
  errno = ERRORS[kind];
  return true;
}

/** Memory has no name, so it is none, nor are further descriptors of standard error. */
bool IsOutput(int file) {
  struct stat status, errors;
  return fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink > 0 &&
         (fcntl(file, F_GETFL) & O_ACCMODE) != O_RDONLY && fstat(STDERR_FILENO, &errors) == 0 &&
         status.st_ino != errors.st_ino;
}

[[gnu::constructor]] void Begin() {
  const char* const text = getenv("VORN_INJECT");
  for (int kind = 0; text && kind < KINDS; ++kind) {
    const size_t length = strlen(NAMES[kind]);
    if (strncmp(text, NAMES[kind], length) != 0 || text[length] != ':') continue;
    failing = static_cast<Kind>(kind);
    failingCall = atol(text + length + 1);
  }
  unsetenv("LD_PRELOAD");  // for this process alone
  counts = true;
}

[[gnu::destructor]] void End() {
  counts = false;
  const char* const path = getenv("VORN_INJECT_COUNTS");
  const int file = path ? open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600) : -1;
  for (int kind = 0; kind < KINDS; ++kind) dprintf(file, "%s %ld\n", NAMES[kind], calls[kind].load());
}

}  // namespace

// A function that does not happen where it fails.
#define REFUSE(result, function, kind, failure, parameters, arguments) \
  result function parameters {                                         \
    REAL(function);                                                    \
    return Fails(kind) ? failure : real arguments;                     \
  }
// A function that happens, and fails.
#define SPOIL(function, parameter, argument, file)              \
  int function(parameter) {                                     \
    REAL(function);                                             \
    const bool failsAsOutput = IsOutput(file) && Fails(OUTPUT); \
    const int result = real(argument);                          \
    return Fails(CLOSE) || failsAsOutput ? -1 : result;         \
  }
#define OPENS(function, parameters, arguments)                                             \
  int function parameters {                                                                \
    REAL(function);                                                                        \
    va_list rest;                                                                          \
    va_start(rest, flags);                                                                 \
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, unsigned) : 0; \
    va_end(rest);                                                                          \
    return Fails(OPEN) ? -1 : real arguments;                                              \
  }

extern "C" {
void* malloc(size_t bytes) noexcept {
  return Fails(MALLOC, __builtin_return_address(0)) ? nullptr : __libc_malloc(bytes);
}
void* calloc(size_t count, size_t bytes) noexcept {
  return Fails(MALLOC, __builtin_return_address(0)) ? nullptr : __libc_calloc(count, bytes);
}
void* realloc(void* memory, size_t bytes) noexcept {
  return Fails(MALLOC, __builtin_return_address(0)) ? nullptr : __libc_realloc(memory, bytes);
}
void* aligned_alloc(size_t alignment, size_t bytes) noexcept {
  return Fails(MALLOC, __builtin_return_address(0)) ? nullptr : __libc_memalign(alignment, bytes);
}

OPENS(open, (const char* path, int flags, ...), (path, flags, mode))
OPENS(openat, (int folder, const char* path, int flags, ...), (folder, path, flags, mode))
REFUSE(FILE*, fopen, OPEN, nullptr, (const char* path, const char* mode), (path, mode))
REFUSE(FILE*, fopen64, OPEN, nullptr, (const char* path, const char* mode), (path, mode))
REFUSE(int, memfd_create, OPEN, -1, (const char* name, unsigned flags), (name, flags))
REFUSE(int, eventfd, OPEN, -1, (unsigned count, int flags), (count, flags))
REFUSE(int, socket, OPEN, -1, (int domain, int type, int protocol), (domain, type, protocol))
REFUSE(ssize_t, read, READ, -1, (int file, void* bytes, size_t count), (file, bytes, count))
REFUSE(ssize_t, pread, READ, -1, (int file, void* bytes, size_t count, off_t at), (file, bytes, count, at))
REFUSE(ssize_t, write, WRITE, -1, (int file, const void* bytes, size_t count), (file, bytes, count))
REFUSE(ssize_t, pwrite, WRITE, -1, (int file, const void* bytes, size_t count, off_t at), (file, bytes, count, at))
REFUSE(ssize_t, writev, WRITE, -1, (int file, const iovec* pieces, int count), (file, pieces, count))
REFUSE(int, fflush, WRITE, EOF, (FILE * file), (file))
SPOIL(close, int file, file, file)
SPOIL(fclose, FILE* file, file, fileno(file))
REFUSE(int, fsync, FSYNC, -1, (int file), (file))
REFUSE(int, rename, RENAME, -1, (const char* from, const char* to), (from, to))
int renameat2(int a, const char* from, int b, const char* to, unsigned flags) {
  REAL(renameat2);
  if (failing == LINK) return errno = EINVAL, -1;
  calls[LINK] += 2;  // what takes its place there: a link, and one less
  return Fails(RENAME) ? -1 : real(a, from, b, to, flags);
}
REFUSE(int, link, LINK, -1, (const char* from, const char* to), (from, to))
REFUSE(int, unlink, LINK, -1, (const char* path), (path))
REFUSE(int, pthread_create, THREAD, EAGAIN,
       (pthread_t * thread, const pthread_attr_t* how, void* (*body)(void*), void* argument),
       (thread, how, body, argument))
}
