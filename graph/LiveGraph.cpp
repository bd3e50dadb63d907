#include "LiveGraph.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <sstream>
#include <system_error>

#include <vorn/kit/Label.h>
#include <vorn/kit/Refusal.h>

#include "StreamText.h"

namespace vorn::graph {
namespace {

std::string Who(const Node& node) { return "block '" + node.name + "'"; }

/** When a block refused, by its answer to PARAMETER_REFUSAL; 0 for never. A parameter that was refused fails nothing. */
long long RefusedAt(const std::vector<std::string>& answer) {
  static const std::string PARAMETER = std::to_string(static_cast<std::uint32_t>(About::PARAMETER));
  if (answer.size() < REFUSAL_TEXTS || answer[REFUSAL_KIND] == PARAMETER) return 0;
  return std::atoll(answer[REFUSAL_NANOS].c_str());
}

/** "rate=48000 channels=2": words that are no such field say nothing. */
Stream ParseStream(const std::string& text) {
  Stream stream;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const std::size_t equals = word.find('=');
    if (equals != word.npos && IsStreamField(word.substr(0, equals))) {
      SetField(stream, word.substr(0, equals), word.substr(equals + 1));
    }
  }
  return stream;
}

}  // namespace

LiveGraph::LiveGraph(const GraphDescription& newGraph, std::vector<RouteWatch*> newWatches, LogTail& newLog)
    : graph(newGraph),
      watches(std::move(newWatches)),
      log(newLog),
      routes(graph.routes.size()),
      boards(graph.routes.size()),
      blocks(graph.nodes.size()) {}

// A route whose thread has ended can only be left to the end of the process, and its blocks keep their FIFOs.
LiveGraph::~LiveGraph() {
  for (FIFO* fifo : fifos) fifo->Shutdown();
  for (Made& made : blocks) {
    if (made.host) made.host->interrupt.Raise();
  }
  bool isAllGone = true;
  for (std::size_t i = 0; i < routes.size(); ++i) {
    if (!routes[i]) continue;
    const bool isLost = IsLost(i);
    isAllGone = isAllGone && !isLost;
    if (isLost) continue;
    if (IsThere(i)) Vorn::Instance()->DeleteRoute(routes[i]);
    watches[i]->WaitForExit();
  }
  if (isAllGone) {
    for (FIFO* fifo : fifos) Vorn::Instance()->DeleteFIFO(fifo);
  } else {
    for (Made& made : blocks) (void)made.host.release();
  }
}

std::shared_ptr<Route> LiveGraph::Held(std::size_t route) const {
  return routes[route] ? Vorn::Instance()->HoldRoute(routes[route]) : nullptr;
}

Error LiveGraph::Gone(std::size_t route) const {
  return {graph.routes[route].at, graph.routes[route].name + " was deleted by somebody else"};
}

Result<std::vector<Stream>> LiveGraph::AskForStreams(std::size_t node, const BlockPlan& block) {
  if (auto error = MakeBlock(node, block)) return *error;
  std::vector<std::string> texts;
  std::vector<Stream> streams;
  const auto route = Held(graph.nodes[node].route);
  if (route && route->GetParameter(blocks[node].block, PARAMETER_STREAMS, texts) >= 0) {
    for (const std::string& text : texts) streams.push_back(ParseStream(text));
  }
  log.Drain();  // not to know the question is no failure
  return streams;
}

std::optional<Error> LiveGraph::Build(const GraphPlan& plan) {
  for (std::size_t i = 0; i < plan.blocks.size(); ++i) {
    if (graph.nodes[i].isFifo) continue;
    if (auto error = MakeBlock(i, plan.blocks[i])) return error;
  }
  for (const LinkPlan& link : plan.links) {
    if (auto error = MakeLink(link)) return error;
  }
  for (const FifoPlan& fifo : plan.fifos) {
    if (auto error = MakeFifo(fifo)) return error;
  }
  return std::nullopt;
}

