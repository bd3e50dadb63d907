#include "Monitor/Survey.h"

#include <algorithm>
#include <sstream>

#include "Block/Glimpse.h"
#include "Block/SampleFormat.h"
#include "Block/Topology.h"

namespace vorn::monitor {
namespace {

constexpr int VERSION = 1;
constexpr unsigned SHORTEST_PERIOD = 10;  // milliseconds
constexpr unsigned LONGEST_PERIOD = 3'600'000;
constexpr int SHARE_OF_THE_BUSY = 100;  // who uses a hundredth of the time, on a crowded machine, does not sleep

Object Begin(const char* request) {
  Object answer;
  answer.Add("version", VERSION).Add("request", request);
  return answer;
}

Object Failure(const std::string& text) {
  Object answer;
  answer.Add("version", VERSION).Add("error", text);
  return answer;
}

double Seconds(std::chrono::nanoseconds time) { return std::chrono::duration<double>(time).count(); }

const char* StatusName(RouteImpl::Status status) {
  static constexpr const char* NAMES[] = {"stopped", "running", "broken", "deleted"};
  return NAMES[status];
}

Object DescribeEnd(const Endpoint& ep) {
  Object end;
  end.Add("block", ep.Owner()->Name()).Add("port", ep.Index());
  return end;
}

/** With the topology lock. */
Object DescribeLink_l(const Link& link) {
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

Object DescribeRoute(const RouteImpl& route) {
  List blocks, links;
  {
    const Topology::Lock lock;
    for (const Block* block : route.Blocks_l()) {
      Object object;
      object.Add("name", block->Name()).Add("first", block->IsFirst()).Add("last", block->IsLast());
      if (const auto* origin = route.OriginOf_l(block)) {
        List args;
        for (const std::string& arg : origin->args) args.Add(Quoted(arg));
        object.Add("plugIn", origin->soFileName).Add("args", args);
      }
      blocks.Add(object.Text());
    }
    for (const Link* link : route.Links_l()) {
      if (link->SourceEp() && link->SinkEp()) links.Add(DescribeLink_l(*link).Text());
    }
  }
  Object object;
  object.Add("name", route.Name()).Add("status", StatusName(route.CurrentStatus()));
  object.Add("blocks", blocks).Add("links", links);
  return object;
}

/** Null for a block that is gone. With the topology lock. */
const Block* User_l(Block* const& user) {
  const Block* const block = Glimpse(user);
  return Topology::Exists_l(block) ? block : nullptr;
}

Object DescribeUser(Block* const& user) {
  Object object;
  const Topology::Lock lock;
  if (const Block* const block = User_l(user)) object.Add("route", block->RouteName()).Add("block", block->Name());
  return object;
}

Object DescribeFIFO(const RingBuffer& fifo) {
  const FIFOState state = fifo.State();
  Object object;
  object.Add("name", fifo.name)
      .Add("count", state.count)
      .Add("capacity", state.capacity)
      .Add("rate", fifo.Rate())
      .Add("writer", DescribeUser(fifo.writer))
      .Add("reader", DescribeUser(fifo.reader))
      .Add("writerSleeps", state.writerSleeps)
      .Add("readerSleeps", state.readerSleeps)
      .Add("writingEnded", state.writingEnded)
      .Add("readingEnded", state.readingEnded);
  return object;
}

unsigned long long FramesOf(const RouteImpl& route) { return route.OkFrames() + route.ErrorFrames(); }

}  // namespace

std::string Survey::Answer(const std::string& line, const Registry& registry, Clock::time_point now) {
  std::istringstream words(line);
  std::string request, argument, rest;
  words >> request >> argument >> rest;
  const bool isAlone = argument.empty();
  if (request == "graph" && isAlone) return Graph(registry).Text();
  if (request == "stats" && isAlone) return Stats(registry, now).Text();
  if (request == "why" && !isAlone && rest.empty()) return Why(registry, argument, now).Text();
  if (PeriodOf(line)) return Stats(registry, now).Text();
  return Failure("expected graph, stats, why ROUTE or watch MILLISECONDS (10 to 3600000, 0 for no more), got '" + line +
                 "'")
      .Text();
}

std::optional<std::chrono::milliseconds> Survey::PeriodOf(const std::string& line) {
  std::istringstream words(line);
  std::string request, rest;
  unsigned milliseconds = 0;
  if (!(words >> request >> milliseconds) || request != "watch" || words >> rest) return std::nullopt;
  if (milliseconds > LONGEST_PERIOD || (milliseconds > 0 && milliseconds < SHORTEST_PERIOD)) return std::nullopt;
  return std::chrono::milliseconds(milliseconds);
}

void Survey::Look(const Registry& registry, Clock::time_point now) {
  for (auto& [name, last] : seen) last.isMet = false;
  for (const auto& route : registry.routes) {
    Seen& last = seen[route->Name()];
    const unsigned long long frames = FramesOf(*route);
    std::string block = route->BlockNow();
    if (last.since == Clock::time_point() || last.frames != frames || last.block != block) {
      last = {frames, std::move(block), now, route->ProcessorTime(), true};
    }
    last.isMet = true;
  }
  std::erase_if(seen, [](const auto& entry) { return !entry.second.isMet; });
}

Object Survey::Graph(const Registry& registry) const {
  List routes, fifos;
  for (const auto& route : registry.routes) routes.Add(DescribeRoute(*route).Text());
  for (const auto& fifo : registry.fifos) fifos.Add(DescribeFIFO(*fifo).Text());
  Object answer = Begin("graph");
  return answer.Add("routes", routes).Add("fifos", fifos);
}

Object Survey::Stats(const Registry& registry, Clock::time_point now) {
  Look(registry, now);
  List routes, fifos;
  for (const auto& route : registry.routes) {
    const Seen& last = seen[route->Name()];
    Object object;
    object.Add("name", route->Name())
        .Add("status", StatusName(route->CurrentStatus()))
        .Add("frames", route->OkFrames())
        .Add("errorFrames", route->ErrorFrames())
        .Add("inBlock", last.block)
        .Add("since", Seconds(now - last.since))
        .Add("processorSeconds", Seconds(route->ProcessorTime()))
        .Add("realTimePriority", route->RealTimePriority());
    routes.Add(object.Text());
  }
  for (const auto& fifo : registry.fifos) fifos.Add(DescribeFIFO(*fifo).Text());
  Object answer = Begin("stats");
  return answer.Add("routes", routes).Add("fifos", fifos);
}

Object Survey::Why(const Registry& registry, const std::string& name, Clock::time_point now) {
  const auto route = std::ranges::find_if(registry.routes, [&](const auto& one) { return one->Name() == name; });
  if (route == registry.routes.end()) return Failure("no route '" + name + "'");
  Look(registry, now);
  Object answer = Begin("why");
  answer.Add("route", name).Add("status", StatusName((*route)->CurrentStatus()));
  if ((*route)->IsLost()) {
    answer.Add("why", "dead").Add("reason", (*route)->LastFailure());
  } else if ((*route)->CurrentStatus() == RouteImpl::RUNNING) {
    WhyItRuns(answer, **route, registry, now);
  } else if ((*route)->CurrentStatus() == RouteImpl::BROKEN_RUNNING) {
    answer.Add("why", "broken").Add("reason", (*route)->WhyIncomplete());
  } else {
    answer.Add("why", "stopped").Add("since", Seconds((*route)->SinceStatus())).Add("reason", (*route)->LastFailure());
  }
  return answer;
}

void Survey::WhyItRuns(Object& answer, const RouteImpl& route, const Registry& registry, Clock::time_point now) {
  const Seen& last = seen[route.Name()];
  const auto stood = now - last.since;
  constexpr std::chrono::milliseconds PATIENCE(200);  // a frame may be as long
  if (last.block.empty() || stood < PATIENCE) {
    answer.Add("why", "runs");
    return;
  }
  answer.Add("block", last.block).Add("since", Seconds(stood));
  for (const auto& fifo : registry.fifos) {
    const FIFOState state = fifo->State();
    const auto isThis = [&](Block* const& user) {
      const Topology::Lock lock;
      const Block* const block = User_l(user);
      return block && block->Name() == last.block && block->RouteName() == route.Name();
    };
    const bool reads = state.readerSleeps && isThis(fifo->reader);
    if (!reads && !(state.writerSleeps && isThis(fifo->writer))) continue;
    answer.Add("why", "waits").Add("for", reads ? "samples" : "room").Add("fifo", DescribeFIFO(*fifo));
    std::string other;
    {
      const Topology::Lock lock;
      if (const Block* const block = User_l(reads ? fifo->writer : fifo->reader)) other = block->RouteName();
    }
    const auto peer = std::ranges::find_if(registry.routes, [&](const auto& one) { return one->Name() == other; });
    if (peer != registry.routes.end()) {
      Object about;
      about.Add("route", other)
          .Add("status", (*peer)->IsLost() ? "dead" : StatusName((*peer)->CurrentStatus()))
          .Add("since", Seconds((*peer)->SinceStatus()));
      answer.Add("other", about);
    }
    return;
  }
  const auto busy = route.ProcessorTime() - last.busy;
  answer.Add("why", SHARE_OF_THE_BUSY * busy > stood ? "busy" : "sleeps").Add("processorSeconds", Seconds(busy));
}

}  // namespace vorn::monitor
