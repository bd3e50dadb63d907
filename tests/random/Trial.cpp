#include "Trial.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include <vorn/Plugin.h>

#include "GraphMaker.h"
#include "testkit/Samples.h"

namespace randomgraphs {
namespace {

namespace fs = std::filesystem;

constexpr long MOST_NOISE = 60000;  // samples; more than any source has

std::string VornRun() {
  const char* const other = std::getenv("VORN_RUN");
  return other == nullptr ? VORN_RUN : other;
}

void Write(const fs::path& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

std::vector<double> Read(const fs::path& path, vorn::SampleFormat format) {
  const std::string bytes = Contents(path);
  return testkit::Decoded(format, {bytes.begin(), bytes.end()});
}

std::size_t SampleBytes(const Node& node) { return node.channels * vorn::BytesPerSample(node.format); }

/** A line without its numbers and names, so that many lines make one kind. */
std::string Kind(const std::string& text) {
  std::string kind;
  bool isQuoted = false;
  for (const char c : text.substr(0, text.find('\n'))) {
    const bool isDigit = c >= '0' && c <= '9';
    if (c == '\'') isQuoted = !isQuoted;
    if (isQuoted && c != '\'') continue;
    if (!isDigit) kind += c;
    if (isDigit && (kind.empty() || kind.back() != '#')) kind += '#';
  }
  return kind;
}

/** Where the system grants no network namespaces, one process at a time has the console, and others say that they have not. */
std::string WithoutConsole(const std::string& said) {
  std::istringstream lines(said);
  std::string rest;
  for (std::string line; std::getline(lines, line);) {
    if (line.find("can't listen to vrdb") == std::string::npos) rest += line + '\n';
  }
  return rest;
}

std::string Place(const std::vector<double>& levels, std::size_t at, unsigned channels) {
  std::ostringstream text;
  text << " at sample " << at / channels << ", channel " << at % channels << ": ";
  text.precision(9);
  for (std::size_t i = at; i < std::min(levels.size(), at + 4); ++i) text << levels[i] << ' ';
  return text.str();
}

}  // namespace

Bench::Bench(fs::path newFolder) : folder(std::move(newFolder)) { fs::create_directories(folder); }
Bench::~Bench() {
  std::error_code ignored;
  fs::remove_all(folder, ignored);
}

std::optional<Failure> Bench::Try(const Graph& graph) {
  Prepare(graph);
  return Judge(graph, Run(graph));
}

void Bench::Prepare(const Graph& graph) {
  for (const auto& entry : fs::directory_iterator(folder)) fs::remove_all(entry);
  for (const std::size_t file : NodesOf(graph, Work::FILE)) {
    const auto bytes = testkit::Encoded(graph.nodes[file].format, *FileContents(graph, file).levels);
    Write(folder / FileOf(file), {bytes.begin(), bytes.end()});
  }
  Write(folder / "graph.dot", DotText(graph));
}

Ended Bench::Run(const Graph& graph) {
  std::vector<std::string> words{VornRun(), "-q", "--json", "graph.dot"};
  std::optional<Interruption> interruption;
  if (graph.ending == Ending::DURATION) {
    words.insert(words.begin() + 1, {"--duration", std::to_string(graph.endMicros / 1000) + "ms"});
  }
  if (graph.ending == Ending::SIGNAL) {
    const std::size_t tap = graph.nodes[NodesOf(graph, Work::FILE)[0]].tap;
    interruption = {SIGINT, folder / FileOf(tap), std::chrono::microseconds(graph.endMicros)};
  }
  command.clear();
  for (const std::string& word : words) command += word + ' ';
  if (interruption) command += "(SIGINT " + std::to_string(graph.endMicros) + " us after the first samples)";
  return RunIn(folder, words, interruption);
}

std::optional<Failure> Bench::Judge(const Graph& graph, const Ended& newEnded) {
  Ended ended = newEnded;
  ended.err = WithoutConsole(ended.err);
  const std::string said = ended.err.empty() ? "" : "\nstandard error: " + ended.err;
  if (ended.hung) return Failure{"hangs", "killed after " + std::to_string(HangLimit().count()) + " ms" + said};
  const int expected = graph.ending == Ending::SIGNAL ? -SIGINT : 0;
  if (ended.status != expected) {
    const std::string status = (ended.status < 0 ? "signal " : "exit ") + std::to_string(std::abs(ended.status));
    return Failure{status + ": " + Kind(ended.err),
                   "expected status " + std::to_string(expected) + ", got " + std::to_string(ended.status) + said};
  }
  if (!ended.err.empty()) return Failure{"says: " + Kind(ended.err), "status 0" + said};
  const auto noise = [this](const Node& node, long samples) { return Noise(node, samples); };
  for (const auto& [sink, signal] : ExpectedAtSinks(graph, TappedLengths(graph), noise)) {
    auto failure =
        graph.nodes[sink].work == Work::NULL_SINK ? JudgeNull(sink, signal, ended.out) : JudgeFile(graph, sink, signal);
    if (failure) return failure;
  }
  return std::nullopt;
}

/** Whether the readings of the block say as many samples. */
std::optional<Failure> Bench::JudgeNull(std::size_t sink, const Signal& expected, const std::string& json) const {
  const std::size_t block = json.find('"' + NameOf(sink) + "\": {");
  const std::string name = "\"samples\": ";
  const std::size_t reading = block == std::string::npos ? block : json.find(name, block);
  if (reading == std::string::npos) return Failure{"no figures", NameOf(sink) + " is missing in " + json};
  const long samples = std::atol(&json[reading + name.size()]);
  if (samples == expected.samples) return std::nullopt;
  return Failure{
      samples < expected.samples ? "too few samples" : "too many samples",
      NameOf(sink) + ": expected " + std::to_string(expected.samples) + " samples, got " + std::to_string(samples)};
}

std::optional<Failure> Bench::JudgeFile(const Graph& graph, std::size_t sink, const Signal& expected) const {
  const Node& node = graph.nodes[sink];
  const std::vector<double> got = Read(folder / FileOf(sink), node.format);
  const std::size_t wanted = static_cast<std::size_t>(expected.samples) * node.channels;
  std::string text = NameOf(sink) + ": expected " + std::to_string(expected.samples) + " samples, got " +
                     std::to_string(got.size() / node.channels);
  bool isSame = true;
  if (expected.levels) {
    const auto [a, b] = std::mismatch(got.begin(), got.end(), expected.levels->begin(), expected.levels->end());
    isSame = a == got.end() || b == expected.levels->end();
    const auto at = static_cast<std::size_t>(a - got.begin());
    if (!isSame) {
      text += "\nexpected" + Place(*expected.levels, at, node.channels) + "\n     got" + Place(got, at, node.channels);
    }
  }
  if (got.size() == wanted) return isSame ? std::nullopt : std::optional(Failure{"other samples", text});
  const std::string howMany = got.size() < wanted ? "too few samples" : "too many samples";
  return Failure{isSame ? howMany : howMany + ", and others", text};
}

/** How far sources came that others stopped. */
std::map<std::size_t, long> Bench::TappedLengths(const Graph& graph) const {
  std::map<std::size_t, long> lengths;
  for (const std::size_t file : NodesOf(graph, Work::FILE)) {
    const Node& node = graph.nodes[file];
    if (node.tap == 0) continue;
    lengths[file] = static_cast<long>(fs::file_size(folder / FileOf(node.tap)) / SampleBytes(node));
  }
  return lengths;
}

std::map<std::size_t, std::string> Bench::Got(const Graph& graph) const {
  std::map<std::size_t, std::string> got;
  for (const std::size_t sink : NodesOf(graph, Work::FILE_SINK)) got[sink] = Contents(folder / FileOf(sink));
  return got;
}

/** From `tone` without a graph around; in a folder beside, since a trial may be running. */
Signal Bench::Noise(const Node& node, long samples) {
  const std::string args = "white samples=" + std::to_string(MOST_NOISE) + " seed=" + std::to_string(node.seed) +
                           " format=" + vorn::FormatName(node.format) + " channels=" + std::to_string(node.channels);
  const auto known = noises.find(args);
  if (known != noises.end()) {
    const auto count = static_cast<std::ptrdiff_t>(samples) * node.channels;
    const auto& all = *known->second.levels;
    return {samples, node.channels, std::make_shared<const std::vector<double>>(all.begin(), all.begin() + count)};
  }
  const fs::path beside = folder.string() + ".noise";
  fs::create_directories(beside);
  const Ended ended = RunIn(beside, {VornRun(), "-q", "-e", "tone " + args + " ! filesink noise.raw"});
  Signal all{MOST_NOISE, node.channels, nullptr};
  all.levels = std::make_shared<const std::vector<double>>(Read(beside / "noise.raw", node.format));
  fs::remove_all(beside);
  if (ended.status != 0 || all.levels->size() != MOST_NOISE * node.channels) {
    throw std::runtime_error("tone " + args + " makes no noise: " + ended.err);
  }
  noises[args] = std::move(all);
  return Noise(node, samples);
}

std::optional<Failure> TrySeed(Bench& bench, std::uint64_t seed, bool again) {
  const Graph graph = GraphMaker(seed, 0).Make();
  if (auto failure = bench.Try(graph)) return failure;
  if (!again || graph.ending != Ending::BY_ITSELF) return std::nullopt;
  const auto got = bench.Got(graph);
  const Graph other = GraphMaker(seed, 1).Make();
  if (auto failure = bench.Try(other)) return failure;
  for (const auto& [sink, bytes] : bench.Got(other)) {
    if (bytes != got.at(sink)) return Failure{"frames matter", NameOf(sink) + " gets other samples with other frames"};
  }
  return std::nullopt;
}

}  // namespace randomgraphs
