#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>

#include "Top.h"
#include "support/Format.h"

namespace vrdb {
namespace {

using support::Format;

using Clock = std::chrono::steady_clock;

constexpr std::array INTERVALS = {0.1, 0.2, 0.5, 1.0, 2.0, 5.0, 10.0};
constexpr std::chrono::milliseconds PATIENCE{2000};

/** Puts one line together, cut at the width of the screen. */
class Line {
 public:
  Line(int columns, const Style& looks) : left(static_cast<std::size_t>(std::max(columns, 0))), style(looks) {}

  Line& Add(std::string part, Look look = Look::PLAIN) {
    part.resize(std::min(part.size(), left));
    left -= part.size();
    std::replace_if(
        part.begin(), part.end(), [](unsigned char c) { return c < ' ' || c == 127; }, '?');
    text += style(look, part);
    return *this;
  }
  /** Adds `part` in a field: at least `width` wide, text to its left. */
  Line& Left(std::string part, std::size_t width, Look look = Look::PLAIN) {
    part.resize(std::max(part.size(), width), ' ');
    return Add(part, look).Add(" ");
  }
  Line& Right(const std::string& part, std::size_t width, Look look = Look::PLAIN) {
    return Add(std::string(width - std::min(part.size(), width), ' ') + part, look).Add(" ");
  }
  std::size_t Room() const { return left; }

  std::string text;

 private:
  std::size_t left;
  const Style& style;
};

std::string LinksOf(const BlockStatus& block) {
  Words inputs, outputs;
  for (const EndpointStatus& input : block.inputs) inputs.push_back(input.link);
  for (const EndpointStatus& output : block.outputs) outputs.push_back(output.link);
  return Join(inputs, ",") + (inputs.empty() ? "" : " ") + "->" + (outputs.empty() ? "" : " ") + Join(outputs, ",");
}

Line RouteLine(Line line, const RouteStatus& route, const Rates& rates) {
  const auto rate = rates.FramesPerSecond(route.name);
  line.Left(route.name, 8, Look::BOLD).Left(route.status, 15, LookOfStatus(route.status));
  line.Right(rate ? Format("%.1f", *rate) : "-", 10).Right(std::to_string(route.frames), 16);
  return line.Right(std::to_string(route.errors), 12, rates.HasNewErrors(route.name) ? Look::RED : Look::PLAIN);
}

Line BlockLine(Line line, const BlockStatus& block) {
  line.Add("  ").Left(block.name, 20).Left(LinksOf(block), 16);
  if (block.inputs.empty() && block.outputs.empty()) return line.Add("not linked", Look::DIM);
  const EndpointStatus& shown = block.outputs.empty() ? block.inputs.front() : block.outputs.front();
  line.Left(Format("%uHz %s %uch %ld", shown.rate, shown.format.c_str(), shown.channels, shown.samplesPerFrame), 24);
  if (!shown.micros) return line;
  return line.Right(Format("%.3f", static_cast<double>(*shown.micros) / 1e6), 12);
}

Line FifoLine(Line line, const FifoStatus& fifo) {
  const std::string fill = Format("%4ld%% %ld/%ld", fifo.percent, fifo.samples, fifo.capacity);
  line.Left(fifo.name, 8, Look::BOLD).Add("[");
  const std::size_t width = line.Room() > 30 ? line.Room() - 25 : 5;
  const auto percent = static_cast<std::size_t>(std::clamp(fifo.percent, 0L, 100L));
  const std::size_t full = (width * percent + 50) / 100;
  const bool atEnd = percent == 0 || percent == 100;
  line.Add(std::string(full, '|'), atEnd ? Look::YELLOW : Look::GREEN).Add(std::string(width - full, ' '));
  return line.Add("]" + fill);
}

/** A terminal given over to a live view: another screen, keys as they are typed, signals as a file. */
class Screen {
 public:
  Screen() {
    for (int number : {SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGWINCH}) sigaddset(&signals, number);
    pthread_sigmask(SIG_BLOCK, &signals, &oldSignals);
    signalFile = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    Enter();
  }
  ~Screen() {
    Leave();
    close(signalFile);
    pthread_sigmask(SIG_SETMASK, &oldSignals, nullptr);
  }
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  /** Waits for something typed or signalled; -1 waits for ever. */
  bool Wait(int milliseconds) {
    std::array<pollfd, 2> files = {{{STDIN_FILENO, POLLIN, 0}, {signalFile, POLLIN, 0}}};
    return poll(files.data(), files.size(), milliseconds) > 0;
  }

  /** The next key, 0 when there is none; 'q' as well for what ends the view without a key. */
  char TakeKey() {
    signalfd_siginfo signalled{};
    while (read(signalFile, &signalled, sizeof signalled) > 0) {
      if (signalled.ssi_signo == SIGTSTP) {
        Suspend();
      } else if (signalled.ssi_signo != SIGWINCH) {
        return 'q';
      }
    }
    pollfd keyboard{STDIN_FILENO, POLLIN, 0};
    char key = 0;
    if (poll(&keyboard, 1, 0) <= 0) return 0;
    return read(STDIN_FILENO, &key, 1) == 1 ? key : 'q';
  }

