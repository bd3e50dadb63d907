#include "LogTail.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <sstream>
#include <string_view>

#include "tlogging.h"

namespace vorn::graph {
namespace {

constexpr int WARNINGS = 3;
constexpr int LEVEL_OF_SHORT_LINES = 4;  // the level up to which lines go without their source
constexpr std::size_t FORGET_AT = 1 << 20;

/** A line of the log is "date time thread name LEVEL text". */
LogLine Parse(const std::string& line) {
  for (std::size_t i = 1; i + 1 < line.size(); ++i) {
    const bool isAlone = line[i - 1] == ' ' && line[i + 1] == ' ';
    if (isAlone && std::string_view("FEWIDV").find(line[i]) != std::string_view::npos)
      return {line[i], line.substr(i + 2)};
  }
  return {'E', line};
}

std::string ContentsOf(int file) {
  std::string text;
  char piece[4096];
  off_t at = 0;
  for (ssize_t got = 0; (got = pread(file, piece, sizeof piece, at)) > 0; at += got) text.append(piece, got);
  return text;
}

/** Keeps what the process writes to standard error while the object lives, however that ends. */
class HeldErrors {
 public:
  ~HeldErrors() {
    Release();
    close(errors);
    close(held);
  }
  void Release() {
    if (holds) dup2(errors, STDERR_FILENO);
    holds = false;
  }
  std::string Text() const { return ContentsOf(held); }

 private:
  const int held = memfd_create("early.log", MFD_CLOEXEC);
  const int errors = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  bool holds = held >= 0 && errors >= 0 && dup2(held, STDERR_FILENO) >= 0;
};

}  // namespace

// A file in memory and not a pipe: a thread of a route must never wait for this program to read its log.
void LogTail::Take(std::optional<int> level, const std::function<void()>& begin) {
  {
    HeldErrors errors;
    begin();
    TakeNow(level);
    errors.Release();
    early = errors.Text();
  }
  if (isShown && *level > 0) (void)!write(STDERR_FILENO, early.data(), early.size());
}

void LogTail::TakeNow(std::optional<int> level) {
  isShown = level.has_value();
  if (file < 0) file = memfd_create("graph.log", MFD_CLOEXEC);
  const bool isTaken = file >= 0 && _tlogging_set_file(("/proc/self/fd/" + std::to_string(file)).c_str()) == 0;
  if (!isTaken && !isShown) return;
  _tlogging_disable_options(TLOGGING_STDOUT | TLOGGING_STDERR);
  if (isShown) _tlogging_enable_options(TLOGGING_STDERR);
  _tlogging_set_level(level.value_or(WARNINGS));
  if (level.value_or(WARNINGS) > LEVEL_OF_SHORT_LINES) _tlogging_disable_options(TLOGGING_NO_POSITION);
}

LogTail::~LogTail() {
  if (file < 0) return;
  _tlogging_set_file(nullptr);
  close(file);
}

std::vector<LogLine> LogTail::Drain() {
  std::string text;
  char piece[4096];
  for (ssize_t got = 0; (got = pread(file, piece, sizeof piece, position)) > 0; position += got)
    text.append(piece, got);
  if (position > FORGET_AT && ftruncate(file, 0) == 0) position = 0;

  std::vector<LogLine> lines;
  Keep(std::exchange(early, {}), lines);
  Keep(text, lines);
  return lines;
}

void LogTail::Keep(const std::string& text, std::vector<LogLine>& lines) {
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    LogLine parsed = Parse(line);
    const bool isOfConsole = parsed.text.starts_with("Failed to bind, can't listen to vrdb");
    if (!isOfConsole && parsed.level != 'I') lines.push_back(std::move(parsed));
  }
}

}  // namespace vorn::graph
