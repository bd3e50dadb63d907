// The console's survey: every route and FIFO as a text, and as a Graphviz graph.
//
// Both come from one walk over copies of the registries. Each route's graph is read under the topology lock; nothing
// here waits for a route, so the report answers while one is stuck inside a block.
#include <sstream>

#include "Block/Glimpse.h"
#include "Block/SampleFormat.h"
#include "Block/Topology.h"
#include "Line.h"
#include "Vorn/VornImpl.h"

namespace vorn {
namespace {

#define WEB_ADDRESS "https://example.org/vorn"

FrameBuffer FrameOf(const Endpoint& ep) {
  FrameBuffer frame;
  frame.format = Glimpse(ep.FB()->format);
  frame.channels = Glimpse(ep.FB()->channels);
  frame.samplesPerFrame = Glimpse(ep.FB()->samplesPerFrame);
  frame.rate = Glimpse(ep.FB()->rate);
  frame.timestamp = Glimpse(ep.FB()->timestamp);
  return frame;
}

const char* StatusName(RouteImpl::Status status) {
  static constexpr const char* NAMES[] = {"STOPPED", "RUNNING", "BROKEN_RUNNING", "EXIT"};
  return NAMES[status];
}

const char* Plural(unsigned long long count) { return count >= 2 ? "s" : ""; }

// The text.

std::string RouteLine(const RouteImpl& route) {
  const unsigned long long ok = route.OkFrames();
  const unsigned long long error = route.ErrorFrames();
  return Line("%s is %s, %llu frame%s processed OK, %llu error frame%s\n", route.Name().c_str(),
              StatusName(route.CurrentStatus()), ok, Plural(ok), error, Plural(error))
      .data();
}

const char* LinkName(const Link* link) { return link ? link->Name().c_str() : ""; }

std::string StampTail(long long stamp) {
  return stamp < 0 ? "\n" : Line(" %13lld.%06lld\n", stamp / 1000000, stamp % 1000000).data();
}

std::string InputLine(const Endpoint& ep) {
  const FrameBuffer frame = FrameOf(ep);
  return Line("\t\t(I%02zu) <-- %-7s%7uHz %8s %2uch %6ldsamples/frame", ep.Index(), LinkName(ep.AttachedLink()),
              frame.rate, FormatToString(frame.format), frame.channels, frame.samplesPerFrame)
             .data() +
         StampTail(frame.timestamp);
}

std::string OutputLine(const Endpoint& ep) {
  const FrameBuffer frame = FrameOf(ep);
  return Line("\t\t(O%02zu) --> %-7s%7uHz %8s %2uch %6ldsamples/frame", ep.Index(), LinkName(ep.AttachedLink()),
              frame.rate, FormatToString(frame.format), frame.channels, frame.samplesPerFrame)
             .data() +
         StampTail(frame.timestamp);
}

std::string BlockLines(const Block& block) {
  std::string text = Line("\t%s\n", block.Name().c_str()).data();
  for (const auto& [index, ep] : block.ActiveInEps()) text += InputLine(*ep);
  for (const auto& [index, ep] : block.ActiveOutEps()) text += OutputLine(*ep);
  return text;
}

std::string FIFOLine(RingBuffer& fifo) {
  long count = 0;
  {
    const std::lock_guard lock(fifo.Mutex());
    count = fifo.Count_l();
  }
  const long capacity = fifo.Capacity();
  return Line("%s %ld/%ld (%ld%%)\n", fifo.name.c_str(), count, capacity, capacity ? count * 100 / capacity : 0).data();
}

// The graph.

constexpr char GRAPH_HEAD[] =
    "digraph vorn {\n"
    "\tlabel=\"Created by vorn\\n" WEB_ADDRESS
    "\"\n"
    "\tnode [shape=\"box\", style=\"filled\", color=\"black\", fillcolor=\"yellow\"]\n"
    "\tedge [color=\"blue\"]\n";

std::string NodeId(const Block& block) { return block.RouteName() + "_" + block.Name(); }

std::string Node(const Block& block, const char* suffix) {
  return "\t\t" + NodeId(block) + " [label=\"" + block.Name() + suffix + "\"]\n";
}

std::string Edge(const Link& link) {
  const OutputEndpoint& source = *link.SourceEp();
  const InputEndpoint& sink = *link.SinkEp();
  const FrameBuffer frame = FrameOf(source);
  return Node(*source.Owner(), source.Owner()->IsFirst() ? "\\n(first)" : "") +
         Node(*sink.Owner(), sink.Owner()->IsLast() ? "\\n(last)" : "") +  //
         "\t\t" + NodeId(*source.Owner()) + "->" + NodeId(*sink.Owner()) + " [label=\"" + link.Name() + "\\n" +
         std::to_string(frame.rate) + "Hz\\n" + FormatToString(frame.format) + "\\n" + std::to_string(frame.channels) +
         "ch\", taillabel=\"" + std::to_string(source.Index()) + "\", headlabel=\"" + std::to_string(sink.Index()) +
         "\"]\n";
}

std::string Edges(const Block& block) {
  std::string text;
  for (const auto& [index, ep] : block.ActiveOutEps()) {
    const Link* link = ep->AttachedLink();
    if (link && link->SinkEp()) text += Edge(*link);
  }
  return text;
}

std::string ClusterHead(const std::string& name) {
  return "\tsubgraph cluster_" + name + " {\n\t\tlabel=\"" + name +
         "\"\n\t\tnode [shape=\"box\", style=\"filled\", color=\"black\", fillcolor=\"yellow\"]\n"
         "\t\tedge [color=\"blue\"]\n";
}

/** Blocks enter themselves as a FIFO's ends whenever they like, and may be gone since: only those that exist are shown. */
std::string FIFONode(const RingBuffer& fifo) {
  std::string text =
      "\t" + fifo.name + " [shape=\"ellipse\", style=\"filled\", color=\"black\", fillcolor=\"yellow\"]\n";
  const Topology::Lock lock;
  const Block* writer = Glimpse(fifo.writer);
  const Block* reader = Glimpse(fifo.reader);
  if (Topology::Exists_l(writer) && Topology::Exists_l(reader)) {
    text += "\t" + NodeId(*writer) + "->" + fifo.name + "->" + NodeId(*reader) + "\n";
  }
  return text;
}

}  // namespace

int VornImpl::OnCommand_status(std::stringstream& args, std::string& reply) {
  std::list<std::shared_ptr<RouteImpl>> allRoutes;
  std::list<std::shared_ptr<RingBuffer>> allFIFOs;
  {
    const std::lock_guard<std::mutex> lock(registryMutex);
    allRoutes = routes;
    allFIFOs = fifos;
  }
  std::string report = allRoutes.empty() ? "No route\n" : "";
  std::string graph = GRAPH_HEAD;
  for (const auto& route : allRoutes) {
    report += RouteLine(*route);
    graph += ClusterHead(route->Name());
    const Topology::Lock lock;
    for (const Block* block : route->Blocks_l()) {
      report += BlockLines(*block);
      graph += Edges(*block);
    }
    graph += "\t}\n";
  }
  if (allFIFOs.empty()) report += "No fifo\n";
  for (const auto& fifo : allFIFOs) {
    report += FIFOLine(*fifo);
    graph += FIFONode(*fifo);
  }
  graph += "}\n";

  std::string argument;
  if (!(args >> argument)) {
    reply = report;
  } else {
    reply = argument == "--dot" ? graph : "Invalid argument\n";
  }
  return 0;
}

}  // namespace vorn