Result<std::shared_ptr<Route>> LiveGraph::RouteAt(std::size_t index) {
  const RouteDescription& route = graph.routes[index];
  try {
    if (!routes[index]) routes[index] = Vorn::Instance()->NewRoute(route.name.c_str(), watches[index]);
  } catch (const std::system_error& problem) {
    return Error{route.at, route.name + " could not be made: no thread for it: " + problem.code().message()};
  }
  if (!routes[index]) return Reason({route.at, route.name + " could not be made"});
  auto held = Held(index);
  if (!held) return Gone(index);
  return held;
}

std::optional<Error> LiveGraph::MakeBlock(std::size_t index, const BlockPlan& plan) {
  const Node& node = graph.nodes[index];
  Made& made = blocks[index];
  if (made.block) return std::nullopt;
  const auto route = RouteAt(node.route);
  if (const auto* error = std::get_if<Error>(&route)) return *error;
  std::vector<std::string> args = plan.args;
  if (plan.plugIn.info) args.push_back(std::string(LABEL_ARGUMENT) + node.name);  // another would take it for its own
  made.block =
      std::get<std::shared_ptr<Route>>(route)->NewBlock(plan.plugIn.soFileName.c_str(), plan.first, plan.last, args);
  if (!made.block) return Reason({node.at, Who(node) + " could not be made"});  // there is none to ask for the reason
  boards[node.route] = made.block->Board();
  made.prefix = made.block->RouteName() + ": " + made.block->Name() + ": ";
  made.dumpName = made.block->RouteName() + '-' + made.block->Name();
  made.host = std::make_unique<Host>();
  if (AttachCounters(made.block, &made.host->counters) < 0) {
    made.host.reset();
  } else {
    AttachInterrupt(made.block, &made.host->interrupt);
    watches[node.route]->SealAtStop(made.host->interrupt);
  }
  if (plan.follows) FollowLoop(made.block);
  return std::nullopt;
}

std::optional<Error> LiveGraph::MakeLink(const LinkPlan& link) {
  const Stream& stream = link.stream;
  const auto route = Held(link.route);
  if (!route) return Gone(link.route);
  if (route->NewLink(stream.rate, static_cast<SampleFormat>(stream.format), stream.channels, stream.frame,
                     blocks[link.from].block, link.out, blocks[link.to].block, link.in)) {
    return std::nullopt;
  }
  const auto& nodes = graph.nodes;
  return Reason(Refusals(link.route), log.Drain(),
                {link.at, "'" + nodes[link.from].name + "' and '" + nodes[link.to].name +
                              "' could not be linked with " + Describe(stream)});
}

std::optional<Error> LiveGraph::MakeFifo(const FifoPlan& fifo) {
  const Node& node = graph.nodes[fifo.node];
  const std::size_t bytes = fifo.stream.channels * BytesPerSample(static_cast<SampleFormat>(fifo.stream.format));
  FIFO* made = nullptr;
  try {
    made = Vorn::Instance()->NewFIFO(fifo.stream.rate, bytes, fifo.capacity, fifo.prefill);
  } catch (const std::exception& problem) {
    log.Drain();
    return Error{node.at,
                 "FIFO '" + node.name + "' of " + std::to_string(fifo.capacity) + " samples: " + problem.what()};
  }
  if (!made) return Reason({node.at, "FIFO '" + node.name + "' could not be made"});
  fifos.push_back(made);
  for (const auto& [user, result] : {std::pair{fifo.writer, AttachConsumer(blocks[fifo.writer].block, made)},
                                     std::pair{fifo.reader, AttachProducer(blocks[fifo.reader].block, made)}}) {
    if (result < 0)
      return Reason({node.at, Who(graph.nodes[user]) + " takes no FIFO; expected a fifosource or fifosink"});
  }
  return std::nullopt;
}

int LiveGraph::Start(std::size_t route) {
  const auto held = Held(route);
  return held ? held->Start() : -20;
}

