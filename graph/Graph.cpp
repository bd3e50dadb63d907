#include <vorn/Graph.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>

#include "Cuts.h"
#include "Figures.h"
#include "FileUse.h"
#include "GraphFile.h"
#include "Json.h"
#include "OneLiner.h"
#include "PlanText.h"
#include "Readings.h"
#include "Recording.h"
#include "Resolver.h"
#include "Runner.h"
#include "Settings.h"

namespace vorn {
namespace {

/** A folder that goes with the object. */
class TemporaryFolder {
 public:
  TemporaryFolder() : path((std::filesystem::temp_directory_path() / "vorn-replay-XXXXXX").string()) {
    if (!mkdtemp(path.data())) path.clear();
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    if (!path.empty()) std::filesystem::remove_all(path, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  /** Empty where it could not be made. */
  const std::string& Path() const { return path; }

 private:
  std::string path;
};

using graph::GraphDescription;
using graph::GraphPlan;

graph::Result<std::string> ReadText(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::string text;
  std::array<char, 4096> part;  // read(), unlike an iterator, tells of a failure by the stream's state: a folder is one
  while (stream.read(part.data(), part.size()) || stream.gcount() > 0) {
    text.append(part.data(), static_cast<std::size_t>(stream.gcount()));
  }
  if (!stream.is_open() || stream.bad()) return Graph::Error{{path, 0, 0}, "cannot be read; expected a graph file"};
  return text;
}

}  // namespace

// What is below stands on what is above: the blocks go before the callbacks of their routes do.
struct Graph::Impl {
  explicit Impl(graph::Result<GraphDescription> read) {
    if (auto* error = std::get_if<Error>(&read)) {
      unreadable = *error;
    } else {
      description = std::get<GraphDescription>(std::move(read));
      unreadable = graph::Cut(description);
    }
  }

  std::optional<Error> Plan();
  std::optional<Error> Build();
  Result Run(const RunOptions& options);
  std::variant<std::vector<Comparison>, Error> Compare(std::chrono::nanoseconds settling) const;
  void TakeDown();