  winsize Size() const {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) < 0 || size.ws_col == 0 || size.ws_row == 0) size = {24, 80, 0, 0};
    return size;
  }

  // What stood there is erased before a line is written: behind a full one the cursor is still on its last character.
  void Show(const std::vector<std::string>& lines) {
    std::string all = "\x1b[H";
    for (const std::string& line : lines) {
      all += &line == &lines.front() ? "" : "\r\n";
      all += (&line == &lines.back() ? "\x1b[J" : "\x1b[K") + line;
    }
    Put(all);
  }

 private:
  void Put(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
  }
  void Enter() {
    tcgetattr(STDIN_FILENO, &oldMode);
    termios mode = oldMode;
    mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &mode);
    Put("\x1b[?1049h\x1b[?25l");
  }
  void Leave() {
    Put("\x1b[?25h\x1b[?1049l");
    tcsetattr(STDIN_FILENO, TCSANOW, &oldMode);
  }
  void Suspend() {
    Leave();
    raise(SIGSTOP);
    Enter();
  }

  sigset_t signals{}, oldSignals{};
  int signalFile = -1;
  termios oldMode{};
};

double NextInterval(double interval, bool longer) {
  const auto above = std::upper_bound(INTERVALS.begin(), INTERVALS.end(), interval);
  if (longer) return above == INTERVALS.end() ? interval : *above;
  const auto at = std::lower_bound(INTERVALS.begin(), INTERVALS.end(), interval);
  return at == INTERVALS.begin() ? interval : *(at - 1);
}

/** The view's loop: a sample each interval, a new picture whenever something changed. */
class Watch {
 public:
  Watch(Shell& toAsk, TopOptions asked) : shell(toAsk), options(asked), oldPatience(toAsk.patience) {
    shell.patience.limit = PATIENCE;
    shell.patience.busy = nullptr;
    shell.patience.cancelled = [this] { return screen.Wait(0); };
  }
  ~Watch() { shell.patience = oldPatience; }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  Result Run() {
    while (!over) {
      if (!paused && Clock::now() >= next) Update();
      if (over) break;
      Draw();
      screen.Wait(paused ? -1 : MillisecondsToNext());
      // A terminal that is gone gives the key that ends it for ever.
      for (char key = 0; !over && (key = screen.TakeKey()) != 0;) Obey(key);
    }
    return {};
  }

 private:
  int MillisecondsToNext() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
    return static_cast<int>(std::max<long>(left, 0));
  }

  void Update() {
    Sample latest = TakeSample(shell);
    if (latest.result.code == CANCELLED) return;
    sample = std::move(latest);
    rates.Add(sample);
    next = sample.when + ToDuration(options.interval);
    over = ++taken == options.count;
  }

  void Draw() {
    const winsize size = screen.Size();
    const std::string state = paused ? "paused" : "every " + Format("%g s", options.interval);
    screen.Show(DrawSample(sample, rates, state, size.ws_col, size.ws_row, shell.style));
  }

  void Obey(char key) {
    switch (key) {
      case 'q': over = true; break;
      case ' ':
      case 'p': paused = !paused; break;
      case '+':
      case '-': options.interval = NextInterval(options.interval, key == '+'); break;
      default: return;
    }
    next = Clock::now();
  }

  Shell& shell;
  TopOptions options;
  const Patience oldPatience;
  Screen screen;
  Sample sample;
  Rates rates;
  Clock::time_point next;
  long taken = 0;
  bool paused = false;
  bool over = false;
};

}  // namespace

std::vector<std::string> DrawSample(const Sample& sample, const Rates& rates, const std::string& state, int columns,
                                    int rows, const Style& style) {
  std::vector<std::string> lines;
  const Line empty(columns, style);
  const auto add = [&](const Line& line) { lines.push_back(line.text); };
  const bool good = sample.result.code == DONE;
  add(Line(empty).Add("vrdb top", Look::BOLD).Add("  " + state + "  (q ends, space pauses, + - interval)", Look::DIM));
  add(Line(empty).Add(good ? Describe(sample.process) : sample.result.message, good ? Look::PLAIN : Look::RED));
  if (good) {
    add(Line(empty));
    add(Line(empty).Add("ROUTE    STATUS            FRAMES/S           FRAMES        ERRORS", Look::DIM));
    add(Line(empty).Add("  BLOCK                LINKS            STREAM                     TIME/S", Look::DIM));
  }
  for (const RouteStatus& route : sample.report.routes) {
    add(RouteLine(empty, route, rates));
    for (const BlockStatus& block : route.blocks) add(BlockLine(empty, block));
  }
  if (good && sample.report.routes.empty()) add(Line(empty).Add("No route"));
  if (!sample.report.fifos.empty()) add(empty);
  for (const FifoStatus& fifo : sample.report.fifos) add(FifoLine(empty, fifo));
  const auto most = static_cast<std::size_t>(std::max(rows, 1));
  if (lines.size() <= most) return lines;
  const std::string rest = std::to_string(lines.size() - most + 1) + " more lines; a taller window shows them";
  lines.resize(most - 1);
  add(Line(empty).Add(rest, Look::DIM));
  return lines;
}

Result WatchOnScreen(Shell& shell, TopOptions options) { return Watch(shell, options).Run(); }

}  // namespace vrdb
