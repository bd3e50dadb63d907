#include "GraphPicture.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "LocalCommands.h"

namespace vrdb {
namespace {

constexpr std::array FORMS = {"dot", "svg", "png", "pdf"};

// What the text leaves open. A route reads from left to right.
constexpr std::array LOOK = {"-Grankdir=LR",  "-Gfontname=Helvetica", "-Gfontsize=11", "-Nfontname=Helvetica",
                             "-Nfontsize=12", "-Efontname=Helvetica", "-Efontsize=9",  "-Earrowsize=0.7"};

std::string FormOf(const std::string& file) {
  const auto dot = file.rfind('.');
  const std::string ending = dot == std::string::npos ? "" : file.substr(dot + 1);
  return std::find(FORMS.begin(), FORMS.end(), ending) == FORMS.end() ? "" : ending;
}

Result Failure(const std::string& what, const std::string& file) {
  return {FAILED, what + " '" + file + "': " + std::strerror(errno)};
}

bool WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written < 0 && errno != EINTR) return false;
    text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
  return true;
}

/** A file beside the one to write, which takes its place when all went well and is gone otherwise. */
class NewFile {
 public:
  explicit NewFile(const std::string& file)
      : goal(file), name(file + ".XXXXXX"), fd(mkostemp(name.data(), O_CLOEXEC)) {}
  ~NewFile() {
    if (fd < 0) return;
    close(fd);
    if (!inPlace) unlink(name.c_str());
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /** Where to write; negative: it could not be made. */
  int Descriptor() const { return fd; }

  bool PutInPlace() {
    const mode_t mask = umask(0);
    umask(mask);
    inPlace = fchmod(fd, 0666 & ~mask) == 0 && std::rename(name.c_str(), goal.c_str()) == 0;
    return inPlace;
  }

 private:
  const std::string goal;
  std::string name;
  const int fd;
  bool inPlace = false;
};

// Runs "dot -Tform" from one file to another. 0, or an error number, or minus the exit status.
int RunDot(const std::string& form, int from, int to) {
  std::vector<std::string> words = {"dot", "-T" + form};
  words.insert(words.end(), LOOK.begin(), LOOK.end());
  std::vector<char*> arguments(words.size() + 1);  // ends with a null
  std::transform(words.begin(), words.end(), arguments.begin(), [](std::string& word) { return word.data(); });
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, from, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&files, to, STDOUT_FILENO);
  pid_t child = 0;
  const int error = posix_spawnp(&child, "dot", &files, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  if (error != 0) return error;
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  return WIFEXITED(status) ? -WEXITSTATUS(status) : -128 - WTERMSIG(status);
}

Result Draw(const std::string& graph, const std::string& form, int to) {
  const int from = memfd_create("graph", MFD_CLOEXEC);
  if (from < 0 || !WriteAll(from, graph) || lseek(from, 0, SEEK_SET) < 0) return Failure("cannot hold", "graph");
  const int failed = RunDot(form, from, to);
  close(from);
  if (failed == 0) return {};
  if (failed == ENOENT) {
    return {FAILED,
            "drawing takes Graphviz, and there is no 'dot' in PATH; install it: apt install graphviz (Debian), "
            "dnf install graphviz (Fedora)"};
  }
  const std::string how = failed > 0 ? std::strerror(failed) : "exit status " + std::to_string(-failed);
  return {FAILED, "'dot -T" + form + "' failed (" + how + "); 'graph FILE.dot' keeps the text of the graph"};
}

}  // namespace

Result WriteGraph(const std::string& graph, const std::string& file) {
  const std::string form = FormOf(file);
  NewFile picture(file);
  if (picture.Descriptor() < 0) return Failure("cannot write", file);
  if (form == "dot") {
    if (!WriteAll(picture.Descriptor(), graph)) return Failure("cannot write", file);
  } else if (Result result = Draw(graph, form, picture.Descriptor()); result.code != DONE) {
    return result;
  }
  return picture.PutInPlace() ? Result{} : Failure("cannot write", file);
}

Result RunGraph(Shell& shell, const Words& words) {
  if (words.size() > 1 && FormOf(words[1]).empty()) {
    return {WRONG_USAGE, "'" + words[1] + "': expected a file that ends in .svg, .png, .pdf or .dot"};
  }
  Json seen, stats;
  if (Result result = shell.Look({"graph"}, seen); result.code != DONE) return result;
  if (Result result = shell.Look({"stats"}, stats); result.code != DONE) return result;
  const std::string graph = GraphText(seen, stats);
  if (words.size() > 1) return WriteGraph(graph, words[1]);
  std::fputs(graph.c_str(), stdout);
  return {};
}

}  // namespace vrdb