bool LiveGraph::HasRefused(std::size_t route) const {
  return std::ranges::any_of(Refusals(route), [](const auto& answer) { return RefusedAt(answer) != 0; });
}

Error LiveGraph::WhyNotStarted(std::size_t route, int result) {
  if (!IsThere(route)) return Gone(route);
  const RouteDescription& which = graph.routes[route];
  return Reason(Refusals(route), log.Drain(),
                {which.at, which.name + " could not be started (" + std::to_string(result) + ")"});
}

// One batch: a route that did not stop runs on, and to ask it later may be to wait for ever.
std::optional<Error> LiveGraph::Stop(std::size_t route) {
  if (!IsThere(route)) return std::nullopt;
  Route::Action stop{};
  stop.type = Route::Action::Type::STOP;
  const Answers refusals = Refusals(route, &stop);
  if (stop.stop.ret >= 0) return std::nullopt;
  const RouteDescription& which = graph.routes[route];
  return Reason(refusals, log.Drain(),
                {which.at, which.name + " could not be stopped (" + std::to_string(stop.stop.ret) + ")"});
}

Error LiveGraph::WhyFailed(std::size_t route, const std::vector<LogLine>& lines) const {
  const RouteDescription& which = graph.routes[route];
  return Reason(Refusals(route), lines, {which.at, which.name + " failed"});
}

// A block that was added while the route ran and does not start ends the route's thread.
Error LiveGraph::WhyGone(std::size_t route, const std::vector<LogLine>& lines) const {
  if (!IsLost(route)) return Gone(route);
  const RouteDescription& which = graph.routes[route];
  return Explain(lines, {which.at, which.name + " has ended: a block that somebody added did not start"});
}

void LiveGraph::FinishWithoutThread(std::size_t route) {
  if (!IsLost(route)) return;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const Made& made = blocks[i];
    if (graph.nodes[i].route == route && made.host && !made.host->counters.deleted) made.block->BaseStop();
  }
}

// The name of a block that was given by path holds that path, and so does the name of its dump.
std::optional<Error> LiveGraph::SetDump(const std::string& folder) {
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const Block* const block = blocks[i].block;
    const std::size_t slash = block ? block->Name().rfind('/') : std::string::npos;
    if (slash == std::string::npos) continue;
    const std::string needed = folder + '/' + block->RouteName() + '-' + block->Name().substr(0, slash);
    std::error_code problem;
    std::filesystem::create_directories(needed, problem);
    if (problem) {
      return Error{graph.nodes[i].at, Who(graph.nodes[i]) + ": no folder for its dump: '" + needed +
                                          "' cannot be made: " + problem.message()};
    }
  }
  for (std::size_t i = 0; i < routes.size(); ++i) {
    if (const auto route = Held(i)) route->SetDump(folder.c_str());
  }
  return std::nullopt;
}

void LiveGraph::EndDump() {
  for (std::size_t i = 0; i < routes.size(); ++i) {
    if (const auto route = Held(i)) route->SetDump(nullptr);
  }
}

std::string LiveGraph::DumpName(std::size_t node, std::size_t output, const Stream& stream) const {
  const std::string number = std::to_string(output);
  return blocks[node].dumpName + "-O" + (number.size() < 2 ? "0" : "") + number + '-' + std::to_string(stream.rate) +
         "Hz-" + FormatName(static_cast<SampleFormat>(stream.format)) + '-' + std::to_string(stream.channels) +
         "ch.pcm";
}

bool LiveGraph::Interrupt(std::size_t node) {
  if (!blocks[node].host) return false;
  blocks[node].host->interrupt.Raise();
  return true;
}

const BlockCounters* LiveGraph::Counters(std::size_t node) const {
  return blocks[node].host ? &blocks[node].host->counters : nullptr;
}

template <class Predicate>
bool LiveGraph::IsAny(std::size_t route, Predicate predicate) const {
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (graph.nodes[i].route == route && blocks[i].host && predicate(blocks[i].host->counters)) return true;
  }
  return false;
}

