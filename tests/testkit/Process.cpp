#include "testkit/Process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "testkit/Wait.h"

namespace testkit {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

/** A shell has what it starts in the background ignore SIGINT, and with it these tests: their children hear it. */
pid_t Start(const fs::path& folder, std::vector<std::string>& command) {
  std::vector<char*> words;
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, SIG_DFL);
  if (chdir(folder.c_str()) == 0) {
    dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), 0);
    dup2(open("stdout", O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600), 1);
    dup2(open("stderr", O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600), 2);
    execv(words[0], words.data());
  }
  _exit(126);
}

bool IsTime(const Interruption& interruption) {
  std::error_code missing;
  const auto size = fs::file_size(interruption.file, missing);
  return !missing && (size > 0 || interruption.mayBeEmpty);
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
  const pid_t child = Start(folder, command);
  int status = 0;
  bool isOver = false;
  const auto hasEnded = [&] { return isOver = isOver || waitpid(child, &status, WNOHANG) == child; };
  if (interruption && WaitUntil([&] { return hasEnded() || IsTime(*interruption); }, HangLimit())) {
    std::this_thread::sleep_for(interruption->later);  // the moment is random, whatever is going on
    if (!hasEnded()) interruption->act(child);
  }
  Ended ended;
  ended.hung = !WaitUntil(hasEnded, HangLimit());
  if (ended.hung) kill(child, SIGKILL), waitpid(child, &status, 0);
  ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  ended.out = Contents(folder / "stdout");
  ended.err = Contents(folder / "stderr");
  return ended;
}

}  // namespace testkit
