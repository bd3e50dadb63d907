#include "Runner.h"

#include <algorithm>
#include <cstring>
#include <system_error>
#include <utility>

#include "Figures.h"

namespace vorn::graph {
namespace {

using namespace std::chrono_literals;
using What = RouteEvent::What;

constexpr auto TICK = 50ms;
constexpr auto TICK_OF_A_STOP = 20ms;
constexpr auto MOST_FOR_A_START = 2s;  // beyond the duration: then a block waits for what may never come
constexpr auto BETWEEN_PROGRESS = 200ms;
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
      states(plan.graph.routes.size(), State::STARTING),
      cannotEnd(plan.graph.routes.size(), false) {}

// Whoever leaves a run before its end, for want of memory, leaves no file behind that passes for a whole, and nobody
// who waits.
Runner::~Runner() {
  startsNoMore = true;
  if (IsAnyActive()) GiveUp();
  if (starter.joinable()) starter.join();
}

Graph::Result Runner::Run() {
  if (options.onNotice && !Vorn::Instance()->HasConsole()) {
    options.onNotice("no console, so vrdb does not see this run: another process has it");
  }
  started = running = Clock::now();
  BeginStart();
  while (IsAnyActive()) {
    events.WaitUntil(NextLook());
    if (const auto signal = events.TakeStop()) {
      if (!isStopping) result.signal = *signal;
      BeginStop(Graph::End::STOPPED);
    }
    for (const RouteEvent& event : events.Take()) Take(event);
    LookForLostRoutes();
    if (Clock::now() >= Deadline()) BeginStop(Graph::End::DURATION);
    pace.Look(MovesOfSinks(), Clock::now());
    if (isStopping) InterruptStarts();
    if (isStopping) InterruptWhatStandsStill();
    if (isStopping) StopRoutesThatCannotEnd();
    if (const auto error = standstill.Look(StatesOfFifos()); error && IsAnyActive()) Fail(*error);
    TellLog();
    TellProgress();
  }
  for (int look = 0; look < 2; ++look) TellLog();  // the rest of it
  if (result.error) result.end = Graph::End::FAILURE;
  result.elapsedSeconds = Elapsed();
  if (result.end == Graph::End::DURATION && !WasCut()) result.end = Graph::End::STREAM;
  return result;
}

/** False where time was up when all was done anyway. */
bool Runner::WasCut() const {
  for (std::size_t i = 0; i < states.size(); ++i) {
    if (live.WasCut(i)) return true;
  }
  return isCut;
}

Runner::Clock::time_point Runner::NextLook() const {
  const auto next = Clock::now() + (isStopping ? Clock::duration(TICK_OF_A_STOP) : TICK);
  return isStopping ? next : std::min(next, Deadline());
}

/** The duration counts from when all routes run. */
Runner::Clock::time_point Runner::Deadline() const {
  if (!options.duration) return Clock::time_point::max();
  return IsStarting() ? started + *options.duration + MOST_FOR_A_START : running + *options.duration;
}

bool Runner::IsStarting() const { return std::ranges::find(states, State::STARTING) != states.end(); }

void Runner::BeginStart() {
  const auto startAll = [this, order = StartOrder()] {
    int ret = 0;
    for (const std::size_t route : order) {
      if (ret >= 0) ret = startsNoMore ? -20 : live.Start(route);
      events.Post({.what = What::START_RESULT, .route = route, .result = ret});
    }
  };
  try {
    starter = std::thread(startAll);
  } catch (const std::system_error&) {  // no thread left: here, then
    startAll();
  }
}

// The routes that read FIFOs first: what a microphone brings to the others then has somewhere to go.
std::vector<std::size_t> Runner::StartOrder() const {
  std::vector<std::size_t> order(states.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_partition(order.begin(), order.end(),
                        [&](std::size_t route) { return !plan.routes[route].reads.empty(); });
  return order;
}

bool Runner::IsAnyActive() const {
  return std::ranges::any_of(states, [](State state) { return state != State::ENDED; });
}

void Runner::Take(const RouteEvent& event) {
  switch (event.what) {
    case What::STARTED:
      TellWhatWasGranted(event);
      if (!IsActive(event.route)) live.Stop(event.route);  // somebody else started it again
      break;
    case What::START_RESULT: TakeStartResult(event); break;
    case What::STOPPED: TakeStopped(event); break;
    case What::DELETED:
      if (!IsActive(event.route)) break;
      Fail(live.WhyGone(event.route, DrainLog()));
      TakeEnd(event.route);
      break;
  }
}

void Runner::TakeStartResult(const RouteEvent& event) {
  if (states[event.route] != State::STARTING) return;  // it has ended already
  if (event.result >= 0) {
    states[event.route] = State::RUNNING;
    if (!IsStarting()) running = Clock::now();
    if (result.end == Graph::End::FAILURE) return Stop(event.route);
    if (isStopping) EndSources(event.route);
    return;
  }
  // A stop that comes before the start is no failure of it; where time is up for what a block waits for, it is.
  const bool isOver = isStopping && (result.end != Graph::End::DURATION || !live.HasRefused(event.route));
  if (!isOver) Fail(live.WhyNotStarted(event.route, event.result));
  isCut = true;
  TakeEnd(event.route);
}

void Runner::TakeStopped(const RouteEvent& event) {
  if (!IsActive(event.route)) return;
  if (result.end != Graph::End::FAILURE) {
    const bool isAsked = states[event.route] == State::STOPPING || live.HasFadedOut(event.route);
    if (event.reason == Route::StopReason::STOP_ERROR) {
      Fail(live.WhyFailed(event.route, DrainLog()));
    } else if (event.reason == Route::StopReason::STOP_REQUESTED && !isAsked) {
      const RouteDescription& which = plan.graph.routes[event.route];
      Fail(live.IsThere(event.route) ? Error{which.at, which.name + " was stopped by somebody else"}
                                     : live.WhyGone(event.route, DrainLog()));
    }
  }
  NoteLosses(event.route);
  TakeEnd(event.route);
}

/** No callback tells of a thread that ended because a block that somebody added did not start. */
void Runner::LookForLostRoutes() {
  for (std::size_t i = 0; i < states.size(); ++i) {
    if (!IsActive(i) || !live.IsLost(i)) continue;
    Fail(live.WhyGone(i, DrainLog()));
    live.FinishWithoutThread(i);
    TakeEnd(i);
  }
}

/** What a block lost though its stream came to an end. It keeps nobody else from ending as he would. */
void Runner::NoteLosses(std::size_t route) {
  if (result.error || !live.HasLost(route)) return;
  result.error = live.WhyFailed(route, DrainLog());
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
  stopBegan = Clock::now();
  result.end = end;
  if (end == Graph::End::FAILURE) return;
  for (std::size_t i = 0; i < states.size(); ++i) {
    if (states[i] == State::RUNNING) EndSources(i);
  }
}

/** All but those that read FIFOs: they get the rest, and their end comes with it, unless they feed themselves. */
void Runner::EndSources(std::size_t route) {
  for (const std::size_t source : plan.routes[route].firsts) {
    const std::size_t fifo = plan.blocks[source].reads;
    if (fifo != BlockPlan::NO_FIFO && !plan.fifos[fifo].isFedByLoop) continue;
    if (!live.Interrupt(source)) cannotEnd[route] = true;
  }
}

/** A start that goes on comes to its end, and so do its streams then. One that waits for what it opens is given up. */
void Runner::InterruptStarts() {
  if (result.end == Graph::End::FAILURE || Clock::now() < stopBegan + TICK_OF_A_STOP) return;
  for (std::size_t i = 0; i < plan.blocks.size(); ++i) {
    const Node& node = plan.graph.nodes[i];
    if (!node.isFifo && states[node.route] == State::STARTING && live.IsWaiting(i)) live.Interrupt(i);
  }
}

/** Not those at FIFOs: they come back when the route at the other side does. */
void Runner::InterruptWhatStandsStill() {
  if (result.end == Graph::End::FAILURE || !pace.StandsStill(Clock::now())) return;
  for (std::size_t i = 0; i < plan.blocks.size(); ++i) {
    const BlockPlan& block = plan.blocks[i];
    const bool isAtFifo = block.reads != BlockPlan::NO_FIFO || block.writes != BlockPlan::NO_FIFO;
    const Node& node = plan.graph.nodes[i];
    if (!node.isFifo && !isAtFifo && states[node.route] != State::STARTING) live.Interrupt(i);
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

/** Of what leaves the graph. A source moves also while all that comes from it is lost in time-outs. */
std::uint64_t Runner::MovesOfSinks() const {
  std::uint64_t moves = 0;
  for (std::size_t i = 0; i < plan.blocks.size(); ++i) {
    const BlockPlan& block = plan.blocks[i];
    if (block.outs.empty() && block.writes == BlockPlan::NO_FIFO) moves += live.Moves(i);
  }
  return moves;
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
  isCut = true;
  if (result.end == Graph::End::FAILURE) live.Abandon(route);  // its start may have begun only now
  if (auto error = live.Stop(route)) {
    states[route] = State::ENDED;
    Fail(*error);
  }
}

// A FIFO that is shut down is an end like any other to those who read it, so they hear first that it is none. A start
// that comes in between forgets that; once the interrupts are raised there is none.
void Runner::GiveUp() {
  for (std::size_t i = 0; i < states.size(); ++i) live.Abandon(i);
  for (std::size_t i = 0; i < plan.blocks.size(); ++i) live.Interrupt(i);
  for (std::size_t i = 0; i < states.size(); ++i) live.Abandon(i);
  for (std::size_t i = 0; i < plan.fifos.size(); ++i) live.Fifo(i).Shutdown();
}

void Runner::StopEverything() {
  GiveUp();
  for (std::size_t i = 0; i < states.size(); ++i) Stop(i);
}

void Runner::Fail(const Error& error) {
  if (result.end == Graph::End::FAILURE) return;
  if (!result.error) result.error = error;
  startsNoMore = true;
  BeginStop(Graph::End::FAILURE);
  result.end = Graph::End::FAILURE;
  StopEverything();
}

const std::vector<LogLine>& Runner::DrainLog() {
  for (const LogLine& line : log.Drain()) recent.push_back(line);
  return recent;
}

/**
 * What came before the last look: an error may be the reason of a failure of which the event is still to come. Of the
 * errors of routes after a failure, and while they are kept from starting, nothing: they come from being stopped.
 */
void Runner::TellLog() {
  const auto lines = std::exchange(recent, {});
  DrainLog();
  const bool isKept = IsStarting() && isStopping;
  const bool wereKept = std::exchange(startsAreKept, isKept);
  const bool tellsErrors = result.end != Graph::End::FAILURE && !isKept && !wereKept;
  if (log.IsShown() || !options.onWarning) return;
  std::size_t shown = 0;
  for (const LogLine& line : lines) {
    if (line.level != 'W' && !tellsErrors) continue;
    if (++shown <= MOST_LINES_A_TICK) options.onWarning(live.Translate(line.text));
  }
  if (shown > MOST_LINES_A_TICK) options.onWarning("... and " + std::to_string(shown - MOST_LINES_A_TICK) + " more");
}

void Runner::TellProgress() {
  const auto now = Clock::now();
  if (!options.onProgress || now < told + BETWEEN_PROGRESS) return;
  told = now;
  options.onProgress(FiguresOf(plan, live), Elapsed());
}

}  // namespace vorn::graph
