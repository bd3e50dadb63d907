#include "Recording.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>

#include "StreamText.h"
#include "support/JsonMembers.h"

namespace vorn::graph {
namespace {

using support::Json;

constexpr int VERSION = 1;
constexpr const char* MANIFEST = "recording.json";

std::uint64_t WholeOf(const Json& object, const char* name) {
  const double number = support::NumberOf(object, name).value_or(0);
  return number >= 0 && number < 1e15 ? static_cast<std::uint64_t>(number) : 0;
}

std::size_t BytesOf(const Stream& stream) {
  return stream.channels * BytesPerSample(static_cast<SampleFormat>(stream.format));
}

class ManifestReader {
 public:
  explicit ManifestReader(const std::string& newFolder)
      : folder(newFolder), path((std::filesystem::path(newFolder) / MANIFEST).string()) {}

  Result<Recording> Read() {
    std::ifstream file(path, std::ios::binary);
    const Json json = Json::parse(file, nullptr, false);
    if (!file.is_open()) return Fail("cannot be read; expected the folder of a recording that 'vrdb record' made");
    if (!json.is_object()) return Fail("is no manifest of a recording");
    if (const auto version = WholeOf(json, "version"); version != VERSION) {
      return Fail("is of version " + std::to_string(version) + "; expected " + std::to_string(VERSION));
    }
    recording.graphPath = Within(support::TextOf(json, "graph"));
    recording.workingFolder = support::TextOf(json, "folder");
    recording.limit = support::TextOf(json, "limit");
    recording.isComplete = support::IsTrue(json, "complete");
    for (const Json& output : support::ListOf(json, "outputs")) {
      if (auto error = ReadOutput(json, output)) return *error;
    }
    if (recording.outputs.empty()) return Fail("nothing was recorded");
    return std::move(recording);
  }

 private:
  Error Fail(const std::string& text) const { return {{path, 0, 0}, text}; }
  std::string Within(const std::string& name) const { return (std::filesystem::path(folder) / name).string(); }

  std::optional<Error> ReadOutput(const Json& manifest, const Json& json) {
    RecordedOutput output;
    output.node = support::TextOf(json, "node");
    output.port = WholeOf(json, "port");
    output.path = Within(support::TextOf(json, "file"));
    output.isOfSource = support::IsTrue(json, "source");
    const Json& route = support::Named(support::ListOf(manifest, "routes"), support::TextOf(json, "route"));
    output.isFromStart = support::IsTrue(route, "fromStart");
    output.stream.rate = static_cast<std::uint32_t>(WholeOf(json, "rate"));
    output.stream.channels = static_cast<std::uint32_t>(WholeOf(json, "channels"));
    const auto wrong = SetField(output.stream, "format", support::TextOf(json, "format"));
    const bool isStream = !wrong && output.stream.rate > 0 && output.stream.channels > 0;
    if (!isStream || output.port >= Endpoint::COUNT) {
      return Fail("output " + std::to_string(output.port) + " of '" + output.node +
                  "' has no rate, format or channels");
    }
    std::error_code none;
    const auto bytes = std::filesystem::file_size(output.path, none);
    const std::uint64_t there = none ? 0 : bytes / BytesOf(output.stream);
    const auto limit = support::NumberOf(json, "replayable") ? WholeOf(json, "replayable") : there;
    output.stream.length = static_cast<long>(std::min(there, limit));
    recording.outputs.push_back(std::move(output));
    return std::nullopt;
  }

  const std::string folder;
  const std::string path;
  Recording recording;
};

class Replacer {
 public:
  Replacer(const GraphDescription& newRecorded, const Recording& newRecording)
      : recorded(newRecorded), recording(newRecording), graph{recorded.at, recorded.routes, {}, {}} {}

