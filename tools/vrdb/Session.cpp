#include "Session.h"

#include <histedit.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <string>

#include "Completion.h"
#include "History.h"
#include "Shell.h"
#include "support/Printable.h"

namespace vrdb {
namespace {

constexpr std::chrono::milliseconds COMPLETION_PATIENCE{500};

volatile sig_atomic_t interrupted = 0;

void Interrupt(int) { interrupted = 1; }

char* Prompt(EditLine*) {
  static char prompt[] = "vrdb> ";
  return prompt;
}

std::size_t ScreenWidth() {
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

// "dir/file" is listed as "file", as shells do.
std::string ShortName(const std::string& word) {
  const auto slash = word.size() < 2 ? std::string::npos : word.rfind('/', word.size() - 2);
  return slash == std::string::npos ? word : word.substr(slash + 1);
}

void ListInColumns(const Words& words) {
  std::size_t width = 0;
  for (const std::string& word : words) width = std::max(width, ShortName(word).size() + 2);
  const std::size_t columns = std::max<std::size_t>(ScreenWidth() / width, 1);
  std::size_t column = 0;
  for (const std::string& word : words) {
    const bool last = ++column % columns == 0 || &word == &words.back();
    const int field = last ? 0 : static_cast<int>(width);
    std::printf("%-*s%s", field, support::Printable(ShortName(word)).c_str(), last ? "\n" : "");
  }
}

/** One session: the line editor, and what it needs of the shell. */
class Session {
 public:
  explicit Session(Shell& toUse) : shell(toUse), editor(el_init("vrdb", stdin, stdout, stderr)) {
    el_set(editor, EL_CLIENTDATA, this);
    el_set(editor, EL_PROMPT, Prompt);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_SIGNAL, 1);
    el_set(editor, EL_ADDFN, "complete", "Complete the word", &OnComplete);
    el_set(editor, EL_ADDFN, "discard", "Discard the line", &OnDiscard);
    el_set(editor, EL_ADDFN, "suspend", "Suspend the session", &OnSuspend);
    el_set(editor, EL_BIND, "^I", "complete", nullptr);
    el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    el_set(editor, EL_SETTY, "-d", "-isig", nullptr);  // at the prompt Ctrl-C and Ctrl-Z are keys
    el_set(editor, EL_BIND, "^C", "discard", nullptr);
    el_set(editor, EL_BIND, "^Z", "suspend", nullptr);
    history.AttachTo(editor);
    el_source(editor, nullptr);
  }
  ~Session() { el_end(editor); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Run() {
    int size = 0;
    while (const char* line = el_gets(editor, &size)) {
      const SplitLine split = Split(line);
      if (split.words.empty()) continue;
      history.Add(Join(split.words));
      const Result result = split.error.empty() ? RunCommand(split.words) : Result{WRONG_USAGE, split.error};
      std::fflush(stdout);
      if (result.code == CANCELLED) std::puts("");  // the terminal has echoed ^C
      if (result.code != DONE) Complain(result);
      if (result.quit) return;
    }
    std::puts("");
  }

 private:
  static Session& Of(EditLine* editor) {
    Session* session = nullptr;
    el_get(editor, EL_CLIENTDATA, &session);
    return *session;
  }
  static unsigned char OnComplete(EditLine* editor, int) { return Of(editor).CompleteWord(); }
  static unsigned char OnDiscard(EditLine* editor, int) {
    const LineInfo* line = el_line(editor);
    el_cursor(editor, static_cast<int>(line->lastchar - line->cursor));
    el_deletestr(editor, static_cast<int>(line->lastchar - line->buffer));
    std::puts("^C");
    return CC_REDISPLAY;
  }
  static unsigned char OnSuspend(EditLine*, int) {
    raise(SIGTSTP);
    return CC_REDISPLAY;
  }

  Result RunCommand(const Words& words) {
    interrupted = 0;
    return shell.Run(words);
  }

  void Complain(const Result& result) {
    const Style dress(STDERR_FILENO);
    if (!result.message.empty()) std::fprintf(stderr, "%s\n", dress(Look::RED, result.message).c_str());
    for (const std::string& line : result.log) std::fprintf(stderr, "  %s\n", dress(Look::DIM, line).c_str());
  }

  Live LookAround() {
    const auto look = [this](const Words& request) {
      Json answer;
      shell.Look(request, answer);
      return answer;
    };
    Live live;
    live.graph = [look] { return look({"graph"}); };
    live.parameters = [look](const std::string& route, const std::string& block) {
      return look({"params", route, block});
    };
    live.process = [this] {
      shell.target.Choose(shell.patience);
      return shell.target.Process();
    };
    return live;
  }

  unsigned char CompleteWord() {
    interrupted = 0;
    const LineInfo* line = el_line(editor);
    const std::string typed(line->buffer, line->cursor);
    const Patience patience = shell.patience;
    shell.patience.limit = COMPLETION_PATIENCE;
    const Words words = Complete(typed, LookAround());
    shell.patience = patience;
    if (words.empty()) return CC_ERROR;
    std::string insertion = CommonBeginning(words).substr(typed.size() - (typed.find_last_of(" \t") + 1));
    if (words.size() == 1 && words[0].back() != '/') insertion += ' ';
    if (!insertion.empty()) return el_insertstr(editor, insertion.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    if (words.size() == 1) return CC_ERROR;
    std::puts("");
    ListInColumns(words);
    return CC_REDISPLAY;
  }

  Shell& shell;
  EditLine* const editor;
  LineHistory history;
};

// Whose process it is, and that it serves this user; one without a monitor is asked by its console.
Result Greet(Shell& shell) {
  if (Result result = shell.target.Choose(shell.patience); result.code != DONE) return result;
  Json graph;
  if (shell.Look({"graph"}, graph).code == DONE) return {};
  std::string report;
  return shell.Ask({"status"}, report);
}

}  // namespace

int RunSession(Shell& shell) {
  if (const Result result = Greet(shell); result.code != DONE) {
    std::fprintf(stderr, "vrdb: %s\n", result.message.c_str());
    return result.code;
  }
  std::printf("%s; 'help' lists the commands, Tab completes\n", shell.target.Name().c_str());
  shell.confirm = ConfirmOnTerminal;
  struct sigaction action {};
  action.sa_handler = Interrupt;
  sigaction(SIGINT, &action, nullptr);
  shell.patience.cancelled = [] { return interrupted != 0; };
  Session(shell).Run();
  return DONE;
}

}  // namespace vrdb