  std::optional<Error> unreadable;
  GraphDescription description;
  graph::LoadedPlugIns plugIns;
  std::string dumpFolder;
  std::optional<graph::Recording> recording;  // of a replay
  std::unique_ptr<TemporaryFolder> replayFolder;
  graph::LogTail log;
  graph::RouteEvents events;
  std::deque<graph::RouteWatch> watches;
  std::unique_ptr<graph::LiveGraph> live;
  std::optional<GraphPlan> plan;  // with it there is a live graph
  bool isBuilt = false;
  bool wasRun = false;
};

void Graph::Impl::TakeDown() {
  plan.reset();
  live.reset();
  watches.clear();
  events.Take();
  isBuilt = wasRun = false;
}

std::optional<Graph::Error> Graph::Impl::Plan() {
  if (unreadable || plan) return unreadable;
  TakeDown();
  std::vector<graph::RouteWatch*> routes;
  for (std::size_t i = 0; i < description.routes.size(); ++i) routes.push_back(&watches.emplace_back(i, events));
  live = std::make_unique<graph::LiveGraph>(description, routes, log);
  auto made = graph::Resolve(description, plugIns, [this](std::size_t node, const graph::BlockPlan& block) {
    return live->AskForStreams(node, block);
  });
  if (auto* error = std::get_if<Error>(&made)) {
    live.reset();
    return *error;
  }
  plan = std::get<GraphPlan>(std::move(made));
  return std::nullopt;
}

std::optional<Graph::Error> Graph::Impl::Build() {
  if (wasRun) TakeDown();
  if (auto error = Plan()) return error;
  if (isBuilt) return std::nullopt;
  if (auto error = live->Build(*plan)) {
    TakeDown();
    return error;
  }
  isBuilt = true;
  return std::nullopt;
}

Graph::Result Graph::Impl::Run(const RunOptions& options) {
  if (auto error = Build()) return {End::NOT_BUILT, 0, error};
  wasRun = true;
  for (graph::RouteWatch& watch : watches) watch.SetPriority(options.realtimePriority);
  if (recording && dumpFolder.empty()) {
    replayFolder = std::make_unique<TemporaryFolder>();
    dumpFolder = replayFolder->Path();
    if (dumpFolder.empty()) return {End::FAILURE, 0, Error{{}, "no folder for the replay: TMPDIR is not writable"}, 0};
  }
  if (auto error = dumpFolder.empty() ? std::nullopt : live->SetDump(dumpFolder)) {
    return {End::FAILURE, 0, error, 0};
  }
  const Result result = graph::Runner(*plan, *live, events, log, options).Run();
  if (recording) live->EndDump();
  return result;
}

std::variant<std::vector<Graph::Comparison>, Graph::Error> Graph::Impl::Compare(
    std::chrono::nanoseconds settling) const {
  if (!recording || !wasRun) return Error{{}, "nothing to compare; expected a recording, and a run of it"};
  std::vector<Comparison> comparisons;
  for (const graph::RecordedOutput& output : recording->outputs) {
    if (output.isOfSource) continue;
    const auto node = std::ranges::find(description.nodes, output.node, &graph::Node::name);
    if (node == description.nodes.end()) continue;
    const auto index = static_cast<std::size_t>(node - description.nodes.begin());
    comparisons.push_back(graph::Compare(
        *recording, output, dumpFolder + '/' + live->DumpName(index, output.port, output.stream), settling));
  }
  const auto isEmpty = [](const Comparison& one) { return one.recorded == 0; };
  if (!std::ranges::all_of(comparisons, isEmpty)) return comparisons;
  return Error{{recording->graphPath, 0, 0},
               recording->limit.empty() ? "no block but sources was recorded, so there is nothing to compare"
                                        : "cannot be replayed: " + recording->limit};
}

std::string Graph::Place::ToString() const {
  if (line == 0) return file;
  return file + ':' + std::to_string(line) + ':' + std::to_string(column);
}

std::string Graph::Error::ToString() const {
  const std::string where = at.ToString();
  return where.empty() ? text : where + ": " + text;
}

const char* Graph::Result::Name() const {
  switch (end) {
    case End::STREAM: return "end of stream";
    case End::DURATION: return "end of duration";
    case End::STOPPED: return signal != 0 ? "signal" : "stopped";
    case End::FAILURE: return "failure";
    case End::NOT_BUILT: return "not built";
  }
  return "?";
}

Graph Graph::FromFile(const std::string& path, const Variables& variables) {
  const auto text = ReadText(path);
  if (const auto* error = std::get_if<Error>(&text)) return Graph(std::make_unique<Impl>(*error));
  return FromText(std::get<std::string>(text), path, variables);
}

Graph Graph::FromText(const std::string& text, const std::string& name, const Variables& variables) {
  return Graph(std::make_unique<Impl>(graph::ReadGraphFile(text, name, variables)));
}

Graph Graph::FromPipeline(const std::string& text, const std::string& name) {
  return Graph(std::make_unique<Impl>(graph::ReadOneLiner(text, name)));
}

Graph Graph::FromRecording(const std::string& folder) {
  auto recording = graph::ReadRecording(folder);
  if (const auto* error = std::get_if<Error>(&recording)) return Graph(std::make_unique<Impl>(*error));
  const std::string& path = std::get<graph::Recording>(recording).graphPath;
  const auto text = ReadText(path);
  if (const auto* error = std::get_if<Error>(&text)) return Graph(std::make_unique<Impl>(*error));
  const auto recorded = graph::ReadGraphFile(std::get<std::string>(text), path, {});
  if (const auto* error = std::get_if<Error>(&recorded)) return Graph(std::make_unique<Impl>(*error));
  auto impl = std::make_unique<Impl>(
      graph::ReplayOf(std::get<GraphDescription>(recorded), std::get<graph::Recording>(recording)));
  impl->recording = std::get<graph::Recording>(std::move(recording));
  return Graph(std::move(impl));
}

Graph::Graph(std::unique_ptr<Impl> newImpl) : impl(std::move(newImpl)) {}
Graph::Graph(Graph&& other) noexcept = default;
Graph& Graph::operator=(Graph&& other) noexcept = default;
Graph::~Graph() = default;

std::optional<Graph::Error> Graph::Set(const std::string& setting, const std::string& source) {
  if (impl->unreadable) return impl->unreadable;
  impl->TakeDown();
  return graph::ApplySetting(impl->description, impl->plugIns, setting, source);
}

std::optional<Graph::Error> Graph::SetAll(const std::string& setting, const std::string& source) {
  if (impl->unreadable) return impl->unreadable;
  impl->TakeDown();
  return graph::ApplyToAll(impl->description, impl->plugIns, setting, source);
}

std::optional<Graph::Error> Graph::SetDump(const std::string& folder) {
  std::error_code problem;
  std::filesystem::create_directories(folder, problem);
  if (problem) return Error{{}, "'" + folder + "' cannot be made: " + problem.message()};
  if (impl->recording &&
      std::filesystem::equivalent(folder, std::filesystem::path(impl->recording->graphPath).parent_path(), problem)) {
    return Error{{}, "'" + folder + "' is the recording itself; expected another folder"};
  }
  impl->dumpFolder = folder;
  return std::nullopt;
}

void Graph::TakeLog(std::optional<int> shownLevel) {
  // The library reads its configuration first, so that ours of the log is the last.
  impl->log.Take(shownLevel, [] { Vorn::Instance()->HasConsole(); });
}

std::optional<Graph::Error> Graph::Plan() { return impl->Plan(); }

std::optional<Graph::Error> Graph::Check() { return impl->Build(); }

Graph::Result Graph::Run(const RunOptions& options) {
  const Result result = impl->Run(options);
  impl->events.TakeStop();
  return result;
}

void Graph::Stop(int signal) noexcept { impl->events.AskToStop(signal); }

std::variant<std::vector<Graph::Comparison>, Graph::Error> Graph::CompareWithRecording(
    std::chrono::nanoseconds settling) const {
  if (impl->unreadable) return *impl->unreadable;
  return impl->Compare(settling);
}

std::string Graph::LimitOfRecording() const { return impl->recording ? impl->recording->limit : std::string(); }

Graph::Figures Graph::CurrentFigures() const {
  return impl->isBuilt ? graph::FiguresOf(*impl->plan, *impl->live) : Figures();
}

std::vector<Graph::Reading> Graph::CurrentReadings() const {
  std::vector<Reading> all;
  for (std::size_t i = 0; impl->isBuilt && i < impl->plan->blocks.size(); ++i) {
    for (Reading& reading : graph::ReadingsOf(*impl->plan, *impl->live, i)) all.push_back(std::move(reading));
  }
  return all;
}

bool Graph::WritesStandardOutput() const { return impl->plan && graph::WritesStandardOutput(*impl->plan); }

std::string Graph::ToDot() const { return impl->plan ? graph::DotOf(*impl->plan) : std::string(); }

std::string Graph::ToTable() const { return impl->plan ? graph::TableOf(*impl->plan) : std::string(); }

std::string Graph::ToJson() const { return impl->plan ? graph::JsonOf(*impl->plan) : std::string(); }

std::string Graph::ToJson(const Result& result) const {
  return impl->isBuilt ? graph::JsonOf(*impl->plan, *impl->live, result) : graph::JsonOf(result);
}

std::string Graph::ToJson(const Result& result, const std::vector<Comparison>& comparisons) const {
  return graph::WithReplay(ToJson(result), comparisons, LimitOfRecording());
}

}  // namespace vorn
