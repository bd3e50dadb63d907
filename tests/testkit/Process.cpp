#include "testkit/Process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <thread>

namespace testkit {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

pid_t Spawn(const fs::path& folder, std::vector<std::string>& command) {
  std::vector<char*> words;
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "stdout", O_CREAT | O_TRUNC | O_WRONLY, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, "stderr", O_CREAT | O_TRUNC | O_WRONLY, 0600);
  // A shell has what it starts in the background ignore SIGINT, and with it these tests and their children.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t heard;
  sigemptyset(&heard);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&heard, signal);
  posix_spawnattr_setsigdefault(&attributes, &heard);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t child = 0;
  const int error = posix_spawn(&child, words[0], &actions, &attributes, words.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error(command[0] + ": cannot be started");
  return child;
}

bool IsTime(const Interruption& interruption) {
  std::error_code missing;
  const auto size = fs::file_size(interruption.file, missing);
  return !missing && (size > 0 || interruption.mayBeEmpty);
}

template <class Condition>
bool Await(Clock::time_point deadline, const Condition& holds) {
  while (!holds()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(200us);
  }
  return true;
}

}  // namespace

std::function<void(pid_t)> Signals(std::vector<int> signals) {
  return [signals](pid_t program) {
    for (const int signal : signals) kill(program, signal);
  };
}

std::chrono::milliseconds HangLimit() {
  const char* const seconds = std::getenv("VORN_TEST_PATIENCE");
  return seconds == nullptr ? 20s : std::chrono::seconds(std::atol(seconds));
}

Ended RunIn(const fs::path& folder, std::vector<std::string> command, const std::optional<Interruption>& interruption) {
  const pid_t child = Spawn(folder, command);
  const Clock::time_point deadline = Clock::now() + HangLimit();
  int status = 0;
  bool isOver = false;
  const auto hasEnded = [&] { return isOver = isOver || waitpid(child, &status, WNOHANG) == child; };
  if (interruption && Await(deadline, [&] { return hasEnded() || IsTime(*interruption); })) {
    std::this_thread::sleep_for(interruption->later);  // the moment is random, whatever is going on
    if (!hasEnded()) interruption->act(child);
  }
  Ended ended;
  ended.hung = !Await(deadline, hasEnded);
  if (ended.hung) kill(child, SIGKILL), waitpid(child, &status, 0);
  ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  ended.out = Contents(folder / "stdout");
  ended.err = Contents(folder / "stderr");
  return ended;
}

}  // namespace testkit
