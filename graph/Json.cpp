#include "Json.h"

#include <cstring>
#include <nlohmann/json.hpp>

#include "Figures.h"
#include "Readings.h"

namespace vorn::graph {
namespace {

using nlohmann::ordered_json;

std::string Text(const ordered_json& json) {
  // Names of files need not be UTF-8.
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n';
}

void AddStream(ordered_json& json, const Stream& stream) {
  json["rate"] = stream.rate;
  json["format"] = FormatName(static_cast<SampleFormat>(stream.format));
  json["channels"] = stream.channels;
}

ordered_json BlockJson(const GraphPlan& plan, std::size_t node) {
  const BlockPlan& block = plan.blocks[node];
  return {{"name", plan.graph.nodes[node].name},
          {"route", plan.graph.routes[plan.graph.nodes[node].route].name},
          {"plugIn", block.plugIn.soFileName},
          {"args", block.args},
          {"first", block.first},
          {"last", block.last}};
}

ordered_json LinkJson(const GraphPlan& plan, const LinkPlan& link) {
  ordered_json json = {{"route", plan.graph.routes[link.route].name},
                       {"from", plan.graph.nodes[link.from].name},
                       {"output", link.out},
                       {"to", plan.graph.nodes[link.to].name},
                       {"input", link.in}};
  AddStream(json, link.stream);
  json["frame"] = link.stream.frame;
  return json;
}

ordered_json FifoJson(const GraphPlan& plan, const FifoPlan& fifo) {
  ordered_json json = {{"name", plan.graph.nodes[fifo.node].name},
                       {"writer", plan.graph.nodes[fifo.writer].name},
                       {"reader", plan.graph.nodes[fifo.reader].name}};
  AddStream(json, fifo.stream);
  json["capacity"] = fifo.capacity;
  json["prefill"] = fifo.prefill;
  return json;
}

// A number that is none, or infinite, becomes null.
ordered_json ReadingsJson(const GraphPlan& plan, const LiveGraph& live) {
  ordered_json json = ordered_json::object();
  for (std::size_t i = 0; i < plan.blocks.size(); ++i) {
    for (const Reading& reading : ReadingsOf(plan, live, i)) {
      json[plan.graph.nodes[i].name][reading.name] = reading.value;
    }
  }
  return json;
}

/** What ended a run before its streams did; empty for nothing. */
std::string StoppedBy(const Graph::Result& result) {
  if (result.end == Graph::End::DURATION) return "duration";
  if (result.end != Graph::End::STOPPED) return "";
  const char* const name = result.signal != 0 ? sigabbrev_np(result.signal) : nullptr;
  return name != nullptr ? std::string("SIG") + name : "request";
}

ordered_json ResultJson(const Graph::Result& result) {
  ordered_json json = {{"end", result.Name()}};
  if (const std::string by = StoppedBy(result); !by.empty()) json["stopped"] = by;
  if (result.signal != 0) json["signal"] = result.signal;
  if (result.error) json["error"] = result.error->ToString();
  json["seconds"] = result.elapsedSeconds;
  return json;
}

void AddFigures(ordered_json& json, const Figures& figures) {
  if (!figures.areKnown) return;
  json["frames"] = figures.frames;
  json["errorFrames"] = figures.errorFrames;
  json["audioSeconds"] = figures.seconds;
}

}  // namespace

std::string JsonOf(const GraphPlan& plan) {
  ordered_json json = {
      {"blocks", ordered_json::array()}, {"links", ordered_json::array()}, {"fifos", ordered_json::array()}};
  for (std::size_t i = 0; i < plan.blocks.size(); ++i) {
    if (!plan.graph.nodes[i].isFifo) json["blocks"].push_back(BlockJson(plan, i));
  }
  for (const LinkPlan& link : plan.links) json["links"].push_back(LinkJson(plan, link));
  for (const FifoPlan& fifo : plan.fifos) json["fifos"].push_back(FifoJson(plan, fifo));
  return Text(json);
}

std::string JsonOf(const Graph::Result& result) { return Text(ResultJson(result)); }

std::string JsonOf(const GraphPlan& plan, const LiveGraph& live, const Graph::Result& result) {
  ordered_json json = ResultJson(result);
  AddFigures(json, FiguresOf(plan, live));
  json["routes"] = ordered_json::array();
  for (std::size_t i = 0; i < plan.graph.routes.size(); ++i) {
    ordered_json route = {{"name", plan.graph.routes[i].name}};
    AddFigures(route, FiguresOf(plan, live, i));
    json["routes"].push_back(route);
  }
  json["readings"] = ReadingsJson(plan, live);
  return Text(json);
}

std::string WithReplay(const std::string& result, const std::vector<Graph::Comparison>& comparisons,
                       const std::string& limit) {
  ordered_json json = ordered_json::parse(result);
  ordered_json outputs = ordered_json::array();
  bool isSame = true;
  for (const Graph::Comparison& one : comparisons) {
    ordered_json output = {{"block", one.block},       {"output", one.output},     {"rate", one.rate},
                           {"recorded", one.recorded}, {"replayed", one.replayed}, {"same", one.IsSame()},
                           {"settled", one.settled}};
    if (one.firstDifference) output["firstDifference"] = *one.firstDifference;
    isSame = isSame && one.IsSame();
    outputs.push_back(output);
  }
  json["replay"] = {{"same", isSame}, {"limit", limit}, {"outputs", outputs}};
  return Text(json);
}

}  // namespace vorn::graph
