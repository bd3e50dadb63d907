// The way of a line: the filter, which drops most of them; Line, which composes it; Sink, which writes it whole.
#include "tlogging.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory_resource>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string>
#include <string_view>

namespace {

// A level's number is the index here; 0 prints nothing.
constexpr std::string_view LETTERS = "-FEWIDV";
constexpr std::string_view COLOURS[] = {"", "\033[1;31m", "\033[31m", "\033[33m", "\033[32m", "\033[36m", "\033[2m"};
constexpr std::string_view COLOUR_OFF = "\033[0m";
constexpr std::string_view CUT_HERE = "...\n";
constexpr size_t STACK_BYTES = 1024;

constexpr int NumberOf(char letter) {
  switch (letter) {
    case 'F': return 1;
    case 'E': return 2;
    case 'W': return 3;
    case 'I': return 4;
    case 'D': return 5;
    default: return 6;
  }
}

/** A place that lines go to. */
class Sink {
 public:
  constexpr explicit Sink(int firstDescriptor) : descriptor(firstDescriptor) {}

  bool IsOpen() const { return descriptor.load(std::memory_order_relaxed) >= 0; }
  bool IsTerminal() const { return isatty(descriptor.load(std::memory_order_relaxed)) == 1; }

  void Write(std::string_view line) {
    const std::lock_guard lock(mutex);
    while (!line.empty() && IsOpen()) {
      const ssize_t written = write(descriptor, line.data(), line.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return;
      line.remove_prefix(written);
    }
  }

  /** @return the descriptor before, which no thread uses any more: it is the caller's to close. */
  int Replace(int newDescriptor) {
    const std::lock_guard lock(mutex);
    return descriptor.exchange(newDescriptor);
  }

 private:
  // Held for all of a line: a pipe takes a long one in pieces, and the descriptor must not be closed under a write.
  std::mutex mutex;
  std::atomic<int> descriptor;  // changes under the mutex
};

/** The last lines, for who looks into the process later. */
class Recent {
 public:
  void Keep(std::string_view line) {
    const std::lock_guard lock(mutex);
    Slot& slot = slots[kept++ % COUNT];
    slot.length = std::min(line.size(), sizeof slot.text);
    std::copy_n(line.data(), slot.length, slot.text);
    if (slot.length < line.size())
      std::copy(CUT_HERE.begin(), CUT_HERE.end(), slot.text + slot.length - CUT_HERE.size());
  }

  /** As many of the last lines as fit. @return their bytes. */
  size_t Copy(char* to, size_t size) {
    const std::lock_guard lock(mutex);
    size_t first = kept;
    for (size_t left = size; first > 0 && kept - first < COUNT; --first) {
      const size_t length = slots[(first - 1) % COUNT].length;
      if (length > left) break;
      left -= length;
    }
    char* end = to;
    for (; first < kept; ++first) end = std::copy_n(slots[first % COUNT].text, slots[first % COUNT].length, end);
    return end - to;
  }

 private:
  static constexpr size_t COUNT = TLOGGING_RECENT_LINES;
  struct Slot {
    size_t length;
    char text[TLOGGING_RECENT_BYTES];
  };

  std::mutex mutex;
  size_t kept = 0;
  Slot slots[COUNT]{};
};

constinit Recent recent;

constinit std::atomic<int> maxLevel{4};
constinit std::atomic<unsigned> options{TLOGGING_NO_POSITION};
constinit std::atomic<bool> colours{false};

// Nothing is destroyed at exit, where threads may still print.
constinit Sink standardOutput{STDOUT_FILENO};
constinit Sink standardError{STDERR_FILENO};
constinit Sink logFile{-1};

// Held while a line goes out, and alone while its ways change: once a way is shut, no line comes there any more.
constinit std::shared_mutex ways;

struct Source {
  const char* file;
  int line;
  const char* func;
};

/** One line in the making: its storage is the stack as long as it fits. */
class Line {
 public:
  explicit Line(int levelNumber) : level(levelNumber) { text.reserve(STACK_BYTES - 1); }

  /** @return the length of the text; negative when it could not be formatted: then the line shows the bare format. */
  [[gnu::format(printf, 3, 0)]] int Compose(const Source* source, const char* format, va_list args) {
    AppendHead();
    va_list again;
    va_copy(again, args);
    int length = -1;
    try {
      length = AppendText(format, args, again);
      if (source) AppendSource(*source);
      text += '\n';
    } catch (const std::bad_alloc&) {
      text.replace(text.size() - CUT_HERE.size(), CUT_HERE.size(), CUT_HERE);
    }
    va_end(again);
    return length;
  }

  /** Puts the level in its colour, if there is memory for that. */
  void Paint() try {
    text.reserve(text.size() + COLOURS[level].size() + COLOUR_OFF.size());
    text.insert(letterAt + 1, COLOUR_OFF).insert(letterAt, COLOURS[level]);
  } catch (const std::bad_alloc&) {
  }

