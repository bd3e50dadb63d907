#include "LiveGraph.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <sstream>
#include <system_error>

#include <vorn/kit/Refusal.h>

#include "StreamText.h"

namespace vorn::graph {
namespace {

std::string Who(const Node& node) { return "block '" + node.name + "'"; }

/** When a block refused, by its answer to PARAMETER_REFUSAL; 0 for never. A parameter that was refused fails nothing. */
long long RefusedAt(const std::vector<std::string>& answer) {
  static const std::string PARAMETER = std::to_string(static_cast<std::uint32_t>(About::PARAMETER));
  if (answer.size() < REFUSAL_TEXTS || answer[REFUSAL_KIND] == PARAMETER) return 0;
  return std::atoll(answer[REFUSAL_MICROS].c_str());
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

LiveGraph::LiveGraph(const GraphDescription& newGraph, std::vector<Route::Callbacks*> newCallbacks, LogTail& newLog)
    : graph(newGraph),
      callbacks(std::move(newCallbacks)),
      log(newLog),
      routes(graph.routes.size()),
      blocks(graph.nodes.size()) {}

LiveGraph::~LiveGraph() {
  for (FIFO* fifo : fifos) fifo->Shutdown();
  for (Route* route : routes) Vorn::Instance()->DeleteRoute(route);
  for (FIFO* fifo : fifos) Vorn::Instance()->DeleteFIFO(fifo);
}

Result<std::vector<Stream>> LiveGraph::AskForStreams(std::size_t node, const BlockPlan& block) {
  if (auto error = MakeBlock(node, block)) return *error;
  std::vector<std::string> texts;
  std::vector<Stream> streams;
  if (routes[graph.nodes[node].route]->GetParameter(blocks[node].block, PARAMETER_STREAMS, texts) >= 0) {
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

Result<Route*> LiveGraph::RouteAt(std::size_t index) {
  const RouteDescription& route = graph.routes[index];
  try {
    if (!routes[index]) routes[index] = Vorn::Instance()->NewRoute(route.name.c_str(), callbacks[index]);
  } catch (const std::system_error& problem) {
    return Error{route.at, route.name + " could not be made: no thread for it: " + problem.code().message()};
  }
  if (!routes[index]) return Reason({route.at, route.name + " could not be made"});
  return routes[index];
}

std::optional<Error> LiveGraph::MakeBlock(std::size_t index, const BlockPlan& plan) {
  const Node& node = graph.nodes[index];
  Made& made = blocks[index];
  if (made.block) return std::nullopt;
  const auto route = RouteAt(node.route);
  if (const auto* error = std::get_if<Error>(&route)) return *error;
  made.block = std::get<Route*>(route)->NewBlock(plan.plugIn.soFileName.c_str(), plan.first, plan.last, plan.args);
  if (!made.block) return Reason({node.at, Who(node) + " could not be made"});  // there is none to ask for the reason
  made.counters = std::make_unique<BlockCounters>();
  if (AttachCounters(made.block, made.counters.get()) < 0) made.counters.reset();
  if (plan.follows) FollowLoop(made.block);
  return std::nullopt;
}

std::optional<Error> LiveGraph::MakeLink(const LinkPlan& link) {
  const Stream& stream = link.stream;
  if (routes[link.route]->NewLink(stream.rate, static_cast<SampleFormat>(stream.format), stream.channels, stream.frame,
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

std::optional<Error> LiveGraph::Start(std::size_t route) {
  const int result = routes[route]->Start();
  if (result >= 0) return std::nullopt;
  const RouteDescription& which = graph.routes[route];
  return Reason(Refusals(route), log.Drain(),
                {which.at, which.name + " could not be started (" + std::to_string(result) + ")"});
}

// One batch: a route that did not stop runs on, and to ask it later may be to wait for ever.
std::optional<Error> LiveGraph::Stop(std::size_t route) {
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
  for (Route* route : routes) route->SetDump(folder.c_str());
  return std::nullopt;
}

const BlockCounters* LiveGraph::Counters(std::size_t node) const { return blocks[node].counters.get(); }

std::vector<std::string> LiveGraph::ParameterTable(std::size_t node) const {
  std::vector<std::string> lines;
  routes[graph.nodes[node].route]->GetParameter(blocks[node].block, PARAMETER_TABLE, lines);
  return lines;
}

// Lines of blocks begin with "RouteA: gain_0: ", those of routes with "RouteA: ".
LiveGraph::Said LiveGraph::Parse(const std::string& line) const {
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (!blocks[i].block) continue;
    const std::string prefix = blocks[i].block->RouteName() + ": " + blocks[i].block->Name() + ": ";
    if (line.starts_with(prefix)) return {i, line.substr(prefix.size())};
  }
  return {std::nullopt, line};
}

LiveGraph::Answers LiveGraph::Refusals(std::size_t route, Route::Action* before) const {
  Answers answers(blocks.size());
  std::vector<Route::Action> batch;
  if (before) batch.push_back(*before);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const bool isOfKit = blocks[i].counters != nullptr;  // another would not know the question
    if (graph.nodes[i].route != route || !isOfKit) continue;
    Route::Action ask{};
    ask.type = Route::Action::Type::GET_PARAMETER;
    ask.getParameter = {blocks[i].block, PARAMETER_REFUSAL, &answers[i], 0};
    batch.push_back(ask);
  }
  routes[route]->ExecuteActions(batch.data(), batch.size());
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