bool LiveGraph::HasLost(std::size_t route) const {
  return IsAny(route, [](const BlockCounters& counters) { return counters.losses > 0; });
}

bool LiveGraph::HasFadedOut(std::size_t route) const {
  return IsAny(route, [](const BlockCounters& counters) { return counters.fadedOut.load(); });
}

// Not through a block: somebody may delete that meanwhile, but no route that is held, and no lost one.
void LiveGraph::Abandon(std::size_t route) {
  const auto held = Held(route);
  if (boards[route] && (held || IsLost(route))) boards[route]->failed = true;
}

bool LiveGraph::WasCut(std::size_t route) const {
  return IsAny(route, [](const BlockCounters& counters) { return counters.cuts > 0; });
}

std::uint64_t LiveGraph::Moves(std::size_t node) const {
  const Made& made = blocks[node];
  if (!made.host) return 0;
  return made.host->counters.frames.load(std::memory_order_relaxed) + made.host->interrupt.Waits();
}

std::vector<std::string> LiveGraph::ParameterTable(std::size_t node) const {
  std::vector<std::string> lines;
  if (const auto route = Held(graph.nodes[node].route)) {
    route->GetParameter(blocks[node].block, PARAMETER_TABLE, lines);
  }
  return lines;
}

// Lines of blocks begin with "RouteA: gain_0: ", those of routes with "RouteA: ".
LiveGraph::Said LiveGraph::Parse(const std::string& line) const {
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const std::string& prefix = blocks[i].prefix;
    if (!prefix.empty() && line.starts_with(prefix)) return {i, line.substr(prefix.size())};
  }
  return {std::nullopt, line};
}

LiveGraph::Answers LiveGraph::Refusals(std::size_t route, Route::Action* before) const {
  Answers answers(blocks.size());
  std::vector<Route::Action> batch;
  if (before) batch.push_back(*before);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const bool isOfKit = blocks[i].host != nullptr;  // another would not know the question
    if (graph.nodes[i].route != route || !isOfKit) continue;
    Route::Action ask{};
    ask.type = Route::Action::Type::GET_PARAMETER;
    ask.getParameter = {blocks[i].block, PARAMETER_REFUSAL, &answers[i], 0};
    batch.push_back(ask);
  }
  const auto held = Held(route);
  if (held) held->ExecuteActions(batch.data(), batch.size());
  if (before) *before = batch.front();
  return answers;
}

// A route that fails stops its blocks; where one refuses that, the route goes on until the next failure. So the last
// refusal is the one that ended it.
Error LiveGraph::Reason(const Answers& refusals, const std::vector<LogLine>& lines, const Error& otherwise) const {
  const auto last = std::ranges::max_element(refusals, {}, RefusedAt);
  if (last == refusals.end() || RefusedAt(*last) == 0) return Explain(lines, otherwise);
  const Node& node = graph.nodes[static_cast<std::size_t>(last - refusals.begin())];
  return {node.at, Who(node) + ": " + (*last)[REFUSAL_TEXT]};
}

// What the library says after a block is the consequence.
Error LiveGraph::Explain(const std::vector<LogLine>& lines, const Error& otherwise) const {
  std::string first;
  for (const auto& [level, line] : lines) {
    if (level != 'E') continue;
    const Said said = Parse(line);
    if (said.node) return {graph.nodes[*said.node].at, Who(graph.nodes[*said.node]) + ": " + said.text};
    if (first.empty()) first = line;
  }
  if (first.empty()) return log.IsTaken() ? otherwise : Error{otherwise.at, otherwise.text + "; the log says why"};
  return {otherwise.at, otherwise.text + ": " + first};
}

std::string LiveGraph::Translate(const std::string& line) const {
  const Said said = Parse(line);
  return said.node ? Who(graph.nodes[*said.node]) + ": " + said.text : line;
}

}  // namespace vorn::graph
