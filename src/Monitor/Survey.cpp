#include "Monitor/Survey.h"

#include <unistd.h>
#include <vorn/kit/BlockView.h>
#include <vorn/kit/Interrupt.h>
#include <vorn/kit/Parameters.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <set>

#include "Block/Glimpse.h"
#include "Block/SampleFormat.h"
#include "Block/Topology.h"

namespace vorn::monitor {
namespace {

using Nanos = std::chrono::nanoseconds;

double Seconds(Nanos time) { return std::chrono::duration<double>(time).count(); }
double Micros(Nanos time) { return std::chrono::duration<double, std::micro>(time).count(); }

Object DescribeProcess() {
  Object object;
  object.Add("pid", getpid()).Add("name", program_invocation_short_name).Add("uid", geteuid());
  return object;
}

Object DescribeEnd(const Endpoint& ep) {
  Object end;
  end.Add("block", ep.Owner()->Name()).Add("port", ep.Index());
  return end;
}

// The next two are called with the topology lock.

Object DescribeLink(const Link& link) {
  const FrameBuffer& frame = *link.SourceEp()->FB();
  Object object;
  object.Add("name", link.Name())
      .Add("from", DescribeEnd(*link.SourceEp()))
      .Add("to", DescribeEnd(*link.SinkEp()))
      .Add("rate", Glimpse(frame.rate))
      .Add("format", FormatToString(Glimpse(frame.format)))
      .Add("channels", Glimpse(frame.channels))
      .Add("samplesPerFrame", Glimpse(frame.samplesPerFrame));
  return object;
}

Object DescribeBlock(const RouteImpl& route, const Block& block) {
  Object object;
  object.Add("name", block.Name()).Add("first", block.IsFirst()).Add("last", block.IsLast());
  const auto* const origin = route.OriginOf_l(&block);
  if (!origin) return object;
  List args;
  for (const std::string& arg : origin->args) args.Add(Quoted(arg));
  return object.Add("label", origin->label).Add("plugIn", origin->soFileName).Add("args", args);
}

Object DescribeRoute(const RouteImpl& route) {
  List blocks, links;
  {
    const Topology::Lock lock;
    for (const Block* block : route.Blocks_l()) blocks.Add(DescribeBlock(route, *block).Text());
    for (const Link* link : route.Links_l()) {
      if (link->SourceEp() && link->SinkEp()) links.Add(DescribeLink(*link).Text());
    }
  }
  Object object;
  object.Add("name", route.Name()).Add("status", StatusName(route)).Add("blocks", blocks).Add("links", links);
  return object;
}

const char* TypeName(ParameterType type) {
  static constexpr const char* NAMES[] = {"number", "integer", "flag", "word", "text"};
  return NAMES[static_cast<std::size_t>(type)];
}

Object DescribeParameter(const Parameters& parameters, std::size_t index) {
  const Parameter& parameter = parameters.Table()[index];
  const auto line = ParameterLine::Parse(parameters.Line(index)).value_or(ParameterLine());
  Object object;
  object.Add("id", parameter.id).Add("name", parameter.name).Add("type", TypeName(parameter.type));
  object.Add("unit", line.unit).Add("range", line.range).Add("value", line.value).Add("access", line.access);
  return object.Add("help", line.help).Add("given", line.isGiven);
}

/**
 * Calls `use` with each block's name and its parameters, null for a block without the kit. The block stays meanwhile;
 * one at a time, since a route that changes its graph waits for it.
 */
template <class Use>
void ForBlocks(const RouteImpl& route, Use use) {
  std::set<Block*> blocks;
  {
    const Topology::Lock lock;
    blocks = route.Blocks_l();
  }
  for (Block* block : blocks) {
    const Topology::Lock lock;
    if (!route.Blocks_l().contains(block)) continue;
    const BlockView* const view = RouteImpl::ViewOf(block);
    use(block->Name(), view ? view->parameters : nullptr);
  }
}

List DescribeReadings(const RouteImpl& route) {
  List readings;
  ForBlocks(route, [&](const std::string& name, const Parameters* parameters) {
    if (!parameters) return;
    for (std::size_t i = 0; i < parameters->Table().size(); ++i) {
      const Parameter& parameter = parameters->Table()[i];
      if (!parameter.IsReading()) continue;
      Object object;
      object.Add("block", name).Add("name", parameter.name).Add("unit", parameter.unit);
      readings.Add(object.Add("value", parameters->TextOf(i)).Text());
    }
  });
  return readings;
}

/** The longest frame that a first block sends: what a cycle has time for. */
Nanos FrameOf(const RouteImpl& route) {
  Nanos longest{0};
  const Topology::Lock lock;
  for (const Link* link : route.Links_l()) {
    if (!link->SourceEp() || !link->SourceEp()->Owner()->IsFirst()) continue;
    const FrameBuffer& frame = *link->SourceEp()->FB();
    const unsigned rate = Glimpse(frame.rate);
    if (rate == 0) continue;
    longest = std::max(longest, Nanos(Nanos::rep{1'000'000'000} * Glimpse(frame.samplesPerFrame) / rate));
  }
  return longest;
}

double Part(double part, double whole) { return whole > 0 ? part / whole : 0; }

/** @param cycles how many the total is of. */
Object Describe(const CallTimes::Summary& times, Nanos frame, std::uint64_t cycles) {
  const double total = Micros(times.total);
  Object object;
  object.Add("calls", times.calls)
      .Add("last", Micros(times.last))
      .Add("mean", Part(total, static_cast<double>(times.calls)))
      .Add("p99", Micros(times.p99))
      .Add("worst", Micros(times.worst))
      .Add("share", Part(total, Micros(frame) * static_cast<double>(cycles)));
  return object;
}

Object DescribeTiming(RouteImpl& route) {
  const Nanos frame = FrameOf(route);
  const CallTimes::Summary cycle = route.CycleTimes().Read();
  List blocks;
  {
    const Topology::Lock lock;
    for (const Block* block : route.Blocks_l()) {
      const CallTimes* const times = route.CallTimesOf_l(block);
      if (times) blocks.Add(Describe(times->Read(), frame, cycle.calls).Add("name", block->Name()).Text());
    }
  }
  Object object = Describe(cycle, frame, cycle.calls);
  object.Add("name", route.Name()).Add("frame", Micros(frame));
  return object.Add("worstSinceLook", Micros(route.CycleTimes().TakeWorst())).Add("blocks", blocks);
}

List DescribeFIFOs(const Registry& registry) {
  List fifos;
  for (const auto& fifo : registry.fifos) fifos.Add(DescribeFIFO(*fifo).Text());
  return fifos;
}

}  // namespace

Survey::Known& Survey::Look(const RouteImpl& route, Clock::time_point now) {
  Known& known = routes[route.Name()];
  known.standing.Look(route, now);
  known.isMet = true;
  return known;
}

void Survey::Tick(const View& view) {
  for (auto& [name, known] : routes) known.isMet = false;
  for (const auto& route : view.registry.routes) {
    Known& known = Look(*route, view.now);
    Mark(*route, known, view.now);
    CountXruns(*route, known);
    if (isTimed != route->IsTimed()) route->Time(isTimed);  // one that is new
  }
  std::erase_if(routes, [](const auto& entry) { return !entry.second.isMet; });
}

void Survey::Mark(const RouteImpl& route, Known& known, Clock::time_point now) {
  const unsigned long long frames = route.OkFrames() + route.ErrorFrames();
  const auto processor = route.ProcessorTime();
  const double passed = Seconds(now - known.marked);
  const bool isFirst = known.marked == Clock::time_point();
  known.framesPerSecond = isFirst || frames < known.frames ? 0 : static_cast<double>(frames - known.frames) / passed;
  known.processorShare = isFirst ? 0 : Seconds(processor - known.processor) / passed;
  known.marked = now;
  known.frames = frames;
  known.processor = processor;
}

void Survey::CountXruns(const RouteImpl& route, Known& known) {
  std::map<std::string, long> counted;
  ForBlocks(route, [&](const std::string& name, const Parameters* parameters) {
    if (!parameters) return;
    for (std::size_t i = 0; i < parameters->Table().size(); ++i) {
      const Parameter& parameter = parameters->Table()[i];
      if (parameter.IsReading() && parameter.name == "xruns")
        counted[name] = std::strtol(parameters->TextOf(i).c_str(), nullptr, 10);
    }
  });
  for (const auto& [block, count] : counted) {
    const long before = known.xruns[block];
    if (count <= before) continue;
    Chronicle::Tell(Chronicle::Kind::XRUN, route.Name(), block,
                    std::to_string(count - before) + " more, " + std::to_string(count) + " in all");
  }
  known.xruns = std::move(counted);
}

Object Survey::Graph(const View& view, bool hasConsole) const {
  List all;
  for (const auto& route : view.registry.routes) all.Add(DescribeRoute(*route).Text());
  Object answer = Begin("graph");
  answer.Add("process", DescribeProcess().Add("console", hasConsole).Add("library", VORN_VERSION));
  return answer.Add("routes", all).Add("fifos", DescribeFIFOs(view.registry));
}

Object Survey::Params(const View& view, const Words& names) const {
  List all;
  for (const auto& route : view.registry.routes) {
    if (!names.empty() && route->Name() != names[0]) continue;
    List blocks;
    ForBlocks(*route, [&](const std::string& name, const Parameters* parameters) {
      if (names.size() > 1 && name != names[1]) return;
      Object object;
      object.Add("name", name);
      if (parameters) {
        List list;
        for (std::size_t i = 0; i < parameters->Table().size(); ++i) list.Add(DescribeParameter(*parameters, i).Text());
        object.Add("parameters", list);
      }
      blocks.Add(object.Text());
    });
    if (names.size() > 1 && blocks.IsEmpty()) return Failure("params", "no block '" + names[1] + "' in " + names[0]);
    Object object;
    all.Add(object.Add("name", route->Name()).Add("blocks", blocks).Text());
  }
  if (!names.empty() && all.IsEmpty()) return Failure("params", "no route '" + names[0] + "'");
  return Begin("params").Add("routes", all);
}

Reason Survey::WhyOf(const RouteImpl& route, const View& view) {
  return ReasonOf(route, {view.registry, view.now,
                          [&](const RouteImpl& one) -> const Standing& { return Look(one, view.now).standing; }});
}

Object Survey::DescribeStats(RouteImpl& route, const View& view) {
  const Known& known = Look(route, view.now);
  const Reason reason = WhyOf(route, view);
  const auto [policy, priority] = route.Scheduling();
  long xruns = 0;
  for (const auto& [block, count] : known.xruns) xruns += count;
  Object object;
  object.Add("name", route.Name())
      .Add("status", StatusName(route))
      .Add("why", reason.why)
      .Add("text", reason.text)
      .Add("frames", route.OkFrames())
      .Add("errorFrames", route.ErrorFrames())
      .Add("framesPerSecond", known.framesPerSecond)
      .Add("inBlock", known.standing.block)
      .Add("since", Seconds(view.now - known.standing.since))
      .Add("processorSeconds", Seconds(route.ProcessorTime()))
      .Add("processorShare", known.processorShare)
      .Add("policy", policy)
      .Add("realTimePriority", priority)
      .Add("xruns", xruns)
      .Add("readings", DescribeReadings(route));
  if (route.IsTimed()) {
    const CallTimes::Summary cycle = route.CycleTimes().Read();
    object.Add("cycle", Describe(cycle, FrameOf(route), cycle.calls));
  }
  return object;
}

Object Survey::Stats(const View& view) {
  List all;
  for (const auto& route : view.registry.routes) all.Add(DescribeStats(*route, view).Text());
  const std::chrono::duration<double> time = std::chrono::system_clock::now().time_since_epoch();
  Object answer = Begin("stats").Add("time", time.count()).Add("process", DescribeProcess());
  return answer.Add("routes", all).Add("fifos", DescribeFIFOs(view.registry));
}

Object Survey::Why(const View& view, const std::string& name) {
  const auto& all = view.registry.routes;
  const auto route = std::ranges::find_if(all, [&](const auto& one) { return one->Name() == name; });
  if (route == all.end()) return Failure("why", "no route '" + name + "'");
  const Reason reason = WhyOf(**route, view);
  Object answer = Begin("why").Add("route", name).Add("status", StatusName(**route));
  return answer.Add("why", reason.why).Add("text", reason.text).Add(reason.members);
}

bool Survey::AwaitsReadings(const View& view, bool ask) {
  bool awaits = false;
  for (const auto& route : view.registry.routes) {
    if (route->CurrentStatus() != RouteImpl::RUNNING) continue;
    if (ask) route->AskForReadings();
    awaits = awaits || route->AwaitsReadings();
  }
  return awaits;
}

void Survey::SwitchTiming(const View& view, bool on) {
  isTimed = on;
  for (const auto& route : view.registry.routes) route->Time(on);
}

Object Survey::Timing(const View& view) const {
  List all;
  if (isTimed) {
    for (const auto& route : view.registry.routes) all.Add(DescribeTiming(*route).Text());
  }
  return Begin("timing").Add("on", isTimed).Add("routes", all);
}

}  // namespace vorn::monitor
