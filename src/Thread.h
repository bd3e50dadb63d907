// Threads of the library: named, and with all signals blocked, which are the client's business, but for those that a
// thread raises itself by what it does: a crash handler of the client is to see them.
#pragma once

#include <pthread.h>

#include <csignal>
#include <string>
#include <thread>
#include <utility>

namespace vorn {

/** Starts a thread that runs `body`. `name` has at most 15 characters. Throws std::system_error as std::thread does. */
template <class Body>
std::thread StartThread(const std::string& name, Body body) {
  // The new thread inherits the mask, so that no signal finds it before it could block them itself.
  class BlockedSignals {
   public:
    BlockedSignals() {
      sigset_t all;
      sigfillset(&all);
      for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) sigdelset(&all, own);
      pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

   private:
    sigset_t before;
  };
  const BlockedSignals blocked;
  std::thread thread(std::move(body));
  pthread_setname_np(thread.native_handle(), name.c_str());
  return thread;
}

}  // namespace vorn
