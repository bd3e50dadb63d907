#include "StopSignals.h"

#include <array>
#include <atomic>
#include <csignal>

namespace vorn::run {
namespace {

constexpr std::array SIGNALS = {SIGINT, SIGTERM, SIGHUP};

std::atomic<Graph*> stopped{nullptr};

void SetHandler(void (*handler)(int)) {
  for (const int signal : SIGNALS) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const int other : SIGNALS) sigaddset(&action.sa_mask, other);
    sigaction(signal, &action, nullptr);
  }
}

void Stop(int signal) {
  SetHandler(SIG_DFL);
  if (Graph* const graph = stopped) graph->Stop(signal);
}

}  // namespace

StopSignals::StopSignals(Graph& graph) {
  stopped = &graph;
  SetHandler(Stop);
}

StopSignals::~StopSignals() {
  SetHandler(SIG_DFL);
  stopped = nullptr;
}

}  // namespace vorn::run
