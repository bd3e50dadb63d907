#include "History.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "Words.h"

namespace vrdb {
namespace {

constexpr long MOST_LINES = 1000;

std::string AbsolutePath(const char* variable) {
  const char* path = std::getenv(variable);
  return path && path[0] == '/' ? path : "";
}

void MakeFoldersOf(const std::string& file) {
  for (auto slash = file.find('/', 1); slash != std::string::npos; slash = file.find('/', slash + 1)) {
    mkdir(file.substr(0, slash).c_str(), 0700);
  }
}

void Write(const std::string& file, int flags, const Words& lines) {
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0600);
  if (fd < 0) return;
  fchmod(fd, 0600);
  const std::string text = Join(lines, "\n") + "\n";
  if (write(fd, text.data(), text.size()) < 0) std::perror("vrdb: history");
  close(fd);
}

Words Read(const std::string& file) {
  Words lines;
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

}  // namespace

std::string HistoryFile() {
  std::string folder = AbsolutePath("XDG_STATE_HOME");
  if (folder.empty() && !AbsolutePath("HOME").empty()) folder = AbsolutePath("HOME") + "/.local/state";
  return folder.empty() ? "" : folder + "/vrdb/history";
}

LineHistory::LineHistory() : history(history_init()), file(HistoryFile()) {
  HistEvent event;
  ::history(history, &event, H_SETSIZE, static_cast<int>(MOST_LINES));
  ::history(history, &event, H_SETUNIQUE, 1);
  if (file.empty()) return;
  MakeFoldersOf(file);
  Words lines = Read(file);
  if (lines.size() > 2 * MOST_LINES) {
    lines.erase(lines.begin(), lines.end() - MOST_LINES);
    Write(file, O_TRUNC, lines);
  }
  for (const std::string& line : lines) ::history(history, &event, H_ENTER, line.c_str());
}

LineHistory::~LineHistory() { history_end(history); }

void LineHistory::Add(const std::string& line) {
  HistEvent event;
  ::history(history, &event, H_ENTER, line.c_str());
  if (!file.empty()) Write(file, O_APPEND, {line});
}

void LineHistory::AttachTo(EditLine* editor) { el_set(editor, EL_HIST, ::history, history); }

}  // namespace vrdb
