#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <clocale>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <map>

#include "Top.h"
#include "support/Format.h"

namespace vrdb {
namespace {

using support::Format;

using Clock = std::chrono::steady_clock;

constexpr std::array INTERVALS = {0.1, 0.2, 0.5, 1.0, 2.0, 5.0, 10.0};
constexpr std::chrono::milliseconds PATIENCE{1000};
constexpr std::chrono::milliseconds RETRY{500};
constexpr std::chrono::milliseconds LONGEST_WAIT{500};
constexpr int MOST_LINES = 16;  // before keys are looked at again

// A key is one character, or what a terminal sends after an escape.
std::vector<std::string> SplitKeys(std::string_view typed) {
  std::vector<std::string> keys;
  while (!typed.empty()) {
    std::size_t bytes = 1;
    const bool isSequence = typed.size() > 2 && typed[0] == '\x1b' && (typed[1] == '[' || typed[1] == 'O');
    if (isSequence) {
      for (bytes = 2; bytes < typed.size() && (typed[bytes] < '@' || typed[bytes] > '~');) ++bytes;
      bytes = std::min(bytes + 1, typed.size());
    }
    keys.emplace_back(typed.substr(0, bytes));
    typed.remove_prefix(bytes);
  }
  return keys;
}

Key MeaningOf(const std::string& key) {
  static const std::map<std::string, Key> KEYS = {
      {"\x1b[A", Key::UP},       {"\x1bOA", Key::UP},         {"k", Key::UP},
      {"\x1b[B", Key::DOWN},     {"\x1bOB", Key::DOWN},       {"j", Key::DOWN},
      {"\x1b[5~", Key::PAGE_UP}, {"\x1b[6~", Key::PAGE_DOWN}, {"\x1b[H", Key::HOME},
      {"\x1bOH", Key::HOME},     {"\x1b[1~", Key::HOME},      {"g", Key::HOME},
      {"\x1b[F", Key::END},      {"\x1bOF", Key::END},        {"\x1b[4~", Key::END},
      {"G", Key::END},           {"\x1b[D", Key::FOLD},       {"\x1bOD", Key::FOLD},
      {"\x1b[C", Key::UNFOLD},   {"\x1bOC", Key::UNFOLD},     {"f", Key::FOLD_ALL},
      {"s", Key::SORT},          {"r", Key::REVERSE},         {"h", Key::HELP},
      {"?", Key::HELP}};
  const auto found = KEYS.find(key);
  return found == KEYS.end() ? Key::NONE : found->second;
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

  /** Waits for something typed or signalled, or to be read from `other`; -1 waits for ever. */
  bool Wait(int milliseconds, int other) {
    std::array<pollfd, 3> files = {{{STDIN_FILENO, POLLIN, 0}, {signalFile, POLLIN, 0}, {other, POLLIN, 0}}};
    return poll(files.data(), files.size(), milliseconds) > 0;
  }

  /** What was typed since, a string for each key; "q" as well for what ends the view without a key. */
  std::vector<std::string> TakeKeys() {
    signalfd_siginfo signalled{};
    while (read(signalFile, &signalled, sizeof signalled) > 0) {
      if (signalled.ssi_signo == SIGTSTP) {
        Suspend();
      } else if (signalled.ssi_signo != SIGWINCH) {
        return {"q"};
      }
    }
    pollfd keyboard{STDIN_FILENO, POLLIN, 0};
    if (poll(&keyboard, 1, 0) <= 0) return {};
    std::array<char, 256> typed;
    const ssize_t bytes = read(STDIN_FILENO, typed.data(), typed.size());
    if (bytes <= 0) return {"q"};
    return SplitKeys({typed.data(), static_cast<std::size_t>(bytes)});
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

/** The view's loop: one connection that is kept, on which the process pushes, and a new picture whenever something changed. */
class Watch {
 public:
  Watch(Shell& toAsk, TopOptions asked) : shell(toAsk), options(asked) {}
  ~Watch() {
    if (hasSwitchedTiming) Post({"timing", "off"});
    shell.target.Forget();  // what is left on the connection is for nobody
  }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  Result Run() {
    while (!over) {
      if (!IsConnected() && Clock::now() >= nextTry) Connect();
      if (IsConnected()) Hear();
      if (over) break;
      Draw();
      const bool isWaiting = IsConnected() && Monitor()->HasLine();
      screen.Wait(isWaiting ? 0 : static_cast<int>(LONGEST_WAIT.count()), IsConnected() ? Monitor()->Descriptor() : -1);
      // A terminal that is gone gives the key that ends it for ever.
      for (const std::string& key : screen.TakeKeys()) Obey(key);
    }
    return {};
  }

 private:
  support::MonitorClient* Monitor() { return shell.target.Monitor(); }
  bool IsConnected() { return isWatching && Monitor() && Monitor()->Descriptor() >= 0; }

  void Lose(const std::string& why) {
    isWatching = hasSwitchedTiming = false;
    nextTry = Clock::now() + RETRY;
    shell.target.Forget();
    view.Clear();
    view.SetProblem(why);
  }

  void Connect() {
    Patience brief;
    brief.limit = PATIENCE;
    if (const Result result = shell.target.Choose(brief); result.code != DONE) return Lose(result.message);
    isWatching = true;
    lastHeard = Clock::now();
    const bool isThere = Post(WatchRequest()) && Post({"graph"}) && Post({"timing"});
    if (isThere) view.SetProblem("");
  }

  Words WatchRequest() const {
    return {"watch", paused ? "0" : std::to_string(std::lround(std::max(options.interval * 1000, 10.0)))};
  }

  bool Post(const Words& request) {
    if (!Monitor()) return false;
    const auto reply = Monitor()->Post(request, {PATIENCE, nullptr});
    if (!reply.IsDone()) Lose(reply.problem);
    return reply.IsDone();
  }

  // Pushes and replies come mixed; `request` says what each is.
  void Hear() {
    for (int lines = 0; lines < MOST_LINES && !over; ++lines) {
      auto reply = Monitor()->Next({std::chrono::milliseconds(1), nullptr});
      if (reply.outcome == support::MonitorOutcome::FAILED) continue;  // an older process does not know all requests
      if (reply.outcome == support::MonitorOutcome::LATE) break;
      if (!reply.IsDone()) return Lose(reply.problem);
      lastHeard = Clock::now();
      Take(std::move(reply.json));
      if (!IsConnected()) return;
    }
    const double silent = std::chrono::duration<double>(Clock::now() - lastHeard).count();
    const bool isLate = !paused && silent > options.interval + 2;
    if (isLate) view.SetProblem(Format("%s has said nothing for %.0f s", shell.target.Name().c_str(), silent));
  }

  void Take(Json reply) {
    const std::string request = support::TextOf(reply, "request");
    if (request == "graph") return view.TakeGraph(std::move(reply));
    if (request == "timing") return view.TakeTiming(std::move(reply));
    const bool isFirstAgain = support::ListOf(reply, "routes").empty() && support::ListOf(reply, "fifos").empty();
    if (support::Member(reply, "routes").is_null() && isFirstAgain) return;  // the end of a watch
    view.TakeStats(std::move(reply));
    over = ++taken == options.count;
    if (Post({"graph"}) && view.IsMeasuring()) Post({"timing"});
  }

  void Draw() {
    const winsize size = screen.Size();
    const std::string state = paused ? "paused" : "every " + Format("%g s", options.interval);
    const std::string pid = std::to_string(shell.target.Process());
    const std::string title = support::ProcessName(shell.target.Process()) + " " + pid;
    screen.Show(view.Draw(title, state, size.ws_col, size.ws_row, shell.style));
  }

  void SwitchTiming() {
    const bool on = !view.IsMeasuring();
    hasSwitchedTiming = Post({"timing", on ? "on" : "off"}) && on;
    if (isWatching) Post({"timing"});
  }

  void Obey(const std::string& key) {
    if (key == "q" || key == "\x03") {
      over = true;
    } else if (key == " " || key == "p") {
      paused = !paused;
      if (IsConnected()) Post(WatchRequest());
    } else if (key == "+" || key == "-") {
      options.interval = NextInterval(options.interval, key == "+");
      if (IsConnected()) Post(WatchRequest());
    } else if (key == "t") {
      if (IsConnected()) SwitchTiming();
    } else {
      view.Obey(MeaningOf(key));
    }
  }

  Shell& shell;
  TopOptions options;
  Screen screen;
  TopView view;
  Clock::time_point nextTry, lastHeard;
  long taken = 0;
  bool isWatching = false;
  bool hasSwitchedTiming = false;
  bool paused = false;
  bool over = false;
};

}  // namespace

Result WatchOnScreen(Shell& shell, TopOptions options) {
  std::setlocale(LC_CTYPE, "C.UTF-8");  // how wide characters are
  return Watch(shell, options).Run();
}

}  // namespace vrdb
