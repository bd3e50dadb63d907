#include "ReportJson.h"

#include <nlohmann/json.hpp>

namespace vrdb {

using Json = nlohmann::ordered_json;

// The JSON library finds these by their name, and builds lists of them by itself.
// NOLINTBEGIN(readability-identifier-naming)

static void to_json(Json& json, const EndpointStatus& endpoint) {
  json = {{"index", endpoint.index},
          {"link", endpoint.link},
          {"rate", endpoint.rate},
          {"format", endpoint.format},
          {"channels", endpoint.channels},
          {"samplesPerFrame", endpoint.samplesPerFrame},
          {"timestamp", endpoint.micros ? Json(*endpoint.micros) : Json()}};
}

static void to_json(Json& json, const BlockStatus& block) {
  json = {{"name", block.name}, {"inputs", block.inputs}, {"outputs", block.outputs}};
}

static void to_json(Json& json, const RouteStatus& route) {
  json = {{"name", route.name},
          {"status", route.status},
          {"frames", route.frames},
          {"errors", route.errors},
          {"blocks", route.blocks}};
}

static void to_json(Json& json, const FifoStatus& fifo) {
  json = {{"name", fifo.name}, {"samples", fifo.samples}, {"capacity", fifo.capacity}, {"percent", fifo.percent}};
}

static void to_json(Json& json, const Report& report) { json = {{"routes", report.routes}, {"fifos", report.fifos}}; }

// NOLINTEND(readability-identifier-naming)

// Names come from file names, which need not be UTF-8.
static std::string Print(const Json& json, int indent) {
  return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

std::string ReportToJson(const Report& report) { return Print(report, 2); }

std::string SampleToJson(const Sample& sample, const Rates& rates) {
  Json json = {{"time", sample.time}};
  if (sample.result.code != DONE) {
    json["error"] = sample.result.message;
    return Print(json, -1);
  }
  json["pid"] = sample.process.pid;
  json["process"] = ProcessName(sample.process);
  json.update(Json(sample.report));
  for (Json& route : json["routes"]) {
    const auto rate = rates.FramesPerSecond(route["name"]);
    route["framesPerSecond"] = rate ? Json(*rate) : Json();
  }
  return Print(json, -1);
}

}  // namespace vrdb
