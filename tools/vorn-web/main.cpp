// vorn-web: the running graph as a page.
#include <csignal>
#include <cstdio>
#include <string>

#include <CLI/CLI.hpp>

#include "PageServer.h"
#include "support/StandardStreams.h"

namespace {

constexpr int FAILED = 1;
constexpr int WRONG_USAGE = 2;

struct Options {
  std::string process;
  int port = 0;
};

int Complain(const std::string& text) {
  std::fprintf(stderr, "vorn-web: %s\n", text.c_str());
  return FAILED;
}

sigset_t EndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  return signals;
}

int Run(const Options& options) {
  const sigset_t signals = EndSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // threads inherit it: only sigwait() below takes them
  vorn_web::Board board;
  vorn_web::History history;
  vorn_web::Observer observer(vorn_web::Target(options.process), board, history);
  vorn_web::PageServer server(board, history, observer);
  if (server.Bind(options.port) < 0) return Complain("port " + std::to_string(options.port) + " is taken, or not ours");
  const std::string problem = observer.Start();
  if (!problem.empty()) return Complain(problem);
  server.Start();
  std::puts(server.Address().c_str());
  std::fflush(stdout);
  int signal = 0;
  sigwait(&signals, &signal);
  board.Close();
  server.Stop();
  observer.Stop();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  vorn::OpenStandardStreams();
  Options options;
  CLI::App app("Shows the running graph of a process as a page in a browser, and edits it there.", "vorn-web");
  app.footer(
      "Prints the address of the page, with the token that it asks for, and serves it on this machine alone until it "
      "is ended\n"
      "(Ctrl-C). When the process ends, the page waits for another one with its name.\n\n"
      "Exit status: 0; 1 when there is no such process, or the port cannot be taken; 2 for wrong usage.");
  app.add_option("-p,--process", options.process,
                 "The process: its number or its name; without: the one with the console, or the only one")
      ->type_name("PID|NAME");
  app.add_option("--port", options.port, "The port; without: any that is free")
      ->check(CLI::Range(0, 65535).description(""))
      ->type_name("N");
  app.set_version_flag("--version", "vorn-web " VORN_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : WRONG_USAGE;
  }
  return Run(options);
}
