#include "Trial.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include <vorn/Plugin.h>

#include "GraphMaker.h"
#include "testkit/Samples.h"

namespace randomgraphs {
namespace {

constexpr long MOST_NOISE = 60000;                     // samples; more than any source has
constexpr std::uint64_t FRAMES_AGAIN = 5;              // every so many-th graph is run with other frames as well
constexpr const char* LISTENS_NOT = "listen to vrdb";  // said where the system grants no network namespaces

std::string VornRun() {
  const char* const other = std::getenv("VORN_RUN");
  return other == nullptr ? VORN_RUN : other;
}

/** What was said on standard error, as far as it is of the graph. */
std::string OfTheGraph(const std::string& said) {
  std::istringstream lines(said);
  std::string rest;
  for (std::string line; std::getline(lines, line);) {
    if (line.find(LISTENS_NOT) == line.npos) rest += line + '\n';
  }
  return rest;
}

/** The first line without its numbers and names, so that many lines make one kind. */
std::string Kind(const std::string& text) {
  std::string kind;
  bool isQuoted = false;
  for (const char c : text.substr(0, text.find('\n'))) {
    isQuoted = isQuoted != (c == '\'');
    if (!isQuoted && (c < '0' || c > '9')) kind += c;
  }
  return kind;
}

Failure WrongCount(std::size_t sink, long expected, long got, const std::string& more = "") {
  return {(got < expected ? "too few samples" : "too many samples") + std::string(more.empty() ? "" : ", and others"),
          NameOf(sink) + ": expected " + std::to_string(expected) + " samples, got " + std::to_string(got) + more};
}

}  // namespace

std::optional<Failure> Bench::Try(std::uint64_t seed) {
  const Graph graph = GraphMaker(seed, 0).Make();
  if (auto failure = Try(graph)) return failure;
  if (seed % FRAMES_AGAIN != 0 || graph.ending != Ending::BY_ITSELF) return std::nullopt;
  const auto got = Got(graph);
  const Graph other = GraphMaker(seed, 1).Make();
  if (auto failure = Try(other)) return failure;
  if (Got(other) == got) return std::nullopt;
  return Failure{"frames matter", "a sink gets other samples with other frames"};
}

std::optional<Failure> Bench::Try(const Graph& graph) {
  const testkit::Ended ended = Run(graph);
  if (auto failure = JudgeEnd(graph, ended)) return failure;
  std::map<std::size_t, long> lengths;  // of sources that others stopped
  for (const std::size_t file : NodesOf(graph, Work::FILE)) {
    const Node& node = graph.nodes[file];
    if (node.tap != 0) lengths[file] = static_cast<long>(Levels(node.tap, node.format).size() / node.channels);
  }
  const auto noise = [this](const Node& node, long samples) { return Noise(node, samples); };
  for (const auto& [sink, signal] : ExpectedAtSinks(graph, lengths, noise)) {
    if (auto failure = JudgeSink(graph, sink, signal, ended.out)) return failure;
  }
  return std::nullopt;
}

testkit::Ended Bench::Run(const Graph& graph) {
  for (const auto& entry : std::filesystem::directory_iterator(folder / "")) std::filesystem::remove_all(entry);
  for (const std::size_t file : NodesOf(graph, Work::FILE)) {
    const auto bytes = testkit::Encoded(graph.nodes[file].format, *FileContents(graph, file).levels);
    testkit::Write(folder / FileOf(file), {bytes.begin(), bytes.end()});
  }
  testkit::Write(folder / "graph.dot", DotText(graph));
  std::vector<std::string> words{VornRun(), "-q", "--json", "graph.dot"};
  std::optional<testkit::Interruption> interruption;
  if (graph.ending == Ending::DURATION) {
    words.insert(words.begin() + 1, {"--duration", std::to_string(graph.endMicros / 1000) + "ms"});
  }
  if (graph.ending == Ending::SIGNAL) {
    const std::size_t tap = graph.nodes[NodesOf(graph, Work::FILE)[0]].tap;
    words.insert(words.begin() + 1, {"--set", NameOf(tap) + ".inplace=true"});  // its first samples are waited for
    interruption = {folder / FileOf(tap), testkit::Signals({SIGINT}), std::chrono::microseconds(graph.endMicros)};
  }
  command.clear();
  for (const std::string& word : words) command += word + ' ';
  if (interruption) command += "(SIGINT " + std::to_string(graph.endMicros) + " us after the first samples)";
  return testkit::RunIn(folder / "", words, interruption);
}

std::optional<Failure> Bench::JudgeEnd(const Graph& graph, const testkit::Ended& ended) const {
  const std::string said = OfTheGraph(ended.err);
  if (ended.hung)
    return Failure{"hangs", "killed after " + std::to_string(testkit::HangLimit().count()) + " ms\n" + said};
  const bool wasCut = graph.ending == Ending::DURATION && ended.status != 0;  // unless nobody wanted more
  const int expected = graph.ending == Ending::SIGNAL ? -SIGINT : wasCut ? 3 : 0;
  if (ended.status == expected && said.empty()) return std::nullopt;
  return Failure{"status " + std::to_string(ended.status) + ": " + Kind(said),
                 "expected status " + std::to_string(expected) + ", and nothing on standard error: " + said};
}

std::optional<Failure> Bench::JudgeSink(const Graph& graph, std::size_t sink, const Signal& expected,
                                        const std::string& json) const {
  const Node& node = graph.nodes[sink];
  if (node.work == Work::NULL_SINK) {  // the readings of the block have the count
    const std::string name = "\"samples\": ";
    const std::size_t reading = json.find(name, json.find('"' + NameOf(sink) + "\": {"));
    if (reading == json.npos) return Failure{"no figures", NameOf(sink) + " is missing in " + json};
    const long got = std::atol(&json[reading + name.size()]);
    return got == expected.samples ? std::nullopt : std::optional(WrongCount(sink, expected.samples, got));
  }
  const std::vector<double> got = Levels(sink, node.format);
  const long count = static_cast<long>(got.size() / node.channels);
  std::string others;
  if (expected.levels) {
    const auto [a, b] = std::mismatch(got.begin(), got.end(), expected.levels->begin(), expected.levels->end());
    if (a != got.end() && b != expected.levels->end()) {
      others = "; sample " + std::to_string((a - got.begin()) / node.channels) + " must be " + std::to_string(*b) +
               ", is " + std::to_string(*a);
    }
  }
  if (count != expected.samples) return WrongCount(sink, expected.samples, count, others);
  return others.empty() ? std::nullopt : std::optional(Failure{"other samples", NameOf(sink) + others});
}

std::map<std::size_t, std::string> Bench::Got(const Graph& graph) const {
  std::map<std::size_t, std::string> got;
  for (const std::size_t sink : NodesOf(graph, Work::FILE_SINK)) got[sink] = testkit::Contents(folder / FileOf(sink));
  return got;
}

std::vector<double> Bench::Levels(std::size_t node, vorn::SampleFormat format) const {
  const std::string bytes = testkit::Contents(folder / FileOf(node));
  return testkit::Decoded(format, {bytes.begin(), bytes.end()});
}

/** From `tone` without a graph around. */
Signal Bench::Noise(const Node& node, long samples) {
  const std::string args = "white samples=" + std::to_string(MOST_NOISE) + " seed=" + std::to_string(node.seed) +
                           " format=" + vorn::FormatName(node.format) + " channels=" + std::to_string(node.channels);
  Signal& all = noises[args];
  if (!all.levels) {
    const testkit::Folder beside;
    testkit::RunIn(beside / "", {VornRun(), "-q", "-e", "tone " + args + " ! filesink noise.raw"});
    const std::string bytes = testkit::Contents(beside / "noise.raw");
    all.levels = std::make_shared<std::vector<double>>(testkit::Decoded(node.format, {bytes.begin(), bytes.end()}));
    if (all.levels->size() != MOST_NOISE * node.channels) throw std::runtime_error("tone " + args + " makes no noise");
  }
  const auto first = all.levels->begin();
  const auto last = first + static_cast<std::ptrdiff_t>(samples) * node.channels;
  return {samples, node.channels, std::make_shared<const std::vector<double>>(first, last)};
}

}  // namespace randomgraphs
