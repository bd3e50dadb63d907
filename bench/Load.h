// Busy loops beside what is measured.
#pragma once

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <vector>

namespace bench {

/** So many, each a process, for as long as this lives. Make them before the framework makes its threads. */
class Load {
 public:
  explicit Load(long count) {
    for (; count > 0; --count) children.push_back(Spin());
  }
  ~Load() {
    for (const pid_t child : children) kill(child, SIGKILL), waitpid(child, nullptr, 0);
  }
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

 private:
  static pid_t Spin() {
    const pid_t child = fork();
    if (child != 0) return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (volatile long turns = 0;;) turns = turns + 1;
  }

  std::vector<pid_t> children;
};

}  // namespace bench
