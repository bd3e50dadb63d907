#include "Runner.h"

#include <algorithm>
#include <cstring>

#include "Figures.h"

namespace vorn::graph {
namespace {

using namespace std::chrono_literals;

constexpr auto TICK = 200ms;
constexpr std::size_t MOST_LINES_A_TICK = 10;

}  // namespace

Runner::Runner(const GraphPlan& newPlan, LiveGraph& newLive, RouteEvents& newEvents, LogTail& newLog,
               const Graph::RunOptions& newOptions)
    : plan(newPlan),
      live(newLive),
      events(newEvents),
      log(newLog),
      options(newOptions),
      standstill(newPlan),
      states(plan.graph.routes.size(), State::IDLE),
      cannotEnd(plan.graph.routes.size(), false) {}

Graph::Result Runner::Run() {
  started = Clock::now();
  StartAll();
  while (IsAnyActive()) {
    auto until = Clock::now() + TICK;
    if (options.duration && !isStopping) until = std::min(until, started + *options.duration);
    events.WaitUntil(until);
    if (const auto signal = events.TakeStop()) {
      if (!isStopping) result.signal = *signal;
      BeginStop(Graph::End::STOPPED);
    }
    for (const RouteEvent& event : events.Take()) Take(event);
    if (options.duration && Clock::now() >= started + *options.duration) BeginStop(Graph::End::DURATION);
    if (isStopping) StopRoutesThatCannotEnd();
    if (const auto error = standstill.Look(StatesOfFifos()); error && IsAnyActive()) Fail(*error);
    TellLog();
    TellProgress();
  }
  result.elapsedSeconds = Elapsed();
  return result;
}

// The routes that read FIFOs first: what a microphone brings to the others then has somewhere to go.
void Runner::StartAll() {
  std::vector<std::size_t> order(states.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_partition(order.begin(), order.end(),
                        [&](std::size_t route) { return !plan.routes[route].reads.empty(); });
  for (const std::size_t route : order) {
    if (auto error = live.Start(route)) return Fail(*error);
    states[route] = State::RUNNING;
  }
}

bool Runner::IsAnyActive() const {
  return std::ranges::any_of(states, [](State state) { return state == State::RUNNING || state == State::STOPPING; });
}

void Runner::Take(const RouteEvent& event) {
  if (!event.stopped) return TellWhatWasGranted(event);
  if (!IsActive(event.route)) return;
  if (*event.stopped == Route::StopReason::STOP_ERROR && result.end != Graph::End::FAILURE) {
    const auto lines = log.Drain();
    recent.insert(recent.end(), lines.begin(), lines.end());
    Fail(live.WhyFailed(event.route, recent));
  }
  TakeEnd(event.route);
}

void Runner::TellWhatWasGranted(const RouteEvent& event) {
  if (!event.asked || !options.onNotice) return;
  const std::string what = plan.graph.routes[event.route].name + ": real-time priority " + std::to_string(event.asked);
  if (event.error == 0) return options.onNotice(what + " granted");
  options.onNotice(what + " not granted: " + std::strerror(event.error) +
                   (event.error == EPERM ? "; raise the limit 'rtprio' (ulimit -r), or give CAP_SYS_NICE" : ""));
}

/** Its readers get what is left in the FIFOs, its writers need not write any more. A stream may have ended before its route. */
void Runner::TakeEnd(std::size_t route) {
  states[route] = State::ENDED;
  for (const std::size_t fifo : plan.routes[route].writes) live.Fifo(fifo).EndWriting();
  for (const std::size_t fifo : plan.routes[route].reads) live.Fifo(fifo).EndReading();
}

void Runner::BeginStop(Graph::End end) {
  if (isStopping) return;
  isStopping = true;
  result.end = end;
  if (end != Graph::End::FAILURE) EndSources();
}

/** All but those that read FIFOs: they get the rest, and their end comes with it, unless they feed themselves. */
void Runner::EndSources() {
  for (std::size_t route = 0; route < states.size(); ++route) {
    for (const std::size_t source : plan.routes[route].firsts) {
      const std::size_t fifo = plan.blocks[source].reads;
      if (fifo != BlockPlan::NO_FIFO && !plan.fifos[fifo].isFedByLoop) continue;
      if (!live.EndStream(source)) cannotEnd[route] = true;
    }
  }
}

void Runner::StopRoutesThatCannotEnd() {
  for (std::size_t i = 0; i < states.size(); ++i) {
    if (cannotEnd[i] && IsActive(i) && IsStarved(i)) Stop(i);
  }
}

/** Whether nothing more comes to a route through FIFOs. */
bool Runner::IsStarved(std::size_t route) const {
  for (const std::size_t fifo : plan.routes[route].reads) {
    if (plan.graph.nodes[plan.fifos[fifo].writer].route == route) continue;
    const FIFOState state = live.Fifo(fifo).State();
    if (!state.writingEnded || state.count > 0) return false;
  }
  return true;
}

std::vector<FIFOState> Runner::StatesOfFifos() const {
  std::vector<FIFOState> fifos;
  for (std::size_t i = 0; i < plan.fifos.size(); ++i) fifos.push_back(live.Fifo(i).State());
  return fifos;
}

/** Its end arrives as an event. */
void Runner::Stop(std::size_t route) {
  if (states[route] != State::RUNNING) return;
  states[route] = State::STOPPING;
  if (auto error = live.Stop(route)) {
    states[route] = State::ENDED;
    Fail(*error);
  }
}

void Runner::StopEverything() {
  for (std::size_t i = 0; i < plan.fifos.size(); ++i) live.Fifo(i).Shutdown();
  for (std::size_t i = 0; i < states.size(); ++i) Stop(i);
}

void Runner::Fail(const Error& error) {
  if (result.end == Graph::End::FAILURE) return;
  result.error = error;
  BeginStop(Graph::End::FAILURE);
  result.end = Graph::End::FAILURE;
  StopEverything();
}

/** Of what other routes say after a failure, nothing: that comes from being stopped. */
void Runner::TellLog() {
  recent = log.Drain();
  if (log.IsShown() || !options.onWarning || result.end == Graph::End::FAILURE) return;
  std::size_t shown = 0;
  for (const LogLine& line : recent) {
    if (++shown <= MOST_LINES_A_TICK) options.onWarning(live.Translate(line.text));
  }
  if (shown > MOST_LINES_A_TICK) options.onWarning("... and " + std::to_string(shown - MOST_LINES_A_TICK) + " more");
}

void Runner::TellProgress() {
  if (options.onProgress) options.onProgress(FiguresOf(plan, live), Elapsed());
}

}  // namespace vorn::graph
