#include "Program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

namespace vorn_web {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

class Descriptor {
 public:
  explicit Descriptor(int newFd) : fd(newFd) {}
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  operator int() const { return fd; }  // NOLINT(google-explicit-constructor): stands for its number
  void Close() {
    if (fd >= 0) close(fd);
    fd = -1;
  }

 private:
  int fd;
};

/** A file in memory with this text, to be read from its beginning; negative: there is none. */
int FileOf(std::string_view text) {
  const int fd = memfd_create("input", MFD_CLOEXEC);
  while (fd >= 0 && !text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written <= 0) return close(fd), -1;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  if (fd >= 0) lseek(fd, 0, SEEK_SET);
  return fd;
}

/** @return 0, or an error number. The child takes signals as any program does, whatever we do with them. */
int Spawn(std::vector<std::string>& words, int from, int to, pid_t& child) {
  std::vector<char*> arguments(words.size() + 1);  // ends with a null
  std::ranges::transform(words, arguments.begin(), [](std::string& word) { return word.data(); });
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, from, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&files, to, STDOUT_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  const int error = posix_spawnp(&child, words[0].c_str(), &files, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  return error;
}

/** What comes until the other end is closed. @return whether that was in time. */
bool ReadAll(int fd, milliseconds limit, std::string& text) {
  std::array<char, 65536> part;
  for (const auto end = Clock::now() + limit;;) {
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    pollfd one{fd, POLLIN, 0};
    const int ready = left.count() > 0 ? poll(&one, 1, static_cast<int>(left.count())) : 0;
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return false;
    const ssize_t got = read(fd, part.data(), part.size());
    if (got <= 0) return true;
    text.append(part.data(), static_cast<std::size_t>(got));
  }
}

std::string HowItEnded(int status) {
  if (WIFSIGNALED(status)) return std::string("was killed: ") + strsignal(WTERMSIG(status));
  return "ended with exit status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

ProgramResult RunProgram(std::vector<std::string> words, const std::string& input, milliseconds limit) {
  ProgramResult result;
  const std::string name = '\'' + words[0] + '\'';
  const Descriptor from(FileOf(input));
  int ends[2];
  if (from < 0 || pipe2(ends, O_CLOEXEC) != 0) {
    result.problem = std::string("no descriptors for ") + name + ": " + std::strerror(errno);
    return result;
  }
  const Descriptor ours(ends[0]);
  Descriptor its(ends[1]);
  pid_t child = 0;
  if (const int error = Spawn(words, from, its, child); error != 0) {
    result.problem = name + " does not run: " + std::strerror(error);
    return result;
  }
  its.Close();
  const bool inTime = ReadAll(ours, limit, result.output);
  if (!inTime) kill(child, SIGKILL);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  if (!inTime) {
    result.problem = name + " took longer than " + std::to_string(limit.count() / 1000) + " s";
  } else if (status != 0) {
    result.problem = name + ' ' + HowItEnded(status);
  }
  return result;
}

}  // namespace vorn_web
