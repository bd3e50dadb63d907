#include "CrashNotice.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>

#include <vorn/Route.h>

namespace vorn::run {
namespace {

constexpr int FAILED = 1;

/** One line, in the one place that a handler of signals has: its stack. */
class Line {
 public:
  Line& operator<<(const char* part) {
    if (part == nullptr) return *this;
    const std::size_t bytes = std::min(std::strlen(part), sizeof text - 1 - length);
    std::memcpy(text + length, part, bytes);
    length += bytes;
    return *this;
  }

  /** "RouteA: block 'gain_0'", as far as it is known. */
  Line& operator<<(const Route::Position& at) {
    if (at.route) *this << at.route << ": ";
    if (at.block) return *this << "block '" << at.block << "'";
    return *this << (at.route ? "no block" : "the program");
  }

  void Write() {
    text[length++] = '\n';
    (void)!write(STDERR_FILENO, text, length);
  }

 private:
  char text[512];
  std::size_t length = 0;
};

const char* clear = "";  // of the line of progress that may stand where ours comes to

void TakeDefault(int signal) { std::signal(signal, SIG_DFL); }

// The signal comes again when this returns, to its default action and in the place that it came from.
void OnCrash(int signal) {
  Line line;
  (line << clear << "vorn-run: " << Route::Here() << " crashed: " << sigdescr_np(signal)).Write();
  TakeDefault(signal);
  std::raise(signal);
}

[[noreturn]] void OnTerminate() {
  Line line;
  line << clear << "vorn-run: " << Route::Here();
  try {
    if (const auto thrown = std::current_exception()) std::rethrow_exception(thrown);
    line << " called std::terminate";
  } catch (const std::bad_alloc&) {
    (line << ": out of memory").Write();
    _exit(FAILED);
  } catch (const std::exception& e) {
    line << " threw: " << e.what();
  } catch (...) {
    line << " threw what is no std::exception";
  }
  line.Write();
  TakeDefault(SIGABRT);
  std::abort();
}

void OnExit() {
  const Route::Position at = Route::Here();
  if (!at.route) return;
  Line line;
  (line << clear << "vorn-run: " << at << " ended the process").Write();
  _exit(FAILED);
}

// As early as can be: what is made before main() may find no memory either.
[[gnu::constructor(101)]] void NameWhoCrashes() {
  if (isatty(STDERR_FILENO) == 1) clear = "\r\033[K";
  std::set_terminate(OnTerminate);
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler != SIG_DFL) continue;  // a sanitizer's, which tells more
    action = {};
    action.sa_handler = OnCrash;
    sigaction(signal, &action, nullptr);
  }
}

}  // namespace

void NameWhoExits() { std::atexit(OnExit); }

}  // namespace vorn::run
