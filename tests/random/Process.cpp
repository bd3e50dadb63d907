#include "Process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace randomgraphs {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/** With the plug-ins that are made for tests. */
std::vector<std::string> Environment() {
  const std::string name = "LD_LIBRARY_PATH=";
  std::vector<std::string> environment{name + VORN_TEST_PLUGIN_DIR};
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string text = *variable;
    if (text.compare(0, name.size(), name) == 0) {
      environment[0] += ':' + text.substr(name.size());
    } else {
      environment.push_back(text);
    }
  }
  return environment;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

pid_t Spawn(const std::filesystem::path& folder, std::vector<std::string>& command) {
  std::vector<std::string> environment = Environment();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "stdout", O_CREAT | O_TRUNC | O_WRONLY, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, "stderr", O_CREAT | O_TRUNC | O_WRONLY, 0600);
  pid_t child = 0;
  const int error = posix_spawn(&child, command[0].c_str(), &actions, nullptr, Pointers(command).data(),
                                Pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error(command[0] + ": cannot be started");
  return child;
}

/** Says without waiting whether a child has ended, and with poll() when it does. */
class Watch {
 public:
  explicit Watch(pid_t child) : fd(static_cast<int>(syscall(SYS_pidfd_open, child, 0))) {
    if (fd < 0) throw std::runtime_error("pidfd_open is not there");
  }
  ~Watch() { close(fd); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  bool EndsBefore(Clock::time_point deadline) const {
    for (;;) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      pollfd event{fd, POLLIN, 0};
      const int ready = poll(&event, 1, static_cast<int>(std::max<long>(0, left.count())));
      if (ready >= 0 || errno != EINTR) return ready > 0;
    }
  }

 private:
  const int fd;
};

/** Sends the signal, unless the program ends before its time. */
void Interrupt(pid_t child, const Watch& watch, const Interruption& interruption, Clock::time_point deadline) {
  std::error_code none;
  while (std::filesystem::file_size(interruption.file, none) == 0 || none) {
    if (watch.EndsBefore(Clock::now() + 1ms) || Clock::now() >= deadline) return;
  }
  std::this_thread::sleep_for(interruption.later);  // the moment is random, whatever is going on
  kill(child, interruption.signal);
}

}  // namespace

std::chrono::milliseconds HangLimit() {
  const char* const seconds = std::getenv("RANDOM_GRAPHS_TIMEOUT");
  return seconds == nullptr ? 20s : std::chrono::seconds(std::atol(seconds));
}

Ended RunIn(const std::filesystem::path& folder, std::vector<std::string> command,
            const std::optional<Interruption>& interruption) {
  const pid_t child = Spawn(folder, command);
  const Clock::time_point deadline = Clock::now() + HangLimit();
  Ended ended;
  {
    const Watch watch(child);
    if (interruption) Interrupt(child, watch, *interruption, deadline);
    ended.hung = !watch.EndsBefore(deadline);
  }
  if (ended.hung) kill(child, SIGKILL);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  ended.out = Contents(folder / "stdout");
  ended.err = Contents(folder / "stderr");
  return ended;
}

std::string Contents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace randomgraphs
