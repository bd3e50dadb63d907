// use PROGRAM ARGUMENT...: runs a program without its output, and prints what it used: nanoseconds on the clock, those
// of the processor, the most memory in KiB. A small parent, as the kernel counts the memory of whoever forks to the
// child.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Measure.h"

namespace {

double Nanoseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_usec) * 1e3;
}

}  // namespace

int main(int argc, char** argv) {
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  const double begin = bench::ReadClock(CLOCK_MONOTONIC);
  const pid_t child = argc > 1 ? vfork() : -1;
  if (child == 0) {
    dup2(nowhere, 0);
    dup2(nowhere, 1);
    execvp(argv[1], argv + 1);
    _exit(127);
  }
  int status = 0;
  rusage used{};
  if (wait4(child, &status, 0, &used) != child || status != 0) bench::Die("the program failed");
  std::printf("%.0f\t%.0f\t%ld\n", bench::ReadClock(CLOCK_MONOTONIC) - begin,
              Nanoseconds(used.ru_utime) + Nanoseconds(used.ru_stime), used.ru_maxrss);
}