  Result<GraphDescription> Replace() {
    for (std::size_t i = 0; i < recorded.nodes.size(); ++i) {
      if (!HasRun(recorded.nodes[i].route)) continue;
      const bool isFed = HasLink(i, &Edge::to), feeds = HasLink(i, &Edge::from);
      if (recorded.nodes[i].isFifo || (!isFed && !feeds)) continue;
      if (isFed) Keep(i, feeds);
    }
    for (const Edge& edge : recorded.edges) {
      if (!IsLink(edge) || !HasRun(recorded.nodes[edge.from.node].route)) continue;
      if (auto error = Link(edge)) return *error;
    }
    DropEmptyRoutes();
    if (graph.nodes.empty()) {
      return Error{recorded.at, "cannot be replayed: " + (recording.limit.empty() ? "no route ran" : recording.limit)};
    }
    return std::move(graph);
  }

 private:
  /** Whether anything was recorded of a route: it may have stood still. */
  bool HasRun(std::size_t route) const {
    return std::ranges::any_of(recording.outputs, [&](const RecordedOutput& output) {
      const auto node = std::ranges::find(recorded.nodes, output.node, &Node::name);
      return output.stream.length > 0 && node != recorded.nodes.end() && node->route == route;
    });
  }

  void DropEmptyRoutes() {
    for (std::size_t route = graph.routes.size(); route-- > 0;) {
      if (std::ranges::find(graph.nodes, route, &Node::route) != graph.nodes.end()) continue;
      graph.routes.erase(graph.routes.begin() + static_cast<std::ptrdiff_t>(route));
      for (Node& node : graph.nodes) node.route -= node.route > route;
    }
  }

  bool IsLink(const Edge& edge) const {
    return !recorded.nodes[edge.from.node].isFifo && !recorded.nodes[edge.to.node].isFifo;
  }

  bool HasLink(std::size_t node, End Edge::*end) const {
    return std::ranges::any_of(recorded.edges,
                               [&](const Edge& edge) { return IsLink(edge) && (edge.*end).node == node; });
  }

  std::size_t Add(Node node) {
    graph.nodes.push_back(std::move(node));
    return graph.nodes.size() - 1;
  }

  void Keep(std::size_t index, bool feeds) {
    Node node = recorded.nodes[index];
    std::string& plugIn = node.plugIn.text;
    if (plugIn.find('/') != plugIn.npos) plugIn = (std::filesystem::path(recording.workingFolder) / plugIn).string();
    kept[index] = Add(feeds ? std::move(node) : Stub(node, "null"));
  }

  static Node Stub(const Node& node, const std::string& plugIn) {
    Node stub;
    stub.name = node.name;
    stub.at = node.at;
    stub.route = node.route;
    stub.plugIn = {plugIn, node.plugIn.at};
    return stub;
  }

  std::optional<Error> Link(const Edge& edge) {
    Edge link = edge;
    link.to.node = kept.at(edge.to.node);
    if (const auto from = kept.find(edge.from.node); from != kept.end()) {
      link.from.node = from->second;
    } else {
      auto file = FileFor(edge);
      if (const auto* error = std::get_if<Error>(&file)) return *error;
      link.from.node = Add(std::get<Node>(std::move(file)));
      link.from.port.reset();
    }
    graph.edges.push_back(link);
    return std::nullopt;
  }

  /** What a source gave there, as a node. */
  Result<Node> FileFor(const Edge& edge) const {
    const Node& source = recorded.nodes[edge.from.node];
    const std::size_t port = edge.from.port.value_or(0);
    const auto output = std::ranges::find_if(
        recording.outputs, [&](const auto& one) { return one.node == source.name && one.port == port; });
    if (output == recording.outputs.end()) {
      return Error{source.at,
                   "nothing was recorded of what '" + source.name + "' gave at output " + std::to_string(port)};
    }
    Node node = Stub(source, "filesource");
    while (std::ranges::find(graph.nodes, node.name, &Node::name) != graph.nodes.end()) {
      node.name = source.name + '_' + std::to_string(port);
    }
    const Stream& stream = output->stream;
    for (const auto& [name, value] : {std::pair<std::string, std::string>{"path", output->path},
                                      {"format", FormatName(static_cast<SampleFormat>(stream.format))},
                                      {"rate", std::to_string(stream.rate)},
                                      {"channels", std::to_string(stream.channels)}}) {
      node.parameters.push_back({name, value, source.at, source.at});
    }
    return node;
  }

