#include "Save.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "support/Printable.h"
#include "support/WholeFile.h"

namespace vrdb {

std::string FolderOf(pid_t process) {
  std::error_code none;
  return std::filesystem::read_symlink("/proc/" + std::to_string(process) + "/cwd", none).string();
}

Result LookAtGraph(Shell& shell, Json& graph, SavedGraph& saved) {
  Json parameters;
  if (Result result = shell.Look({"graph"}, graph); result.code != DONE) return result;
  if (Result result = shell.Look({"params"}, parameters); result.code != DONE) return result;
  saved = SaveGraph(graph, parameters, FolderOf(shell.target.Process()));
  if (saved.text.empty()) return {FAILED, "nothing to save: " + shell.target.Name() + " has no block"};
  for (const std::string& what : saved.leftOut) shell.Notice("left out: " + what);
  return {};
}

Result RunSave(Shell& shell, const Words& words) {
  Json graph;
  SavedGraph saved;
  if (Result result = LookAtGraph(shell, graph, saved); result.code != DONE) return result;
  if (words.size() < 2 || words[1] == "-") {
    const bool isShown = isatty(STDOUT_FILENO) == 1;
    std::fputs((isShown ? support::PrintableLines(saved.text) : saved.text).c_str(), stdout);
    return {};
  }
  const std::string problem = support::WriteWhole(words[1], saved.text);
  return problem.empty() ? Result{} : Result{FAILED, problem};
}

}  // namespace vrdb