  std::string_view Text() const { return text; }

 private:
  void AppendHead() {
    timespec now{};
    tm local{};
    char thread[16] = "";
    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, &local);
    prctl(PR_GET_NAME, thread);

    char head[96];
    const size_t clock = strftime(head, sizeof head, "%F %T", &local);
    const int rest = snprintf(head + clock, sizeof head - clock, ".%06ld %d %s ", now.tv_nsec / 1000, gettid(), thread);
    letterAt = clock + rest;
    (text.append(head, letterAt) += LETTERS[level]) += ' ';
  }

  // In two steps, for a text that the stack cannot hold: the va_list is spent after the first.
  [[gnu::format(printf, 2, 0)]] int AppendText(const char* format, va_list args, va_list again) {
    const size_t start = text.size();
    text.resize(text.capacity());
    const int length = vsnprintf(&text[start], text.size() - start + 1, format, args);
    const size_t end = start + std::max(length, 0);
    if (end > text.size()) {
      text.resize(end);
      vsnprintf(&text[start], length + 1, format, again);
    }
    text.resize(end);
    if (length < 0) text.append(format);
    while (text.size() > start && text.back() == '\n') text.pop_back();
    return length;
  }

  void AppendSource(const Source& source) {
    char line[16];
    snprintf(line, sizeof line, ":%d ", source.line);
    text.append(" (").append(source.file).append(line).append(source.func).append(")");
  }

  const int level;
  size_t letterAt = 0;
  char stack[STACK_BYTES];
  std::pmr::monotonic_buffer_resource memory{stack, sizeof stack, std::pmr::new_delete_resource()};
  std::pmr::string text{&memory};
};

// Terminals come last: the colour changes the line.
void Deliver(Line& line) {
  const std::shared_lock lock(ways);
  const unsigned bits = options.load(std::memory_order_relaxed);
  if (logFile.IsOpen()) logFile.Write(line.Text());
  Sink* const out = bits & TLOGGING_STDOUT ? &standardOutput : nullptr;
  Sink* const err = bits & TLOGGING_STDERR ? &standardError : nullptr;
  const bool mayColour = colours.load(std::memory_order_relaxed);
  const bool colourOut = out && mayColour && out->IsTerminal();
  const bool colourErr = err && mayColour && err->IsTerminal();
  if (out && !colourOut) out->Write(line.Text());
  if (err && !colourErr) err->Write(line.Text());
  if (colourOut || colourErr) line.Paint();
  if (colourOut) out->Write(line.Text());
  if (colourErr) err->Write(line.Text());
}

// Kept out of the filter's function, whose way out must not pay for this one's stack.
[[gnu::noinline, gnu::format(printf, 3, 0)]] int PrintLine(int level, const Source& source, const char* format,
                                                           va_list args) {
  const unsigned bits = options.load(std::memory_order_relaxed);
  const int callersErrno = errno;
  Line line(level);
  const int length = line.Compose(bits & TLOGGING_NO_POSITION ? nullptr : &source, format, args);
  recent.Keep(line.Text());
  const bool goesOut = (bits & (TLOGGING_STDOUT | TLOGGING_STDERR)) != 0 || logFile.IsOpen();
  if (goesOut) Deliver(line);
  errno = callersErrno;
  return goesOut ? length : 0;
}

bool WantsColours() {
  const char* noColour = getenv("NO_COLOR");
  return !noColour || !*noColour;
}

}  // namespace

int _tlogging_print(char level, const char* file, int line, const char* func, const char* format, ...) {
  const int number = NumberOf(level);
  if (number > maxLevel.load(std::memory_order_relaxed)) return 0;
  va_list args;
  va_start(args, format);
  const int length = PrintLine(number, {file ? file : "?", line, func ? func : "?"}, format, args);
  va_end(args);
  return length;
}

size_t _tlogging_recent(char* text, size_t size) { return recent.Copy(text, size); }

int _tlogging_set_level(int level) { return maxLevel.exchange(level, std::memory_order_relaxed); }

int _tlogging_set_file(const char* path) {
  const int opened = path ? open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0644) : -1;
  const int result = path && opened < 0 ? -errno : 0;
  const std::lock_guard lock(ways);
  const int before = logFile.Replace(opened);
  if (before >= 0) close(before);
  return result;
}

int _tlogging_enable_options(unsigned bits) {
  const std::lock_guard lock(ways);
  if (bits & (TLOGGING_STDOUT | TLOGGING_STDERR)) colours.store(WantsColours(), std::memory_order_relaxed);
  return static_cast<int>(options.fetch_or(bits, std::memory_order_relaxed) | bits);
}

int _tlogging_disable_options(unsigned bits) {
  const std::lock_guard lock(ways);
  return static_cast<int>(options.fetch_and(~bits, std::memory_order_relaxed) & ~bits);
}