  const GraphDescription& recorded;
  const Recording& recording;
  GraphDescription graph;
  std::map<std::size_t, std::size_t> kept;  // from nodes of the recorded graph to those of the replay
};

/** The samples of a file, in turn. */
class Samples {
 public:
  explicit Samples(const std::string& path) : file(path, std::ios::binary) {}
  /** @return how many bytes came. */
  std::size_t Read(std::vector<char>& to) {
    file.read(to.data(), static_cast<std::streamsize>(to.size()));
    return static_cast<std::size_t>(file.gcount());
  }

 private:
  std::ifstream file;
};

std::uint64_t SamplesIn(const std::string& path, std::size_t sampleBytes) {
  std::error_code none;
  const auto bytes = std::filesystem::file_size(path, none);
  return none ? 0 : bytes / sampleBytes;
}

/** Calls `differs` with the number of each sample that is another one in the two files. */
template <class Differs>
void ForDifferences(const std::string& one, const std::string& other, std::size_t sampleBytes, std::uint64_t samples,
                    Differs differs) {
  constexpr std::size_t SAMPLES_AT_ONCE = 16384;
  Samples a(one), b(other);
  for (std::uint64_t at = 0; at < samples;) {
    const auto count = std::min<std::uint64_t>(SAMPLES_AT_ONCE, samples - at);
    std::vector<char> left(count * sampleBytes), right(count * sampleBytes);
    if (a.Read(left) != left.size() || b.Read(right) != right.size()) return;
    for (std::size_t i = 0; left != right && i < count; ++i) {
      const auto begin = static_cast<std::ptrdiff_t>(i * sampleBytes);
      const auto end = begin + static_cast<std::ptrdiff_t>(sampleBytes);
      if (!std::equal(left.begin() + begin, left.begin() + end, right.begin() + begin)) differs(at + i);
    }
    at += count;
  }
}

}  // namespace

Result<Recording> ReadRecording(const std::string& folder) { return ManifestReader(folder).Read(); }

Result<GraphDescription> ReplayOf(const GraphDescription& recorded, const Recording& recording) {
  return Replacer(recorded, recording).Replace();
}

// What a killed process had not written yet is missing at the end of each of its files.
Graph::Comparison Compare(const Recording& recording, const RecordedOutput& output, const std::string& replayed,
                          std::chrono::nanoseconds settling) {
  const std::size_t sampleBytes = BytesOf(output.stream);
  Graph::Comparison found;
  found.block = output.node;
  found.output = output.port;
  found.rate = output.stream.rate;
  found.recorded = static_cast<std::uint64_t>(output.stream.length);
  found.replayed = SamplesIn(replayed, sampleBytes);
  found.compared = std::min(found.recorded, found.replayed);
  const double patience = std::chrono::duration<double>(settling).count() * found.rate;
  const auto mayDiffer = output.isFromStart ? 0 : std::min(static_cast<std::uint64_t>(patience), found.compared / 2);
  ForDifferences(output.path, replayed, sampleBytes, found.compared, [&](std::uint64_t sample) {
    if (sample < mayDiffer) {
      found.settled = sample + 1;
    } else if (!found.firstDifference) {
      found.firstDifference = sample;
    }
  });
  const bool isShort = found.replayed < found.recorded && recording.isComplete;
  if (isShort && !found.firstDifference) found.firstDifference = found.replayed;
  return found;
}

}  // namespace vorn::graph
